#include "platform/processes.h"

#include <array>

#include "platform/owner.h"
#include "platform/windows/native.h"

namespace velmora {
namespace {

struct ProcessKind {
  using Native = HANDLE;
  static constexpr Native none = nullptr;
  static void release(Native native) noexcept { CloseHandle(native); }
};

}  // namespace

std::u16string process_image_path(std::uint32_t process_id) {
  const Owner<ProcessKind> process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process_id));
  if (!process.is_open()) return {};
  std::array<wchar_t, 260> path{};
  auto length = static_cast<DWORD>(path.size());
  if (!QueryFullProcessImageNameW(process.native(), 0, path.data(), &length)) return {};
  return {path.begin(), path.begin() + length};
}
static_assert(PROCESS_QUERY_LIMITED_INFORMATION == 0x1000);

}  // namespace velmora
