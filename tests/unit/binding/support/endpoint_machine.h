// A render endpoint in the registry of the machine in memory, told in words. A value's words are "-" for a
// value that is missing, otherwise its entries with blanks between them; a letter stands for a class id (see
// `spell`), '' for an empty entry. In front may stand another type: "sz:", "expand:", "multi:", "dword:",
// "qword:". Names, paths and ids are typed apart from the code that is tested.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
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

// A and a: the effect, as it writes itself and in lower case. F and f: a foreign effect. L and l: the
// driver's in the legacy slot. M: one moved earlier. "ours" is the list of all six modes. Anything else
// stands for itself.
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

// What there is of one endpoint, as stored.
struct Stored {
  std::optional<Value> chain, slot, modes, offload;
  std::optional<Value> added, moved;
  bool record_key = false;      // the endpoint's record is there, with values or without
  bool records_key = false;     // the key above all records is there
  bool another_record = false;  // and another endpoint has one
  friend bool operator==(const Stored&, const Stored&) = default;
};

struct Words {
  std::string chain = "-";
  std::string slot = "-";
  std::string modes = "-";
  std::string offload = "-";
  std::string added = "-";
  std::string moved = "-";
  bool empty_record = false;  // the record is there with neither value
};

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

// What lies around the endpoint's values and has to stay as it is: values and keys beside and below them
// under the very same names, and another endpoint.
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

// One line for each key and each value, in an order that does not depend on the tree's.
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
inline std::vector<std::string> present_lines() { return lines_of(memory::system().state.registry); }

// Sets the machine's registry to what the words tell; log and faults stay.
inline void set_up(const Stored& all) { memory::system().state.registry = tree_of(all); }
inline void set_up(const Words& words) { set_up(stored(words)); }

// What the registry has to look like. The key above the records stays once it is there.
inline std::vector<std::string> expected_lines(const Words& before, const Words& after) {
  Stored all = stored(after);
  all.records_key = all.records_key || stored(before).records_key;
  return lines_of(all);
}

// The log with short words in place of the names and paths; an entry about anything else stays as it is.
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

// "query chain x2, class id" as a list of calls.
inline std::vector<std::string> call_list(std::string_view text) {
  std::vector<std::string> list;
  while (!text.empty()) {
    const std::size_t comma = text.find(", ");
    std::string call(text.substr(0, comma));
    text.remove_prefix(comma == std::string_view::npos ? text.size() : comma + 2);
    const bool twice = call.size() > 3 && call.substr(call.size() - 3) == " x2";
    if (twice) call.erase(call.size() - 3);
    list.insert(list.end(), twice ? 2 : 1, call);
  }
  return list;
}

// What `detail` can say.
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
