// Windows error numbers used by name, on every system. Names are those of the publishing header in lower
// case. Types are those that most uses compare with.
#pragma once

#include <cstdint>

namespace velmora {

// winerror.h
inline constexpr std::uint32_t error_file_not_found = 2;
inline constexpr std::uint32_t error_path_not_found = 3;
inline constexpr std::uint32_t error_too_many_open_files = 4;
inline constexpr std::uint32_t error_access_denied = 5;
inline constexpr std::uint32_t error_invalid_handle = 6;
inline constexpr std::uint32_t error_not_enough_memory = 8;
inline constexpr std::uint32_t error_outofmemory = 14;
inline constexpr std::uint32_t error_no_more_files = 18;
inline constexpr std::uint32_t error_write_protect = 19;
inline constexpr std::uint32_t error_gen_failure = 31;
inline constexpr std::uint32_t error_sharing_violation = 32;
inline constexpr std::uint32_t error_not_supported = 50;
inline constexpr std::uint32_t error_invalid_parameter = 87;
inline constexpr std::uint32_t error_disk_full = 112;
inline constexpr std::uint32_t error_mod_not_found = 126;
inline constexpr std::uint32_t error_busy = 170;
inline constexpr std::uint32_t error_already_exists = 183;
inline constexpr std::uint32_t error_bad_exe_format = 193;
inline constexpr std::uint32_t error_filename_exced_range = 206;
inline constexpr std::uint32_t error_more_data = 234;
inline constexpr std::uint32_t error_directory = 267;
inline constexpr std::uint32_t error_registry_io_failed = 1016;
inline constexpr std::uint32_t error_key_deleted = 1018;
inline constexpr std::uint32_t error_dependent_services_running = 1051;
inline constexpr std::uint32_t error_service_already_running = 1056;
inline constexpr std::uint32_t error_service_disabled = 1058;
inline constexpr std::uint32_t error_circular_dependency = 1059;
inline constexpr std::uint32_t error_service_does_not_exist = 1060;
inline constexpr std::uint32_t error_service_cannot_accept_ctrl = 1061;
inline constexpr std::uint32_t error_service_not_active = 1062;
inline constexpr std::uint32_t error_service_dependency_fail = 1068;
inline constexpr std::uint32_t error_service_dependency_deleted = 1075;
inline constexpr std::uint32_t error_invalid_owner = 1307;
inline constexpr std::uint32_t error_unsupported_type = 1630;
inline constexpr std::uint32_t error_cant_resolve_filename = 1921;

// winhttp.h
inline constexpr std::uint32_t error_winhttp_timeout = 12002;
inline constexpr std::uint32_t error_winhttp_internal_error = 12004;
inline constexpr std::uint32_t error_winhttp_invalid_url = 12005;
inline constexpr std::uint32_t error_winhttp_unrecognized_scheme = 12006;
inline constexpr std::uint32_t error_winhttp_name_not_resolved = 12007;
inline constexpr std::uint32_t error_winhttp_cannot_connect = 12029;
inline constexpr std::uint32_t error_winhttp_connection_error = 12030;
inline constexpr std::uint32_t error_winhttp_header_not_found = 12150;
inline constexpr std::uint32_t error_winhttp_invalid_server_response = 12152;
inline constexpr std::uint32_t error_winhttp_redirect_failed = 12156;
inline constexpr std::uint32_t error_winhttp_secure_channel_error = 12157;
inline constexpr std::uint32_t error_winhttp_secure_failure = 12175;
inline constexpr std::uint32_t error_winhttp_header_size_overflow = 12182;

// winsock2.h
inline constexpr int wsaeintr = 10004;
inline constexpr int wsaebadf = 10009;
inline constexpr int wsaeacces = 10013;
inline constexpr int wsaefault = 10014;
inline constexpr int wsaeinval = 10022;
inline constexpr int wsaemfile = 10024;
inline constexpr int wsaewouldblock = 10035;
inline constexpr int wsaenotsock = 10038;
inline constexpr int wsaeprotonosupport = 10043;
inline constexpr int wsaeopnotsupp = 10045;
inline constexpr int wsaeafnosupport = 10047;
inline constexpr int wsaeaddrinuse = 10048;
inline constexpr int wsaeaddrnotavail = 10049;
inline constexpr int wsaenetdown = 10050;
inline constexpr int wsaenetunreach = 10051;
inline constexpr int wsaeconnaborted = 10053;
inline constexpr int wsaeconnreset = 10054;
inline constexpr int wsaenobufs = 10055;
inline constexpr int wsaenotconn = 10057;
inline constexpr int wsaetimedout = 10060;
inline constexpr int wsaeconnrefused = 10061;
inline constexpr int wsasyscallfailure = 10107;

}  // namespace velmora
