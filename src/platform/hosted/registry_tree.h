// A registry in memory: keys and values in the order in which they came. Pure. Names are found without regard
// to the case of ASCII letters and kept as they were first written; every other character stands for itself
// alone.
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

// Equal keys are equal in everything: order, the case of names, and what lies below.
struct TreeKey {
  std::u16string name;
  std::vector<TreeValue> values;
  std::vector<TreeKey> keys;
  // Whether an export gives the key a line of its own even while it holds nothing but keys. One that a file
  // only implies, by a key below it, has none, so that the file written back differs in nothing but what was
  // changed.
  bool has_line = false;
  // Exact in order and case; lines do not count.
  bool operator==(const TreeKey& other) const {
    return name == other.name && values == other.values && keys == other.keys;
  }
};

// The whole registry: its keys are the roots (HKEY_LOCAL_MACHINE and its like).
using RegistryTree = TreeKey;

// A key's name holds 1 to 255 characters, a value's 0 to 16383, and keys nest 512 deep at most (the root is
// the first level), as in Windows ("Registry Element Size Limits"). No name holds NUL, and a key's name holds
// no backslash and no line end. The functions here do not look at these bounds, the reader of exports does.
constexpr std::size_t most_key_name_units = 255;
constexpr std::size_t most_value_name_units = 16383;
constexpr std::size_t most_key_depth = 512;

[[nodiscard]] bool same_name(std::u16string_view left, std::u16string_view right);

// The key at a path of names separated by single backslashes; null when there is none. The empty path is
// `from` itself. Pointers hold until the tree is changed.
[[nodiscard]] TreeKey* find_key(TreeKey& from, std::u16string_view path);
[[nodiscard]] const TreeKey* find_key(const TreeKey& from, std::u16string_view path);

// Where a new key goes among its neighbours.
enum class KeyPlace {
  by_name,  // before the first whose name sorts behind it (by upper case), as Windows lists keys
  last,
};

// As find_key; keys that are missing are made.
TreeKey& make_key(TreeKey& from, std::u16string_view path, KeyPlace place = KeyPlace::by_name);

// Removes the key at a path with everything below it; false when there is none. `from` itself stays: false
// for the empty path.
bool remove_key(TreeKey& from, std::u16string_view path);

// Null when there is none.
[[nodiscard]] const TreeValue* find_value(const TreeKey& key, std::u16string_view name);
// The text of a REG_SZ value up to its terminator, and the number of a REG_DWORD. No value when the key is
// null, when it has no such value, or when that is of another type or size.
[[nodiscard]] std::optional<std::u16string> find_text(const TreeKey* key, std::u16string_view name);
[[nodiscard]] std::optional<std::uint32_t> find_number(const TreeKey* key, std::u16string_view name);
// The texts of a REG_MULTI_SZ value up to the first empty one; none in the same cases.
[[nodiscard]] std::vector<std::u16string> find_texts(const TreeKey* key, std::u16string_view name);
// Replaces the value of this name where it stands (its name stays as it was first written), or adds it: the
// default value in front of all others, any other behind them.
void put_value(TreeKey& key, std::u16string_view name, std::uint32_t type, std::string_view bytes);
// False when there is none.
bool remove_value(TreeKey& key, std::u16string_view name);

}  // namespace velmora::hosted
