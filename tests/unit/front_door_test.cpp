// The C++ front door through the real library: what a call writes reaches a
// file through the formatter, so a format translated wrongly or a slot packed
// wrongly shows in the text of the line.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "test_support.h"
#include "zyrlog/zyrlog.hpp"

namespace {

struct Money {
  std::int64_t cents;
};
struct Point {
  int x, y;
};
struct Host {
  std::string name;
};
enum class Wide : std::int64_t { kLowest = INT64_MIN };
enum Small : std::uint8_t { kSmall = 200 };

}  // namespace

template <>
struct zyrlog::Loggable<Money> {
  static std::int64_t Value(const Money& m) noexcept { return m.cents; }
};
template <>
struct zyrlog::Loggable<Point> {
  static zyrlog::FixedText<24> Value(const Point& p) noexcept {
    zyrlog::FixedText<24> text;
    text.Append('(').Append(p.x).Append(", ").Append(p.y).Append(')');
    return text;
  }
};
template <>
struct zyrlog::Loggable<Host> {
  static const std::string& Value(const Host& h) noexcept { return h.name; }
};

namespace {

class FrontDoorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = zyrtest::UsePrivateLocalAppData("front");
    ASSERT_TRUE(log_.Status().Ok()) << log_.Status().Describe().c_str();
    ASSERT_EQ(log_.LoadConfigText(Config(dir_ + "/front.log")).Code(), ZYR_OK);
    logger_ = log_.GetLogger("front.door");
    ASSERT_EQ(logger_.Status().Code(), ZYR_OK);
  }
  void TearDown() override {
    log_.Close();
    zyrtest::RemoveTree(dir_);
  }

  // Every message of INFO and above into `file`, the message alone on a line.
  static std::string Config(const std::string& file) {
    return "[root]\nSeverity = INFO\nAddAppenders = out\n"
           "[out]\nType = Appender\nAppenderType = File\nLayout = msg\nFileName = " + file + "\n"
           "[msg]\nType = Layout\nLayoutType = Custom\nFormat = %msg\n";
  }

  // The lines of the file, without the mark and the CR LF ends.
  std::vector<std::string> Lines(const std::string& name = "front.log") {
    EXPECT_EQ(log_.Flush().Code(), ZYR_OK);
    std::string text = zyrtest::ReadFile(dir_ + "/" + name);
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.erase(0, 3);
    std::vector<std::string> lines;
    for (std::size_t at = 0, end; (end = text.find("\r\n", at)) != std::string::npos; at = end + 2)
      lines.push_back(text.substr(at, end - at));
    return lines;
  }

  std::string dir_;
  zyrlog::Log log_;
  zyrlog::Logger logger_;
};

TEST_F(FrontDoorTest, EveryArgumentTypeIsWrittenAsItsValue) {
  std::vector<std::string> want;
  auto expect = [&](const char* line) { want.push_back(line); };
  const auto& l = logger_;

  // Integers at their extremes, by their real width.
  ZYRLOG_INFO(l, "{} {} {} {} {} {}", std::int8_t{INT8_MIN}, std::int8_t{INT8_MAX}, std::uint8_t{UINT8_MAX},
              std::int16_t{INT16_MIN}, std::uint16_t{UINT16_MAX}, INT32_MIN);
  expect("-128 127 255 -32768 65535 -2147483648");
  ZYRLOG_INFO(l, "{} {} {} {}", UINT32_MAX, INT64_MIN, INT64_MAX, UINT64_MAX);
  expect("4294967295 -9223372036854775808 9223372036854775807 18446744073709551615");
  ZYRLOG_INFO(l, "{:x} {:x} {:x} {:X} {:#x} {:o} {:08x} {:+d} {:<4}|", std::int8_t{-1}, std::int16_t{-1},
              -1, INT64_MIN, 255, 8, 0xbeef, 7, 3);
  expect("ff ffff ffffffff 8000000000000000 0xff 10 0000beef +7 3   |");
  ZYRLOG_INFO(l, "{} {} {:x}", Wide::kLowest, kSmall, kSmall);
  expect("-9223372036854775808 200 c8");
  // Floating point.
  ZYRLOG_INFO(l, "{} {} {} {} {} {}", 0.1, -2.5, 1.0 / 3, 1e300, 123456789.0, 0.1f);
  expect("0.1 -2.5 0.333333333333333 1e+300 123456789 0.1");
  ZYRLOG_INFO(l, "{:.3f} {:08.3f} {:e} {:.3} {} {} {}", 2.0 / 3, -3.14159, 12345.678, 3.14159,
              std::numeric_limits<double>::quiet_NaN(), HUGE_VAL, -HUGE_VAL);
  expect("0.667 -003.142 1.234568e+04 3.14 nan inf -inf");
  // bool, characters.
  ZYRLOG_INFO(l, "{} {} {:d} [{:>6}] {} {} {} {:x}", true, false, true, false, 'A', u8'z', u'\u00e9', 'A');
  expect("true false 1 [ false] A z \xc3\xa9 41");
  // Text: UTF-8 and UTF-16, terminated and counted, widths and precision.
  std::string owned = "Z\xc3\xbcrich \xe6\x97\xa5\xe6\x9c\xac \xf0\x9f\x98\x80";
  std::string_view cut = std::string_view("counted-not-terminated").substr(0, 7);
  const char* none = nullptr;
  ZYRLOG_INFO(l, "{} {} {} {} {}", owned, cut, std::string_view(), "lit\xc3\xa9ral", none);
  expect("Z\xc3\xbcrich \xe6\x97\xa5\xe6\x9c\xac \xf0\x9f\x98\x80 counted  lit\xc3\xa9ral (null)");
  ZYRLOG_INFO(l, "{} {} {} {}", u8"\u00fc8", std::u8string(u8"s\u00fc"), u"w\u00fc", std::u16string(u"\U0001F600"));
  expect("\xc3\xbc" "8 s\xc3\xbc w\xc3\xbc \xf0\x9f\x98\x80");
  ZYRLOG_INFO(l, "[{:>5}] [{:5}] [{:.3}] [{:<4}]", "ab", std::string("cd"), "abcdef", u"\u00fc");
  expect("[   ab] [cd   ] [abc] [\xc3\xbc   ]");
  // Pointers.
  ZYRLOG_INFO(l, "{} {} {}", reinterpret_cast<void*>(0x1234), nullptr, static_cast<const int*>(nullptr));
  expect("0x1234 0 0");
  // User types, as a number, as text on the stack, as a member.
  ZYRLOG_INFO(l, "{} {} {:>10}", Money{-250}, Point{3, -4}, Host{"db-1"});
  expect("-250 (3, -4)       db-1");
  // Numbered placeholders, braces, percent signs, the severity type.
  ZYRLOG_LOG(l, zyrlog::Severity::kWarn, "{1}{0}{1} {{}} 100% {0}", 'a', 'b');
  expect("bab {} 100% a");
  ZYRLOG_ERROR(l, "100% {{done}}");
  expect("100% {done}");

  EXPECT_EQ(Lines(), want);
  EXPECT_EQ(log_.FailedCalls(), 0u);
}

TEST(FrontDoorFixedText, CutsAtACharacterAndShowsTheCut) {
  const char* u = "\xc3\xbc";  // "ü", two bytes
  zyrlog::FixedText<8> split;
  split.Append("ab").Append(std::string(u) + u + u + u);  // 10 bytes for 8
  EXPECT_EQ(split.View(), std::string("ab") + u + "...");
  zyrlog::FixedText<8> full;
  full.Append(std::string("ab") + u + u + u);  // exactly 8
  EXPECT_EQ(full.View(), std::string("ab") + u + u + u);
  full.Append('x').Append("more");
  EXPECT_EQ(full.View(), std::string("ab") + u + "...");
}

TEST_F(FrontDoorTest, BelowTheThresholdNothingIsEvaluated) {
  int evaluated = 0;
  auto touch = [&] { return ++evaluated; };
  ZYRLOG_DEBUG(logger_, "{}", touch());
  EXPECT_EQ(evaluated, 0);
  EXPECT_FALSE(logger_.Enabled(zyrlog::Severity::kDebug));
  ZYRLOG_INFO(logger_, "{}", touch());
  EXPECT_EQ(evaluated, 1);
}

// Paths, names and configuration are UTF-8; what the contract could not
// take is refused with a code that says why.
TEST_F(FrontDoorTest, TextThatCannotBeTakenIsRefusedWithItsReason) {
  std::string folder = dir_ + "/\xd0\xb6\xd1\x83\xd1\x80\xd0\xbd\xd0\xb0\xd0\xbb";  // "журнал"
  ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
  zyrtest::WriteFile(folder + "/app.cfg", Config(folder + "/\xc3\xbc.log"));
  EXPECT_EQ(log_.LoadConfigFile(folder + "/app.cfg").Code(), ZYR_OK);
  ZYRLOG_INFO(logger_, "into a file of a non-ASCII name");
  EXPECT_EQ(zyrtest::ReadFile(folder + "/\xc3\xbc.log").find("non-ASCII name") != std::string::npos, true);
  std::string text;
  ASSERT_EQ(log_.GetConfigText(text).Code(), ZYR_OK);
  EXPECT_NE(text.find("\xc3\xbc.log"), std::string::npos) << text;

  struct Case {
    zyrlog::Result got;
    ZyrResult want;
  } cases[] = {
      {log_.GetLogger("two words").Status(), ZYR_E_BAD_LOGGER_NAME},
      {log_.GetLogger("bad\xff").Status(), ZYR_E_INVALID_DATA},
      {log_.LoadConfigText(std::string("[root]\0Severity = DEBUG", 24)), ZYR_E_INVALID_ARGUMENT},
      {log_.LoadConfigFile("\xc0\xae.cfg"), ZYR_E_INVALID_DATA},  // an overlong "."
      {log_.LoadConfigText(std::string(1000, 'x') + "\xe2\x82"), ZYR_E_INVALID_DATA},
      {log_.LoadConfigText("; " + std::string(1000, '-') + "\n[root]\nAddAppenders = out\n"), ZYR_OK},
  };
  for (const Case& c : cases) EXPECT_EQ(c.got.Code(), c.want) << c.got.Describe().c_str();

  // A refused logger writes nothing, and its calls count as failed.
  zyrlog::Logger refused = log_.GetLogger("two words");
  ZYRLOG_FATAL(refused, "lost {}", 1);
  EXPECT_EQ(log_.FailedCalls(), 1u);
  EXPECT_EQ(log_.LastFailure().Code(), ZYR_E_NOT_INITIALIZED);
}

// The handle owns the log object; its loggers share it, so a logger never
// outlives the object, and a handle that gave it up says so.
TEST_F(FrontDoorTest, TheHandleReleasesOnceAndLoggersKeepTheObject) {
  zyrlog::Log moved = std::move(log_);
  EXPECT_EQ(log_.Status().Code(), ZYR_E_NOT_INITIALIZED);
  EXPECT_EQ(log_.LoadConfigText("[root]\n").Code(), ZYR_E_NOT_INITIALIZED);
  EXPECT_EQ(log_.GetLogger("x").Status().Code(), ZYR_E_NOT_INITIALIZED);
  EXPECT_EQ(log_.Raw(), nullptr);
  moved.Close();
  moved.Close();
  EXPECT_EQ(moved.Status().Code(), ZYR_E_NOT_INITIALIZED);
  // The logger still holds the object and its configuration.
  ZYRLOG_INFO(logger_, "after the handle closed");
  EXPECT_NE(zyrtest::ReadFile(dir_ + "/front.log").find("after the handle closed"), std::string::npos);
  zyrlog::Logger copy = logger_;
  logger_ = zyrlog::Logger();
  ZYRLOG_INFO(copy, "through a copy");
  EXPECT_NE(zyrtest::ReadFile(dir_ + "/front.log").find("through a copy"), std::string::npos);
}

// A failing appender: on the direct road every call answers its error as a
// warning; on the worker's road the next call that queues gets the failure
// the worker met. The handle counts both.
TEST_F(FrontDoorTest, FailedCallsAreCountedWithTheirResult) {
  zyrtest::WriteFile(dir_ + "/plain", "a file, not a folder");
  ASSERT_EQ(log_.LoadConfigText(Config(dir_ + "/plain/x.log")).Code(), ZYR_OK);
  zyrlog::Log other;
  for (int i = 0; i < 3; ++i) ZYRLOG_INFO(logger_, "line {}", i);
  EXPECT_EQ(log_.FailedCalls(), 3u);
  zyrlog::Result last = log_.LastFailure();
  EXPECT_TRUE(last.IsWarningForm()) << last.Describe().c_str();
  EXPECT_EQ(std::string(last.Name()), "ZYR_E_PATH_NOT_FOUND");
  EXPECT_EQ(other.FailedCalls(), 0u);

  ASSERT_EQ(log_.StartWorker().Code(), ZYR_OK);
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (log_.FailedCalls() == 3 && std::chrono::steady_clock::now() < deadline) {
    ZYRLOG_INFO(logger_, "queued");
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  log_.StopWorker();
  EXPECT_GT(log_.FailedCalls(), 3u);
  EXPECT_TRUE(log_.LastFailure().IsWarningForm()) << log_.LastFailure().Describe().c_str();
}

TEST(FrontDoorResult, CodesAreNamedAndExplained) {
  struct Case {
    ZyrResult code;
    bool ok, warningForm;
    const char* name;
    const char* describe;  // the start of Describe
  } cases[] = {
      {ZYR_OK, true, false, "ZYR_OK", "ZYR_OK (0x00000000): success"},
      {ZYR_I_NOT_FOUND, true, false, "ZYR_I_NOT_FOUND", "ZYR_I_NOT_FOUND (0x6001004c): what was"},
      {ZYR_E_ACCESS_DENIED, false, false, "ZYR_E_ACCESS_DENIED", "ZYR_E_ACCESS_DENIED (0xe0010058): permission"},
      {ZYR_W_TIMEOUT, false, false, "ZYR_W_TIMEOUT", "ZYR_W_TIMEOUT (0xa0010004): a wait"},
      {ZYR_RESULT(0xa0010058), false, true, "ZYR_E_ACCESS_DENIED",
       "warning form of ZYR_E_ACCESS_DENIED (0xa0010058): an appender failed: permission"},
      {ZYR_RESULT(0xe0072005), false, false, "", "0xe0072005: a system error"},
      {ZYR_RESULT(0xa0072005), false, true, "", "warning form of 0xe0072005 (0xa0072005): an appender"},
      {ZYR_RESULT(0xe00100ff), false, false, "", "0xe00100ff: not a code of this library"},
  };
  for (const Case& c : cases) {
    zyrlog::Result r(c.code);
    SCOPED_TRACE(r.Describe().c_str());
    EXPECT_EQ(r.Ok(), c.ok);
    EXPECT_EQ(r.Failed(), !c.ok);
    EXPECT_EQ(r.IsWarningForm(), c.warningForm);
    EXPECT_STREQ(r.Name(), c.name);
    EXPECT_EQ(std::string(r.Describe().c_str()).rfind(c.describe, 0), 0u);
  }
}

}  // namespace
