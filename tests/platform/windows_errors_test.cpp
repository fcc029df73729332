// The numbers of platform/errors.h are those of Windows' own headers.
#include "platform/errors.h"

#include <gtest/gtest.h>
#include <winsock2.h>

#include <windows.h>
#include <winhttp.h>

namespace velmora {
namespace {

TEST(ErrorNumbers, AreThoseOfWindows) {
  const struct {
    std::int64_t ours;
    std::int64_t published;
  } numbers[] = {
      {error_file_not_found, ERROR_FILE_NOT_FOUND},
      {error_path_not_found, ERROR_PATH_NOT_FOUND},
      {error_too_many_open_files, ERROR_TOO_MANY_OPEN_FILES},
      {error_access_denied, ERROR_ACCESS_DENIED},
      {error_invalid_handle, ERROR_INVALID_HANDLE},
      {error_not_enough_memory, ERROR_NOT_ENOUGH_MEMORY},
      {error_outofmemory, ERROR_OUTOFMEMORY},
      {error_no_more_files, ERROR_NO_MORE_FILES},
      {error_write_protect, ERROR_WRITE_PROTECT},
      {error_gen_failure, ERROR_GEN_FAILURE},
      {error_invalid_parameter, ERROR_INVALID_PARAMETER},
      {error_disk_full, ERROR_DISK_FULL},
      {error_mod_not_found, ERROR_MOD_NOT_FOUND},
      {error_busy, ERROR_BUSY},
      {error_already_exists, ERROR_ALREADY_EXISTS},
      {error_filename_exced_range, ERROR_FILENAME_EXCED_RANGE},
      {error_more_data, ERROR_MORE_DATA},
      {error_directory, ERROR_DIRECTORY},
      {error_registry_io_failed, ERROR_REGISTRY_IO_FAILED},
      {error_key_deleted, ERROR_KEY_DELETED},
      {error_dependent_services_running, ERROR_DEPENDENT_SERVICES_RUNNING},
      {error_service_already_running, ERROR_SERVICE_ALREADY_RUNNING},
      {error_service_disabled, ERROR_SERVICE_DISABLED},
      {error_circular_dependency, ERROR_CIRCULAR_DEPENDENCY},
      {error_service_does_not_exist, ERROR_SERVICE_DOES_NOT_EXIST},
      {error_service_cannot_accept_ctrl, ERROR_SERVICE_CANNOT_ACCEPT_CTRL},
      {error_service_not_active, ERROR_SERVICE_NOT_ACTIVE},
      {error_service_dependency_fail, ERROR_SERVICE_DEPENDENCY_FAIL},
      {error_service_dependency_deleted, ERROR_SERVICE_DEPENDENCY_DELETED},
      {error_unsupported_type, ERROR_UNSUPPORTED_TYPE},
      {error_cant_resolve_filename, ERROR_CANT_RESOLVE_FILENAME},
      {error_winhttp_timeout, ERROR_WINHTTP_TIMEOUT},
      {error_winhttp_internal_error, ERROR_WINHTTP_INTERNAL_ERROR},
      {error_winhttp_invalid_url, ERROR_WINHTTP_INVALID_URL},
      {error_winhttp_unrecognized_scheme, ERROR_WINHTTP_UNRECOGNIZED_SCHEME},
      {error_winhttp_name_not_resolved, ERROR_WINHTTP_NAME_NOT_RESOLVED},
      {error_winhttp_cannot_connect, ERROR_WINHTTP_CANNOT_CONNECT},
      {error_winhttp_connection_error, ERROR_WINHTTP_CONNECTION_ERROR},
      {error_winhttp_header_not_found, ERROR_WINHTTP_HEADER_NOT_FOUND},
      {error_winhttp_invalid_server_response, ERROR_WINHTTP_INVALID_SERVER_RESPONSE},
      {error_winhttp_redirect_failed, ERROR_WINHTTP_REDIRECT_FAILED},
      {error_winhttp_secure_channel_error, ERROR_WINHTTP_SECURE_CHANNEL_ERROR},
      {error_winhttp_secure_failure, ERROR_WINHTTP_SECURE_FAILURE},
      {error_winhttp_header_size_overflow, ERROR_WINHTTP_HEADER_SIZE_OVERFLOW},
      {wsaeintr, WSAEINTR},
      {wsaebadf, WSAEBADF},
      {wsaeacces, WSAEACCES},
      {wsaefault, WSAEFAULT},
      {wsaeinval, WSAEINVAL},
      {wsaemfile, WSAEMFILE},
      {wsaewouldblock, WSAEWOULDBLOCK},
      {wsaenotsock, WSAENOTSOCK},
      {wsaeprotonosupport, WSAEPROTONOSUPPORT},
      {wsaeopnotsupp, WSAEOPNOTSUPP},
      {wsaeafnosupport, WSAEAFNOSUPPORT},
      {wsaeaddrinuse, WSAEADDRINUSE},
      {wsaeaddrnotavail, WSAEADDRNOTAVAIL},
      {wsaenetdown, WSAENETDOWN},
      {wsaenetunreach, WSAENETUNREACH},
      {wsaeconnaborted, WSAECONNABORTED},
      {wsaeconnreset, WSAECONNRESET},
      {wsaenobufs, WSAENOBUFS},
      {wsaenotconn, WSAENOTCONN},
      {wsaetimedout, WSAETIMEDOUT},
      {wsaeconnrefused, WSAECONNREFUSED},
      {wsasyscallfailure, WSASYSCALLFAILURE},
  };
  for (const auto& number : numbers) EXPECT_EQ(number.ours, number.published);
}

}  // namespace
}  // namespace velmora
