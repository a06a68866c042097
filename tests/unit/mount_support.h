// A small file system of a chosen kind on a loop-mounted image, for tests
// that need what the test folder's own file system does not offer (no
// birth time, per-file compression). Needs root; where the system refuses,
// Why() tells it and the test skips.
#ifndef ZYR_TESTS_MOUNT_SUPPORT_H
#define ZYR_TESTS_MOUNT_SUPPORT_H

#include <stdlib.h>

#include <string>

#include "test_support.h"

namespace zyrtest {

class LoopMount {
 public:
  // `mkfs` is a command line that formats the image path appended to it.
  bool Mount(const std::string& mkfs, int megabytes) {
    base_ = MakeTempDir("mnt");
    image_ = base_ + "/image";
    dir_ = base_ + "/fs";
    std::string log = base_ + "/log";
    std::string cmd = "truncate -s " + std::to_string(megabytes) + "M '" + image_ + "' && " + mkfs +
                      " '" + image_ + "' && mkdir -p '" + dir_ + "' && mount -o loop '" + image_ +
                      "' '" + dir_ + "'";
    if (system(("(" + cmd + ") >'" + log + "' 2>&1").c_str()) != 0) {
      why_ = "cannot mount a file system made by \"" + mkfs + "\": " + ReadFile(log);
      return false;
    }
    mounted_ = true;
    return true;
  }
  ~LoopMount() {
    // Lazily where something still holds a file open there, so that no
    // mount outlives the test.
    if (mounted_) (void)!system(("umount '" + dir_ + "' 2>/dev/null || umount -l '" + dir_ + "'").c_str());
    if (!base_.empty()) RemoveTree(base_);
  }

  const std::string& Dir() const { return dir_; }
  const std::string& Why() const { return why_; }

 private:
  bool mounted_ = false;
  std::string base_, image_, dir_, why_;
};

}  // namespace zyrtest

#endif
