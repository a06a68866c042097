// File appenders: the bytes of a log file, configuration, failures of the
// target (a full disk's torn line among them), the rolling rules, and the
// lock between processes.
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
#include <vector>

#include "appender/file_appender.h"
#include "appender/file_lock.h"
#include "appender/rolling_file_appender.h"
#include "base/memory.h"
#include "config/document.h"
#include "engine/manager.h"
#include "layout/layout.h"
#include "records/event.h"
#include "file_appender_fixture.h"
#include "test_support.h"

namespace {

using zyrtest::Exists;
using zyrtest::ReadFile;
using zyrtest::U16;
using zyrtest::WriteFile;

std::u16string S(const ZyrBasString& s) { return zyrtest::Str(s); }

const std::string kMark = "\xef\xbb\xbf";
const std::string kTorn = " [torn line]";

// Records the rolled files that an appender reports.
struct RecordingOwner : ZyrLogAppenderOwner {
  ZyrResult ReportRolledFile(const char16_t* path) override {
    reported.emplace_back(path);
    return ZYR_E_NOT_IMPLEMENTED;  // as today's manager answers; must not matter
  }
  std::vector<std::u16string> reported;
};

// A layout with a header and a footer, for the framing rules.
class FramedLayout final : public ZyrLogLayout {
 public:
  ZyrResult FormatEvent(ZyrBasString& text, const ZyrLogEvent&) override { return text.Assign(u"E"); }
  ZyrResult Configure(ZyrCfgSection&) override { return ZYR_OK; }
  ZyrResult Save(ZyrCfgSection&) override { return ZYR_OK; }
  void Destroy(std::uint32_t) override {}
  ZyrResult GetHeader(ZyrBasString& text) override { return text.Assign(u"HDR"); }
  ZyrResult GetFooter(ZyrBasString& text) override { return text.Assign(u"FTR"); }
};

using zyrtest::FileAppenderTest;

// ---------------------------------------------------------------------------
// The bytes of a log file

// A new file, in a folder made for it, is UTF-8 with a mark and CR LF; an
// existing one keeps its encoding and bytes.
TEST_F(FileAppenderTest, NewFilesAreUtf8AndExistingFilesKeepTheirEncodingAndBytes) {
  auto* a = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"sub/a.log"}});
  ASSERT_EQ(Write(a, u"h\u00e9llo"), ZYR_OK);
  ASSERT_EQ(Write(a, u"x\U0001F600"), ZYR_OK);  // a surrogate pair: 4 bytes
  EXPECT_EQ(ReadFile(Path("sub/a.log")), kMark + "h\xc3\xa9llo\r\n" + "x\xf0\x9f\x98\x80\r\n");

  WriteFile(Path("u16.log"), std::string("\xff\xfe" "a\0\r\0\n\0", 8));
  WriteFile(Path("empty.log"), "");
  WriteFile(Path("plain.log"), "old\n");
  auto* u16 = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"u16.log"}});
  auto* empty = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"empty.log"}});
  auto* plain = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"plain.log"}});
  // A lone surrogate has no UTF-8 form and is spelt out; a UTF-16 file takes
  // it as it stands.
  ASSERT_EQ(Write(u16, u"b\xd800"), ZYR_OK);
  EXPECT_EQ(u16->Writer().Encoding(), ZYR_LOG_ENCODING_UTF16);
  ASSERT_EQ(Write(empty, u"b"), ZYR_OK);
  EXPECT_EQ(Write(empty, u"c\xd800"), ZYR_OK);
  EXPECT_TRUE(empty->IsOpened());
  ASSERT_EQ(Write(plain, u"new"), ZYR_OK);
  EXPECT_EQ(ReadFile(Path("u16.log")),
            std::string("\xff\xfe" "a\0\r\0\n\0" "b\0\x00\xd8\r\0\n\0", 16));
  EXPECT_EQ(ReadFile(Path("empty.log")), kMark + "b\r\nc\\uD800\r\n");
  EXPECT_EQ(ReadFile(Path("plain.log")), "old\nnew\r\n");  // no mark over the old bytes
}

TEST_F(FileAppenderTest, FileNameAndImmediateWrite) {
  auto* a = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"a.log"}, {u"ImmediateWrite", u"TRUE"}});
  EXPECT_FALSE(a->ImmediateWrite());
  for (const char16_t* yes : {u"true", u"yes", u"1"}) {
    a = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"/abs/b.log"}, {u"ImmediateWrite", yes}});
    EXPECT_TRUE(a->ImmediateWrite());
  }
  EXPECT_EQ(S(a->FileName()), u"/abs/b.log");  // rooted: the base folder does not apply
  ZyrBasString full;
  ASSERT_EQ(Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"x/../y.log"}})->FullPath(full), ZYR_OK);
  EXPECT_EQ(S(full), zyrtest::U16(P("y.log")));  // a path of this system
  Make<ZyrLogFileAppender>(u"File", {}, ZYR_E_CFG_NOT_FOUND);  // FileName is required
  Make<ZyrLogFileAppender>(u"SharedFile", {{u"FileName", u"s.log"}}, ZYR_E_WRONG_APPENDER_TYPE);
}

TEST_F(FileAppenderTest, FreshFileIsMadeOnceAndNeverReplaced) {
  WriteFile(Path("old.log"), kMark + "kept\r\n");
  ZyrLogFileWriter writer;
  ASSERT_EQ(writer.OpenLogFile(U16(Path("old.log")).c_str(), true, true), ZYR_OK);
  ASSERT_EQ(writer.WriteMark(), ZYR_OK);
  ASSERT_EQ(writer.WriteLine(u"more", 4), ZYR_OK);
  ASSERT_EQ(writer.OpenLogFile(U16(Path("new.log")).c_str(), true, true), ZYR_OK);
  ASSERT_EQ(writer.WriteMark(), ZYR_OK);
  ASSERT_EQ(writer.Close(), ZYR_OK);
  EXPECT_EQ(ReadFile(Path("old.log")), kMark + "kept\r\nmore\r\n");
  EXPECT_EQ(ReadFile(Path("new.log")), kMark);
  // No temporary file is left beside them.
  EXPECT_EQ(system(("test $(ls '" + dir_ + "' | wc -l) -eq 2").c_str()), 0);
}

// ---------------------------------------------------------------------------
// Failures of the target

// The seal's bytes: the fragment's end becomes the mark, moved back to a
// character's start so that no cut character stands in front of it.
TEST_F(FileAppenderTest, FragmentEndsInTheMarkOnACharacterBoundary) {
  auto* a = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"cut.log"}});
  ASSERT_EQ(Write(a, U16("0123456789")), ZYR_OK);  // mark and 12 bytes: the file holds 15
  EXPECT_EQ(zyrtest::RunInChild([a] {
              signal(SIGXFSZ, SIG_IGN);
              // 17 bytes of the next line fit: "ab", seven and a half "é".
              struct rlimit limit = {32, 32};
              setrlimit(RLIMIT_FSIZE, &limit);
              std::u16string wide = u"ab" + std::u16string(10, u'\u00e9');
              int code = Write(a, wide) == ZYR_E_DISK_FULL ? 1 : 0;
              if (Write(a, u"none of it fits") == ZYR_E_DISK_FULL) code |= 2;
              if (a->IsOpened() && a->Writer().IsOpen()) code |= 4;  // the next event tries again
              return code;
            }),
            7);
  ASSERT_EQ(Write(a, U16("after")), ZYR_OK);  // room again
  // 14 bytes of mark from byte 3, the second byte of an "é": from byte 2.
  EXPECT_EQ(ReadFile(P("cut.log")), kMark + "0123456789\r\nab " + kTorn + "\r\nafter\r\n");
}

// A real full disk, a 1 MiB tmpfs, with two appenders on one file as two
// processes would have: whichever writes first when space returns starts
// on a line of its own, and every line of the file is whole or a marked
// fragment.
TEST_F(FileAppenderTest, NoLineFusesWithAFragmentWhenSpaceReturns) {
  std::string small = P("small");
  ASSERT_EQ(mkdir(small.c_str(), 0755), 0);
  if (mount("tmpfs", small.c_str(), "tmpfs", 0, "size=1m") != 0)
    GTEST_SKIP() << "a 1 MiB tmpfs can't be mounted here: " << std::strerror(errno);
  struct Unmount {  // lazily: the appenders close their files after the test
    std::string at;
    ~Unmount() { umount2(at.c_str(), MNT_DETACH); }
  } unmount{small};
  // Room that is given back, once for each round of filling.
  const int kRounds = 4;
  for (int i = 0; i < kRounds; ++i)
    zyrtest::WriteFile(small + "/room" + std::to_string(i), std::string(40000, 'r'));

  std::string path = small + "/full.log";
  ZyrLogFileAppender* writers[2] = {Make<ZyrLogFileAppender>(u"File", {{u"FileName", U16(path)}}),
                                    Make<ZyrLogFileAppender>(u"File", {{u"FileName", U16(path)}})};
  std::map<std::string, int> accepted;
  int sequence = 0;
  // The next line through writer `w`, counted when accepted. Lengths vary,
  // so that the disk fills in the middle of lines.
  auto put = [&](int w) {
    ++sequence;
    std::string text = "line " + std::to_string(sequence) + " " + std::string(sequence * 37 % 300, 'x');
    ZyrResult r = Write(writers[w], U16(text));
    if (r == ZYR_OK) ++accepted[text];
    return r;
  };
  for (int round = 0; round < kRounds; ++round) {
    // The writers take turns until the disk is full.
    int last = 0;
    ZyrResult r;
    while ((r = put(last)) == ZYR_OK) {
      ASSERT_LT(sequence, 100000) << "the disk never filled up";
      last = 1 - last;
    }
    ASSERT_EQ(r, ZYR_E_DISK_FULL);
    EXPECT_EQ(put(1 - last), ZYR_E_DISK_FULL);  // the other fails too while the disk stays full
    ASSERT_EQ(unlink((small + "/room" + std::to_string(round)).c_str()), 0);
    // Space is back: the other appender writes first.
    ASSERT_EQ(put(1 - last), ZYR_OK);
    ASSERT_EQ(put(last), ZYR_OK);
  }

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

TEST_F(FileAppenderTest, OrdinaryLinesAllocateNothing) {
  auto* plain = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"p.log"}});
  auto* rolling = Make<ZyrLogRollingFileAppender>(u"RollingFile", {{u"FileName", u"r.log"}});
  std::u16string line(300, u'x');
  ASSERT_EQ(Write(plain, line), ZYR_OK);
  ASSERT_EQ(Write(rolling, line), ZYR_OK);
  line.assign(1000, u'\u00e9');  // longer, and two bytes a character in UTF-8
  ZyrLogEvent event;
  ZyrBasTestFailAllocationsAfter(0);
  ZyrResult r1 = plain->AppendFormatted(event, line.data(), line.size());
  ZyrResult r2 = rolling->AppendFormatted(event, line.data(), line.size());
  ZyrBasTestFailAllocationsAfter(-1);
  EXPECT_EQ(r1, ZYR_OK);
  EXPECT_EQ(r2, ZYR_OK);
}

// ---------------------------------------------------------------------------
// Rolling

// The size after a line is the end of the file where the system put it,
// so another writer's lines count: here they alone bring the file past the
// limit, and the appender that writes the next line rolls.
TEST_F(FileAppenderTest, SizeAfterALineCountsOtherWritersLines) {
  auto* other = Make<ZyrLogAppender>(u"RollingFile", {{u"FileName", u"r.log"}, {u"Size", u"100"}});
  auto* self = Make<ZyrLogAppender>(u"RollingFile", {{u"FileName", u"r.log"}, {u"Size", u"100"}});
  ASSERT_EQ(Write(self, U16("s")), ZYR_OK);  // mark and 3 bytes
  for (int i = 0; i < 3; ++i) ASSERT_EQ(Write(other, U16(std::string(28, 'o'))), ZYR_OK);
  EXPECT_FALSE(Exists(P("r.log.1")));  // 96 bytes: no roll
  ASSERT_EQ(Write(self, U16("sss")), ZYR_OK);          // 101 bytes, 8 of them its own
  ASSERT_TRUE(Exists(P("r.log.1")));
  std::string rolled = ReadFile(P("r.log.1"));
  EXPECT_EQ(rolled.size(), 101u);
  EXPECT_EQ(rolled.substr(rolled.size() - 5), "sss\r\n");
}

TEST_F(FileAppenderTest, RollsOnlyAboveSizeAndReportsNumberOne) {
  RecordingOwner owner;
  auto* a = Make<ZyrLogRollingFileAppender>(
      u"RollingFile", {{u"FileName", u"r.log"}, {u"Size", u"13"}, {u"FilesCount", u"2"}}, ZYR_OK,
      &owner);
  ASSERT_EQ(Write(a, u"12345678"), ZYR_OK);  // 3 + 10: exactly Size stays
  EXPECT_FALSE(Exists(Path("r.log.1")));
  ASSERT_EQ(Write(a, u""), ZYR_OK);  // two bytes more: rolls
  EXPECT_TRUE(a->IsOpened());
  EXPECT_EQ(ReadFile(Path("r.log")), kMark);  // the new live file at once
  EXPECT_EQ(ReadFile(Path("r.log.1")), kMark + "12345678\r\n\r\n");
  ASSERT_EQ(owner.reported.size(), 1u);
  EXPECT_EQ(owner.reported[0], zyrtest::U16(P("r.log.1")));
  a->Release();
  EXPECT_EQ(a->FileLock().State(), ZYR_LOCK_CLOSED);
  EXPECT_TRUE(Exists(Path("r.log.lock")));  // the lock file stays
}

TEST_F(FileAppenderTest, SizeZeroOrNegativeRollsEveryEvent) {
  auto* a = Make<ZyrLogRollingFileAppender>(
      u"RollingFile", {{u"FileName", u"r.log"}, {u"Size", u"-5"}, {u"FilesCount", u"3"}});
  for (std::u16string line : {u"L0", u"L1", u"L2", u"L3", u"L4"}) ASSERT_EQ(Write(a, line), ZYR_OK);
  EXPECT_EQ(ReadFile(Path("r.log.1")), kMark + "L4\r\n");
  EXPECT_EQ(ReadFile(Path("r.log.2")), kMark + "L3\r\n");
  EXPECT_EQ(ReadFile(Path("r.log.3")), kMark + "L2\r\n");
  EXPECT_FALSE(Exists(Path("r.log.4")));
  EXPECT_EQ(ReadFile(Path("r.log")), kMark);

  auto* none = Make<ZyrLogAppender>(u"RollingFile", {{u"FileName", u"n.log"}, {u"Size", u"0"}, {u"FilesCount", u"0"}});
  auto* one = Make<ZyrLogAppender>(u"RollingFile", {{u"FileName", u"o.log"}, {u"Size", u"0"}, {u"FilesCount", u"1"}});
  for (const char16_t* line : {u"A", u"B"})
    for (ZyrLogAppender* x : {none, one}) ASSERT_EQ(Write(x, line), ZYR_OK);
  EXPECT_EQ(ReadFile(Path("n.log")), kMark);  // the full one deleted, a new one begun
  EXPECT_FALSE(Exists(Path("n.log.1")));
  EXPECT_EQ(ReadFile(Path("o.log.1")), kMark + "B\r\n");
  EXPECT_FALSE(Exists(Path("o.log.2")));
}

TEST_F(FileAppenderTest, FooterOfARolloverStaysInTheOldFile) {
  auto* a = Make<ZyrLogRollingFileAppender>(u"RollingFile",
                                            {{u"FileName", u"f.log"}, {u"Size", u"20"}});
  FramedLayout layout;
  a->SetLayout(&layout);
  ASSERT_EQ(Write(a, u"0123456789"), ZYR_OK);  // 3 + 5 + 12 = 20
  ASSERT_EQ(Write(a, u"abc"), ZYR_OK);
  EXPECT_EQ(ReadFile(Path("f.log.1")), kMark + "HDR\r\n0123456789\r\nabc\r\nFTR\r\n");
  EXPECT_FALSE(Exists(Path("f.log.2")));
  // No second rollover started by the footer, nor by the new file's header.
  EXPECT_EQ(ReadFile(Path("f.log")), kMark + "HDR\r\n");
  a->Release();
  a->SetLayout(nullptr);
}

TEST_F(FileAppenderTest, LoweredFilesCountRemovesTheNumbersAboveAtOnceFromTheOldChain) {
  for (int i = 1; i <= 11; ++i) {
    WriteFile(Path("r.log." + std::to_string(i)), "x");
    WriteFile(Path("new.log." + std::to_string(i)), "n");
  }
  auto* a = Make<ZyrLogRollingFileAppender>(u"RollingFile", {{u"FileName", u"r.log"}});
  EXPECT_EQ(a->FilesCount(), 10u);
  // A new name and a lower count at once: the chain that holds numbers
  // above the new count is the old one.
  ZyrCfgSection section;
  section.SetName(u"a");
  section.SetValue(u"FileName", u"new.log");
  section.SetValue(u"FilesCount", u"3");
  ASSERT_EQ(a->Reconfigure(section), ZYR_OK);
  for (int i = 1; i <= 11; ++i) {
    EXPECT_EQ(Exists(Path("r.log." + std::to_string(i))), i <= 3 || i == 11) << i;
    EXPECT_TRUE(Exists(Path("new.log." + std::to_string(i)))) << i;
  }

  section.SetValue(u"Size", u"0x10");
  section.SetValue(u"FilesCount", u"-1");
  EXPECT_EQ(a->Reconfigure(section), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(a->Size(), 16);  // read before the failure: stays in force
  EXPECT_EQ(a->FilesCount(), 3u);
  ZyrCfgSection saved;
  ASSERT_EQ(a->WriteConfig(saved), ZYR_OK);
  ZyrCfgValueRef v;
  ASSERT_EQ(saved.FindValue(u"Size", &v), ZYR_OK);
  EXPECT_EQ(S(v->text), u"16");
  section.SetValue(u"AppenderType", u"File");
  EXPECT_EQ(a->Reconfigure(section), ZYR_E_WRONG_APPENDER_TYPE);
}

TEST_F(FileAppenderTest, RolloverMovesOnlyTheNumbersThereAsTheWholeChainWould) {
  // A chain with gaps, a number above FilesCount, and names that only look
  // like rolled files.
  for (const char* n : {"1", "2", "4", "7", "9", "01", "x", "5x"}) WriteFile(Path("r.log.") + n, n);
  auto* a = Make<ZyrLogRollingFileAppender>(
      u"RollingFile", {{u"FileName", u"r.log"}, {u"Size", u"0"}, {u"FilesCount", u"7"}});
  ASSERT_EQ(Write(a, u"L"), ZYR_OK);
  EXPECT_EQ(ReadFile(Path("r.log.1")), kMark + "L\r\n");
  EXPECT_EQ(ReadFile(Path("r.log.2")), "1");
  EXPECT_EQ(ReadFile(Path("r.log.3")), "2");
  EXPECT_FALSE(Exists(Path("r.log.4")));
  EXPECT_EQ(ReadFile(Path("r.log.5")), "4");
  EXPECT_FALSE(Exists(Path("r.log.7")));  // the top number goes
  EXPECT_FALSE(Exists(Path("r.log.8")));
  for (const char* n : {"9", "01", "x", "5x"}) EXPECT_EQ(ReadFile(Path("r.log.") + n), n);

  // A count far beyond the files there costs nothing more: one listing.
  ZyrCfgSection section;
  section.SetName(u"a");
  section.SetValue(u"FileName", u"r.log");
  section.SetValue(u"FilesCount", u"999999999999999");  // 15 digits: the largest
  ASSERT_EQ(a->Reconfigure(section), ZYR_OK);
  ASSERT_EQ(Write(a, u"M"), ZYR_OK);
  EXPECT_EQ(ReadFile(Path("r.log.1")), kMark + "M\r\n");
  EXPECT_EQ(ReadFile(Path("r.log.6")), "4");
  EXPECT_EQ(ReadFile(Path("r.log.10")), "9");
  WriteFile(Path("r.log.999999999999999"), "top");
  WriteFile(Path("r.log.123456789"), "mid");
  section.SetValue(u"FilesCount", u"5");
  ASSERT_EQ(a->Reconfigure(section), ZYR_OK);
  EXPECT_EQ(a->FilesCount(), 5u);
  for (const char* n : {"6", "10", "123456789", "999999999999999"})
    EXPECT_FALSE(Exists(Path("r.log.") + n)) << n;
  EXPECT_EQ(ReadFile(Path("r.log.3")), "1");

  // Sixteen digits could not be named: refused, not a silent end of rolling.
  section.SetValue(u"FilesCount", u"1000000000000000");
  EXPECT_EQ(a->Reconfigure(section), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(a->FilesCount(), 5u);
}

// ---------------------------------------------------------------------------
// The lock between processes

TEST_F(FileAppenderTest, LockIsTriedNeverWaitedAndDiesWithItsHolder) {
  std::u16string lockPath = U16(Path("l.lock"));
  ZyrLogFileLock mine, other;
  ASSERT_EQ(mine.Open(lockPath.c_str()), ZYR_OK);
  ASSERT_EQ(other.Open(lockPath.c_str()), ZYR_OK);
  ASSERT_EQ(mine.TryLock(true), ZYR_OK);
  EXPECT_EQ(other.TryLock(true), ZYR_W_TIMEOUT);  // two opens compete like two processes
  mine.Unlock();
  ASSERT_EQ(other.TryLock(true), ZYR_OK);
  other.Unlock();

  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  pid_t child = fork();
  if (child == 0) {
    ZyrLogFileLock held;
    if (held.Open(lockPath.c_str()) != ZYR_OK || held.TryLock(true) != ZYR_OK) _exit(1);
    char c = 1;
    (void)!write(ready[1], &c, 1);
    pause();
    _exit(0);
  }
  char c = 0;
  ASSERT_EQ(read(ready[0], &c, 1), 1);
  EXPECT_EQ(mine.TryLock(true), ZYR_W_TIMEOUT);

  // A rollover while another process holds the lock is skipped, and the
  // appender is left closed for the next event.
  auto* a = Make<ZyrLogRollingFileAppender>(u"RollingFile",
                                            {{u"FileName", u"l"}, {u"Size", u"0"}});
  ASSERT_EQ(Write(a, u"first"), ZYR_OK);
  EXPECT_FALSE(a->IsOpened());
  EXPECT_FALSE(Exists(Path("l.1")));
  EXPECT_EQ(ReadFile(Path("l")), kMark + "first\r\n");

  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  close(ready[0]);
  close(ready[1]);
  EXPECT_EQ(mine.TryLock(true), ZYR_OK);
  mine.Unlock();
  ASSERT_EQ(Write(a, u"second"), ZYR_OK);
  EXPECT_EQ(ReadFile(Path("l.1")), kMark + "first\r\nsecond\r\n");
  mine.Close();
  other.Close();
}

}  // namespace
