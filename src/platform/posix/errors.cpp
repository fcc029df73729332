#include "platform/posix/errors.h"

#include <cerrno>

#include "platform/errors.h"

namespace velmora {

int winsock_from_errno(int error) {
  switch (error) {
    case EINTR: return wsaeintr;
    case EBADF: return wsaebadf;
    case EACCES: return wsaeacces;
    case EFAULT: return wsaefault;
    case EINVAL: return wsaeinval;
    case ENFILE:
    case EMFILE: return wsaemfile;
    case EAGAIN: return wsaewouldblock;
    case ENOTSOCK: return wsaenotsock;
    case EPROTONOSUPPORT: return wsaeprotonosupport;
    case EOPNOTSUPP: return wsaeopnotsupp;
    case EAFNOSUPPORT: return wsaeafnosupport;
    case EADDRINUSE: return wsaeaddrinuse;
    case EADDRNOTAVAIL: return wsaeaddrnotavail;
    case ENETDOWN: return wsaenetdown;
    case ENETUNREACH: return wsaenetunreach;
    case EPIPE:
    case ECONNABORTED: return wsaeconnaborted;
    case ECONNRESET: return wsaeconnreset;
    case ENOBUFS:
    case ENOMEM: return wsaenobufs;
    case ENOTCONN: return wsaenotconn;
    case ETIMEDOUT: return wsaetimedout;
    case ECONNREFUSED: return wsaeconnrefused;
    default: return wsasyscallfailure;
  }
}

std::uint32_t win32_from_errno(int error) {
  switch (error) {
    case ENOENT: return error_file_not_found;
    case ENOTDIR: return error_path_not_found;
    case ENFILE:
    case EMFILE: return error_too_many_open_files;
    case EACCES:
    case EPERM:
    case EISDIR: return error_access_denied;
    case EBADF: return error_invalid_handle;
    case ENOMEM: return error_not_enough_memory;
    case EROFS: return error_write_protect;
    case EINVAL: return error_invalid_parameter;
    case ENOSPC:
    case EDQUOT:
    case EFBIG: return error_disk_full;
    case EBUSY: return error_busy;
    case EEXIST: return error_already_exists;
    case ENOEXEC: return error_bad_exe_format;
    case ENAMETOOLONG: return error_filename_exced_range;
    case ELOOP: return error_cant_resolve_filename;
    default: return error_gen_failure;
  }
}

}  // namespace velmora
