#include "platform/shared_memory.h"

#include "memory/system.h"
#include "platform/errors.h"

namespace velmora {
namespace {

std::shared_ptr<memory::Region> find_region(std::u16string_view name) {
  const auto found = memory::system().regions.find(std::u16string(name));
  return found == memory::system().regions.end() ? nullptr : found->second.lock();
}

SharedMapping hold(std::shared_ptr<memory::Region> region) {
  memory::Handle handle;
  handle.what = "mapping";
  handle.region = std::move(region);
  return SharedMapping(memory::add_handle(std::move(handle)));
}

}  // namespace

void SharedMappingKind::release(Native native) noexcept {
  static_cast<void>(memory::enter("CloseHandle"));
  memory::system().handles.erase(native);
}

// A view's handle is not its memory: it is looked up by the region that it shows.
void SharedViewKind::release(Native native) noexcept {
  static_cast<void>(memory::enter("UnmapViewOfFile"));
  auto& handles = memory::system().handles;
  for (auto entry = handles.begin(); entry != handles.end(); ++entry) {
    if (entry->second.what == "view" && entry->second.region->words.data() == native.data) {
      handles.erase(entry);
      return;
    }
  }
}

std::optional<std::uint32_t> open_shared_mapping(std::u16string_view name, SharedMapping& out) {
  if (const auto fault = memory::enter("OpenFileMappingW")) return memory::code_of(fault);
  auto region = find_region(name);
  if (!region) return error_file_not_found;
  out = hold(std::move(region));
  return std::nullopt;
}

CreatedMapping create_shared_mapping(std::u16string_view name, std::size_t size, SharedMapping& out) {
  if (const auto fault = memory::enter("ConvertStringSecurityDescriptorToSecurityDescriptorW")) {
    return {memory::code_of(fault), std::nullopt, false};
  }
  if (const auto fault = memory::enter("CreateFileMappingW")) {
    return {std::nullopt, memory::code_of(fault), false};
  }
  auto region = find_region(name);
  const bool existed = region != nullptr;
  if (!existed) region = memory::hold_region(name, size);
  out = hold(std::move(region));
  return {std::nullopt, std::nullopt, existed};
}

std::optional<std::uint32_t> map_shared_view(const SharedMapping& mapping, std::size_t size,
                                             SharedView& out) {
  if (const auto fault = memory::enter("MapViewOfFile")) return memory::code_of(fault);
  const auto region = memory::system().handles.at(mapping.native()).region;
  if (region->size < size) return error_access_denied;
  memory::Handle handle;
  handle.what = "view";
  handle.region = region;
  static_cast<void>(memory::add_handle(std::move(handle)));
  out = SharedView({region->words.data(), size});
  return std::nullopt;
}

}  // namespace velmora
