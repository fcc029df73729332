#include "sessions.h"

#include <utility>

#include "calls.h"

namespace velmora::audio_server {
namespace {

class SessionControl final : public Object<IAudioSessionControl2> {
 public:
  SessionControl(std::wstring id, int index, Session session)
      : id_(std::move(id)), index_(index), session_(session) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** out) override {
    Call asked = session_call("IAudioSessionControl.QueryInterface").with("interface", interface_text(id));
    return asked.hand_out(out, [&] { return Object::QueryInterface(id, out); });
  }
  HRESULT STDMETHODCALLTYPE GetState(AudioSessionState* out) override {
    return session_call("IAudioSessionControl.GetState").report(out, AudioSessionStateActive, [&] {
      return static_cast<AudioSessionState>(session_.state);
    });
  }
  HRESULT STDMETHODCALLTYPE GetProcessId(DWORD* out) override {
    return session_call("IAudioSessionControl2.GetProcessId").report(out, DWORD{77}, [&] {
      return DWORD{session_.process_id};
    });
  }
  VELMORA_NOT_IMPLEMENTED(IAudioSessionControl, GetDisplayName, LPWSTR*)
  VELMORA_NOT_IMPLEMENTED(IAudioSessionControl, SetDisplayName, LPCWSTR, LPCGUID)
  VELMORA_NOT_IMPLEMENTED(IAudioSessionControl, GetIconPath, LPWSTR*)
  VELMORA_NOT_IMPLEMENTED(IAudioSessionControl, SetIconPath, LPCWSTR, LPCGUID)
  VELMORA_NOT_IMPLEMENTED(IAudioSessionControl, GetGroupingParam, GUID*)
  VELMORA_NOT_IMPLEMENTED(IAudioSessionControl, SetGroupingParam, LPCGUID, LPCGUID)
  VELMORA_NOT_IMPLEMENTED(IAudioSessionControl, RegisterAudioSessionNotification, IAudioSessionEvents*)
  VELMORA_NOT_IMPLEMENTED(IAudioSessionControl, UnregisterAudioSessionNotification, IAudioSessionEvents*)
  VELMORA_NOT_IMPLEMENTED(IAudioSessionControl2, GetSessionIdentifier, LPWSTR*)
  VELMORA_NOT_IMPLEMENTED(IAudioSessionControl2, GetSessionInstanceIdentifier, LPWSTR*)
  VELMORA_NOT_IMPLEMENTED(IAudioSessionControl2, IsSystemSoundsSession)
  VELMORA_NOT_IMPLEMENTED(IAudioSessionControl2, SetDuckingPreference, WINBOOL)

 private:
  bool is(REFIID id) const override {
    return id == __uuidof(IAudioSessionControl) || id == __uuidof(IAudioSessionControl2);
  }
  [[nodiscard]] Call session_call(const std::string& operation) const {
    return call(operation).of(id_).with("session", index_);
  }
  [[nodiscard]] HRESULT unknown(const std::string& operation) const override {
    return session_call(operation).not_implemented();
  }

  std::wstring id_;
  int index_;
  Session session_;
};

class SessionEnumerator final : public Object<IAudioSessionEnumerator> {
 public:
  explicit SessionEnumerator(Endpoint endpoint) : endpoint_(std::move(endpoint)) {}

  HRESULT STDMETHODCALLTYPE GetCount(int* out) override {
    return call("IAudioSessionEnumerator.GetCount").of(endpoint_.id).report(out, 77, [&] {
      return static_cast<int>(endpoint_.sessions.size());
    });
  }
  HRESULT STDMETHODCALLTYPE GetSession(int index, IAudioSessionControl** out) override {
    Call asked = call("IAudioSessionEnumerator.GetSession").of(endpoint_.id).with("index", index);
    return asked.hand_out(out, [&]() -> HRESULT {
      if (index < 0 || static_cast<std::size_t>(index) >= endpoint_.sessions.size()) return E_INVALIDARG;
      *out = new SessionControl(endpoint_.id, index, endpoint_.sessions[static_cast<std::size_t>(index)]);
      return S_OK;
    });
  }

 private:
  bool is(REFIID id) const override { return id == __uuidof(IAudioSessionEnumerator); }

  Endpoint endpoint_;
};

class SessionManager final : public Object<IAudioSessionManager2> {
 public:
  explicit SessionManager(Endpoint endpoint) : endpoint_(std::move(endpoint)) {}

  HRESULT STDMETHODCALLTYPE GetSessionEnumerator(IAudioSessionEnumerator** out) override {
    return call("IAudioSessionManager2.GetSessionEnumerator").of(endpoint_.id).hand_out(out, [&] {
      *out = new SessionEnumerator(endpoint_);
      return S_OK;
    });
  }
  VELMORA_NOT_IMPLEMENTED(IAudioSessionManager, GetAudioSessionControl, LPCGUID, DWORD,
                          IAudioSessionControl**)
  VELMORA_NOT_IMPLEMENTED(IAudioSessionManager, GetSimpleAudioVolume, LPCGUID, DWORD, ISimpleAudioVolume**)
  VELMORA_NOT_IMPLEMENTED(IAudioSessionManager2, RegisterSessionNotification, IAudioSessionNotification*)
  VELMORA_NOT_IMPLEMENTED(IAudioSessionManager2, UnregisterSessionNotification, IAudioSessionNotification*)
  VELMORA_NOT_IMPLEMENTED(IAudioSessionManager2, RegisterDuckNotification, LPCWSTR,
                          IAudioVolumeDuckNotification*)
  VELMORA_NOT_IMPLEMENTED(IAudioSessionManager2, UnregisterDuckNotification, IAudioVolumeDuckNotification*)

 private:
  bool is(REFIID id) const override {
    return id == __uuidof(IAudioSessionManager) || id == __uuidof(IAudioSessionManager2);
  }

  Endpoint endpoint_;
};

}  // namespace

IAudioSessionManager2* make_session_manager(const Endpoint& endpoint) { return new SessionManager(endpoint); }

}  // namespace velmora::audio_server
