// The list of dependents as Windows gives it. Wine names none, so the call is answered here.
#include <gtest/gtest.h>

#include <windows.h>

#include <winsvc.h>

#include <cstdint>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

#include "platform/services.h"
#include "platform/windows_imports.h"

namespace velmora {
namespace {

using Enumerate = decltype(&EnumDependentServicesW);

// What the next calls answer, and what they were handed.
struct Script {
  std::vector<const wchar_t*> names = {};  // null: an entry without a name
  std::vector<DWORD> errors = {};          // in order; 0 does the work
  std::vector<DWORD> sizes = {};
  bool aligned = true;
};
Script* script = nullptr;

BOOL WINAPI enumerate(SC_HANDLE service, DWORD state, LPENUM_SERVICE_STATUSW entries, DWORD size,
                      LPDWORD needed, LPDWORD count) {
  if (script == nullptr) {
    return real_call<Enumerate>(L"advapi32.dll", "EnumDependentServicesW")(service, state, entries, size,
                                                                           needed, count);
  }
  EXPECT_EQ(state, DWORD{SERVICE_ACTIVE});
  const std::size_t call = script->sizes.size();
  script->sizes.push_back(size);
  script->aligned &= reinterpret_cast<std::uintptr_t>(entries) % alignof(ENUM_SERVICE_STATUSW) == 0;
  DWORD whole = static_cast<DWORD>(script->names.size() * sizeof(ENUM_SERVICE_STATUSW));
  for (const wchar_t* name : script->names) {
    if (name != nullptr) whole += static_cast<DWORD>((std::wcslen(name) + 1) * sizeof(wchar_t));
  }
  *count = 0;
  *needed = 0;
  const DWORD error = call < script->errors.size() ? script->errors[call] : 0;
  if (error != 0 || size < whole) {
    *needed = error == 0 || error == ERROR_MORE_DATA ? whole : 0;
    SetLastError(error != 0 ? error : ERROR_MORE_DATA);
    return FALSE;
  }
  char* text = reinterpret_cast<char*>(entries) + script->names.size() * sizeof(ENUM_SERVICE_STATUSW);
  for (const wchar_t* name : script->names) {
    entries[*count].lpServiceName = nullptr;
    if (name != nullptr) {
      const std::size_t bytes = (std::wcslen(name) + 1) * sizeof(wchar_t);
      entries[*count].lpServiceName = static_cast<wchar_t*>(std::memcpy(text, name, bytes));
      text += bytes;
    }
    ++*count;
  }
  return TRUE;
}

}  // namespace
}  // namespace velmora

// The import of the call, taken over for this program.
extern "C" {
extern velmora::Enumerate __imp_EnumDependentServicesW;
velmora::Enumerate __imp_EnumDependentServicesW = velmora::enumerate;
}

namespace velmora {
namespace {

using Names = std::vector<std::u16string>;

Names dependents(Script& given) {
  // Any handle will do: the call that looks at it is answered here.
  const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  EXPECT_NE(manager, nullptr);
  const Service service(reinterpret_cast<std::uintptr_t>(manager));
  script = &given;
  Names names = active_dependents(service);
  script = nullptr;
  EXPECT_TRUE(given.aligned);
  return names;
}

TEST(WindowsServices, NameTheDependentsInTheSystemsOrderFromABufferOfJustTheSizeThatIsNeeded) {
  Script given{.names = {L"Player", nullptr, L"M", L"Mixer \u97F3", L""}};
  EXPECT_EQ(dependents(given), (Names{u"Player", u"M", u"Mixer \u97F3", u""}));
  const auto whole = static_cast<DWORD>(5 * sizeof(ENUM_SERVICE_STATUSW) + (7 + 2 + 8 + 1) * 2);
  EXPECT_EQ(given.sizes, (std::vector<DWORD>{0, whole}));
}

TEST(WindowsServices, NameManyDependents) {
  Script given{.names = std::vector<const wchar_t*>(1000, L"Service")};
  EXPECT_EQ(dependents(given), Names(1000, u"Service"));
}

TEST(WindowsServices, NameNoDependentsAfterAFailure) {
  const struct {
    std::vector<DWORD> errors;
    std::size_t calls;
  } rows[] = {{{ERROR_ACCESS_DENIED}, 1}, {{0, ERROR_ACCESS_DENIED}, 2}, {{0, ERROR_MORE_DATA}, 2}};
  for (const auto& row : rows) {
    Script given{.names = {L"Player"}, .errors = row.errors};
    EXPECT_EQ(dependents(given), Names());
    EXPECT_EQ(given.sizes.size(), row.calls);
  }
  Script nobody;
  EXPECT_EQ(dependents(nobody), Names());
  EXPECT_EQ(nobody.sizes, std::vector<DWORD>{0});
}

}  // namespace
}  // namespace velmora
