// The registry tree, for the machine in memory and the hosted machine. Only the surroundings_*.cpp of a
// program includes this.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/hosted/machine_state.h"
#include "platform/surroundings.h"

namespace velmora::surroundings {
namespace {

std::u16string full_path(std::u16string_view path) {
  return std::u16string(u"HKEY_LOCAL_MACHINE\\").append(path);
}

// The path of each grant.
std::map<std::uintptr_t, std::u16string>& grants() {
  static std::map<std::uintptr_t, std::u16string> all;
  return all;
}

template <typename Named>
std::vector<std::u16string> names_of(const std::vector<Named>& all) {
  std::vector<std::u16string> names;
  for (const Named& one : all) names.push_back(one.name);
  return names;
}

void put_scratch_key() {
  hosted::RegistryTree& registry = hosted::machine_state().registry;
  hosted::remove_key(registry, full_path(registry_scratch));
  hosted::make_key(registry, full_path(registry_scratch));
}

void remove_scratch_key() {
  hosted::remove_key(hosted::machine_state().registry, full_path(registry_scratch));
  EXPECT_TRUE(hosted::machine_state().open_keys.empty());
  EXPECT_TRUE(grants().empty());
}

}  // namespace

bool is_held(RegistryKey::Native key) { return hosted::machine_state().open_keys.count(key) == 1; }

std::vector<std::u16string> key_names(std::u16string_view path) {
  const hosted::TreeKey* key = hosted::find_key(hosted::machine_state().registry, full_path(path));
  return key == nullptr ? std::vector<std::u16string>() : names_of(key->keys);
}

std::vector<std::u16string> value_names(std::u16string_view path) {
  const hosted::TreeKey* key = hosted::find_key(hosted::machine_state().registry, full_path(path));
  std::vector<std::u16string> names;
  if (key != nullptr) names = names_of(key->values);
  std::sort(names.begin(), names.end());
  return names;
}

void GrantKind::release(Native native) noexcept {
  hosted::TreeKey* list = hosted::find_key(hosted::machine_state().registry, hosted::access_list_path);
  ASSERT_NE(list, nullptr);
  EXPECT_TRUE(hosted::remove_value(*list, grants().at(native)));
  grants().erase(native);
}

Grant grant(std::u16string_view path, std::uint32_t access) {
  hosted::TreeKey& list = hosted::make_key(hosted::machine_state().registry, hosted::access_list_path);
  const std::string bytes(reinterpret_cast<const char*>(&access), sizeof access);
  hosted::put_value(list, path, reg_dword, bytes);
  static std::uintptr_t count = 0;
  grants().emplace(++count, path);
  return Grant(count);
}

bool runs_under_wine() { return false; }

}  // namespace velmora::surroundings
