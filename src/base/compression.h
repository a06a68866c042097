// A request to the file system to store one file compressed.
//
// On Linux the request is the file's compression flag (FS_COMPR_FL), which
// file systems such as btrfs honour for the data they write from then on;
// it is set at once, so a request is never left running. Where the file
// system has no such flag, or keeps it without compressing (ext4), the
// request fails, and a caller that treats compression as a wish leaves it
// at that. A platform whose requests run
// on after Start keeps them in the request until Wait sees them end.
#ifndef ZYR_BASE_COMPRESSION_H
#define ZYR_BASE_COMPRESSION_H

#include "zyrlog/result.h"

class ZyrBasCompressionRequest {
 public:
  // Asks for `path` (not a link) to be compressed. ZYR_OK with Pending()
  // false when the file system is done; a failure when it refuses.
  ZyrResult Start(const char16_t* path);
  // True while the request runs on after Start.
  bool Pending() const { return pending_; }
  // ZYR_OK once the request has ended, ZYR_W_TIMEOUT while it runs and
  // `forever` is false.
  ZyrResult Wait(bool forever);

 private:
  bool pending_ = false;
};

#endif
