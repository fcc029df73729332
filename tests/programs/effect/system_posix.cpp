#include "platform/posix/drives.h"
#include "system.h"

namespace velmora::effect {

std::filesystem::path capture_path(const std::string& text) { return native_path(text); }

std::optional<std::uint32_t> make_mapping(std::u16string_view name, std::size_t size, SharedMapping& out,
                                          bool& already_existed) {
  const CreatedMapping created = create_shared_mapping(name, size, out);
  already_existed = created.already_existed;
  return created.create_error;
}

}  // namespace velmora::effect
