// State of the parts of a Windows machine that Linux lacks. Every source file in this folder uses it.
//
// Each program links one of two definitions. The native program uses `posix/hosted_machine.cpp`,
// with the machine of VELMORA_MACHINE or the built-in one. Tests use the machine in memory, which
// adds a log and faults.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/audio_endpoints.h"
#include "platform/hosted/registry_tree.h"
#include "platform/owner.h"

namespace velmora::hosted {

// An open key.
struct OpenKey {
  std::u16string path;  // from the tree's root, "HKEY_LOCAL_MACHINE\..."
  std::uint32_t access = 0;
  bool deleted = false;  // the key was deleted since; a new one may have its path
};

// A reference to an interface of the audio endpoints.
struct AudioObject {
  std::u16string id;                   // of its endpoint; empty for an enumerator or a list
  std::vector<std::u16string> listed;  // ids of a list
  std::vector<AudioSession> sessions;  // a snapshot, for a list of sessions
};

// The current state of a service: `state` until `settles_at_ns` of the steady clock, then `settled_state`.
struct ServiceRun {
  std::uint32_t state = 0;
  std::uint32_t settled_state = 0;
  std::int64_t settles_at_ns = 0;
};

// An open service, or the open manager.
struct OpenService {
  std::u16string name;  // empty for the manager
  std::uint32_t access = 0;
};

struct MachineState {
  RegistryTree registry;
  std::map<std::uintptr_t, OpenKey> open_keys;
  std::uintptr_t next_key = 1;
  std::map<std::uintptr_t, AudioObject> audio_objects;
  std::uintptr_t next_audio_object = 1;
  std::map<std::u16string, ServiceRun> services;  // those queried so far, by lower-case name
  std::map<std::uintptr_t, OpenService> open_services;
  std::uintptr_t next_service = 1;
};

[[nodiscard]] MachineState& machine_state();

// Every hosted call enters here before its work. `subject` is what the call is about: a path, a value's name,
// an endpoint, a service.
//
// A nonzero result is an error that the caller returns instead of doing its work. For audio endpoints it
// is a status, and a positive one is returned after the work. If the machine cannot be read, the error
// is ERROR_REGISTRY_IO_FAILED (1016, winerror.h).
[[nodiscard]] std::int64_t enter(std::string_view operation, std::u16string_view subject);

struct RegistryChangeKind {
  using Native = int;
  static constexpr Native none = -1;
  static void release(Native native) noexcept;
};
// While open, no other program changes the machine. Lock this before entering any call that modifies it.
using RegistryChange = Owner<RegistryChangeKind>;
[[nodiscard]] RegistryChange begin_registry_change();

// Stores the changed registry. On failure it returns false, and the caller must undo the change.
[[nodiscard]] bool keep_registry();

// Stores the changed registry, or restores `before` and returns ERROR_REGISTRY_IO_FAILED (1016, winerror.h).
[[nodiscard]] std::int32_t keep_or_undo(RegistryTree before);

// Called on each change of a service's state (services.h), in order. The native program appends a line
// "NAME STATE" to the file named by VELMORA_SERVICE_LOG, so that other programs can follow its services. It
// does nothing without that variable or for names outside ASCII. Errors are ignored.
void publish_service_state(std::u16string_view name, std::uint32_t state);

// The key that restricts access. Each value is named by a path under HKEY_LOCAL_MACHINE and holds the access
// rights (REG_DWORD) granted to that key and everything below it. The longest matching path wins.
constexpr std::u16string_view access_list_path = u"HKEY_LOCAL_MACHINE\\SOFTWARE\\VelmoraStandIn\\Access";

// Whether the access list grants `access` to a key. `path` starts at the tree's root.
[[nodiscard]] bool is_granted(const RegistryTree& registry, std::u16string_view path, std::uint32_t access);

// The default machine, as an export (UTF-8).
extern const std::string_view builtin_machine;

}  // namespace velmora::hosted
