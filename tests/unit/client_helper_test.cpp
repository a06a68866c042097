#include <gtest/gtest.h>

#include <bit>
#include <string>
#include <vector>

#include "base/format.h"
#include "zyrlog/log.h"

namespace {

using Slots = std::vector<std::uint64_t>;
std::uint64_t P(const void* p) { return reinterpret_cast<std::uintptr_t>(p); }
std::uint64_t D(double d) { return std::bit_cast<std::uint64_t>(d); }

enum class Op { None, Log, LogRevision, Other };

// Records every call. Format messages are rendered by the library's own
// engine, so a slot packed wrongly shows in the text; `formatSlots` raw
// slots are copied too. A list without format is walked as a typed list.
class FakeLogger final : public ZyrLogger {
 public:
  explicit FakeLogger(ZyrLogSeverity t) { threshold.store(t); }
  int calls = 0;
  Op op = Op::None;
  ZyrLogSeverity severity = 0;
  const char16_t *format = nullptr, *fileName = nullptr, *revisionText = nullptr;
  std::uint32_t line = 0, buildNr = 0, svnRev = 0, product = 0, scrambleMode = 9;
  const std::uint64_t* arguments = nullptr;
  std::size_t formatSlots = 0;
  Slots slots;
  std::u16string text;
  ZyrResult answer = ZYR_OK;

  const char16_t* GetName() override { return Other(), u"fake"; }
  ZyrResult Log(ZyrLogSeverity s, const char16_t* f, const char16_t* fn, std::uint32_t l,
                std::uint32_t b, std::uint32_t r, std::uint32_t p, std::uint32_t m,
                const std::uint64_t* a) override {
    return Record(Op::Log, s, f, fn, l, b, r, nullptr, p, m, a);
  }
  // The helper calls only Log and LogRevision: the others count as "other".
  using U = std::uint32_t;
  using C = const char16_t*;
  ZyrResult LogShort(ZyrLogSeverity, C, C, U, U, U, U, const std::uint64_t*) override { return Other(); }
  ZyrResult LogNumber(ZyrLogSeverity, C, C, U, U, U, U, U, const std::uint64_t*) override { return Other(); }
  ZyrResult Configure(ZyrCfgSection&) override { return Other(); }
  ZyrResult Save(ZyrCfgSection&) override { return Other(); }
  ZyrResult LogRevision(ZyrLogSeverity s, const char16_t* f, const char16_t* fn, std::uint32_t l,
                        std::uint32_t b, const char16_t* rt, std::uint32_t p, std::uint32_t m,
                        const std::uint64_t* a) override {
    return Record(Op::LogRevision, s, f, fn, l, b, 0, rt, p, m, a);
  }
  ZyrResult LogText(ZyrLogSeverity, C, C, U, U, C, U, U, const std::uint64_t*) override { return Other(); }
  void Destroy(std::uint32_t) override { Other(); }

 private:
  ZyrResult Other() { return ++calls, op = Op::Other, ZYR_OK; }
  ZyrResult Record(Op o, ZyrLogSeverity s, const char16_t* f, const char16_t* fn, std::uint32_t l,
                   std::uint32_t b, std::uint32_t r, const char16_t* rt, std::uint32_t p,
                   std::uint32_t m, const std::uint64_t* a) {
    ++calls, op = o, severity = s, format = f, fileName = fn, line = l, buildNr = b, svnRev = r;
    revisionText = rt, product = p, scrambleMode = m, arguments = a;
    slots.clear();
    if (f && a) {
      slots.assign(a, a + formatSlots);
      char16_t buffer[512];
      std::size_t length = 0;
      EXPECT_EQ(ZyrBasFormatFixed(ZYR_CP_UTF8, buffer, 512, f, &length, a), ZYR_OK);
      text.assign(buffer, length);
    } else if (f) {
      text = f;
    } else if (a) {
      for (std::size_t i = 0; slots.size() < 64; ++i) {  // bounded: a missing end tag fails
        slots.push_back(a[i]);
        if (static_cast<std::uint32_t>(a[i]) == ZYR_TAG_END) break;
        slots.push_back(a[++i]);
        if (static_cast<std::uint32_t>(a[i - 1]) == ZYR_TAG_COUNTED_STR) slots.push_back(a[++i]);
      }
    }
    return answer;
  }
};

}  // namespace

TEST(ClientHelper, ThresholdComparesSigned) {
  struct Case { ZyrLogSeverity threshold, severity; bool passes; };
  const Case cases[] = {
      {ZYR_SEVERITY_ALL, -1, true},                {ZYR_SEVERITY_ALL, ZYR_SEVERITY_OFF, true},
      {ZYR_SEVERITY_OFF, ZYR_SEVERITY_ALL, false}, {ZYR_SEVERITY_OFF, ZYR_SEVERITY_OFF, true},
      {ZYR_SEVERITY_INFO, ZYR_SEVERITY_INFO, true}, {ZYR_SEVERITY_WARN, 299999, false},
      {-10, -5, true},                             {-10, -11, false},
  };
  for (const Case& c : cases) {
    FakeLogger logger(c.threshold);
    EXPECT_EQ(zyrlog::Enabled(&logger, c.severity), c.passes) << c.threshold << " " << c.severity;
    ZYR_LOG(&logger, c.severity, u"x");
    EXPECT_EQ(logger.calls, c.passes ? 1 : 0) << c.threshold << " " << c.severity;
  }
}

TEST(ClientHelper, BelowThresholdEvaluatesNothingAndCallsNothing) {
  FakeLogger logger(ZYR_SEVERITY_WARN);
  int evaluated = 0, fetched = 0;
  auto bump = [&] { return ++evaluated; };
  auto text = [&] { return ++evaluated, u"t"; };
  auto fetch = [&]() -> ZyrLogger* { return ++fetched, &logger; };
  ZYR_INFO(fetch(), u"%d", bump());
  ZYR_LOG(fetch(), ZYR_SEVERITY_WARN - 1, text(), bump(), bump());
  ZYR_LOG_TYPED(fetch(), ZYR_SEVERITY_DEBUG, text(), bump(), bump(), bump(), bump(),
                zyrlog::Int32(bump()), zyrlog::Str(text()));
  ZYR_LOG_TYPED_REV(fetch(), ZYR_SEVERITY_DEBUG, text(), bump(), bump(), text(), bump());
  EXPECT_EQ(evaluated, 0);
  EXPECT_EQ(logger.calls, 0);
  EXPECT_EQ(fetched, 4);  // the logger expression runs once per statement

  if (evaluated == 0) ZYR_WARN(fetch(), u"%d", bump()); else ADD_FAILURE();
  const std::uint32_t warnLine = __LINE__ - 1;
  EXPECT_EQ(fetched, 5);
  EXPECT_EQ(evaluated, 1);
  EXPECT_EQ(logger.calls, 1);
  EXPECT_EQ(logger.op, Op::Log);
  EXPECT_EQ(logger.severity, ZYR_SEVERITY_WARN);
  EXPECT_EQ(std::u16string(logger.fileName), std::u16string(u"" __FILE__));
  EXPECT_EQ(logger.line, warnLine);
  EXPECT_EQ(logger.buildNr + logger.svnRev + logger.product + logger.scrambleMode, 0u);
  EXPECT_EQ(logger.text, u"1");
}

// Integers extend as their type; a float widens; counted text takes two slots.
TEST(ClientHelper, FormatArgumentsPackAsTheirType) {
  FakeLogger logger(ZYR_SEVERITY_ALL);
  enum Small : std::int8_t { kMinus = -3 };
  logger.formatSlots = 11;
  ZYR_DEBUG(&logger, u"%I64d %I64d %I64d %I64d %d %u %I64d %I64u %c %d %I64d",
            std::int8_t{-1}, std::uint8_t{0xff}, std::int16_t{-2}, std::uint16_t{0xfffe},
            INT32_MIN, 0xffffffffu, std::int64_t{-4}, UINT64_MAX, u'\xe9', true, kMinus);
  EXPECT_EQ(logger.slots, (Slots{~0ull, 0xff, ~1ull, 0xfffe, 0xffffffff80000000ull,
                                 0xffffffffull, ~3ull, ~0ull, 0xe9, 1, ~2ull}));
  EXPECT_EQ(logger.text, u"-1 255 -2 65534 -2147483648 4294967295 -4 18446744073709551615 \xe9 1 -3");

  const char16_t* path = u"c:\\data";
  const char16_t* wide = u"abcdef";
  const char* narrow = "xyz";
  logger.formatSlots = 10;
  ZYR_ERROR(&logger, u"%s|%s|%e|%f|%f|%wZ|%Z|%s", path, u"lit", 1234.5, 0.5f, 0.1f,
            zyrlog::CountedText(wide, 3), zyrlog::CountedText(narrow, 2), nullptr);
  EXPECT_EQ(logger.text, u"c:\\data|lit|1.234500e+03|0.500000|0.100000|abc|xy|(null)");
  ASSERT_EQ(logger.slots.size(), 10u);
  EXPECT_EQ(logger.slots[4], D(static_cast<double>(0.1f)));  // a float widens, not reparsed
  EXPECT_EQ((Slots{logger.slots[5], logger.slots[6], logger.slots[7], logger.slots[8]}),
            (Slots{6, P(wide), 2, P(narrow)}));

  // Without arguments the text is not a format: no list, "%%" stays.
  ZYR_FATAL(&logger, u"100%% sure");
  EXPECT_EQ(logger.arguments, nullptr);
  EXPECT_EQ(logger.text, u"100%% sure");

  logger.answer = ZYR_E_INVALID_ARGUMENT;
  logger.formatSlots = 1;
  EXPECT_EQ(zyrlog::LogFormat(&logger, ZYR_SEVERITY_INFO, u"%d", u"f", 1, 2), ZYR_E_INVALID_ARGUMENT);
}

TEST(ClientHelper, TypedListCarriesTagsValuesAndEndTag) {
  FakeLogger logger(ZYR_SEVERITY_ERROR);
  const char16_t* path = u"c:\\data";
  const char16_t* counted = u"a\0b";
  const char16_t* when = u"2014-11-03";
  ZYR_LOG_TYPED(&logger, ZYR_SEVERITY_ERROR, u"{id}", 120, 7, 4711, 3,
                zyrlog::ErrorCode(ZYR_E_INVALID_ARGUMENT), zyrlog::Str(path), zyrlog::Bool(false),
                zyrlog::Int8(-1), zyrlog::Byte(0xfe), zyrlog::Int16(-2), zyrlog::Word(0xfffd),
                zyrlog::Int32(-3), zyrlog::Dword(0xffffffff), zyrlog::Int64(-4),
                zyrlog::Qword(5), zyrlog::Double(-0.25), zyrlog::Counted(counted, 3),
                zyrlog::Char(u'x'), zyrlog::Time(when), zyrlog::FileSize(1ull << 40),
                zyrlog::Size(6));
  EXPECT_EQ(logger.op, Op::Log);
  EXPECT_EQ(logger.format, nullptr);
  EXPECT_EQ(std::u16string(logger.fileName), u"{id}");
  EXPECT_EQ((Slots{logger.line, logger.buildNr, logger.svnRev, logger.product, logger.scrambleMode}),
            (Slots{120, 7, 4711, 3, 0}));
  EXPECT_EQ(logger.slots,
            (Slots{0, 0xe0010002, 14, P(path), 11, 0, 3, ~0ull, 4, 0xfe, 5, ~1ull, 6, 0xfffd,
                   7, ~2ull, 8, 0xffffffff, 9, ~3ull, 10, 5, 12, D(-0.25), 16, P(counted), 3,
                   13, u'x', 15, P(when), 18, 1ull << 40, 1, 6, 17}));

  ZYR_LOG_TYPED_REV(&logger, ZYR_SEVERITY_FATAL, u"{id}", 9, 1, u"9f3c", 2);
  EXPECT_EQ(logger.op, Op::LogRevision);
  EXPECT_EQ(logger.format, nullptr);
  EXPECT_EQ(std::u16string(logger.revisionText), u"9f3c");
  EXPECT_EQ((Slots{logger.line, logger.buildNr, logger.product, logger.scrambleMode}),
            (Slots{9, 1, 2, 0}));
  EXPECT_EQ(logger.slots, (Slots{17}));
  EXPECT_EQ(logger.calls, 2);
}
