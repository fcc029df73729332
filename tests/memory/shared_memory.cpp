#include "platform/shared_memory.h"

#include "memory/system.h"

namespace velmora {
namespace {

constexpr std::uint32_t error_missing = 2;
constexpr std::uint32_t error_denied = 5;

std::shared_ptr<standin::Region> find_region(std::u16string_view name) {
  const auto found = standin::system().regions.find(std::u16string(name));
  return found == standin::system().regions.end() ? nullptr : found->second.lock();
}

SharedMapping hold(std::shared_ptr<standin::Region> region) {
  standin::Handle handle;
  handle.what = "mapping";
  handle.region = std::move(region);
  return SharedMapping(standin::add_handle(std::move(handle)));
}

}  // namespace

void SharedMappingKind::release(Native native) noexcept {
  static_cast<void>(standin::enter("CloseHandle"));
  standin::system().handles.erase(native);
}

// A view's handle is not its memory: it is looked up by the region that it shows.
void SharedViewKind::release(Native native) noexcept {
  static_cast<void>(standin::enter("UnmapViewOfFile"));
  auto& handles = standin::system().handles;
  for (auto entry = handles.begin(); entry != handles.end(); ++entry) {
    if (entry->second.what == "view" && entry->second.region->words.data() == native.data) {
      handles.erase(entry);
      return;
    }
  }
}

std::uint32_t open_shared_mapping(std::u16string_view name, SharedMapping& out) {
  if (const auto fault = standin::enter("OpenFileMappingW")) return static_cast<std::uint32_t>(fault);
  auto region = find_region(name);
  if (!region) return error_missing;
  out = hold(std::move(region));
  return 0;
}

CreatedMapping create_shared_mapping(std::u16string_view name, std::size_t size, SharedMapping& out) {
  if (const auto fault = standin::enter("ConvertStringSecurityDescriptorToSecurityDescriptorW")) {
    return {static_cast<std::uint32_t>(fault), 0, false};
  }
  if (const auto fault = standin::enter("CreateFileMappingW")) {
    return {0, static_cast<std::uint32_t>(fault), false};
  }
  auto region = find_region(name);
  const bool existed = region != nullptr;
  if (!existed) region = standin::hold_region(name, size);
  out = hold(std::move(region));
  return {0, 0, existed};
}

std::uint32_t map_shared_view(const SharedMapping& mapping, std::size_t size, SharedView& out) {
  if (const auto fault = standin::enter("MapViewOfFile")) return static_cast<std::uint32_t>(fault);
  const auto region = standin::system().handles.at(mapping.native()).region;
  if (region->size < size) return error_denied;
  standin::Handle handle;
  handle.what = "view";
  handle.region = region;
  static_cast<void>(standin::add_handle(std::move(handle)));
  out = SharedView({region->words.data(), size});
  return 0;
}

}  // namespace velmora
