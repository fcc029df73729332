#include "calls.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <utility>

#include <audiopolicy.h>
#include <endpointvolume.h>
#include <mmdeviceapi.h>
#include <objbase.h>

namespace velmora::audio_server {

State& state() {
  static State& it = *new State;
  return it;
}

std::wstring environment(const wchar_t* name) {
  std::array<wchar_t, 1024> value{};
  const DWORD length = GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
  return length < value.size() ? std::wstring(value.data(), length) : std::wstring();
}

void log_line(const std::string& line) {
  state().log.push_back(line);
  const std::wstring path = environment(L"VELMORA_TEST_AUDIO_LOG");
  if (path.empty()) return;
  const HANDLE file = CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return;
  const std::string bytes = line + "\n";
  DWORD written = 0;
  WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  CloseHandle(file);
}

void log_error(const std::string& what) {
  ++state().errors;
  log_line("ERROR " + what);
}

std::string guid_text(REFGUID guid) {
  std::array<wchar_t, 40> text{};
  StringFromGUID2(guid, text.data(), static_cast<int>(text.size()));
  std::string out;
  for (const wchar_t unit : std::wstring_view(text.data())) out += static_cast<char>(unit);
  return out;
}

std::string interface_text(REFIID id) {
  if (id == __uuidof(IUnknown)) return "IUnknown";
  if (id == __uuidof(IMMDeviceEnumerator)) return "IMMDeviceEnumerator";
  if (id == __uuidof(IAudioEndpointVolume)) return "IAudioEndpointVolume";
  if (id == meter_interface_id) return "IAudioMeterInformation";
  if (id == __uuidof(IAudioSessionManager2)) return "IAudioSessionManager2";
  if (id == __uuidof(IAudioSessionControl2)) return "IAudioSessionControl2";
  return guid_text(id);
}

std::string status_text(HRESULT status) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "0x%08lx", static_cast<unsigned long>(status));
  return text.data();
}

std::string real_text(float value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.9g", static_cast<double>(value));
  return text.data();
}

std::string pointer_text(const void* pointer) { return pointer == nullptr ? "null" : "not-null"; }

namespace {

// Sees every free of the process's task allocator; only ours count.
class AllocationWatch final : public IMallocSpy {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** out) override {
    if (out == nullptr) return E_POINTER;
    *out = id == __uuidof(IUnknown) || id == IID_IMallocSpy ? this : nullptr;
    return *out == nullptr ? E_NOINTERFACE : S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  SIZE_T STDMETHODCALLTYPE PreAlloc(SIZE_T size) override { return size; }
  void* STDMETHODCALLTYPE PostAlloc(void* actual) override { return actual; }
  void* STDMETHODCALLTYPE PreFree(void* request, WINBOOL) override {
    frees_ours_ = state().allocations.erase(request) != 0;
    return request;
  }
  void STDMETHODCALLTYPE PostFree(WINBOOL) override {
    if (std::exchange(frees_ours_, false)) log_live_counts();
  }
  SIZE_T STDMETHODCALLTYPE PreRealloc(void* request, SIZE_T size, void** new_request, WINBOOL) override {
    *new_request = request;
    return size;
  }
  void* STDMETHODCALLTYPE PostRealloc(void* actual, WINBOOL) override { return actual; }
  void* STDMETHODCALLTYPE PreGetSize(void* request, WINBOOL) override { return request; }
  SIZE_T STDMETHODCALLTYPE PostGetSize(SIZE_T actual, WINBOOL) override { return actual; }
  void* STDMETHODCALLTYPE PreDidAlloc(void* request, WINBOOL) override { return request; }
  int STDMETHODCALLTYPE PostDidAlloc(void*, WINBOOL, int actual) override { return actual; }
  void STDMETHODCALLTYPE PreHeapMinimize() override {}
  void STDMETHODCALLTYPE PostHeapMinimize() override {}

 private:
  bool frees_ours_ = false;
};

}  // namespace

void* allocate(std::size_t size) {
  if (!std::exchange(state().is_watched, true)) {
    static AllocationWatch& watch = *new AllocationWatch;
    const HRESULT status = CoRegisterMallocSpy(&watch);
    if (FAILED(status)) log_error("CoRegisterMallocSpy " + status_text(status));
  }
  void* const block = CoTaskMemAlloc(size);
  if (block != nullptr) state().allocations.insert(block);
  return block;
}

wchar_t* allocate_text(const std::wstring& text) {
  const std::size_t size = (text.size() + 1) * sizeof(wchar_t);
  auto* const block = static_cast<wchar_t*>(allocate(size));
  if (block != nullptr) std::memcpy(block, text.c_str(), size);
  return block;
}

}  // namespace velmora::audio_server
