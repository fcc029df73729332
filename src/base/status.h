// Status values, 32 bits like an HRESULT (winerror.h): negative ones are failures, all others successes.
#pragma once

#include <cstdint>

namespace velmora {

constexpr std::int32_t status_failed = static_cast<std::int32_t>(0x80004005u);            // E_FAIL
constexpr std::int32_t status_invalid_argument = static_cast<std::int32_t>(0x80070057u);  // E_INVALIDARG
constexpr std::int32_t status_unexpected = static_cast<std::int32_t>(0x8000FFFFu);        // E_UNEXPECTED
constexpr std::int32_t status_out_of_memory = static_cast<std::int32_t>(0x8007000Eu);     // E_OUTOFMEMORY
// ERROR_NOT_FOUND (1168) as an HRESULT: no such endpoint.
constexpr std::int32_t status_not_found = static_cast<std::int32_t>(0x80070490u);
// ERROR_DATATYPE_MISMATCH (1804) as an HRESULT: a registry value of the wrong type.
constexpr std::int32_t status_wrong_type = static_cast<std::int32_t>(0x8007070Cu);

// HRESULT_FROM_WIN32: returns 0 and negative values unchanged. For a positive error it keeps the low 16 bits
// and sets the Win32 facility.
[[nodiscard]] std::int32_t hresult_from_win32(std::int32_t error);
// For errors that a call returns as unsigned, such as GetLastError.
[[nodiscard]] inline std::int32_t hresult_from_win32(std::uint32_t error) {
  return hresult_from_win32(static_cast<std::int32_t>(error));
}

}  // namespace velmora
