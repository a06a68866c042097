// errno values to the Win32 numbers of the mapping table, and so to
// results: the one place where an errno becomes a ZyrResult.
#include <cerrno>

#include "base/result.h"

std::uint32_t ZyrWin32ErrorFromErrno(int error) {
  switch (error) {
    case 0: return 0;
    case ENOENT: case ENXIO: case ENODEV: return 2;      // ERROR_FILE_NOT_FOUND
    case ENOTDIR: return 3;                              // ERROR_PATH_NOT_FOUND
    case EMFILE: case ENFILE: return 4;                  // ERROR_TOO_MANY_OPEN_FILES
    case EACCES: case EPERM: case EISDIR: return 5;      // ERROR_ACCESS_DENIED
    case EBADF: return 6;                                // ERROR_INVALID_HANDLE
    case ENOMEM: return 14;                              // ERROR_OUTOFMEMORY
    case EXDEV: return 17;                               // ERROR_NOT_SAME_DEVICE
    case EROFS: return 19;                               // ERROR_WRITE_PROTECT
    case EIO: return 30;                                 // ERROR_READ_FAULT
    case EBUSY: case ETXTBSY: return 32;                 // ERROR_SHARING_VIOLATION
    case ENOTSUP: return 50;                             // ERROR_NOT_SUPPORTED (EOPNOTSUPP is the same value)
    case ENOSYS: return 50;
    case EINVAL: case ESPIPE: return 87;                 // ERROR_INVALID_PARAMETER
    // A file size limit (RLIMIT_FSIZE) and a full disk mean the same to a
    // writer: the bytes did not fit.
    case ENOSPC: case EDQUOT: case EFBIG: return 112;    // ERROR_DISK_FULL
    case ENAMETOOLONG: case ELOOP: return 123;           // ERROR_INVALID_NAME
    case ENOTEMPTY: return 145;                          // ERROR_DIR_NOT_EMPTY
    case EEXIST: return 183;                             // ERROR_ALREADY_EXISTS
    case EINTR: case ECANCELED: return 995;              // ERROR_OPERATION_ABORTED
    case EFAULT: return 998;                             // ERROR_NOACCESS
    case EAGAIN: return 33;                              // ERROR_LOCK_VIOLATION
    case ECONNREFUSED: return 10061;
    default: return 0x2000u + static_cast<std::uint32_t>(error & 0xfff);  // kept distinguishable, no row
  }
}

ZyrResult ZyrResultFromErrno(int error) { return ZyrResultFromWin32Error(ZyrWin32ErrorFromErrno(error)); }
