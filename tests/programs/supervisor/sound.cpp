#include "sound.h"

#include "base/text.h"
#include "platform/hosted/audio_tree.h"
#include "platform/registry.h"

namespace velmora::supervisor {
namespace {

using hosted::RegistryTree;
using hosted::TreeKey;

constexpr std::u16string_view audio_path = u"HKEY_LOCAL_MACHINE\\SOFTWARE\\VelmoraStandIn\\Audio";
constexpr std::u16string_view choice_name = u"Plays";
constexpr std::u16string_view own_session = u"Sessions\\Player";
constexpr std::uint32_t session_inactive = 0;  // audiosessiontypes.h
constexpr std::uint32_t session_active = 1;

void put_text(TreeKey& key, std::u16string_view name, std::u16string text) {
  text += u'\0';
  hosted::put_value(key, name, reg_sz,
                    {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t)});
}

void put_number(TreeKey& key, std::u16string_view name, std::uint32_t number) {
  hosted::put_value(key, name, reg_dword, {reinterpret_cast<const char*>(&number), sizeof number});
}

std::u16string own_path_of(std::u16string_view id) {
  return std::u16string(audio_path).append(u"\\").append(id);
}

void silence(TreeKey& endpoint) {
  put_text(endpoint, u"Peak", u"0");
  hosted::remove_value(endpoint, u"PeakSwing");
  hosted::remove_key(endpoint, own_session);
  TreeKey* sessions = hosted::find_key(endpoint, u"Sessions");
  if (sessions == nullptr) return;
  for (TreeKey& session : sessions->keys) put_number(session, u"State", session_inactive);
}

// Peaks between 0.2 and 0.6.
void play(TreeKey& endpoint, std::uint32_t process_id) {
  put_text(endpoint, u"Peak", u"0.4");
  put_text(endpoint, u"PeakSwing", u"0.2");
  TreeKey& session = hosted::make_key(endpoint, own_session);
  put_number(session, u"State", session_active);
  put_number(session, u"ProcessId", process_id);
}

}  // namespace

void choose_sound(RegistryTree& registry, std::string_view text) {
  put_text(hosted::make_key(registry, audio_path), choice_name, wide_from_utf8_replacing(text));
}

std::optional<std::u16string> chosen_sound(const RegistryTree& registry) {
  return hosted::find_text(hosted::find_key(registry, audio_path), choice_name);
}

std::u16string find_playing_endpoint(const RegistryTree& registry, std::u16string_view choice) {
  if (choice.empty() || hosted::same_name(choice, u"none")) return {};
  if (hosted::same_name(choice, u"default")) {
    return hosted::default_endpoint_of(registry, EndpointFlow::render);
  }
  for (const hosted::TreeEndpoint& endpoint : hosted::endpoints_of(registry, EndpointFlow::render)) {
    if (!endpoint.active) continue;
    if (hosted::same_name(endpoint.id, choice)) return endpoint.id;
    const std::u16string name = hosted::endpoint_name_of(registry, endpoint.id).value_or(u"");
    if (hosted::same_name(std::u16string_view(name).substr(0, choice.size()), choice)) return endpoint.id;
  }
  return {};
}

void put_sound(RegistryTree& registry, std::u16string_view playing_id, std::uint32_t process_id) {
  for (const hosted::TreeEndpoint& endpoint : hosted::endpoints_of(registry, EndpointFlow::render)) {
    if (endpoint.id == playing_id) {
      TreeKey& key = hosted::make_key(registry, own_path_of(endpoint.id));
      silence(key);
      play(key, process_id);
    } else if (TreeKey* key = hosted::find_key(registry, own_path_of(endpoint.id))) {
      silence(*key);
    }
  }
}

}  // namespace velmora::supervisor
