// A throwaway account for the tests that need a second account on the
// machine: made with useradd as root, removed again at the end, and a way to
// run a piece of the test as it.
#ifndef ZYR_TESTS_ACCOUNT_SUPPORT_H
#define ZYR_TESTS_ACCOUNT_SUPPORT_H

#include <grp.h>
#include <pwd.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "test_support.h"

namespace zyrtest {

class ThrowawayAccount {
 public:
  // `tag`: a few lower-case letters that tell the accounts of one test apart.
  explicit ThrowawayAccount(const std::string& tag) : name_("zyr" + tag + std::to_string(getpid())) {
    if (geteuid() != 0) {
      reason_ = "skipped: making an account needs root";
      return;
    }
    if (system("command -v useradd >/dev/null 2>&1") != 0) {
      reason_ = "skipped: useradd is not available";
      return;
    }
    // useradd gives up at once when another one holds the account files.
    const std::string add = "useradd -r -M -N -s /usr/sbin/nologin " + name_ + " >/dev/null 2>&1";
    for (int attempt = 0; attempt < 200 && !made_; ++attempt) {
      made_ = system(add.c_str()) == 0;
      if (!made_) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    struct passwd* pw = made_ ? getpwnam(name_.c_str()) : nullptr;
    if (!pw) {
      reason_ = "skipped: useradd could not make the account " + name_;
      return;
    }
    uid_ = pw->pw_uid;
    gid_ = pw->pw_gid;
  }
  ~ThrowawayAccount() {
    if (!made_) return;
    const std::string remove = "userdel " + name_ + " >/dev/null 2>&1";
    for (int attempt = 0; system(remove.c_str()) != 0; ++attempt) {
      if (attempt == 200) {
        ADD_FAILURE() << "userdel could not remove the account " << name_;
        return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  }
  ThrowawayAccount(const ThrowawayAccount&) = delete;
  ThrowawayAccount& operator=(const ThrowawayAccount&) = delete;

  // Empty when the account exists; else why not, starting with "skipped".
  const std::string& Unavailable() const { return reason_; }
  uid_t Uid() const { return uid_; }
  gid_t Gid() const { return gid_; }

  // `body` in a forked child that runs as this account alone (no
  // supplementary groups); its result, or -1 (a signal, or killed after
  // `seconds`), 99 when the change of account failed.
  int Run(const std::function<int()>& body, int seconds = 60) const {
    return RunInChild(
        [&] {
          if (setgroups(0, nullptr) != 0 || setresgid(gid_, gid_, gid_) != 0 || setresuid(uid_, uid_, uid_) != 0)
            return 99;
          return body();
        },
        seconds);
  }

 private:
  std::string name_;
  std::string reason_;
  bool made_ = false;
  uid_t uid_ = 0;
  gid_t gid_ = 0;
};

}  // namespace zyrtest

#endif
