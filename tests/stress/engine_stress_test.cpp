// Bounded races over the message road: writers on several threads while the
// worker starts and stops, loggers are made and configuration is applied.
// Run under ThreadSanitizer in CI.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "../unit/engine_support.h"
#include "config/document.h"

using zyrtest::EngineFixture;
using zyrtest::RecordingAppender;

TEST(EngineStress, WritersWhileTheWorkerStartsAndStops) {
  EngineFixture f;
  RecordingAppender* app = f.Attach(f.Logger(u"root"), u"all");
  constexpr int kWriters = 3, kEach = 3000;
  std::atomic<int> done{0};
  std::vector<std::thread> writers;
  for (int t = 0; t < kWriters; ++t)
    writers.emplace_back([&, t] {
      std::u16string name = u"w" + std::u16string(1, static_cast<char16_t>(u'0' + t));
      ZyrLoggerNode* logger = f.Logger(name.c_str());
      for (int i = 0; i < kEach; ++i) {
        std::uint64_t args[] = {static_cast<std::uint64_t>(i)};
        ASSERT_EQ(logger->LogShort(ZYR_SEVERITY_INFO, u"n %d", nullptr, 0, 0, 0, 0, args), ZYR_OK);
      }
      done.fetch_add(1);
    });
  // Toggle the worker while they write; nothing that was accepted is lost.
  while (done.load() < kWriters) {
    ZyrResult r = f.manager->StartDispatcher();
    ASSERT_TRUE(r == ZYR_OK || r == ZYR_E_TIMEOUT);
    std::this_thread::yield();
    f.manager->StopDispatcher();
  }
  for (auto& w : writers) w.join();
  f.manager->StopDispatcher();
  // A worker that loses its processor for long lets the budget cut; the
  // notices then tell every line that is missing.
  zyrtest::LineTally tally = zyrtest::TallyLines(app->Lines());
  EXPECT_EQ(tally.lines + f.Dispatcher().CutLines(), static_cast<std::size_t>(kWriters * kEach));
  EXPECT_EQ(tally.told, f.Dispatcher().CutLines());
}

TEST(EngineStress, LoggersMadeAndConfiguredWhileOthersWrite) {
  EngineFixture f;
  RecordingAppender* app = f.Attach(f.Logger(u"root"), u"all");
  ASSERT_EQ(f.manager->StartDispatcher(), ZYR_OK);
  std::atomic<bool> stop{false};
  std::atomic<long> written{0};
  std::thread writer([&] {
    ZyrLoggerNode* logger = f.Logger(u"busy.writer");
    while (!stop.load()) {
      if (logger->threshold.load(std::memory_order_relaxed) <= ZYR_SEVERITY_WARN &&
          logger->LogShort(ZYR_SEVERITY_WARN, u"w", nullptr, 0, 0, 0, 0, nullptr) == ZYR_OK)
        written.fetch_add(1);
    }
  });
  std::thread maker([&] {
    // Some forty loggers in all: the thread sanitizer follows at most 64
    // locks held at once, and the tree lock holds every logger's.
    for (int i = 0; i < 36; ++i) {
      std::u16string name = u"made." + std::u16string(1, static_cast<char16_t>(u'a' + i % 6)) +
                            u"." + std::u16string(1, static_cast<char16_t>(u'a' + i / 6));
      ASSERT_NE(f.Logger(name.c_str()), nullptr);
    }
  });
  ZyrCfgDocument document;
  for (int i = 0; i < 100; ++i) {
    ZyrLoggerNode* root = f.Logger(u"root");
    {
      // As a configuration does it: the walk reads the children that the
      // maker adds under the same lock.
      ZyrBasLockGuard guard(f.manager->Lock());
      root->SetThreshold(i % 2 ? ZYR_SEVERITY_INFO : ZYR_SEVERITY_WARN);
    }
    // An empty document still takes the manager's lock and the tree lock.
    ASSERT_EQ(f.manager->ApplyDocument(document, ZyrBasString()), ZYR_OK);
  }
  maker.join();
  stop.store(true);
  writer.join();
  f.manager->StopDispatcher();
  zyrtest::LineTally tally = zyrtest::TallyLines(app->Lines());
  EXPECT_EQ(tally.lines + f.Dispatcher().CutLines(), static_cast<std::size_t>(written.load()));
  EXPECT_EQ(tally.told, f.Dispatcher().CutLines());
}

// Bursts through the worker must reach the appender by themselves, without
// Flush or Stop: a wake-up lost between the worker's reset and a caller's
// set left lines waiting until the next stop.
TEST(EngineStress, BurstsReachTheAppenderWithoutFlush) {
  EngineFixture f;
  RecordingAppender* app = f.Attach(f.Logger(u"root"), u"all");
  ASSERT_EQ(f.manager->StartDispatcher(), ZYR_OK);
  constexpr int kBursts = 20, kLines = zyrtest::kSanitized ? 2000 : 20000;
  std::size_t expected = 0;
  for (int burst = 0; burst < kBursts; ++burst) {
    const int threads = burst % 2 ? 4 : 1;
    std::vector<std::thread> writers;
    for (int t = 0; t < threads; ++t)
      writers.emplace_back([&] {
        ZyrLoggerNode* logger = f.Logger(u"burst");
        for (int i = 0; i < kLines / threads; ++i)
          ASSERT_EQ(logger->LogShort(ZYR_SEVERITY_INFO, u"b", nullptr, 0, 0, 0, 0, nullptr), ZYR_OK);
      });
    for (auto& w : writers) w.join();
    expected += kLines;
    // Generous against a loaded machine; a lost wake-up never arrives.
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (app->Lines().size() < expected && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    ASSERT_EQ(app->Lines().size(), expected) << "burst " << burst << " still waits in the queue";
  }
}

// Two threads start and stop the worker at once while a third writes: the
// thread object was released twice when Start and Stop overlapped.
TEST(EngineStress, StartAndStopFromTwoThreadsAtOnce) {
  EngineFixture f;
  RecordingAppender* app = f.Attach(f.Logger(u"root"), u"all");
  std::atomic<bool> stop{false};
  std::atomic<long> accepted{0};
  std::thread writer([&] {
    ZyrLoggerNode* logger = f.Logger(u"toggled");
    while (!stop.load()) {
      if (logger->LogShort(ZYR_SEVERITY_INFO, u"t", nullptr, 0, 0, 0, 0, nullptr) == ZYR_OK)
        accepted.fetch_add(1);
      std::this_thread::yield();  // lines in every state of the worker, not millions of them
    }
  });
  constexpr int kRounds = 10000;
  auto toggle = [&] {
    for (int i = 0; i < kRounds / 2; ++i) {
      ZyrResult r = f.manager->StartDispatcher();
      ASSERT_TRUE(r == ZYR_OK || r == ZYR_E_TIMEOUT) << std::hex << r;
      f.manager->StopDispatcher();
    }
  };
  std::thread a(toggle), b(toggle);
  a.join();
  b.join();
  stop.store(true);
  writer.join();
  f.manager->StopDispatcher();
  zyrtest::LineTally tally = zyrtest::TallyLines(app->Lines());
  EXPECT_EQ(tally.lines + f.Dispatcher().CutLines(), static_cast<std::size_t>(accepted.load()));
  EXPECT_EQ(tally.told, f.Dispatcher().CutLines());
}

// Four threads burst past the default budget while the worker cannot
// write (its file appender's lock is held): the cut drops lines, and the
// notices in the file count every line that is missing from it.
TEST(EngineStress, ABurstOverTheBudgetLeavesNoticesThatCountTheMissingLines) {
  EngineFixture f;
  ZyrBasString type, folder;
  type.Assign(u"File");
  folder.Assign(zyrtest::U16(f.dir).c_str());
  ZyrLogAppender* file = nullptr;
  ASSERT_EQ(ZyrLogMakeAppender(type, folder, &f.manager->Hierarchy(), u"file", &file), ZYR_OK);
  ZyrCfgSection section;
  section.SetName(u"file");
  section.SetValue(u"AppenderType", u"File");
  section.SetValue(u"FileName", u"burst.log");
  ASSERT_EQ(file->Reconfigure(section), ZYR_OK);
  ZyrLogLayout* layout = nullptr;
  f.manager->Layouts().Find(u"defaultLayout", &layout);
  file->SetLayout(layout);
  ASSERT_EQ(f.manager->Appenders().Insert(file), ZYR_OK);
  ASSERT_EQ(f.Logger(u"root")->AddAppender(file), ZYR_OK);

  ASSERT_EQ(f.manager->StartDispatcher(), ZYR_OK);
  // 89,240 entries fit the budget, and the batch that the worker took
  // before it blocked holds at most as many: 200,000 lines overflow.
  constexpr int kThreads = 4, kEach = 50000;
  file->Lock().Enter();
  std::vector<std::thread> writers;
  for (int t = 0; t < kThreads; ++t)
    writers.emplace_back([&f, t] {
      ZyrLoggerNode* logger = f.Logger(u"burst");
      for (int i = 0; i < kEach; ++i) {
        std::uint64_t args[] = {static_cast<std::uint64_t>(t), static_cast<std::uint64_t>(i)};
        ASSERT_EQ(logger->LogShort(ZYR_SEVERITY_INFO, u"%d %d", u"b.cpp", 1, 0, 0, 0, args), ZYR_OK);
      }
    });
  for (auto& w : writers) w.join();
  file->Lock().Leave();
  f.manager->StopDispatcher();

  std::string content = zyrtest::ReadFile(f.dir + "/burst.log");
  std::vector<std::u16string> lines;
  for (std::size_t at = 3; at < content.size();) {
    std::size_t end = content.find("\r\n", at);
    ASSERT_NE(end, std::string::npos);
    lines.push_back(zyrtest::U16(content.substr(at, end - at)));
    at = end + 2;
  }
  zyrtest::LineTally tally = zyrtest::TallyLines(lines);
  EXPECT_GE(tally.notices, 1u);
  EXPECT_GT(tally.told, 0u);
  EXPECT_EQ(tally.lines + tally.told, static_cast<std::size_t>(kThreads * kEach));
  EXPECT_EQ(tally.told, f.Dispatcher().CutLines());
}
