// Reading an existing file by its path, from the start to the end. The
// configuration loader needs nothing more of the file system.
#ifndef ZYR_BASE_POSIX_READFILE_H
#define ZYR_BASE_POSIX_READFILE_H

#include <cstddef>

#include "zyrlog/result.h"

class ZyrBasReadOnlyFile {
 public:
  ZyrBasReadOnlyFile() noexcept = default;
  ~ZyrBasReadOnlyFile() { Close(); }
  ZyrBasReadOnlyFile(const ZyrBasReadOnlyFile&) = delete;
  ZyrBasReadOnlyFile& operator=(const ZyrBasReadOnlyFile&) = delete;

  // Opens an existing regular file for reading. Both "\" and "/" separate
  // the path's parts.
  ZyrResult Open(const char16_t* path) noexcept;
  // The next bytes: ZYR_OK when all `count` came, ZYR_I_SHORT_READ when
  // fewer did, ZYR_E_END_OF_DATA at the end; `*got` tells how many.
  ZyrResult Read(void* buffer, std::size_t count, std::size_t* got) noexcept;
  void Close() noexcept;
  bool IsOpen() const noexcept { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

#endif
