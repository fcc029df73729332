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
    return session_call("IAudioSessionControl.GetState").tell(out, AudioSessionStateActive, [&] {
      return static_cast<AudioSessionState>(session_.state);
    });
  }
  HRESULT STDMETHODCALLTYPE GetProcessId(DWORD* out) override {
    return session_call("IAudioSessionControl2.GetProcessId").tell(out, DWORD{77}, [&] {
      return DWORD{session_.process_id};
    });
  }
  HRESULT STDMETHODCALLTYPE GetDisplayName(LPWSTR*) override {
    return no("IAudioSessionControl.GetDisplayName");
  }
  HRESULT STDMETHODCALLTYPE SetDisplayName(LPCWSTR, LPCGUID) override {
    return no("IAudioSessionControl.SetDisplayName");
  }
  HRESULT STDMETHODCALLTYPE GetIconPath(LPWSTR*) override { return no("IAudioSessionControl.GetIconPath"); }
  HRESULT STDMETHODCALLTYPE SetIconPath(LPCWSTR, LPCGUID) override {
    return no("IAudioSessionControl.SetIconPath");
  }
  HRESULT STDMETHODCALLTYPE GetGroupingParam(GUID*) override {
    return no("IAudioSessionControl.GetGroupingParam");
  }
  HRESULT STDMETHODCALLTYPE SetGroupingParam(LPCGUID, LPCGUID) override {
    return no("IAudioSessionControl.SetGroupingParam");
  }
  HRESULT STDMETHODCALLTYPE RegisterAudioSessionNotification(IAudioSessionEvents*) override {
    return no("IAudioSessionControl.RegisterAudioSessionNotification");
  }
  HRESULT STDMETHODCALLTYPE UnregisterAudioSessionNotification(IAudioSessionEvents*) override {
    return no("IAudioSessionControl.UnregisterAudioSessionNotification");
  }
  HRESULT STDMETHODCALLTYPE GetSessionIdentifier(LPWSTR*) override {
    return no("IAudioSessionControl2.GetSessionIdentifier");
  }
  HRESULT STDMETHODCALLTYPE GetSessionInstanceIdentifier(LPWSTR*) override {
    return no("IAudioSessionControl2.GetSessionInstanceIdentifier");
  }
  HRESULT STDMETHODCALLTYPE IsSystemSoundsSession() override {
    return no("IAudioSessionControl2.IsSystemSoundsSession");
  }
  HRESULT STDMETHODCALLTYPE SetDuckingPreference(WINBOOL) override {
    return no("IAudioSessionControl2.SetDuckingPreference");
  }

 private:
  bool is(REFIID id) const override {
    return id == __uuidof(IAudioSessionControl) || id == __uuidof(IAudioSessionControl2);
  }
  [[nodiscard]] Call session_call(const std::string& operation) const {
    return call(operation).of(id_).with("session", index_);
  }
  [[nodiscard]] HRESULT no(const std::string& operation) const {
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
    return call("IAudioSessionEnumerator.GetCount").of(endpoint_.id).tell(out, 77, [&] {
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
  HRESULT STDMETHODCALLTYPE GetAudioSessionControl(LPCGUID, DWORD, IAudioSessionControl**) override {
    return unknown("IAudioSessionManager.GetAudioSessionControl");
  }
  HRESULT STDMETHODCALLTYPE GetSimpleAudioVolume(LPCGUID, DWORD, ISimpleAudioVolume**) override {
    return unknown("IAudioSessionManager.GetSimpleAudioVolume");
  }
  HRESULT STDMETHODCALLTYPE RegisterSessionNotification(IAudioSessionNotification*) override {
    return unknown("IAudioSessionManager2.RegisterSessionNotification");
  }
  HRESULT STDMETHODCALLTYPE UnregisterSessionNotification(IAudioSessionNotification*) override {
    return unknown("IAudioSessionManager2.UnregisterSessionNotification");
  }
  HRESULT STDMETHODCALLTYPE RegisterDuckNotification(LPCWSTR, IAudioVolumeDuckNotification*) override {
    return unknown("IAudioSessionManager2.RegisterDuckNotification");
  }
  HRESULT STDMETHODCALLTYPE UnregisterDuckNotification(IAudioVolumeDuckNotification*) override {
    return unknown("IAudioSessionManager2.UnregisterDuckNotification");
  }

 private:
  bool is(REFIID id) const override {
    return id == __uuidof(IAudioSessionManager) || id == __uuidof(IAudioSessionManager2);
  }

  Endpoint endpoint_;
};

}  // namespace

IAudioSessionManager2* make_session_manager(const Endpoint& endpoint) { return new SessionManager(endpoint); }

}  // namespace velmora::audio_server
