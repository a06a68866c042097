// The write of a line as other writers of the same file see it: the size
// after a line counts their lines too, and a line cut short by a full disk
// is sealed with the torn mark, so that no later line, this writer's or
// another's, fuses with it, and the lines accepted before and after are all
// whole.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <string>

#include "appender/file_appender.h"
#include "appender/rolling_file_appender.h"
#include "base/memory.h"
#include "config/document.h"
#include "records/event.h"
#include "test_support.h"

namespace {

using zyrtest::ReadFile;
using zyrtest::U16;

const std::string kMark = "\xef\xbb\xbf";
const std::string kTorn = " [torn line]";

class LineWriteTest : public zyrtest::TempDirTest {
 protected:
  void TearDown() override {
    for (ZyrLogAppender* a : made_) {
      a->Release();
      ZyrDelete(a);
    }
    if (!mounted_.empty()) umount2(mounted_.c_str(), MNT_DETACH);
    TempDirTest::TearDown();
  }

  ZyrLogAppender* Make(const char16_t* appenderType, const std::string& path,
                       const char16_t* size = nullptr) {
    ZyrBasString type, folder;
    type.Assign(appenderType);
    ZyrLogAppender* made = nullptr;
    EXPECT_EQ(ZyrLogMakeAppender(type, folder, nullptr, u"a", &made), ZYR_OK);
    if (!made) return nullptr;
    made_.push_back(made);
    ZyrCfgSection section;
    section.SetName(u"a");
    section.SetValue(u"AppenderType", appenderType);
    section.SetValue(u"FileName", U16(path).c_str());
    if (size) section.SetValue(u"Size", size);
    EXPECT_EQ(made->Reconfigure(section), ZYR_OK);
    return made;
  }
  ZyrLogFileAppender* MakeFile(const std::string& path) {
    return static_cast<ZyrLogFileAppender*>(Make(u"File", path));
  }

  static ZyrResult Write(ZyrLogAppender* a, const std::string& text) {
    std::u16string wide = U16(text);
    ZyrLogEvent event;
    return a->AppendFormatted(event, wide.data(), wide.size());
  }

  std::vector<ZyrLogAppender*> made_;
  std::string mounted_;
};

// The size after a line is the end of the file where the system put it,
// so another writer's lines count: here they alone bring the file past the
// limit, and the appender that writes the next line rolls.
TEST_F(LineWriteTest, SizeAfterALineCountsOtherWritersLines) {
  ZyrLogAppender* other = Make(u"RollingFile", P("r.log"), u"100");
  ZyrLogAppender* self = Make(u"RollingFile", P("r.log"), u"100");
  ASSERT_EQ(Write(self, "s"), ZYR_OK);  // mark and 3 bytes
  for (int i = 0; i < 3; ++i) ASSERT_EQ(Write(other, std::string(28, 'o')), ZYR_OK);
  EXPECT_FALSE(zyrtest::Exists(P("r.log.1")));  // 96 bytes: no roll
  ASSERT_EQ(Write(self, "sss"), ZYR_OK);          // 101 bytes, 8 of them its own
  ASSERT_TRUE(zyrtest::Exists(P("r.log.1")));
  std::string rolled = ReadFile(P("r.log.1"));
  EXPECT_EQ(rolled.size(), 101u);
  EXPECT_EQ(rolled.substr(rolled.size() - 5), "sss\r\n");
}

// The seal's bytes: the fragment's end becomes the mark, moved back to a
// character's start so that no cut character stands in front of it.
TEST_F(LineWriteTest, FragmentEndsInTheMarkOnACharacterBoundary) {
  ZyrLogFileAppender* a = MakeFile(P("cut.log"));
  ASSERT_EQ(Write(a, "0123456789"), ZYR_OK);  // mark and 12 bytes: the file holds 15
  pid_t child = fork();
  if (child == 0) {
    signal(SIGXFSZ, SIG_IGN);
    // 17 bytes of the next line fit: "ab", seven and a half "é".
    struct rlimit limit = {32, 32};
    setrlimit(RLIMIT_FSIZE, &limit);
    std::u16string wide = u"ab";
    wide.append(10, u'\u00e9');
    ZyrLogEvent event;
    _exit(a->AppendFormatted(event, wide.data(), wide.size()) == ZYR_E_DISK_FULL ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  ASSERT_EQ(Write(a, "after"), ZYR_OK);  // room again
  // 14 bytes of mark from byte 3, the second byte of an "é": from byte 2.
  EXPECT_EQ(ReadFile(P("cut.log")), kMark + "0123456789\r\nab " + kTorn + "\r\nafter\r\n");
}

// A real full disk, a 1 MiB tmpfs, with two appenders on one file as two
// processes would have: whichever writes first when space returns starts
// on a line of its own, and every line of the file is whole or a marked
// fragment.
TEST_F(LineWriteTest, NoLineFusesWithAFragmentWhenSpaceReturns) {
  std::string small = P("small");
  ASSERT_EQ(mkdir(small.c_str(), 0755), 0);
  if (mount("tmpfs", small.c_str(), "tmpfs", 0, "size=1m") != 0)
    GTEST_SKIP() << "a 1 MiB tmpfs can't be mounted here: " << std::strerror(errno);
  mounted_ = small;
  // Room that is given back, once for each round of filling.
  const int kRounds = 4;
  for (int i = 0; i < kRounds; ++i)
    zyrtest::WriteFile(small + "/room" + std::to_string(i), std::string(40000, 'r'));

  std::string path = small + "/full.log";
  ZyrLogFileAppender* writers[2] = {MakeFile(path), MakeFile(path)};
  std::map<std::string, int> accepted;
  int sequence = 0;
  auto line = [&] {
    // Lengths vary, so that the disk fills in the middle of lines.
    ++sequence;
    return "line " + std::to_string(sequence) + " " + std::string(sequence * 37 % 300, 'x');
  };
  int cuts = 0;
  for (int round = 0; round < kRounds; ++round) {
    int last = 0;
    for (int i = 0;; ++i) {
      ASSERT_LT(i, 100000) << "the disk never filled up";
      std::string text = line();
      ZyrResult r = Write(writers[i % 2], text);
      if (r == ZYR_OK) {
        ++accepted[text];
        continue;
      }
      ASSERT_EQ(r, ZYR_E_DISK_FULL);
      ++cuts;
      last = i % 2;
      break;
    }
    // The other appender failed too while the disk stays full.
    EXPECT_EQ(Write(writers[1 - last], line()), ZYR_E_DISK_FULL);
    ASSERT_EQ(unlink((small + "/room" + std::to_string(round)).c_str()), 0);
    // Space is back: the other appender writes first.
    std::string text = line();
    ASSERT_EQ(Write(writers[1 - last], text), ZYR_OK);
    ++accepted[text];
    text = line();
    ASSERT_EQ(Write(writers[last], text), ZYR_OK);
    ++accepted[text];
  }
  ASSERT_EQ(cuts, kRounds);

  std::string content = ReadFile(path);
  ASSERT_EQ(content.compare(0, 3, kMark), 0);
  ASSERT_GE(content.size(), 5u);
  EXPECT_EQ(content.substr(content.size() - 2), "\r\n");
  int fragments = 0;
  std::map<std::string, int> found;
  for (std::size_t at = 3; at < content.size();) {
    std::size_t end = content.find('\n', at);
    ASSERT_NE(end, std::string::npos);
    std::string text = content.substr(at, end - at);
    at = end + 1;
    if (!text.empty() && text.back() == '\r') text.pop_back();
    if (accepted.count(text)) {
      ++found[text];
    } else {
      // A fragment: ends in the mark, or is a tail of it where fewer bytes
      // than the mark were written.
      bool marked = text.size() >= kTorn.size()
                        ? text.compare(text.size() - kTorn.size(), kTorn.size(), kTorn) == 0
                        : kTorn.compare(kTorn.size() - text.size(), text.size(), text) == 0;
      EXPECT_TRUE(marked) << "neither a whole line nor a marked fragment: " << text.substr(0, 80);
      ++fragments;
    }
  }
  int missing = 0;  // every accepted line once, whole
  for (auto& [text, count] : accepted) missing += found[text] != count;
  EXPECT_EQ(missing, 0);
  EXPECT_GE(fragments, 1);
  EXPECT_LE(fragments, kRounds);
}

}  // namespace
