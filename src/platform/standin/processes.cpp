#include "platform/processes.h"

#include "platform/standin/system.h"

namespace velmora {

std::u16string process_image_path(std::uint32_t process_id) {
  if (standin::enter("QueryFullProcessImageNameW") != 0) return {};
  const auto& paths = standin::system().process_paths;
  const auto path = paths.find(process_id);
  return path == paths.end() ? std::u16string() : path->second;
}

}  // namespace velmora
