// File appenders against a hostile or broken file system: links planted at
// a log's names, files and folders removed under an open log, descriptors
// used up, folders where files should be, locks refused.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "appender/file_appender.h"
#include "appender/file_lock.h"
#include "appender/rolling_file_appender.h"
#include "file_appender_fixture.h"
#include "test_support.h"

namespace {

using zyrtest::Exists;
using zyrtest::FileAppenderTest;
using zyrtest::ReadFile;
using zyrtest::U16;
using zyrtest::WriteFile;

const std::string kMark = "\xef\xbb\xbf";

bool IsLink(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

// ---------------------------------------------------------------------------
// Links at a log's names

TEST_F(FileAppenderTest, LinkAtAPlainLogIsRefusedAndRetriedAtTheNextEvent) {
  WriteFile(Path("victim"), "untouched");
  ASSERT_EQ(symlink(Path("victim").c_str(), Path("a.log").c_str()), 0);
  ASSERT_EQ(symlink(Path("made-by-link").c_str(), Path("b.log").c_str()), 0);  // dangling
  auto* a = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"a.log"}});
  EXPECT_EQ(Write(a, u"lost"), ZYR_E_INVALID_NAME);
  EXPECT_FALSE(a->IsOpened());
  EXPECT_EQ(ReadFile(Path("victim")), "untouched");

  auto* b = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"b.log"}});
  EXPECT_EQ(Write(b, u"lost"), ZYR_E_INVALID_NAME);
  EXPECT_FALSE(Exists(Path("made-by-link")));

  // The link goes: the next event opens a file of its own.
  ASSERT_EQ(unlink(Path("a.log").c_str()), 0);
  ASSERT_EQ(Write(a, u"kept"), ZYR_OK);
  EXPECT_FALSE(IsLink(Path("a.log")));
  EXPECT_EQ(ReadFile(Path("a.log")), kMark + "kept\r\n");
  EXPECT_EQ(ReadFile(Path("victim")), "untouched");
}

TEST_F(FileAppenderTest, LinkAtARollingLogOrItsLockFileIsRefused) {
  WriteFile(Path("victim"), "untouched");
  ASSERT_EQ(symlink(Path("victim").c_str(), Path("r.log").c_str()), 0);
  auto* a = Make<ZyrLogRollingFileAppender>(u"RollingFile", {{u"FileName", u"r.log"}});
  EXPECT_EQ(Write(a, u"lost"), ZYR_E_INVALID_NAME);
  EXPECT_FALSE(a->IsOpened());
  ASSERT_EQ(unlink(Path("r.log").c_str()), 0);

  // The lock file, dangling or leading to a file: neither is created nor
  // touched, and no log is written without the lock file.
  ASSERT_EQ(symlink(Path("made-by-link").c_str(), Path("s.log.lock").c_str()), 0);
  auto* s = Make<ZyrLogRollingFileAppender>(u"RollingFile", {{u"FileName", u"s.log"}});
  EXPECT_EQ(Write(s, u"lost"), ZYR_E_INVALID_NAME);
  EXPECT_FALSE(Exists(Path("made-by-link")));
  EXPECT_FALSE(Exists(Path("s.log")));
  ZyrLogFileLock lock;
  ASSERT_EQ(symlink(Path("victim").c_str(), Path("t.lock").c_str()), 0);
  EXPECT_EQ(lock.Open(U16(Path("t.lock")).c_str()), ZYR_E_INVALID_NAME);
  EXPECT_EQ(lock.State(), ZYR_LOCK_CLOSED);
  EXPECT_EQ(ReadFile(Path("victim")), "untouched");

  // Without the links both logs work at the next event.
  ASSERT_EQ(Write(a, u"kept"), ZYR_OK);
  EXPECT_EQ(ReadFile(Path("r.log")), kMark + "kept\r\n");
  ASSERT_EQ(unlink(Path("s.log.lock").c_str()), 0);
  ASSERT_EQ(Write(s, u"kept"), ZYR_OK);
  EXPECT_FALSE(IsLink(Path("s.log.lock")));
  EXPECT_EQ(ReadFile(Path("s.log")), kMark + "kept\r\n");
}

}  // namespace
