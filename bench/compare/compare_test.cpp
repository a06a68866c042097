// The comparison's own bookkeeping: the line check that makes a lossy
// contender visible, and the statistics of its table.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "stats.h"
#include "verify.h"

namespace {

std::string Line(std::uint32_t worker, std::uint32_t sequence, const char* end = "\r\n") {
  return "[bench] INFO 2024-01-02 03:04:05,678 host PID:1 THID:2 ID:compare.cpp:9.0.0.0 "
         "MSG:request " + std::to_string(sequence) + " from worker " + std::to_string(worker) +
         " for client-7" + end;
}

std::string Lines(std::uint32_t worker, std::uint32_t from, std::uint32_t to) {
  std::string text;
  for (std::uint32_t s = from; s < to; ++s) text += Line(worker, s);
  return text;
}

TEST(CompareVerify, ParsesMeasuredLinesAndNothingElse) {
  std::uint32_t worker = 99, sequence = 99;
  std::string line = Line(3, 123456, "\n");
  ASSERT_TRUE(ParseMeasuredLine(line.data(), line.size(), &worker, &sequence));
  EXPECT_EQ(worker, 3u);
  EXPECT_EQ(sequence, 123456u);
  for (const char* other : {"request 5 from warm-up 0 for client-7", "request  from worker 1",
                            "request 5 from worker ", "a header line", "request 99999999999 from worker 1"}) {
    EXPECT_FALSE(ParseMeasuredLine(other, std::strlen(other), &worker, &sequence)) << other;
  }
}

TEST(CompareVerify, CountsAllLinesOfAllWorkersAcrossFiles) {
  VerifyResult r = VerifyTexts({"\xEF\xBB\xBF" + Lines(0, 0, 50) + Lines(1, 0, 20),
                                Lines(1, 20, 50) + "request 1 from warm-up 0 for client-7\r\n"},
                               2, 50, false);
  EXPECT_TRUE(r.ok);
  EXPECT_EQ(r.found, 100u);
  EXPECT_EQ(r.missing, 0u);
  EXPECT_EQ(r.duplicates, 0u);
  EXPECT_EQ(r.lineBytes, (Lines(0, 0, 50) + Lines(1, 0, 50)).size());
}

TEST(CompareVerify, MissingHeadMiddleAndTailAndDuplicates) {
  // Worker 0 lost its first line, worker 1 a middle one and its last two;
  // one line of worker 0 appears twice.
  std::string text = Lines(0, 1, 10) + Line(0, 4) + Lines(1, 0, 4) + Lines(1, 5, 8);
  VerifyResult r = VerifyTexts({text}, 2, 10, false);
  EXPECT_EQ(r.found, 16u);
  EXPECT_EQ(r.missing, 4u);
  EXPECT_EQ(r.duplicates, 1u);
}

TEST(CompareVerify, WindowForgivesTheDeletedHeadButNotTheTail) {
  // A rolling contender keeps each worker's last lines: the head is gone by
  // design, a hole or a lost tail is still a loss.
  std::string kept = Lines(0, 60, 100) + Lines(1, 70, 100);
  VerifyResult r = VerifyTexts({kept}, 2, 100, true);
  EXPECT_EQ(r.found, 70u);
  EXPECT_EQ(r.missing, 0u);
  r = VerifyTexts({Lines(0, 60, 80) + Lines(0, 81, 99)}, 1, 100, true);
  EXPECT_EQ(r.missing, 2u);
  // A worker with no line left at all lost everything, window or not.
  r = VerifyTexts({Lines(0, 0, 100)}, 2, 100, true);
  EXPECT_EQ(r.missing, 100u);
}

TEST(CompareVerify, ReadsEveryFileBelowAFolderAcrossBufferEnds) {
  const char* base = getenv("TMPDIR");
  std::string templ = std::string(base && *base ? base : "/tmp") + "/zyr-verify-XXXXXX";
  ASSERT_NE(mkdtemp(templ.data()), nullptr);
  std::string nested = templ + "/appdata";
  ASSERT_EQ(mkdir(nested.c_str(), 0755), 0);
  // More than the reader's 1 MiB buffer, so that lines straddle its end.
  const std::uint32_t perWorker = 20000;
  std::string first = Lines(0, 0, perWorker / 2);
  std::string second = Lines(0, perWorker / 2, perWorker - 1);  // the last line is lost
  ASSERT_GT(first.size() + second.size(), 2u << 20);
  for (auto [path, text] : {std::pair{templ + "/a.log", first}, {nested + "/b.log.1", second}}) {
    FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fwrite(text.data(), 1, text.size(), f);
    std::fclose(f);
  }
  VerifyResult r = VerifyFolder(templ, 1, perWorker, false);
  EXPECT_TRUE(r.ok);
  EXPECT_EQ(r.found, perWorker - 1);
  EXPECT_EQ(r.missing, 1u);
  EXPECT_EQ(r.duplicates, 0u);
  std::remove((templ + "/a.log").c_str());
  std::remove((nested + "/b.log.1").c_str());
  rmdir(nested.c_str());
  rmdir(templ.c_str());
}

TEST(CompareStats, MedianAndNearestRankPercentiles) {
  EXPECT_TRUE(std::isnan(Median({})));
  EXPECT_EQ(Median({5, 1, 3}), 3);
  EXPECT_EQ(Median({4, 1, 3, 2}), 2.5);
  std::vector<std::uint32_t> values;
  for (std::uint32_t v = 1000; v >= 1; --v) values.push_back(v);
  EXPECT_EQ(Percentile(values, 50), 500u);
  EXPECT_EQ(Percentile(values, 99), 990u);
  EXPECT_EQ(Percentile(values, 99.9), 999u);
  EXPECT_EQ(Percentile(values, 100), 1000u);
  std::vector<std::uint32_t> one = {7};
  EXPECT_EQ(Percentile(one, 99.9), 7u);
}

}  // namespace
