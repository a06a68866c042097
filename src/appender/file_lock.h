// ZyrLogFileLock: the lock between processes that lets one process at a time
// roll a log. It locks the whole of an empty companion file, "<log>.lock",
// which stays on disk beside the log; nothing is ever read from it or
// written to it. The lock is only ever tried, never waited for, so a writer
// in one process can't make a writer in another stand still, and a process
// that dies holding it blocks nobody.
#ifndef ZYR_APPENDER_FILE_LOCK_H
#define ZYR_APPENDER_FILE_LOCK_H

#include <cstdint>

#include "base/file.h"
#include "base/string.h"
#include "zyrlog/result.h"

inline constexpr std::uint32_t ZYR_LOCK_CLOSED = 0;  // lock file not open
inline constexpr std::uint32_t ZYR_LOCK_OPEN = 1;    // open, not locked by this object
inline constexpr std::uint32_t ZYR_LOCK_HELD = 3;    // locked by this object

class ZyrLogFileLock {
 public:
  // Opens or creates the lock file `path` (the log's full path with ".lock"
  // added), readable and writable by every account; a symbolic link there
  // is refused with ZYR_E_INVALID_NAME. Needs State() closed.
  ZyrResult Open(const char16_t* path);
  // Open for the log `logPath`: its full path with ".lock" added.
  ZyrResult OpenBeside(const ZyrBasString& logPath);
  // Never waits. ZYR_W_TIMEOUT while another open of the file (another
  // process, or another appender of this one) holds it; ZYR_E_NOT_SUPPORTED
  // where the file system can't lock, and the caller goes on alone. In a
  // forked child the file is opened again first: the open it inherited is
  // the parent's, and so would be any lock taken through it.
  ZyrResult TryLock(bool exclusive);
  // Needs the lock held.
  void Unlock();
  // Needs the lock given back; the file stays on disk.
  void Close();

  // The results by which TryLock says that the file system offers no lock;
  // a rollover then goes on without one.
  static bool Unsupported(ZyrResult r) {
    return r == ZYR_E_NOT_SUPPORTED || r == ZYR_E_INVALID_OPERATION || r == ZYR_E_NO_FREE_SLOT;
  }

  std::uint32_t State() const { return state_; }
  bool IsOpen() const { return state_ != ZYR_LOCK_CLOSED; }

 private:
  std::uint32_t state_ = ZYR_LOCK_CLOSED;
  ZyrBasFile file_;
  ZyrBasString path_;
  std::uint32_t process_ = 0;  // the process that opened file_
};

#endif
