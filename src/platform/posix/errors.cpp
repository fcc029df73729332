#include "platform/posix/errors.h"

#include <cerrno>

namespace velmora {

int winsock_from_errno(int error) {
  switch (error) {
    case EINTR: return 10004;
    case EBADF: return 10009;
    case EACCES: return 10013;
    case EFAULT: return 10014;
    case EINVAL: return 10022;
    case ENFILE:
    case EMFILE: return 10024;
    case EAGAIN: return 10035;
    case ENOTSOCK: return 10038;
    case EPROTONOSUPPORT: return 10043;
    case EOPNOTSUPP: return 10045;
    case EAFNOSUPPORT: return 10047;
    case EADDRINUSE: return 10048;
    case EADDRNOTAVAIL: return 10049;
    case ENETDOWN: return 10050;
    case ENETUNREACH: return 10051;
    case EPIPE:
    case ECONNABORTED: return 10053;
    case ECONNRESET: return 10054;
    case ENOBUFS:
    case ENOMEM: return 10055;
    case ENOTCONN: return 10057;
    case ETIMEDOUT: return 10060;
    case ECONNREFUSED: return 10061;
    default: return 10107;
  }
}

std::uint32_t win32_from_errno(int error) {
  switch (error) {
    case ENOENT: return 2;
    case ENOTDIR: return 3;
    case ENFILE:
    case EMFILE: return 4;
    case EACCES:
    case EPERM:
    case EISDIR: return 5;
    case EBADF: return 6;
    case ENOMEM: return 8;
    case EROFS: return 19;
    case EINVAL: return 87;
    case ENOSPC:
    case EDQUOT:
    case EFBIG: return 112;
    case EBUSY: return 170;
    case EEXIST: return 183;
    case ENAMETOOLONG: return 206;
    case ELOOP: return 1921;
    default: return 31;
  }
}

}  // namespace velmora
