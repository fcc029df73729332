// A render endpoint in the memory machine's registry, described by short words. A missing value is "-". Any
// other value lists its entries, separated by blanks; a letter is a class id (see `spell`), '' an empty
// entry. A prefix gives another type: "sz:", "expand:", "multi:", "dword:", "qword:". Names, paths and ids
// are typed independently of the product.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "memory/system.h"
#include "unit/support/fresh_machine.h"

namespace velmora::endpoint {

constexpr char guid[] = "{feab839f-3407-471a-aa45-bcd41f1bb5f6}";
constexpr char id[] = "{0.0.0.00000000}.{feab839f-3407-471a-aa45-bcd41f1bb5f6}";
constexpr char other_guid[] = "{00000000-3407-471a-aa45-bcd41f1bb5f6}";

constexpr char chain_name[] = "{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},14";
constexpr char slot_name[] = "{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},6";
constexpr char modes_name[] = "{d3993a3f-99c2-4402-b5ec-a92a0367664b},6";
constexpr char offload_name[] = "{d3993a3f-99c2-4402-b5ec-a92a0367664b},12";

constexpr char class_a[] = "{631D9145-CACF-44D7-861B-5D82ADD8C84F}";
constexpr char class_a_lower[] = "{631d9145-cacf-44d7-861b-5d82add8c84f}";
constexpr char class_f[] = "{9063CBD4-3561-449D-8011-E21BBB69B9DB}";

constexpr std::uint32_t type_sz = 1;
constexpr std::uint32_t type_expand_sz = 2;
constexpr std::uint32_t type_binary = 3;
constexpr std::uint32_t type_dword = 4;
constexpr std::uint32_t type_multi_sz = 7;
constexpr std::uint32_t type_qword = 11;

inline const std::vector<std::string>& six_modes() {
  static const std::vector<std::string> modes = {
      "{C18E2F7E-933D-4965-B7D1-1EEF228D2AF3}", "{4780004E-7133-41D8-8C74-660DADD2C0EE}",
      "{B26FEB0D-EC94-477C-9494-D1AB8E753F6E}", "{98951333-B9CD-48B1-A0A3-FF40682D73F7}",
      "{FC1CFC9B-B9D6-4CFA-B5E0-4BB2166878B2}", "{9CF2A70B-F377-403B-BD6B-360863E0355C}",
  };
  return modes;
}

// A and a: the product's effect, in upper and lower case. F and f: a foreign effect. L and l: the driver's
// effect in the legacy slot. M and m: an effect moved earlier. "ours": all six modes. Other words are taken
// literally.
inline std::vector<std::string> spell(const std::string& words) {
  static const std::map<std::string, std::string> ids = {
      {"A", class_a},
      {"a", class_a_lower},
      {"F", class_f},
      {"f", "{9063cbd4-3561-449d-8011-e21bbb69b9db}"},
      {"L", "{5B1E7C42-0D3A-4F68-9C55-AB12CD34EF56}"},
      {"l", "{5b1e7c42-0d3a-4f68-9c55-ab12cd34ef56}"},
      {"M", "{0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0}"},
      {"m", "{0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0}"},
      {"''", ""},
  };
  std::vector<std::string> entries;
  std::istringstream stream(words);
  for (std::string word; stream >> word;) {
    const auto found = ids.find(word);
    if (word == "ours") {
      entries.insert(entries.end(), six_modes().begin(), six_modes().end());
    } else {
      entries.push_back(found == ids.end() ? word : found->second);
    }
  }
  return entries;
}

inline std::string spell_one(const std::string& word) {
  const std::vector<std::string> entries = spell(word);
  return entries.empty() ? std::string() : entries.front();
}

inline std::u16string widen(std::string_view text) {
  std::u16string wide;
  for (const char byte : text) wide.push_back(static_cast<unsigned char>(byte));
  return wide;
}

inline std::string unit_bytes(std::u16string_view units) {
  std::string bytes(units.size() * 2, '\0');
  std::memcpy(bytes.data(), units.data(), bytes.size());
  return bytes;
}

inline std::string text_bytes(std::string_view text) { return unit_bytes(widen(text) + u'\0'); }

inline std::string list_bytes(const std::vector<std::string>& entries) {
  std::string bytes;
  for (const std::string& entry : entries) bytes += text_bytes(entry);
  return bytes + std::string(2, '\0');
}

inline std::string number_bytes(std::uint64_t number, std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t index = 0; index < size; ++index) bytes[index] = static_cast<char>(number >> (8 * index));
  return bytes;
}

struct Value {
  std::uint32_t type = 0;
  std::string bytes;
  friend bool operator==(const Value&, const Value&) = default;
};

inline std::optional<Value> value_from_words(std::string words, std::string kind) {
  if (words == "-") return std::nullopt;
  if (const std::size_t colon = words.find(':'); colon != std::string::npos) {
    kind = words.substr(0, colon);
    words.erase(0, colon + 1);
  }
  if (kind == "multi") return Value{type_multi_sz, list_bytes(spell(words))};
  if (kind == "dword") return Value{type_dword, number_bytes(std::stoul(words), 4)};
  if (kind == "qword") return Value{type_qword, number_bytes(std::stoul(words), 8)};
  return Value{kind == "expand" ? type_expand_sz : type_sz, text_bytes(spell_one(words))};
}

// The stored values of one endpoint.
struct Stored {
  std::optional<Value> chain, slot, modes, offload;
  std::optional<Value> added, moved;
  bool record_key = false;      // the endpoint's record exists, possibly without values
  bool records_key = false;     // the parent key of all records exists
  bool another_record = false;  // another endpoint has a record
  friend bool operator==(const Stored&, const Stored&) = default;
};

struct Words {
  std::string chain = "-";
  std::string slot = "-";
  std::string modes = "-";
  std::string offload = "-";
  std::string added = "-";
  std::string moved = "-";
  bool empty_record = false;  // the record exists without a value
};

// Parses "chain F A, slot L, lists x, added 1": `lists` sets both mode lists, `record` makes an empty record,
// and a name without a value an empty value.
inline Words words(std::string_view text) {
  Words parsed;
  const std::map<std::string_view, std::string*> members = {
      {"chain", &parsed.chain},     {"slot", &parsed.slot},   {"modes", &parsed.modes},
      {"offload", &parsed.offload}, {"added", &parsed.added}, {"moved", &parsed.moved}};
  while (!text.empty()) {
    const std::string_view part = text.substr(0, text.find(", "));
    text.remove_prefix(std::min(part.size() + 2, text.size()));
    const std::string_view name = part.substr(0, part.find(' '));
    const std::string value(part.substr(std::min(name.size() + 1, part.size())));
    if (name == "record") {
      parsed.empty_record = true;
    } else if (name == "lists") {
      parsed.modes = parsed.offload = value;
    } else {
      *members.at(name) = value;
    }
  }
  return parsed;
}

inline Stored stored(const Words& words) {
  Stored all;
  all.chain = value_from_words(words.chain, "multi");
  all.slot = value_from_words(words.slot, "sz");
  all.modes = value_from_words(words.modes, "multi");
  all.offload = value_from_words(words.offload, "multi");
  all.added = value_from_words(words.added, "dword");
  all.moved = value_from_words(words.moved, "sz");
  all.record_key = all.records_key = all.added || all.moved || words.empty_record;
  return all;
}

inline std::string render_path(const std::string& endpoint_guid) {
  return "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Render\\" + endpoint_guid;
}
inline std::string fx_path(const std::string& endpoint_guid = guid) {
  return render_path(endpoint_guid) + "\\FxProperties";
}
inline std::string records_path() { return "SOFTWARE\\Velmora\\DevBinding"; }
inline std::string record_path(const std::string& endpoint_guid = guid) {
  return records_path() + "\\" + endpoint_guid;
}

inline hosted::TreeKey& key_at(hosted::RegistryTree& tree, const std::string& path) {
  return hosted::make_key(tree, widen("HKEY_LOCAL_MACHINE\\" + path));
}

inline void put(hosted::TreeKey& key, std::string_view name, const std::optional<Value>& value) {
  if (value) hosted::put_value(key, widen(name), value->type, value->bytes);
}

// Neighbours that must never change: equally named values and keys beside and below the endpoint's own, and
// another endpoint.
inline void put_surroundings(hosted::RegistryTree& tree) {
  const Value list{type_multi_sz, list_bytes(spell("A x"))};
  const Value text{type_sz, text_bytes(spell_one("L"))};
  for (const std::string& path :
       {render_path(guid), fx_path() + "\\Deeper", fx_path(other_guid),
        "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Capture\\" + std::string(guid) +
            "\\FxProperties"}) {
    hosted::TreeKey& key = key_at(tree, path);
    put(key, chain_name, list);
    put(key, slot_name, text);
    put(key, modes_name, list);
    put(key, offload_name, list);
  }
  hosted::TreeKey& key = key_at(tree, fx_path());
  put(key, "", text);
  put(key, "{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},13", list);
  put(key, "{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},5", text);
  put(key, "{d3993a3f-99c2-4402-b5ec-a92a0367664b},5", list);
}

inline hosted::RegistryTree tree_of(const Stored& all) {
  hosted::RegistryTree tree;
  put_surroundings(tree);
  hosted::TreeKey& key = key_at(tree, fx_path());
  put(key, chain_name, all.chain);
  put(key, slot_name, all.slot);
  put(key, modes_name, all.modes);
  put(key, offload_name, all.offload);
  if (all.records_key) key_at(tree, records_path());
  if (all.another_record)
    put(key_at(tree, record_path(other_guid)), "AddedModeList", Value{4, number_bytes(1, 4)});
  if (all.record_key) {
    hosted::TreeKey& record = key_at(tree, record_path());
    put(record, "AddedModeList", all.added);
    put(record, "MigratedLegacyModeEffect", all.moved);
  }
  return tree;
}

// One line for each key and value; lines_of() sorts them.
inline void append_lines(const hosted::TreeKey& key, const std::string& path,
                         std::vector<std::string>& lines) {
  lines.push_back(path);
  const auto narrow = [](std::u16string_view text) {
    std::string bytes;
    for (const char16_t unit : text) bytes.push_back(static_cast<char>(unit));
    return bytes;
  };
  for (const hosted::TreeValue& value : key.values) {
    std::string line = path + "\\ \"" + narrow(value.name) + "\" " + std::to_string(value.type) + " ";
    constexpr char digits[] = "0123456789abcdef";
    for (std::size_t index = 0; index < value.bytes.size(); ++index) {
      const auto byte = static_cast<unsigned char>(value.bytes[index]);
      const bool plain = index % 2 == 0 && byte > 0x20 && byte < 0x7F && byte != '\\' &&
                         index + 1 < value.bytes.size() && value.bytes[index + 1] == '\0';
      if (plain) {
        line.push_back(static_cast<char>(byte));
        ++index;
      } else {
        line.append({'\\', digits[byte >> 4], digits[byte & 15]});
      }
    }
    lines.push_back(std::move(line));
  }
  for (const hosted::TreeKey& below : key.keys) append_lines(below, path + "\\" + narrow(below.name), lines);
}

inline std::vector<std::string> lines_of(const hosted::RegistryTree& tree) {
  std::vector<std::string> lines;
  append_lines(tree, "", lines);
  std::sort(lines.begin(), lines.end());
  return lines;
}

inline std::vector<std::string> lines_of(const Stored& all) { return lines_of(tree_of(all)); }
inline std::vector<std::string> lines_of(std::string_view text) { return lines_of(stored(words(text))); }
inline std::vector<std::string> present_lines() { return lines_of(memory::system().state.registry); }

// Replaces the memory machine's registry; log and faults stay.
inline void set_up(const Stored& all) { memory::system().state.registry = tree_of(all); }
inline void set_up(const Words& words) { set_up(stored(words)); }
inline void set_up(std::string_view text) { set_up(words(text)); }

// The expected registry after a change. The parent key of the records is never removed.
inline std::vector<std::string> expected_lines(std::string_view before, std::string_view after) {
  Stored all = stored(words(after));
  all.records_key = all.records_key || stored(words(before)).records_key;
  return lines_of(all);
}

// The log with short names for the calls on the endpoint's keys and values.
inline std::vector<std::string> calls() {
  const std::string fx = fx_path();
  const std::string record = record_path();
  const std::string machine = "HKEY_LOCAL_MACHINE\\";
  std::map<std::string, std::string> short_words = {
      {"StringFromGUID2", "class id"},
      {"RegOpenKeyExW " + fx, "open fx"},
      {"RegCloseKey " + machine + fx, "close fx"},
      {"RegGetValueW " + record + " AddedModeList", "get added"},
      {"RegGetValueW " + record + " MigratedLegacyModeEffect", "get moved"},
      {"RegCreateKeyExW " + record, "create record"},
      {"RegCloseKey " + machine + record, "close record"},
      {"RegSetValueExW AddedModeList", "set added"},
      {"RegSetValueExW MigratedLegacyModeEffect", "set moved"},
      {"RegOpenKeyExW " + records_path(), "open records"},
      {"RegDeleteKeyW " + std::string(guid), "delete record"},
      {"RegCloseKey " + machine + records_path(), "close records"},
  };
  const std::pair<std::string, std::string> names[] = {
      {chain_name, "chain"}, {slot_name, "slot"}, {modes_name, "modes"}, {offload_name, "offload"}};
  for (const auto& [name, word] : names) {
    short_words["RegQueryValueExW " + name] = "query " + word;
    short_words["RegSetValueExW " + name] = "set " + word;
    short_words["RegDeleteValueW " + name] = "delete " + word;
  }
  std::vector<std::string> shortened;
  for (const std::string& entry : memory::system().log) {
    const auto found = short_words.find(entry);
    shortened.push_back(found == short_words.end() ? entry : found->second);
  }
  return shortened;
}

// Runs `act` once, just before the given call with this short name (counted from 1).
inline void before_call(const std::string& name, int number, std::function<void()> act) {
  memory::system().before_machine_call = [name, number, act = std::move(act)](const std::string&) {
    const std::vector<std::string> so_far = calls();
    if (so_far.back() == name && std::count(so_far.begin(), so_far.end(), name) == number) act();
  };
}

// Sets or removes a value of the endpoint's effect key, and reads it back.
inline void put_fx(std::string_view name, const std::optional<Value>& value) {
  hosted::TreeKey& key = key_at(memory::system().state.registry, fx_path());
  if (value) put(key, name, value);
  if (!value) hosted::remove_value(key, widen(name));
}
inline std::optional<Value> present_fx(std::string_view name) {
  const auto* value = hosted::find_value(key_at(memory::system().state.registry, fx_path()), widen(name));
  return value == nullptr ? std::nullopt : std::optional(Value{value->type, value->bytes});
}

// Grants only this access to a key: 0x20019 is read-only.
inline void grant_access(const std::string& path, std::uint32_t access) {
  put(key_at(memory::system().state.registry, "SOFTWARE\\VelmoraStandIn\\Access"), path,
      Value{type_dword, number_bytes(access, 4)});
}

// The details of a binding call.
constexpr char no_identifier[] = "endpoint id is not a render endpoint identifier";
constexpr char not_opened[] =
    "the endpoint FxProperties key could not be opened for writing (run the control service elevated)";
constexpr char not_read[] = "the endpoint mode-effect chain could not be read";
constexpr char not_written[] = "the endpoint mode-effect chain could not be written";
constexpr char not_read_back[] = "the endpoint mode-effect chain could not be read back";
constexpr char not_kept[] = "the endpoint mode-effect chain did not keep the change";
constexpr char bound[] = "endpoint bound";
constexpr char bound_with_list[] = "endpoint bound and a default-mode list was added";
constexpr char bound_with_move[] =
    "endpoint bound; its existing mode effect was moved into the composite chain because the legacy slot "
    "suppresses it";
constexpr char was_bound[] = "endpoint was already bound";
constexpr char list_refreshed[] = "endpoint was already bound; refreshed the mode list";
constexpr char unbound[] = "endpoint unbound";
constexpr char unbound_with_restore[] = "endpoint unbound and its original mode effect restored";
constexpr char was_not_bound[] = "endpoint was not bound";

constexpr std::int32_t failed = static_cast<std::int32_t>(0x80004005u);
constexpr std::int32_t wrong_type = static_cast<std::int32_t>(0x8007070Cu);
constexpr std::int32_t invalid_argument = static_cast<std::int32_t>(0x80070057u);
// A small positive error as a status.
constexpr std::int32_t from_win32(std::int32_t error) {
  return static_cast<std::int32_t>(0x80070000u + static_cast<std::uint32_t>(error));
}

}  // namespace velmora::endpoint
