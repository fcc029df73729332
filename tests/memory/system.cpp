#include "memory/system.h"

#include <utility>

#include "base/text.h"

namespace velmora::memory {

System& system() {
  static System machine;
  return machine;
}

void reset() { system() = System(); }

namespace {

std::int64_t take_fault(std::string_view operation) {
  const auto& fault_at = system().fault_at;
  if (fault_at && system().log.size() == fault_at->call) return fault_at->error;
  const auto faults = system().faults.find(std::string(operation));
  if (faults == system().faults.end() || faults->second.empty()) return 0;
  const std::int64_t fault = faults->second.front();
  faults->second.pop_front();
  return fault;
}

}  // namespace

std::int64_t enter(std::string_view operation) {
  system().log.emplace_back(operation);
  return take_fault(operation);
}

int number_of(std::int64_t fault) { return fault == failure_without_number ? 0 : static_cast<int>(fault); }

std::uint32_t code_of(std::int64_t fault) {
  return fault == failure_without_number ? 0 : static_cast<std::uint32_t>(fault);
}

std::uintptr_t add_handle(Handle handle) {
  const std::uintptr_t number = system().next_handle++;
  system().handles.emplace(number, std::move(handle));
  return number;
}

void print(Child& child, std::string_view bytes, ChildEvent::Kind kind) {
  if (!bytes.empty()) child.events.push_back({kind, std::string(bytes), 0});
}

void end(Child& child, std::uint32_t exit_code) {
  if (!child.exit_code) child.exit_code = exit_code;
}

bool interrupt_child(std::uint32_t id) {
  for (const auto& child : system().children) {
    if (child->id != id || child->exit_code) continue;
    ++child->interrupts;
    if (child->on_interrupt) {
      child->on_interrupt(*child);
    } else {
      end(*child, 0);
    }
    return true;
  }
  return false;
}

void pass_idle_time() {
  if (system().on_idle) {
    system().on_idle();
  } else if (system().console_handler != nullptr) {
    system().console_handler(0);
  }
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

}  // namespace velmora::memory

// What Linux lacks answers from this machine.
namespace velmora::hosted {

std::int64_t enter(std::string_view operation, std::u16string_view subject) {
  std::string entry(operation);
  if (!subject.empty()) entry.append(" ").append(utf8_from_wide_replacing(subject));
  memory::system().log.push_back(entry);
  if (memory::system().before_machine_call) memory::system().before_machine_call(entry);
  return memory::take_fault(operation);
}

MachineState& machine_state() { return memory::system().state; }

void RegistryChangeKind::release(Native) noexcept {}
RegistryChange begin_registry_change() { return {}; }

void publish_service_state(std::u16string_view name, std::uint32_t state) {
  memory::system().service_states.push_back(utf8_from_wide_replacing(name) + ' ' + std::to_string(state));
}

bool keep_registry() { return memory::system().registry_kept; }

}  // namespace velmora::hosted
