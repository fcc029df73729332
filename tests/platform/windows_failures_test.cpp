// Calls that fail without a number of their own. Wine has none, so the calls are answered here.
#include <gtest/gtest.h>

#include <winsock2.h>

#include <windows.h>

#include <sddl.h>

#include "platform/shared_memory.h"
#include "platform/socket_exchange.h"
#include "platform/sockets.h"
#include "platform/surroundings.h"
#include "platform/windows_imports.h"

namespace velmora {
namespace {

// While this lives, every call below fails and leaves 0 as its error.
class SilentFailures {
 public:
  SilentFailures() { active = true; }
  SilentFailures(const SilentFailures&) = delete;
  SilentFailures& operator=(const SilentFailures&) = delete;
  ~SilentFailures() { active = false; }
  static bool active;
};
bool SilentFailures::active = false;

// Either the real answer, or `failure` with the error 0.
template <typename Function, typename Result, typename... Arguments>
Result answer(const wchar_t* library, const char* name, Result failure, Arguments... arguments) {
  if (!SilentFailures::active) return real_call<Function>(library, name)(arguments...);
  SetLastError(0);
  return failure;
}

constexpr const wchar_t* kernel = L"kernel32.dll";
constexpr const wchar_t* winsock = L"ws2_32.dll";

HANDLE WINAPI open_mapping(DWORD access, BOOL inherit, LPCWSTR name) {
  return answer<decltype(&OpenFileMappingW), HANDLE>(kernel, "OpenFileMappingW", nullptr, access, inherit,
                                                     name);
}

HANDLE WINAPI create_mapping(HANDLE file, LPSECURITY_ATTRIBUTES attributes, DWORD protection, DWORD high,
                             DWORD low, LPCWSTR name) {
  return answer<decltype(&CreateFileMappingW), HANDLE>(kernel, "CreateFileMappingW", nullptr, file,
                                                       attributes, protection, high, low, name);
}

LPVOID WINAPI map_view(HANDLE mapping, DWORD access, DWORD high, DWORD low, SIZE_T size) {
  return answer<decltype(&MapViewOfFile), LPVOID>(kernel, "MapViewOfFile", nullptr, mapping, access, high,
                                                  low, size);
}

// With `descriptors_work` a descriptor is made of the words that Wine knows.
bool descriptors_work = false;

BOOL WINAPI make_descriptor(LPCWSTR text, DWORD revision, PSECURITY_DESCRIPTOR* out, PULONG size) {
  if (descriptors_work) {
    return real_call<decltype(&ConvertStringSecurityDescriptorToSecurityDescriptorW)>(
        L"advapi32.dll", "ConvertStringSecurityDescriptorToSecurityDescriptorW")(L"D:(A;;GA;;;WD)", revision,
                                                                                 out, size);
  }
  return answer<decltype(&ConvertStringSecurityDescriptorToSecurityDescriptorW), BOOL>(
      L"advapi32.dll", "ConvertStringSecurityDescriptorToSecurityDescriptorW", FALSE, text, revision, out,
      size);
}

SOCKET WSAAPI make_socket(int family, int type, int protocol) {
  return answer<decltype(&::socket), SOCKET>(winsock, "socket", INVALID_SOCKET, family, type, protocol);
}

int WSAAPI bind_socket(SOCKET socket, const sockaddr* address, int size) {
  return answer<decltype(&::bind), int>(winsock, "bind", SOCKET_ERROR, socket, address, size);
}

int WSAAPI listen_on_socket(SOCKET socket, int backlog) {
  return answer<decltype(&::listen), int>(winsock, "listen", SOCKET_ERROR, socket, backlog);
}

SOCKET WSAAPI accept_socket(SOCKET socket, sockaddr* address, int* size) {
  return answer<decltype(&::accept), SOCKET>(winsock, "accept", INVALID_SOCKET, socket, address, size);
}

}  // namespace
}  // namespace velmora

// The imports of the calls, taken over for this program.
extern "C" {
extern decltype(&OpenFileMappingW) __imp_OpenFileMappingW;
decltype(&OpenFileMappingW) __imp_OpenFileMappingW = velmora::open_mapping;
extern decltype(&CreateFileMappingW) __imp_CreateFileMappingW;
decltype(&CreateFileMappingW) __imp_CreateFileMappingW = velmora::create_mapping;
extern decltype(&MapViewOfFile) __imp_MapViewOfFile;
decltype(&MapViewOfFile) __imp_MapViewOfFile = velmora::map_view;
using MakeDescriptor = decltype(&ConvertStringSecurityDescriptorToSecurityDescriptorW);
extern MakeDescriptor __imp_ConvertStringSecurityDescriptorToSecurityDescriptorW;
MakeDescriptor __imp_ConvertStringSecurityDescriptorToSecurityDescriptorW = velmora::make_descriptor;
extern decltype(&::socket) __imp_socket;
decltype(&::socket) __imp_socket = velmora::make_socket;
extern decltype(&::bind) __imp_bind;
decltype(&::bind) __imp_bind = velmora::bind_socket;
extern decltype(&::listen) __imp_listen;
decltype(&::listen) __imp_listen = velmora::listen_on_socket;
extern decltype(&::accept) __imp_accept;
decltype(&::accept) __imp_accept = velmora::accept_socket;
}

namespace velmora {
namespace {

class WindowsFailures : public surroundings::ArrangedSockets {};

TEST_F(WindowsFailures, OfSocketsAreFailuresWithoutANumberToo) {
  Socket listener;
  ASSERT_EQ(open_tcp_socket(listener), std::nullopt);
  const auto former = listener.native();
  Socket other;
  const SilentFailures silent;
  EXPECT_EQ(bind_loopback(listener, 0), 0);
  EXPECT_EQ(listen_at_maximum(listener), 0);
  EXPECT_EQ(accept_connection(listener, other), 0);
  EXPECT_EQ(open_tcp_socket(other), 0);
  EXPECT_FALSE(other.is_open());
  EXPECT_EQ(listener.native(), former);
}

TEST_F(WindowsFailures, OfMappingsAreFailuresWithoutANumberToo) {
  const std::u16string name = surroundings::find_free_mapping_name();
  SharedMapping mapping;
  ASSERT_EQ(surroundings::make_mapping(name, 64, mapping).create_error, std::nullopt);
  SharedMapping other;
  SharedView view;
  const SilentFailures silent;
  EXPECT_EQ(open_shared_mapping(name, other), 0u);
  EXPECT_EQ(map_shared_view(mapping, 64, view), 0u);
  CreatedMapping created = create_shared_mapping(name, 64, other);
  EXPECT_EQ(created.descriptor_error, 0u);
  EXPECT_EQ(created.create_error, std::nullopt);
  descriptors_work = true;
  created = create_shared_mapping(name, 64, other);
  descriptors_work = false;
  EXPECT_EQ(created.descriptor_error, std::nullopt);
  EXPECT_EQ(created.create_error, 0u);
  EXPECT_FALSE(created.already_existed);
  EXPECT_FALSE(other.is_open());
  EXPECT_FALSE(view.is_open());
}

}  // namespace
}  // namespace velmora
