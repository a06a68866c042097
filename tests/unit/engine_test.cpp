// The logger tree, the climb of an event, and the dispatcher's queue.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <thread>

#include "base/format.h"
#include "base/identity.h"
#include "base/time.h"
#include "config/document.h"
#include "engine_support.h"
#include "records/severity.h"

using zyrtest::EngineFixture;
using zyrtest::MessageOf;
using zyrtest::RecordingAppender;

namespace {

ZyrCfgSectionRef Section(std::initializer_list<std::pair<const char16_t*, const char16_t*>> values) {
  ZyrCfgSectionRef section;
  EXPECT_EQ(ZyrCfgSectionRef::Make(&section), ZYR_OK);
  section->SetName(u"s");
  for (auto& kv : values) EXPECT_EQ(section->SetValue(kv.first, kv.second), ZYR_OK);
  return section;
}

ZyrResult Say(ZyrLoggerNode* logger, const char16_t* text, ZyrLogSeverity severity = ZYR_SEVERITY_INFO) {
  return logger->LogShort(severity, text, u"t.cpp", 1, 0, 0, 0, nullptr);
}

}  // namespace

TEST(LoggerTree, PathsMasksAndThresholds) {
  EngineFixture f;
  ZyrLoggerNode* root = f.Logger(u"root");
  root->SetThreshold(ZYR_SEVERITY_WARN);
  ZyrLoggerNode* ab = f.Logger(u"a.b", 0x19);
  ZyrLoggerNode* a = f.Logger(u"a", 0);
  EXPECT_EQ(ab->Parent(), a);
  EXPECT_EQ(a->flags.load(), 0u);  // only the logger asked for gets the mask
  EXPECT_EQ(ab->flags.load(), 0x19u);
  EXPECT_EQ(a->threshold.load(), ZYR_SEVERITY_WARN);
  EXPECT_EQ(ab->threshold.load(), ZYR_SEVERITY_WARN);
  EXPECT_EQ(f.Logger(u"a..b", 0), ab);  // empty components fold
  EXPECT_EQ(f.Logger(u".a", 0), a);

  // Down through additive loggers; a non-additive one keeps its subtree.
  ZyrLoggerNode* c = f.Logger(u"c");
  ZyrLoggerNode* cd = f.Logger(u"c.d");
  ASSERT_EQ(c->Configure(*Section({{u"Additive", u"no"}, {u"Severity", u"error"}})), ZYR_OK);
  EXPECT_EQ(c->threshold.load(), ZYR_SEVERITY_ERROR);
  EXPECT_EQ(cd->threshold.load(), ZYR_SEVERITY_ERROR);  // additive below a non-additive one
  ASSERT_EQ(root->Configure(*Section({{u"Severity", u"DEBUG"}})), ZYR_OK);
  EXPECT_EQ(ab->threshold.load(), ZYR_SEVERITY_DEBUG);
  EXPECT_EQ(cd->threshold.load(), ZYR_SEVERITY_ERROR);

  // Severity is not read on an additive logger; "False" is not false.
  ASSERT_EQ(a->Configure(*Section({{u"Severity", u"FATAL"}})), ZYR_OK);
  EXPECT_EQ(a->threshold.load(), ZYR_SEVERITY_DEBUG);
  ASSERT_EQ(a->Configure(*Section({{u"Additive", u"False"}, {u"Severity", u"FATAL"}})), ZYR_OK);
  EXPECT_TRUE(a->IsAdditive());
  ASSERT_EQ(a->Configure(*Section({{u"Additive", u"false"}, {u"Severity", u"FATAL"}})), ZYR_OK);
  EXPECT_EQ(a->threshold.load(), ZYR_SEVERITY_FATAL);
  EXPECT_EQ(ab->threshold.load(), ZYR_SEVERITY_FATAL);
}

TEST(LoggerTree, ClimbStopsAtAFailingAppender) {
  EngineFixture f;
  ZyrLoggerNode* root = f.Logger(u"root");
  ZyrLoggerNode* ab = f.Logger(u"a.b");
  RecordingAppender* top = f.Attach(root, u"top");
  RecordingAppender* failing = f.Attach(ab, u"failing");
  RecordingAppender* sibling = f.Attach(ab, u"sibling");
  failing->failWith = ZYR_E_DISK_FULL;
  EXPECT_EQ(Say(ab, u"one"), ZYR_RESULT(0xa0010097));  // the failure as a warning
  EXPECT_EQ(sibling->Lines().size(), 1u);
  EXPECT_TRUE(top->Lines().empty());
  failing->failWith = ZYR_OK;
  EXPECT_EQ(Say(ab, u"two"), ZYR_OK);
  EXPECT_EQ(top->Lines().size(), 1u);

  // Not additive: only the logger's own appenders.
  ab->SetAdditive(false);
  EXPECT_EQ(Say(ab, u"three"), ZYR_OK);
  EXPECT_EQ(top->Lines().size(), 1u);
  EXPECT_EQ(sibling->Lines().size(), 3u);
  // An appender on two loggers of the path receives the event twice.
  ab->SetAdditive(true);
  f.Attach(root, u"sibling");
  EXPECT_EQ(Say(ab, u"four"), ZYR_OK);
  EXPECT_EQ(sibling->Lines().size(), 5u);
}

TEST(LoggerTree, BreakSeverityFiltersFlushClosesAndNoLayoutWritesNothing) {
  EngineFixture f;
  ZyrLoggerNode* x = f.Logger(u"x");
  RecordingAppender* app = f.Attach(x, u"filtered");
  ASSERT_EQ(app->Configure(*Section({{u"BreakSeverity", u"WARN"}})), ZYR_OK);
  EXPECT_EQ(Say(x, u"info"), ZYR_OK);
  EXPECT_FALSE(app->IsOpened());  // a filtered event opens nothing
  EXPECT_EQ(Say(x, u"warn", ZYR_SEVERITY_WARN), ZYR_OK);
  ASSERT_EQ(app->Lines().size(), 1u);
  EXPECT_EQ(MessageOf(app->Lines()[0]), u"warn");
  EXPECT_TRUE(app->IsOpened());
  // Flush drains and closes, so that the next line opens again.
  ASSERT_EQ(f.manager->Flush(), ZYR_OK);
  EXPECT_FALSE(app->IsOpened());
  EXPECT_EQ(Say(x, u"again", ZYR_SEVERITY_WARN), ZYR_OK);
  EXPECT_TRUE(app->IsOpened());
  ASSERT_EQ(app->Configure(*Section({{u"BreakSeverity", u"nonsense"}})), ZYR_OK);
  EXPECT_EQ(app->BreakSeverity(), ZYR_SEVERITY_INFO);
  app->SetLayout(nullptr);
  EXPECT_EQ(Say(x, u"lost", ZYR_SEVERITY_FATAL), ZYR_OK);
  EXPECT_EQ(app->Lines().size(), 2u);
}

TEST(Dispatcher, SmallestLimitCutsFiveToThreeWithTheNoticeAhead) {
  EngineFixture f;
  ZyrLoggerNode* q = f.Logger(u"q");
  RecordingAppender* app = f.Attach(f.Logger(u"root"), u"all");
  f.Dispatcher().SetMaxQueueSize(1);
  EXPECT_EQ(f.Dispatcher().MaxQueueBytes(), 1880u);
  f.Dispatcher().TestQueueWithoutWorker();
  for (char16_t i = u'1'; i <= u'6'; ++i) {
    EXPECT_EQ(f.Dispatcher().QueuedCount(), i == u'6' ? 5u : std::size_t(i - u'1'));
    ASSERT_EQ(Say(q, std::u16string{u'm', i}.c_str()), ZYR_OK);
  }
  EXPECT_EQ(f.Dispatcher().QueuedCount(), 5u);  // 3 kept, the notice, the new one
  f.manager->StopDispatcher();
  std::vector<std::u16string> lines = app->Lines();
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(MessageOf(lines[0]), u"m1");
  EXPECT_EQ(MessageOf(lines[2]), u"m3");
  EXPECT_EQ(lines[3].substr(0, 20), u"[ASYNCHANDLER] WARN ");
  // The notice tells how many lines the cut took: m4 and m5.
  EXPECT_NE(lines[3].find(u"ID:{610B64A8-D676-4CD6-866D-5BE2C66FE3D2}:223.185.8038423.7 "
                          u"MSG:'QWORD:0x0000000000000002'"),
            std::u16string::npos)
      << zyrtest::Narrow(lines[3]);
  EXPECT_EQ(MessageOf(lines[4]), u"m6");
}

TEST(Dispatcher, NoNoticeWhenTheHandlerStopsWarn) {
  EngineFixture f;
  ZyrLoggerNode* q = f.Logger(u"q");
  RecordingAppender* app = f.Attach(f.Logger(u"root"), u"all");
  ZyrLoggerNode* handler = f.Logger(u"ASYNCHANDLER");
  handler->SetAdditive(false);
  handler->SetThreshold(ZYR_SEVERITY_ERROR);
  f.Dispatcher().SetMaxQueueSize(1880);
  f.Dispatcher().TestQueueWithoutWorker();
  for (int i = 0; i < 6; ++i) ASSERT_EQ(Say(q, u"m"), ZYR_OK);
  EXPECT_EQ(f.Dispatcher().QueuedCount(), 4u);  // 5 cut to 3, then the new one
  f.manager->StopDispatcher();
  EXPECT_EQ(app->Lines().size(), 4u);
}

TEST(Dispatcher, DefaultLimitFigures) {
  EngineFixture f;
  ZyrLoggerNode* q = f.Logger(u"q");
  f.Logger(u"ASYNCHANDLER")->SetAdditive(false);
  f.Logger(u"ASYNCHANDLER")->SetThreshold(ZYR_SEVERITY_OFF);
  EXPECT_EQ(f.Dispatcher().MaxQueueBytes(), 33554432u);
  f.Dispatcher().TestQueueWithoutWorker();
  for (int i = 0; i < 89240; ++i) ASSERT_EQ(q->LogShort(ZYR_SEVERITY_INFO, nullptr, nullptr, 0, 0, 0, 0, nullptr), ZYR_OK);
  EXPECT_EQ(f.Dispatcher().QueuedCount(), 89240u);
  ASSERT_EQ(Say(q, u"next"), ZYR_OK);
  EXPECT_EQ(f.Dispatcher().QueuedCount(), 59494u);  // cut to 59493, then the new one
  f.Dispatcher().SetMaxQueueSize(0);
  f.manager->StopDispatcher();
  EXPECT_EQ(f.Dispatcher().QueuedCount(), 0u);
}

TEST(Dispatcher, BurstFromThreadsReachesTheAppendersInEachThreadsOrder) {
  EngineFixture f;
  RecordingAppender* app = f.Attach(f.Logger(u"root"), u"all");
  ASSERT_EQ(f.manager->StartDispatcher(), ZYR_OK);
  EXPECT_EQ(f.manager->StartDispatcher(), ZYR_E_TIMEOUT);
  constexpr int kThreads = 4, kEach = 2000;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&f, t] {
      ZyrLoggerNode* logger = f.Logger(t % 2 ? u"odd" : u"even");
      for (int i = 0; i < kEach; ++i) {
        std::uint64_t args[] = {static_cast<std::uint64_t>(t), static_cast<std::uint64_t>(i)};
        ASSERT_EQ(logger->LogShort(ZYR_SEVERITY_INFO, u"%d %d", u"t.cpp", 1, 0, 0, 0, args), ZYR_OK);
      }
    });
  for (auto& t : threads) t.join();
  f.manager->StopDispatcher();
  std::vector<std::u16string> lines = app->Lines();
  ASSERT_EQ(lines.size(), static_cast<std::size_t>(kThreads * kEach));
  int next[kThreads] = {};
  for (const auto& line : lines) {
    std::string m = zyrtest::Narrow(MessageOf(line));
    int t = 0, i = 0;
    ASSERT_EQ(sscanf(m.c_str(), "%d %d", &t, &i), 2);
    ASSERT_EQ(i, next[t]) << "thread " << t;
    ++next[t];
  }
  // After Stop the direct road writes at once; Start works again.
  ASSERT_EQ(Say(f.Logger(u"even"), u"direct"), ZYR_OK);
  EXPECT_EQ(app->Lines().size(), lines.size() + 1);
  ASSERT_EQ(f.manager->StartDispatcher(), ZYR_OK);
  ASSERT_EQ(Say(f.Logger(u"even"), u"queued"), ZYR_OK);
  f.manager->StopDispatcher();
  EXPECT_EQ(MessageOf(app->Lines().back()), u"queued");
}

TEST(Dispatcher, ScrambledMessageIsNeverWrittenInClear) {
  EngineFixture f;
  ZyrLoggerNode* x = f.Logger(u"x");
  RecordingAppender* app = f.Attach(x, u"rec");
  EXPECT_EQ(x->LogShort(ZYR_SEVERITY_INFO, u"secret", nullptr, 0, 0, 0, 1, nullptr), ZYR_OK);
  // A lone surrogate is scrambled spelt out: the line is not lost.
  const char16_t lone[] = {u'x', 0xd800, 0};
  EXPECT_EQ(x->LogShort(ZYR_SEVERITY_INFO, lone, nullptr, 0, 0, 0, 1, nullptr), ZYR_OK);
  ASSERT_EQ(app->Lines().size(), 2u);
  std::u16string message = MessageOf(app->Lines()[0]);
  EXPECT_EQ(message.find(u"secret"), std::u16string::npos);
  EXPECT_EQ(message.size(), 1u + 12u);  // "a" + base64 of 2 + 6 bytes
  EXPECT_EQ(message[0], u'a');
}

// A queued line is composed later, on the worker, from the caller's format
// and a copy of its arguments: it reads exactly as if composed at the call,
// with the caller's texts as they were, its thread and the time of the call,
// though format and texts change and time passes before it is written.
TEST(Dispatcher, AQueuedLineReadsAsIfComposedAtTheCall) {
  EngineFixture f;
  ZyrLoggerNode* q = f.Logger(u"q");
  RecordingAppender* app = f.Attach(q, u"rec");
  f.Dispatcher().TestQueueWithoutWorker();
  char16_t format[] = u"%s %d [%.3s] %5x%% %ls";
  char16_t text[] = u"line\none";
  std::uint64_t args[] = {ZyrBasSlotFromPointer(text), static_cast<std::uint64_t>(-7),
                          ZyrBasSlotFromPointer(text), 0xbeef, 0};
  std::uint32_t caller = 0;
  std::uint64_t before = ZyrBasSystemTime() / 10000;  // milliseconds
  std::thread([&] {
    caller = ZyrBasCurrentThreadId();
    ASSERT_EQ(q->LogShort(ZYR_SEVERITY_INFO, format, u"f.cpp", 9, 0, 0, 0, args), ZYR_OK);
  }).join();
  std::uint64_t after = ZyrBasSystemTime() / 10000;
  format[0] = text[0] = u'X';
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  f.manager->StopDispatcher();
  ASSERT_EQ(app->Lines().size(), 1u);
  std::string line = zyrtest::Narrow(app->Lines()[0]);
  // The public log's line breaks become VT, a null text "(null)".
  EXPECT_EQ(zyrtest::Narrow(MessageOf(app->Lines()[0])), "line\vone -7 [lin]  beef% (null)");
  EXPECT_NE(line.find(" THID:" + std::to_string(caller) + " "), std::string::npos) << line;
  ZyrBasTimeFields fields{};
  unsigned year, month, day, hour, minute, second, milli;
  ASSERT_EQ(sscanf(line.c_str(), "[q] INFO %u-%u-%u %u:%u:%u,%u", &year, &month, &day, &hour, &minute,
                   &second, &milli),
            7)
      << line;
  fields = {static_cast<std::uint16_t>(year), static_cast<std::uint16_t>(month), 0,
            static_cast<std::uint16_t>(day), static_cast<std::uint16_t>(hour),
            static_cast<std::uint16_t>(minute), static_cast<std::uint16_t>(second),
            static_cast<std::uint16_t>(milli), 0, 0};
  std::uint64_t time = 0;
  ASSERT_EQ(ZyrBasTimeFromFields(fields, &time), ZYR_OK);
  EXPECT_GE(time / 10000, before);
  EXPECT_LE(time / 10000, after);
}

// Formats are kept by address and taken only while their units are the
// same: a buffer filled anew between calls is read anew, both as format
// and as file name.
TEST(Dispatcher, AFormatBufferFilledAnewIsReadAnew) {
  EngineFixture f;
  ZyrLoggerNode* q = f.Logger(u"q");
  RecordingAppender* app = f.Attach(q, u"rec");
  f.Dispatcher().TestQueueWithoutWorker();
  char16_t format[] = u"one %d";
  struct Call {
    const char16_t* format;
    std::uint64_t slot;
  } calls[] = {{u"one %d", 1}, {u"two %s", ZyrBasSlotFromPointer(u"x")}, {u"one %d", 3}};
  for (const Call& call : calls) {
    std::u16string(call.format).copy(format, 6);
    ASSERT_EQ(q->LogShort(ZYR_SEVERITY_INFO, format, format, 0, 0, 0, 0, &call.slot), ZYR_OK);
  }
  f.manager->StopDispatcher();
  std::vector<std::u16string> lines = app->Lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(MessageOf(lines[0]), u"one 1");
  EXPECT_EQ(MessageOf(lines[1]), u"two x");
  EXPECT_EQ(MessageOf(lines[2]), u"one 3");
  EXPECT_NE(lines[1].find(u"ID:two %s:"), std::u16string::npos) << zyrtest::Narrow(lines[1]);
}

// On the worker's road the caller learns nothing at its own call; what the
// worker could not write comes back, once, to the next caller.
TEST(Dispatcher, WhatTheWorkerCannotWriteIsToldToTheNextCaller) {
  EngineFixture f;
  ZyrLoggerNode* q = f.Logger(u"q");
  RecordingAppender* app = f.Attach(f.Logger(u"root"), u"all");
  app->failWith = ZYR_RESULT(0xe0010097);
  ASSERT_EQ(f.manager->StartDispatcher(), ZYR_OK);
  ASSERT_EQ(Say(q, u"lost"), ZYR_OK);  // accepted: nothing is known yet
  for (int i = 0; i < 1000 && f.Dispatcher().WorkerFailedLines() == 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  ASSERT_EQ(f.Dispatcher().WorkerFailedLines(), 1u);
  {
    std::lock_guard<std::mutex> guard(app->mutex);
    app->failWith = ZYR_OK;
  }
  EXPECT_EQ(Say(q, u"told"), ZYR_RESULT(0xa0010097));
  EXPECT_EQ(Say(q, u"quiet"), ZYR_OK);
  f.manager->StopDispatcher();
  EXPECT_EQ(app->Lines().size(), 2u);
}

// A forked child: the parent's waiting entries are the parent's to write;
// the child writes its own, directly or through a worker of its own, and
// leaves the parent's worker awake.
TEST(Dispatcher, AForkedChildWritesOnlyItsOwnLinesAndLeavesTheParentsWorker) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "skipped: ThreadSanitizer does not support threads started in the child of a "
                  "process that had threads at the fork";
#endif
  EngineFixture f;
  ZyrLoggerNode* q = f.Logger(u"q");
  RecordingAppender* app = f.Attach(f.Logger(u"root"), u"all");
  ZyrLogDispatcher& d = f.Dispatcher();
  // The library's own fork handlers run the dispatcher's hooks.
  auto forkChild = [&](const std::function<int()>& body) {
    pid_t child = fork();
    if (child == 0) _exit(body());
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  };
  auto childWrites = [&] {
    std::size_t before = app->Lines().size();
    if (d.QueuedCount() != 0) return 1;
    if (Say(q, u"child direct") != ZYR_OK || app->Lines().size() != before + 1) return 2;
    if (f.manager->StartDispatcher() != ZYR_OK) return 3;
    if (Say(q, u"child queued") != ZYR_OK) return 4;
    f.manager->StopDispatcher();
    return app->Lines().size() == before + 2 ? 0 : 5;
  };

  // Entries that wait at the fork stay the parent's.
  d.TestQueueWithoutWorker();
  ASSERT_EQ(Say(q, u"parent 1"), ZYR_OK);
  ASSERT_EQ(Say(q, u"parent 2"), ZYR_OK);
  EXPECT_EQ(forkChild(childWrites), 0);
  f.manager->StopDispatcher();
  ASSERT_EQ(app->Lines().size(), 2u);

  // The child's start and stop of a worker do not touch the parent's.
  ASSERT_EQ(f.manager->StartDispatcher(), ZYR_OK);
  EXPECT_EQ(forkChild(childWrites), 0);
  ASSERT_EQ(Say(q, u"parent 3"), ZYR_OK);
  for (int i = 0; i < 1000 && app->Lines().size() < 3; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(app->Lines().size(), 3u) << "the parent's worker no longer wakes";
  f.manager->StopDispatcher();
}
