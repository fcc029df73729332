// Status values: 32 bits in the shape of an HRESULT (winerror.h). 0 is success, as is every positive value; a
// negative one is a failure.
#pragma once

#include <cstdint>

namespace velmora {

constexpr std::int32_t status_failed = static_cast<std::int32_t>(0x80004005u);            // E_FAIL
constexpr std::int32_t status_invalid_argument = static_cast<std::int32_t>(0x80070057u);  // E_INVALIDARG
constexpr std::int32_t status_unexpected = static_cast<std::int32_t>(0x8000FFFFu);        // E_UNEXPECTED
constexpr std::int32_t status_out_of_memory = static_cast<std::int32_t>(0x8007000Eu);     // E_OUTOFMEMORY
// ERROR_NOT_FOUND (1168) in this shape: there is no such endpoint.
constexpr std::int32_t status_not_found = static_cast<std::int32_t>(0x80070490u);
// ERROR_DATATYPE_MISMATCH (1804) in this shape: a registry value of the wrong type.
constexpr std::int32_t status_wrong_type = static_cast<std::int32_t>(0x8007070Cu);

// HRESULT_FROM_WIN32: 0 and below stay as they are; of a positive error the low 16 bits are kept and marked
// as Win32's.
[[nodiscard]] std::int32_t hresult_from_win32(std::int32_t error);
// The same of an error that a call tells as unsigned (GetLastError).
[[nodiscard]] inline std::int32_t hresult_from_win32(std::uint32_t error) {
  return hresult_from_win32(static_cast<std::int32_t>(error));
}

}  // namespace velmora
