#include "platform/hosted/registry_tree.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "base/ascii.h"
#include "platform/registry.h"

namespace velmora::hosted {
namespace {

bool sorts_before(std::u16string_view left, std::u16string_view right) {
  return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                      [](char16_t a, char16_t b) { return ascii_upper(a) < ascii_upper(b); });
}

// The first entry that does not sort before `name`, if the entries are sorted. Any entry if they are not.
template <typename List>
auto find_sorted(List& list, std::u16string_view name) {
  auto first = list.begin();
  for (auto length = list.end() - first; length > 0;) {
    const auto half = length / 2;
    const bool is_later = sorts_before(std::next(first, half)->name, name);
    if (is_later) std::advance(first, half + 1);
    length = is_later ? length - half - 1 : half;
  }
  return first;
}

// Finds a key or value by name. Checks the last entry first: exports follow the tree's order, so it is
// the most likely match. Long lists are nearly always sorted, but an export may have any order.
template <typename List>
auto find_named(List& list, std::u16string_view name) {
  constexpr std::size_t long_list = 16;
  if (!list.empty() && same_name(list.back().name, name)) return std::prev(list.end());
  if (list.size() >= long_list) {
    const auto entry = find_sorted(list, name);
    if (entry != list.end() && same_name(entry->name, name)) return entry;
  }
  return std::find_if(list.begin(), list.end(),
                      [&](const auto& entry) { return same_name(entry.name, name); });
}

template <typename Key>
Key* find_below(Key& from, std::u16string_view path) {
  if (path.empty()) return &from;
  Key* key = &from;
  for (std::size_t begin = 0; begin <= path.size();) {
    const std::size_t end = std::min(path.find(u'\\', begin), path.size());
    const auto child = find_named(key->keys, path.substr(begin, end - begin));
    if (child == key->keys.end()) return nullptr;
    key = &*child;
    begin = end + 1;
  }
  return key;
}

const TreeValue* find_typed(const TreeKey* key, std::u16string_view name, std::uint32_t type) {
  const TreeValue* value = key == nullptr ? nullptr : find_value(*key, name);
  return value != nullptr && value->type == type ? value : nullptr;
}

std::u16string units_of(const TreeValue& value) {
  std::u16string units(value.bytes.size() / sizeof(char16_t), u'\0');
  std::memcpy(units.data(), value.bytes.data(), units.size() * sizeof(char16_t));
  return units;
}

TreeKey& make_child(TreeKey& parent, std::u16string_view name, KeyPlace place, bool has_line) {
  const auto child = find_named(parent.keys, name);
  if (child != parent.keys.end()) return *child;
  const auto neighbour = place == KeyPlace::last
                             ? parent.keys.end()
                             : std::find_if(parent.keys.begin(), parent.keys.end(),
                                            [&](const TreeKey& key) { return sorts_before(name, key.name); });
  return *parent.keys.insert(neighbour, TreeKey{std::u16string(name), {}, {}, has_line});
}

}  // namespace

bool same_name(std::u16string_view left, std::u16string_view right) {
  return equal_ignoring_case(left, right);
}

TreeKey* find_key(TreeKey& from, std::u16string_view path) { return find_below(from, path); }
const TreeKey* find_key(const TreeKey& from, std::u16string_view path) { return find_below(from, path); }

TreeKey& make_key(TreeKey& from, std::u16string_view path, KeyPlace place) {
  if (path.empty()) return from;
  TreeKey* key = &from;
  for (std::size_t begin = 0; begin <= path.size();) {
    const std::size_t end = std::min(path.find(u'\\', begin), path.size());
    const std::u16string_view name = path.substr(begin, end - begin);
    // When parsing, only keys named by a line of the file get one. At run time every new key gets one.
    // A root needs none.
    const bool has_line = place == KeyPlace::by_name && key != &from;
    key = &make_child(*key, name, place, has_line);
    begin = end + 1;
  }
  if (place == KeyPlace::last) key->has_line = true;
  return *key;
}

bool remove_key(TreeKey& from, std::u16string_view path) {
  const std::size_t cut = path.rfind(u'\\');
  // Key names are never empty. Without this check the empty parent path would resolve to `from`.
  if (cut == 0) return false;
  const bool is_direct = cut == std::u16string_view::npos;
  TreeKey* parent = is_direct ? &from : find_key(from, path.substr(0, cut));
  if (parent == nullptr) return false;
  const auto child = find_named(parent->keys, is_direct ? path : path.substr(cut + 1));
  if (child == parent->keys.end()) return false;
  parent->keys.erase(child);
  return true;
}

const TreeValue* find_value(const TreeKey& key, std::u16string_view name) {
  const auto value = find_named(key.values, name);
  return value == key.values.end() ? nullptr : &*value;
}

std::optional<std::u16string> find_text(const TreeKey* key, std::u16string_view name) {
  const TreeValue* value = find_typed(key, name, reg_sz);
  if (value == nullptr) return std::nullopt;
  std::u16string text = units_of(*value);
  text.resize(std::min(text.find(u'\0'), text.size()));
  return text;
}

std::optional<std::uint32_t> find_number(const TreeKey* key, std::u16string_view name) {
  const TreeValue* value = find_typed(key, name, reg_dword);
  std::uint32_t number = 0;
  if (value == nullptr || value->bytes.size() != sizeof number) return std::nullopt;
  std::memcpy(&number, value->bytes.data(), sizeof number);
  return number;
}

std::vector<std::u16string> find_texts(const TreeKey* key, std::u16string_view name) {
  std::vector<std::u16string> texts;
  const TreeValue* value = find_typed(key, name, reg_multi_sz);
  if (value == nullptr) return texts;
  const std::u16string units = units_of(*value);
  for (std::u16string_view rest = units; !rest.empty() && rest.front() != u'\0';) {
    const std::size_t length = std::min(rest.find(u'\0'), rest.size());
    texts.emplace_back(rest.substr(0, length));
    rest.remove_prefix(std::min(length + 1, rest.size()));
  }
  return texts;
}

void put_value(TreeKey& key, std::u16string_view name, std::uint32_t type, std::string_view bytes) {
  const auto value = find_named(key.values, name);
  if (value != key.values.end()) {
    value->type = type;
    value->bytes = bytes;
    return;
  }
  const auto place = name.empty() ? key.values.begin() : key.values.end();
  key.values.insert(place, TreeValue{std::u16string(name), type, std::string(bytes)});
}

bool remove_value(TreeKey& key, std::u16string_view name) {
  const auto value = find_named(key.values, name);
  if (value == key.values.end()) return false;
  key.values.erase(value);
  return true;
}

}  // namespace velmora::hosted
