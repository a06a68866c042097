// Batched writes of the worker's road: file appenders hold a drain's lines
// back and write them whole, many at once; a rolling file passes Size by
// at most one batch; a short write loses only the lines it counts.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <string>

#include "appender/batch.h"
#include "appender/file_appender.h"
#include "appender/rolling_file_appender.h"
#include "file_appender_fixture.h"
#include "test_support.h"

namespace {

using zyrtest::FileAppenderTest;
using zyrtest::ReadFile;
using zyrtest::U16;

const std::string kMark = "\xef\xbb\xbf";

// The lines of a file's text after its mark, without their CR LF.
std::vector<std::string> LinesOf(const std::string& content) {
  std::vector<std::string> lines;
  std::size_t at = content.compare(0, 3, kMark) == 0 ? 3 : 0;
  while (at < content.size()) {
    std::size_t end = content.find("\r\n", at);
    if (end == std::string::npos) end = content.size();
    lines.push_back(content.substr(at, end - at));
    at = end + 2;
  }
  return lines;
}

TEST_F(FileAppenderTest, ABatchsLinesWaitForItsEndAndGoOutWholeInOrder) {
  auto* a = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"b.log"}});
  ZyrLogBatch batch;
  batch.Begin();
  for (int i = 0; i < 3; ++i) ASSERT_EQ(Write(a, U16("held " + std::to_string(i))), ZYR_OK);
  EXPECT_EQ(ReadFile(P("b.log")), kMark);  // opened, nothing written yet
  ZyrResult failure = ZYR_E_INVALID_DATA;  // End sets it
  EXPECT_EQ(batch.End(&failure), 0u);
  EXPECT_EQ(failure, ZYR_OK);
  ASSERT_EQ(Write(a, U16("direct")), ZYR_OK);  // no batch: written at once
  EXPECT_EQ(ReadFile(P("b.log")), kMark + "held 0\r\nheld 1\r\nheld 2\r\ndirect\r\n");
}

// Size 16000 makes batches of 1000 bytes: every rolled file ends within
// one batch and one line of Size, and no line is lost or split.
TEST_F(FileAppenderTest, ARollingFilePassesSizeByAtMostOneBatch) {
  auto* a = Make<ZyrLogRollingFileAppender>(
      u"RollingFile", {{u"FileName", u"r.log"}, {u"Size", u"16000"}, {u"FilesCount", u"20"}});
  const std::string pad(90, 'x');
  const int kLines = 500;
  ZyrLogBatch batch;
  batch.Begin();
  for (int i = 0; i < kLines; ++i) ASSERT_EQ(Write(a, U16(pad + std::to_string(1000 + i))), ZYR_OK);
  ZyrResult failure;
  EXPECT_EQ(batch.End(&failure), 0u);
  std::vector<std::string> all;
  int rolled = 0;
  for (int n = 20; n >= 1; --n) {
    std::string content = ReadFile(P("r.log." + std::to_string(n)));
    if (content.empty()) continue;
    ++rolled;
    EXPECT_GT(content.size(), 16000u);
    EXPECT_LE(content.size(), 16000u + 1000u + 96u) << "r.log." << n;
    for (const std::string& line : LinesOf(content)) all.push_back(line);
  }
  EXPECT_EQ(rolled, 2);  // 48,000 bytes of lines
  for (const std::string& line : LinesOf(ReadFile(P("r.log")))) all.push_back(line);
  ASSERT_EQ(all.size(), static_cast<std::size_t>(kLines));
  for (int i = 0; i < kLines; ++i) EXPECT_EQ(all[i], pad + std::to_string(1000 + i));
}

// A file size limit cuts the batch's write: the lines wholly written stay,
// the cut one ends in the torn mark, and the batch counts the rest lost.
TEST_F(FileAppenderTest, AShortWriteOfABatchCountsTheLinesItLost) {
  auto* a = Make<ZyrLogFileAppender>(u"File", {{u"FileName", u"s.log"}});
  ASSERT_EQ(Write(a, U16("first")), ZYR_OK);  // the file holds 10 bytes
  int lost = zyrtest::RunInChild([a] {
    signal(SIGXFSZ, SIG_IGN);
    ZyrLogBatch batch;
    batch.Begin();
    for (int i = 0; i < 10; ++i)
      if (Write(a, U16("line " + std::to_string(i) + std::string(20, '-'))) != ZYR_OK) return 100;
    struct rlimit limit = {160, 160};  // room for 150 bytes of the 280
    setrlimit(RLIMIT_FSIZE, &limit);
    ZyrResult failure = ZYR_OK;
    std::uint64_t count = batch.End(&failure);
    return failure == ZYR_E_DISK_FULL ? static_cast<int>(count) : 101;
  });
  std::vector<std::string> lines = LinesOf(ReadFile(P("s.log")));
  // "first", five whole lines of 28 bytes, then 10 bytes of the sixth,
  // which hold the tail of the mark; the sixth and the four behind it lost.
  ASSERT_EQ(lines.size(), 7u);
  EXPECT_EQ(lost, 5);
  EXPECT_EQ(lines[5], "line 4" + std::string(20, '-'));
  EXPECT_EQ(lines[6], "rn line]");
}

}  // namespace
