#include "platform/standin/system.h"

#include <utility>

namespace velmora::standin {

System& system() {
  static System machine;
  return machine;
}

void reset() { system() = System(); }

std::int64_t enter(std::string_view operation) {
  system().log.emplace_back(operation);
  const auto faults = system().faults.find(std::string(operation));
  if (faults == system().faults.end() || faults->second.empty()) return 0;
  const std::int64_t fault = faults->second.front();
  faults->second.pop_front();
  return fault;
}

std::uintptr_t add_handle(Handle handle) {
  const std::uintptr_t number = system().next_handle++;
  system().handles.emplace(number, std::move(handle));
  return number;
}

std::shared_ptr<Connection> connect_client(std::deque<std::string> to_service) {
  auto connection = std::make_shared<Connection>();
  connection->to_service = std::move(to_service);
  system().backlog.push_back(connection);
  return connection;
}

std::shared_ptr<Region> hold_region(std::u16string_view name, std::size_t size) {
  auto region = std::make_shared<Region>();
  region->words.resize((size + 7) / 8);
  region->size = size;
  system().regions[std::u16string(name)] = region;
  return region;
}

}  // namespace velmora::standin
