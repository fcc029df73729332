#include "server.h"

#include <array>
#include <utility>

#include "calls.h"
#include "devices.h"

namespace velmora::audio_server {
namespace {

bool read_file(const std::wstring& path, std::string& out) {
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  std::array<char, 4096> piece{};
  DWORD count = 0;
  BOOL works = TRUE;
  out.clear();
  while ((works = ReadFile(file, piece.data(), static_cast<DWORD>(piece.size()), &count, nullptr)) &&
         count > 0) {
    out.append(piece.data(), count);
  }
  CloseHandle(file);
  return works != 0;
}

bool load_script() {
  state().calls.clear();
  state().script = {};
  std::string text;
  if (state().script_text) {
    text = *state().script_text;
  } else if (!read_file(environment(L"VELMORA_TEST_AUDIO"), text)) {
    log_error("the script's file cannot be read");
    return false;
  }
  std::string error;
  if (read_script(text, state().script, error)) return true;
  log_error("the script cannot be read: " + error);
  return false;
}

class Factory final : public IClassFactory {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** out) override {
    if (out == nullptr) return E_POINTER;
    *out = id == __uuidof(IUnknown) || id == __uuidof(IClassFactory) ? this : nullptr;
    return *out == nullptr ? E_NOINTERFACE : S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID id, void** out) override {
    if (!load_script()) {
      if (out != nullptr) *out = nullptr;
      return status_bad_script;
    }
    Call asked("IClassFactory.CreateInstance");
    asked.with("outer", pointer_text(outer)).with("interface", interface_text(id));
    const HRESULT status = asked.hand_out(out, [&]() -> HRESULT {
      if (outer != nullptr) return CLASS_E_NOAGGREGATION;
      if (id != __uuidof(IUnknown) && id != __uuidof(IMMDeviceEnumerator)) return E_NOINTERFACE;
      *out = make_enumerator();
      return S_OK;
    });
    if (out == nullptr || *out == nullptr) log_live_counts();
    return status;
  }
  HRESULT STDMETHODCALLTYPE LockServer(WINBOOL) override { return S_OK; }
};

}  // namespace

IClassFactory* class_factory() {
  static Factory& factory = *new Factory;
  return &factory;
}

HRESULT get_class_object(REFCLSID class_id, REFIID id, void** out) {
  if (!load_script()) return status_bad_script;
  Call asked("DllGetClassObject");
  asked.with("class", guid_text(class_id))
      .with("interface", id == IID_IClassFactory ? "IClassFactory" : guid_text(id));
  const HRESULT status = asked.hand_out(out, [&] { return class_factory()->QueryInterface(id, out); });
  if (out == nullptr || *out == nullptr) log_live_counts();
  return status;
}

void set_script(std::string_view text) { state().script_text = text; }

LiveCounts live_counts() {
  return {state().references, static_cast<std::uint32_t>(state().allocations.size()), state().errors};
}

void log_live_counts() {
  const LiveCounts counts = live_counts();
  log_line("live references=" + std::to_string(counts.references) +
           " allocations=" + std::to_string(counts.allocations));
}

std::vector<std::string> take_log() { return std::exchange(state().log, {}); }

void forget_changes() { state().changes.clear(); }

}  // namespace velmora::audio_server
