// A registry in memory, with keys and values in insertion order. Pure. Names are stored as first written and
// compared without regard to the case of ASCII letters. All other characters must match exactly.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmora::hosted {

struct TreeValue {
  std::u16string name;  // empty: the key's default value
  std::uint32_t type = 0;
  std::string bytes;  // as stored
  bool operator==(const TreeValue&) const = default;
};

// Equality covers everything: order, the case of names, and all subkeys.
struct TreeKey {
  std::u16string name;
  std::vector<TreeValue> values;
  std::vector<TreeKey> keys;
  // Whether an export has a line for this key even if it holds only subkeys. A key that a file implies by a
  // subkey has none. This keeps a file unchanged, apart from real changes, when it is written back.
  bool has_line = false;
  // Exact in order and case; ignores has_line.
  bool operator==(const TreeKey& other) const {
    return name == other.name && values == other.values && keys == other.keys;
  }
};

// A whole registry. Its keys are the roots, such as HKEY_LOCAL_MACHINE.
using RegistryTree = TreeKey;

// Windows' limits ("Registry Element Size Limits"). Key names have 1 to 255 characters, value names 0 to
// 16383. Keys nest at most 512 levels, counting the root. No name contains NUL. Key names contain no
// backslash and no line end. The export parser enforces these limits; the functions here do not.
constexpr std::size_t most_key_name_units = 255;
constexpr std::size_t most_value_name_units = 16383;
constexpr std::size_t most_key_depth = 512;

[[nodiscard]] bool same_name(std::u16string_view left, std::u16string_view right);

// Finds a key by path, with names separated by single backslashes. Null if missing. The empty path is `from`
// itself. Pointers are valid until the tree changes.
[[nodiscard]] TreeKey* find_key(TreeKey& from, std::u16string_view path);
[[nodiscard]] const TreeKey* find_key(const TreeKey& from, std::u16string_view path);

// The position of a new key among its siblings.
enum class KeyPlace {
  by_name,  // sorted by upper-case name, as Windows lists keys
  last,
};

// As find_key, but creates missing keys.
TreeKey& make_key(TreeKey& from, std::u16string_view path, KeyPlace place = KeyPlace::by_name);

// Removes a key and everything below it. False if it is missing, or for the empty path (`from` itself).
bool remove_key(TreeKey& from, std::u16string_view path);

// Finds a value by name. Null if missing.
[[nodiscard]] const TreeValue* find_value(const TreeKey& key, std::u16string_view name);
// Returns the text of a REG_SZ value up to its terminator, or the number of a REG_DWORD. No value if the key
// is null, or if the value is missing or of another type or size.
[[nodiscard]] std::optional<std::u16string> find_text(const TreeKey* key, std::u16string_view name);
[[nodiscard]] std::optional<std::uint32_t> find_number(const TreeKey* key, std::u16string_view name);
// Returns the texts of a REG_MULTI_SZ value up to the first empty one. Empty in the same cases.
[[nodiscard]] std::vector<std::u16string> find_texts(const TreeKey* key, std::u16string_view name);
// Replaces the value in place, keeping its name's spelling, or adds it: the default value first, others last.
void put_value(TreeKey& key, std::u16string_view name, std::uint32_t type, std::string_view bytes);
// Returns false if the value is missing.
bool remove_value(TreeKey& key, std::u16string_view name);

}  // namespace velmora::hosted
