// fork() of a process that logs: what a child inherits must not tie it to
// its parent (the rollover lock, the random generator) nor to a thread of
// the parent that held a lock at the fork.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "appender/file_lock.h"
#include "base/file.h"
#include "log_object_fixture.h"
#include "test_support.h"

namespace {

using zyrtest::U16;

// Forks a child that runs `body` and ends with its result.
pid_t Spawn(const std::function<int()>& body) {
  pid_t child = fork();
  if (child == 0) _exit(body());
  return child;
}

// The child's exit status, -1 when it did not end well within 20 s.
int Reap(pid_t child) {
  bool hung = false;
  int status = zyrtest::WaitChild(child, 20, &hung);
  return !hung && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class ForkTest : public zyrtest::LogObjectTest {
 protected:
  ForkTest() : LogObjectTest("fork") {}
};

}  // namespace

// Open-file-description locks belong to the open file, which a forked child
// shares with its parent: two children that roll at once would both hold
// the lock. Each tries it through an open of its own.
TEST_F(ForkTest, TwoChildrenNeverHoldTheRolloverLockAtOnce) {
  ZyrLogFileLock lock;
  ASSERT_EQ(lock.Open(U16(dir_ + "/x.log.lock").c_str()), ZYR_OK);
  int first[2], second[2];
  ASSERT_EQ(pipe(first), 0);
  ASSERT_EQ(pipe(second), 0);
  char byte = 0;
  pid_t a = Spawn([&] {
    if (lock.TryLock(true) != ZYR_OK) return 1;
    if (write(first[1], "a", 1) != 1 || read(second[0], &byte, 1) != 1) return 2;  // held until b has tried
    lock.Unlock();
    return 0;
  });
  pid_t b = Spawn([&] {
    if (read(first[0], &byte, 1) != 1) return 3;
    ZyrResult r = lock.TryLock(true);
    if (write(second[1], "b", 1) != 1) return 4;
    return r == ZYR_W_TIMEOUT ? 0 : 5;
  });
  EXPECT_EQ(Reap(a), 0);
  EXPECT_EQ(Reap(b), 0) << "the second child got the lock that the first held";
  EXPECT_EQ(lock.TryLock(true), ZYR_OK);  // nothing of the children's stays
  lock.Unlock();
  lock.Close();
  for (int fd : {first[0], first[1], second[0], second[1]}) close(fd);
}

// The random generator's state is copied by the fork: a child that did not
// stir it again would make the parent's next temporary name.
TEST_F(ForkTest, ParentAndChildMakeOtherTemporaryNames) {
  int names[2];
  ASSERT_EQ(pipe(names), 0);
  pid_t child = Spawn([&] {
    ZyrBasString name;
    if (ZyrFailed(ZyrBasMakeTempName(name))) return 1;
    std::string text = zyrtest::Narrow(zyrtest::Str(name));
    return write(names[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 2;
  });
  ZyrBasString mine;
  ASSERT_EQ(ZyrBasMakeTempName(mine), ZYR_OK);
  char theirs[64] = {};
  ASSERT_EQ(Reap(child), 0);
  ASSERT_GT(read(names[0], theirs, sizeof theirs - 1), 0);
  EXPECT_NE(std::string(theirs), zyrtest::Narrow(zyrtest::Str(mine)));
  close(names[0]);
  close(names[1]);
}

// A thread writes on the direct road, taking logger and appender locks
// line after line, while children are forked: none may find a lock held
// for good, and each child's line is in the file once.
TEST_F(ForkTest, ChildrenForkedWhileAnotherThreadWritesDoNotHang) {
  std::string file = dir_ + "/x.log";
  std::u16string config = u"[f]\nAdditive = false\nAddAppenders = out\n[out]\nType = Appender\n"
                          u"AppenderType = File\nFileName = " + U16(file) + u"\n";
  ASSERT_EQ(log_->LoadConfigText(config.c_str()), ZYR_OK);
  ZyrLogger* logger = Get(u"f");
  std::atomic<bool> stop{false};
  std::thread writer([&] {
    while (!stop.load()) (void)logger->Log(ZYR_SEVERITY_ERROR, u"parent", nullptr, 0, 0, 0, 0, 0, nullptr);
  });
  const int children = zyrtest::kSanitized ? 10 : 40;
  int hung = 0;
  for (int i = 0; i < children; ++i) {
    std::uint64_t args[] = {static_cast<std::uint64_t>(i)};
    pid_t child = Spawn([&] {
      return logger->Log(ZYR_SEVERITY_ERROR, u"child %d end", nullptr, 0, 0, 0, 0, 0, args) == ZYR_OK ? 0 : 1;
    });
    hung += Reap(child) != 0;
  }
  stop.store(true);
  writer.join();
  EXPECT_EQ(hung, 0);
  std::string text = zyrtest::ReadFile(file);
  for (int i = 0; i < children; ++i) {
    std::string line = "MSG:child " + std::to_string(i) + " end\r\n";
    std::size_t at = text.find(line);
    EXPECT_NE(at, std::string::npos) << line;
    EXPECT_EQ(text.find(line, at + 1), std::string::npos) << line;
  }
}
