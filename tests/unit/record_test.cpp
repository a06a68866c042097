// Events, the typed argument list and the Standard line.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "base/format.h"
#include "records/event.h"
#include "records/standard_line.h"
#include "test_support.h"

namespace {

std::uint64_t P(const void* p) { return ZyrBasSlotFromPointer(p); }

ZyrLogEventSource Source(const char16_t* format, const std::uint64_t* args, std::uint32_t flags) {
  return ZyrLogEventSource{u"test", ZYR_SEVERITY_INFO, format, u"f.cpp", 1, 2, 3, nullptr, 4,
                           flags, 0, args, nullptr};
}

std::u16string Line(const ZyrLogEvent& e) {
  ZyrBasString line;
  EXPECT_EQ(ZyrLogComposeStandardLine(e, line), ZYR_OK);
  return std::u16string(line.Text(), line.Length());
}

constexpr std::uint64_t kExampleTime = 130594812675120000ull;  // 2014-11-03 09:41:07,512 UTC

}  // namespace

TEST(TypedList, ItemsPrefixesSeparatorsAndEscapes) {
  const char16_t withNul[] = {u'a', 0, u'b'};
  const std::uint64_t minus = static_cast<std::uint64_t>(-1);
  const std::pair<std::vector<std::uint64_t>, const char16_t*> cases[] = {
      {{ZYR_TAG_END}, u""},
      {{ZYR_TAG_ERRORCODE, 5, ZYR_TAG_STR, P(u"c:\\data"), ZYR_TAG_BOOL, 0, ZYR_TAG_END},
       u"'ERRORCODE:0x00000005', 'STR:c:\\data', 'BOOL:FALSE'"},
      {{ZYR_TAG_STR, 0, ZYR_TAG_END}, u"'STR:'"},
      {{ZYR_TAG_BOOL, 0x100, ZYR_TAG_END}, u"'BOOL:FALSE'"},
      {{ZYR_TAG_INT8, minus, ZYR_TAG_INT16, minus, ZYR_TAG_END}, u"'INT8:0xff', 'INT16:0xffff'"},
      {{ZYR_TAG_QWORD, 0x0123456789abcdefull, ZYR_TAG_FILESIZE, 10, ZYR_TAG_CHAR, 0x41, ZYR_TAG_END},
       u"'QWORD:0x0123456789abcdef', 'FILESIZE:0x000000000000000a', 'CHAR:0x0041'"},
      {{ZYR_TAG_DOUBLE, ZyrBasSlotFromDouble(1.5), ZYR_TAG_END}, u"'DOUBLE:1.50000000000000000000e+00'"},
      {{ZYR_TAG_COUNTED_STR, P(withNul), 3, ZYR_TAG_END}, u"'STR:a\\0b'"},
      {{ZYR_TAG_STR, P(u"it's"), ZYR_TAG_END}, u"'STR:it''s'"},
      {{ZYR_TAG_TIME, P(u"one\r\ntwo"), ZYR_TAG_END}, u"'TIME:one\x0b\x0btwo'"},
  };
  for (const auto& [slots, expected] : cases) {
    SCOPED_TRACE(zyrtest::Narrow(expected));
    ZyrBasString text;
    ASSERT_EQ(ZyrLogWalkTypedList(text, slots.data()), ZYR_OK);
    EXPECT_EQ(std::u16string(text.Text(), text.Length()), expected);
  }
}

TEST(Compose, MessageFromFormatTypedListOrText) {
  ZyrLogEvent e;
  std::uint64_t typed[] = {ZYR_TAG_DWORD, 7, ZYR_TAG_END};
  ASSERT_EQ(ZyrLogComposeEvent(e, Source(nullptr, typed, ZYR_LOGGER_PUBLIC)), ZYR_OK);
  EXPECT_EQ(std::u16string(e.Message.Text()), u"'DWORD:0x00000007'");

  std::uint64_t args[] = {42, P(u"a long value\r\nover lines\n")};
  ASSERT_EQ(ZyrLogComposeEvent(e, Source(u"%d %s\n", args, ZYR_LOGGER_PUBLIC)), ZYR_OK);
  // public: line breaks go, in the arguments and in the format
  EXPECT_EQ(std::u16string(e.Message.Text()), u"42 a long value\x0b\x0bover lines\x0b\x0b");
  ASSERT_EQ(ZyrLogComposeEvent(e, Source(u"%d %s\n", args, ZYR_LOGGER_PRIVATE)), ZYR_OK);
  EXPECT_EQ(std::u16string(e.Message.Text()), u"42 a long value\r\nover lines\n\n");  // private: they stay

  ASSERT_EQ(ZyrLogComposeEvent(e, Source(u"100% sure\r", nullptr, ZYR_LOGGER_PUBLIC)), ZYR_OK);
  EXPECT_EQ(std::u16string(e.Message.Text()), u"100% sure\x0b");
  ASSERT_EQ(ZyrLogComposeEvent(e, Source(nullptr, nullptr, ZYR_LOGGER_PUBLIC)), ZYR_OK);
  EXPECT_TRUE(e.Message.Empty());
  EXPECT_EQ(std::u16string(e.LoggerName.Text()), u"test");
  EXPECT_EQ(e.Line, 1u);
  EXPECT_EQ(e.SvnRev, 3u);
  EXPECT_NE(e.ThreadId, 0u);
  EXPECT_NE(e.Timestamp, 0u);

  // A revision text marks the number.
  ZyrLogEventSource s = Source(u"m", nullptr, ZYR_LOGGER_PUBLIC);
  s.revisionText = u"54e9bc545d3f933969433d17a90f5186c51a9e73";
  ASSERT_EQ(ZyrLogComposeEvent(e, s), ZYR_OK);
  EXPECT_EQ(e.SvnRev, 0xffffffffu);
  EXPECT_EQ(e.RevisionText.Length(), 40u);
}

// Long messages come out whole, around the inline buffer's end, and an
// event moves without copying its strings.
TEST(Compose, LongMessagesComeOutWholeAndMoveWithoutCopy) {
  for (std::size_t n : {300u, 511u, 512u, 5000u}) {
    std::u16string big(n, u'x');
    std::uint64_t args[] = {P(big.c_str())};
    ZyrLogEvent e;
    ASSERT_EQ(ZyrLogComposeEvent(e, Source(u"%s", args, ZYR_LOGGER_PRIVATE)), ZYR_OK);
    EXPECT_EQ(e.Message.Length(), n);
    const char16_t* storage = e.Message.Text();
    ZyrLogEvent moved(static_cast<ZyrLogEvent&&>(e));
    EXPECT_EQ(moved.Message.Text(), storage);
    EXPECT_TRUE(e.Message.Empty());
  }
}

TEST(StandardLine, TheExampleByteForByte) {
  ZyrLogEvent e;
  ASSERT_EQ(e.LoggerName.Assign(u"root"), ZYR_OK);
  e.Severity = ZYR_SEVERITY_WARN;
  e.Timestamp = kExampleTime;
  ASSERT_EQ(e.FileName.Assign(u"{610B64A8-D676-4CD6-866D-5BE2C66FE3D2}"), ZYR_OK);
  e.Line = 223;
  e.BuildNr = 185;
  e.SvnRev = 8038423;
  e.Product = 7;
  e.ProcessId = 1204;
  e.ThreadId = 3388;
  const ZyrBasString& host = ZyrLogCachedHostName();
  std::u16string expected = u"[root] WARN 2014-11-03 09:41:07,512 " +
                            std::u16string(host.Text(), host.Length()) +
                            u" PID:1204 THID:3388 ID:{610B64A8-D676-4CD6-866D-5BE2C66FE3D2}:223.185.8038423.7 MSG:*";
  EXPECT_EQ(Line(e), expected);
}

TEST(StandardLine, FieldsAndForms) {
  ZyrLogEvent e;
  e.Timestamp = kExampleTime - 9 * 36000000000ull - 505 * 10000ull;  // 00:41:07,007
  e.Severity = 150000;
  ASSERT_EQ(e.Message.Assign(u" "), ZYR_OK);
  std::u16string line = Line(e);
  EXPECT_EQ(line.substr(0, 9), u"[] DETAIL");
  EXPECT_NE(line.find(u" 2014-11-03 00:41:07,007 "), std::u16string::npos);
  EXPECT_NE(line.find(u"ID:MISSINGFILEID:0.0.0.0 MSG: "), std::u16string::npos);
  EXPECT_EQ(line.back(), u' ');
  // The text of a second is kept between lines: the milliseconds change
  // within it, the next second replaces it.
  e.Timestamp += 992 * 10000ull;
  EXPECT_NE(Line(e).find(u" 2014-11-03 00:41:07,999 "), std::u16string::npos);
  e.Timestamp += 10000ull;
  EXPECT_NE(Line(e).find(u" 2014-11-03 00:41:08,000 "), std::u16string::npos);

  e.Severity = 123;
  e.SvnRev = 0xffffffffu;
  e.Message.Clear();
  line = Line(e);
  EXPECT_NE(line.find(u"] INFO "), std::u16string::npos);
  EXPECT_NE(line.find(u":0.0.-1.0 MSG:*"), std::u16string::npos);

  ASSERT_EQ(e.RevisionText.Assign(u"abc123"), ZYR_OK);
  e.Line = 5;
  e.BuildNr = 6;
  e.Product = 8;
  line = Line(e);
  EXPECT_NE(line.find(u":5.6.abc123.8 MSG:*"), std::u16string::npos);

  // A time outside the range gives no line.
  ZyrBasString none;
  e.Timestamp = 0x19db1ded53e8000ull - 1;  // just before 1970
  EXPECT_EQ(ZyrLogComposeStandardLine(e, none), ZYR_E_TIME_OUT_OF_RANGE);
  e.Timestamp = ~0ull;
  EXPECT_EQ(ZyrLogComposeStandardLine(e, none), ZYR_E_TIME_OUT_OF_RANGE);
}
