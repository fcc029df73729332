#include "capture/capture_directory.h"

#include <algorithm>

#include "base/text.h"
#include "platform/registry.h"

namespace velmora {

std::string capture_directory() {
  if (!capture_directory_override.empty()) return capture_directory_override;
  std::array<char16_t, 260> buffer{};
  const RegistryQuery query =
      get_registry_value(u"SOFTWARE\\Velmora", u"CaptureDirectory", rrf_rt_reg_sz | rrf_subkey_wow6464key,
                         buffer.data(), sizeof buffer);
  if (query.error != 0) return "C:\\ProgramData\\Velmora\\wav";
  return utf8_from_wide_replacing({buffer.begin(), std::find(buffer.begin(), buffer.end(), u'\0')});
}

}  // namespace velmora
