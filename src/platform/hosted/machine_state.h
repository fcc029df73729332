// The state of the part of the machine that Linux lacks. Every source in this folder uses it. Each program
// links one of two definitions: `posix/hosted_machine.cpp` for the native program (the machine of
// VELMORA_MACHINE, or the built-in one), or the tests' machine in memory, with a log and faults.
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

// A key that somebody has open.
struct OpenKey {
  std::u16string path;  // from the tree's root, "HKEY_LOCAL_MACHINE\..."
  std::uint32_t access = 0;
  bool deleted = false;  // the key has gone since; another may stand in its place
};

// An interface of the audio endpoints that somebody holds.
struct AudioObject {
  std::u16string id;  // of the endpoint that it belongs to; empty for an enumerator or a list
  std::vector<std::u16string> listed;  // of a list: the ids in it
  std::vector<AudioSession> sessions;  // of a list of sessions, as they were when it was made
};

// A service as it is at the moment: `state` until `settles_at_ns` of the steady clock, then `settled_state`.
struct ServiceRun {
  std::uint32_t state = 0;
  std::uint32_t settled_state = 0;
  std::int64_t settles_at_ns = 0;
};

// A service, or the manager, that somebody has open.
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
  std::map<std::u16string, ServiceRun> services;  // those that have been asked for, by lower-case name
  std::map<std::uintptr_t, OpenService> open_services;
  std::uintptr_t next_service = 1;
};

[[nodiscard]] MachineState& machine_state();

// Tells of a call before it is carried out. `subject` is what it is about: a path, a value's name, an
// endpoint, a service. A result other than 0 is what the call has to answer in place of its work: an error,
// or for the audio endpoints a status, of which a positive one comes behind the work. The error of a machine
// that cannot be read is ERROR_REGISTRY_IO_FAILED (1016, winerror.h).
[[nodiscard]] std::int64_t enter(std::string_view operation, std::u16string_view subject);

struct RegistryChangeKind {
  using Native = int;
  static constexpr Native none = -1;
  static void release(Native native) noexcept;
};
// While it is open, no other program changes the machine. To be had before the call that changes it is
// entered.
using RegistryChange = Owner<RegistryChangeKind>;
[[nodiscard]] RegistryChange begin_registry_change();

// The registry has been changed and is to be kept. False when that cannot be done: the caller takes the
// change back.
[[nodiscard]] bool keep_registry();

// Keeps the changed registry, or puts back the one from before: 0, or ERROR_REGISTRY_IO_FAILED (1016,
// winerror.h).
[[nodiscard]] std::int32_t keep_or_undo(RegistryTree before);

// Called for each change of a service's state (services.h), in order. The native program appends a line
// "NAME STATE" to the file that VELMORA_SERVICE_LOG names, so that other programs can follow its services;
// without that variable, and for names outside ASCII, it does nothing. Errors are ignored.
void publish_service_state(std::u16string_view name, std::uint32_t state);

// The key that says what opens for less than everything: its values are named by paths under
// HKEY_LOCAL_MACHINE and give (REG_DWORD) the access that is granted to each key and what lies below it. The
// longest path that fits counts.
constexpr std::u16string_view access_list_path = u"HKEY_LOCAL_MACHINE\\SOFTWARE\\VelmoraStandIn\\Access";

// Whether the access list grants an access to the key at a path (from the tree's root).
[[nodiscard]] bool is_granted(const RegistryTree& registry, std::u16string_view path, std::uint32_t access);

// The machine that stands where none is given: an export (UTF-8).
extern const std::string_view builtin_machine;

}  // namespace velmora::hosted
