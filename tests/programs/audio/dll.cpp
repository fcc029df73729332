// The audio server as a DLL that COM loads, and its registration (regsvr32).
//
// Registered, it takes the place of the system's class by the class's key TreatAs, which names a class of our
// own. What the system has there itself is not touched. The keys are volatile: they live no longer than the
// system's session, so that a run that was killed leaves nothing for the next one. Until then the server
// gives programs that have no script the system's own class.
#include "server.h"

#include <array>
#include <string>

#include <mmdeviceapi.h>
#include <objbase.h>

namespace server = velmora::audio_server;

namespace {

constexpr const wchar_t* treat_as_key =
    LR"(SOFTWARE\Classes\CLSID\{BCDE0395-E52F-467C-8E3D-C4579291692E}\TreatAs)";
constexpr const wchar_t* own_class = L"{7A1D0F0B-6A0E-4B0D-9C33-3A5E8E1F6C21}";
constexpr const wchar_t* own_key = LR"(SOFTWARE\Classes\CLSID\{7A1D0F0B-6A0E-4B0D-9C33-3A5E8E1F6C21})";
constexpr const wchar_t* own_server_key =
    LR"(SOFTWARE\Classes\CLSID\{7A1D0F0B-6A0E-4B0D-9C33-3A5E8E1F6C21}\InprocServer32)";

HMODULE own_module = nullptr;

// A volatile key with these texts; an empty name is the key's own value.
LSTATUS make_key(const wchar_t* path, const wchar_t* text, const wchar_t* threading_model) {
  HKEY key = nullptr;
  LSTATUS error = RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr, REG_OPTION_VOLATILE, KEY_SET_VALUE,
                                  nullptr, &key, nullptr);
  if (error != ERROR_SUCCESS) return error;
  const auto set = [key](const wchar_t* name, const std::wstring& data) {
    return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(data.c_str()),
                          static_cast<DWORD>((data.size() + 1) * sizeof(wchar_t)));
  };
  error = set(nullptr, text);
  if (error == ERROR_SUCCESS && threading_model != nullptr) error = set(L"ThreadingModel", threading_model);
  RegCloseKey(key);
  return error;
}

bool has_script() { return GetEnvironmentVariableW(L"VELMORA_TEST_AUDIO", nullptr, 0) != 0; }

HRESULT system_class_object(REFIID id, void** out) {
  const HMODULE module = LoadLibraryW(L"mmdevapi.dll");
  if (module == nullptr) return HRESULT_FROM_WIN32(GetLastError());
  const FARPROC function = GetProcAddress(module, "DllGetClassObject");
  if (function == nullptr) return HRESULT_FROM_WIN32(GetLastError());
  using GetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
  return reinterpret_cast<GetClassObject>(reinterpret_cast<void*>(function))(__uuidof(MMDeviceEnumerator), id,
                                                                             out);
}

}  // namespace

extern "C" HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID class_id, REFIID id, LPVOID* out) {
  return has_script() ? server::get_class_object(class_id, id, out) : system_class_object(id, out);
}

// It stays: COM goes on telling the watch over allocations of each free.
extern "C" HRESULT STDAPICALLTYPE DllCanUnloadNow() { return S_FALSE; }

extern "C" HRESULT STDAPICALLTYPE DllRegisterServer() {
  std::array<wchar_t, MAX_PATH> path{};
  if (GetModuleFileNameW(own_module, path.data(), static_cast<DWORD>(path.size())) == 0) return E_FAIL;
  LSTATUS error = make_key(own_key, L"velmora_test_audio", nullptr);
  // COM asks it from the service's own thread, without a thread of COM's in between.
  if (error == ERROR_SUCCESS) error = make_key(own_server_key, path.data(), L"Both");
  if (error == ERROR_SUCCESS) error = make_key(treat_as_key, own_class, nullptr);
  return HRESULT_FROM_WIN32(error);
}

extern "C" HRESULT STDAPICALLTYPE DllUnregisterServer() {
  RegDeleteKeyW(HKEY_LOCAL_MACHINE, treat_as_key);
  RegDeleteKeyW(HKEY_LOCAL_MACHINE, own_server_key);
  RegDeleteKeyW(HKEY_LOCAL_MACHINE, own_key);
  return S_OK;
}

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    own_module = instance;
    HMODULE self = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                       reinterpret_cast<LPCWSTR>(instance), &self);
  }
  if (reason == DLL_PROCESS_DETACH && has_script()) server::log_live_counts();
  return TRUE;
}
