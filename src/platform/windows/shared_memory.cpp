#include "platform/shared_memory.h"

#include "platform/windows/native.h"

#include <sddl.h>

namespace velmora {
namespace {

// Access to the mapping (Security Descriptor String Format, Windows SDK). The owner, Local System and
// Local Service (the audio engine's account) have full access. Authenticated users, everyone and
// write-restricted code may read and write. The label is low integrity, so low-integrity processes may
// write too. Nothing is inherited.
constexpr const wchar_t* open_to_all =
    L"D:P(A;;GA;;;OW)(A;;GA;;;SY)(A;;GA;;;LS)(A;;GRGW;;;AU)(A;;GRGW;;;WD)(A;;GRGW;;;WR)S:(ML;;NW;;;LW)";

static_assert(sizeof(SECURITY_ATTRIBUTES) == 24);

constexpr DWORD read_and_write = FILE_MAP_READ | FILE_MAP_WRITE;
static_assert(read_and_write == 6);

}  // namespace

void SharedMappingKind::release(Native native) noexcept { CloseHandle(handle_of(native)); }

void SharedViewKind::release(Native native) noexcept { UnmapViewOfFile(native.data); }

std::optional<std::uint32_t> open_shared_mapping(std::u16string_view name, SharedMapping& out) {
  const std::wstring wide_name = wide_text(name);
  const HANDLE handle = OpenFileMappingW(read_and_write, FALSE, wide_name.c_str());
  if (handle == nullptr) return GetLastError();
  out = SharedMapping(native_of(handle));
  return std::nullopt;
}

CreatedMapping create_shared_mapping(std::u16string_view name, std::size_t size, SharedMapping& out) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(open_to_all, SDDL_REVISION_1, &descriptor,
                                                            nullptr)) {
    return {GetLastError(), std::nullopt, false};
  }
  SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor, FALSE};
  const std::wstring wide_name = wide_text(name);
  const HANDLE handle = CreateFileMappingW(INVALID_HANDLE_VALUE, &attributes, PAGE_READWRITE, 0,
                                           static_cast<DWORD>(size), wide_name.c_str());
  // A successful LocalFree keeps the last error, so both checks below see that of CreateFileMappingW.
  LocalFree(descriptor);
  const DWORD error = GetLastError();
  if (handle == nullptr) return {std::nullopt, error, false};
  out = SharedMapping(native_of(handle));
  return {std::nullopt, std::nullopt, error == ERROR_ALREADY_EXISTS};
}

std::optional<std::uint32_t> map_shared_view(const SharedMapping& mapping, std::size_t size,
                                             SharedView& out) {
  void* data = MapViewOfFile(handle_of(mapping.native()), read_and_write, 0, 0, size);
  if (data == nullptr) return GetLastError();
  out = SharedView({data, size});
  return std::nullopt;
}

}  // namespace velmora
