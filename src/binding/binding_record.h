// What binding must remember about each endpoint because the endpoint's own values do not show it. The values
// are in HKEY_LOCAL_MACHINE, SOFTWARE\Velmora\DevBinding, one key per endpoint. The key's name is the
// endpoint's GUID (38 characters, case as in the id). Write and delete errors are ignored: without a record,
// an unbind only removes the effect.
#pragma once

#include <string>
#include <string_view>

namespace velmora {

// True if this system wrote the endpoint's mode lists: AddedModeList, REG_DWORD, is 1.
[[nodiscard]] bool read_added_mode_list(std::string_view guid);
void write_added_mode_list(std::string_view guid);

// Reads the effect that was moved out of the legacy slot: MigratedLegacyModeEffect, REG_SZ of at most 127
// characters. Returns false, with an empty text, if there is none.
[[nodiscard]] bool read_migrated_mode_effect(std::string_view guid, std::string& text);
// Replaces any effect recorded earlier.
void write_migrated_mode_effect(std::string_view guid, std::string_view text);

// Deletes the endpoint's key and both values.
void delete_binding_record(std::string_view guid);

}  // namespace velmora
