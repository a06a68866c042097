#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/memory.h"
#include "base/textconv.h"

namespace {

// Runs one table function into a roomy buffer; `out` gets what was produced.
ZyrResult Table(ZyrBasTextForm from, ZyrBasTextForm to, const std::string& source,
              std::string* out, std::size_t capacity = 256) {
  std::string buffer(capacity, '\xee');
  std::size_t produced = 12345;
  ZyrResult r = ZyrBasTranscode(from, to, source.data(), source.size(), buffer.data(), capacity,
                                &produced);
  *out = buffer.substr(0, produced);
  return r;
}

std::string Bytes(const std::u16string& s) {
  return std::string(reinterpret_cast<const char*>(s.data()), s.size() * 2);
}
std::u16string Units(const std::string& s) {
  std::u16string u(s.size() / 2, u'\0');
  if (!u.empty()) std::memcpy(u.data(), s.data(), u.size() * 2);
  return u;
}

std::u16string Decode(const std::string& text, ZyrBasCodePage selector, ZyrResult* r) {
  char16_t buffer[256];
  std::size_t n = 0;
  *r = ZyrBasToWide(buffer, 256, text.data(), selector, &n, text.size());
  return ZyrSucceeded(*r) ? std::u16string(buffer, n) : std::u16string();
}

std::string Encode(const std::u16string& text, ZyrBasCodePage selector, ZyrResult* r) {
  char buffer[512];
  std::size_t n = 0;
  *r = ZyrBasToNarrow(buffer, sizeof buffer, text.data(), selector, &n, text.size());
  return ZyrSucceeded(*r) ? std::string(buffer, n) : std::string();
}

const std::u16string kSamples[] = {
    u"", u"plain", u"h\u00e9llo \u20ac", u"pair \U0001F600 end", u"a+b!c~", u"\u00ff\u0100",
    u"\U00010000\U0010FFFF", u"tab\tline\r\n",
};

}  // namespace

TEST(TextConvUtf8, DecodingRules) {
  ZyrResult r;
  // Overlong forms in two, three and four bytes; cut, broken and impossible
  // sequences.
  for (const char* bad : {"\xc0\x80", "\xe0\x80\xaf", "\xf0\x8f\xbf\xbf", "a\xc3", "\xe2\x82", "\xc3\x41",
                          "\xf8\x80\x80\x80\x80", "\xff"}) {
    Decode(bad, ZYR_CP_UTF8, &r);
    EXPECT_EQ(r, ZYR_E_INVALID_DATA) << bad;
  }
  auto ok = [&](const char* in) {
    std::u16string out = Decode(in, ZYR_CP_UTF8, &r);
    EXPECT_EQ(r, ZYR_OK) << in;
    return out;
  };
  EXPECT_EQ(ok("\xed\xa0\x80"), std::u16string(1, char16_t(0xd800)));
  EXPECT_EQ(ok("a\x80z"), u"az");
  EXPECT_EQ(ok("\xf4\x90\x80\x80"), u"\U00010000");  // past 0x10ffff the pair keeps only its low bits
  std::string out;
  EXPECT_EQ(Table(ZYR_FORM_UTF8, ZYR_FORM_LATIN1, "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80", &out), ZYR_OK);
  EXPECT_EQ(out, "\xe9??");
}

TEST(TextConvUtf16, DecodingRules) {
  std::string out;
  for (ZyrBasTextForm to : {ZYR_FORM_LATIN1, ZYR_FORM_UTF7, ZYR_FORM_UTF8, ZYR_FORM_UTF16})
    EXPECT_EQ(Table(ZYR_FORM_UTF16, to, Bytes(u"ab") + "x", &out), ZYR_E_INVALID_DATA) << to;
  // Lone low, high at the end, high before a non-low; "a" comes before the fault.
  for (char16_t tail : {char16_t(0xdc00), char16_t(0xd800)}) {
    EXPECT_EQ(Table(ZYR_FORM_UTF16, ZYR_FORM_UTF8, Bytes(std::u16string(u"a") + tail), &out), ZYR_E_INVALID_DATA);
    EXPECT_EQ(out, "a");
  }
  EXPECT_EQ(Table(ZYR_FORM_UTF16, ZYR_FORM_UTF7, Bytes(std::u16string(1, char16_t(0xd800)) + u"b"), &out),
            ZYR_E_INVALID_DATA);
  EXPECT_EQ(Table(ZYR_FORM_UTF16, ZYR_FORM_LATIN1, Bytes(u"\U0001F600\u00e9\u0100"), &out), ZYR_OK);
  EXPECT_EQ(out, "?\xe9?");  // a pair is one "?"
}

TEST(TextConvUtf7, EncodingAndDecoding) {
  ZyrResult r;
  const std::pair<std::u16string, std::string> encoded[] = {
      {u"a!b", "a+ACE-b"}, {u"+", "+-"}, {u"\u00e9", "+AOk-"},  // a run at the end is closed
      {u"\u00e9-", "+AOk--"}, {u"\U0001F600", "+2D3eAA-"},
      {u"A-Za-z0-9'(),./:? \t\r\n", "A-Za-z0-9'(),./:? \t\r\n"}};
  for (const auto& [text, seven] : encoded) EXPECT_EQ(Encode(text, ZYR_CP_UTF7, &r), seven);
  const std::pair<std::string, std::u16string> decoded[] = {
      {"+-", u"+"}, {"A+", u"A"}, {"+AGE!x", u"a!x"},  // outside the alphabet ends the run
      {"+AGE\xe9", u"a\u00e9"}, {"+AGEA", u"a"}};       // leftover bits dropped
  for (const auto& [seven, text] : decoded) {
    EXPECT_EQ(Decode(seven, ZYR_CP_UTF7, &r), text) << seven;
    EXPECT_EQ(r, ZYR_OK) << seven;
  }
  for (const char* bad : {"+2D3", "+2D3-", "+2D3!"}) {
    Decode(bad, ZYR_CP_UTF7, &r);
    EXPECT_EQ(r, ZYR_E_INVALID_DATA) << bad;
  }
  // Two high surrogates in a row, and a lone low one, made through UTF-8.
  std::string seven, out;
  ASSERT_EQ(Table(ZYR_FORM_UTF8, ZYR_FORM_UTF7, "\xed\xa0\x80\xed\xa0\x80", &seven), ZYR_OK);
  EXPECT_EQ(Table(ZYR_FORM_UTF7, ZYR_FORM_UTF16, seven, &out), ZYR_E_INVALID_DATA);
  ASSERT_EQ(Table(ZYR_FORM_UTF8, ZYR_FORM_UTF7, "\xed\xb0\x80", &seven), ZYR_OK);
  EXPECT_EQ(Table(ZYR_FORM_UTF7, ZYR_FORM_UTF16, seven, &out), ZYR_OK);
  EXPECT_EQ(Units(out), std::u16string(1, char16_t(0xdc00)));
  EXPECT_EQ(Table(ZYR_FORM_UTF7, ZYR_FORM_LATIN1, "+2D3eAA-+AOkBAA-", &out), ZYR_OK);
  EXPECT_EQ(out, "?\xe9?");
}

TEST(TextConvEntry, BufferTooSmallAndTerminators) {
  char16_t wide[8] = {9, 9, 9, 9, 9, 9, 9, 9};
  std::size_t n = 0;
  EXPECT_EQ(ZyrBasToWide(wide, 0, "", ZYR_CP_UTF8, &n), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(n, 1u);
  EXPECT_EQ(ZyrBasToWide(wide, 1, "", ZYR_CP_UTF8, &n), ZYR_OK);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(wide[0], 0);
  // "h\u00e9llo": 5 characters, so 6 with the terminator.
  EXPECT_EQ(ZyrBasToWide(wide, 5, "h\xc3\xa9llo", ZYR_CP_ANSI, &n), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(n, 6u);
  EXPECT_EQ(wide[0], 0);
  EXPECT_EQ(ZyrBasToWide(wide, 6, "h\xc3\xa9llo", ZYR_CP_ANSI, &n), ZYR_OK);

  char narrow[8];
  std::memset(narrow, 'x', sizeof narrow);
  EXPECT_EQ(ZyrBasToNarrow(narrow, 3, u"a\u00e9", ZYR_CP_UTF8, &n), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(n, 4u);
  EXPECT_EQ(narrow[0], 0);
  EXPECT_EQ(ZyrBasToNarrow(narrow, 4, u"a\u00e9", ZYR_CP_UTF8, &n), ZYR_OK);
  EXPECT_EQ(ZyrBasToNarrow(narrow, 5, u"ab", ZYR_CP_UTF16, &n), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(n, 6u);  // a UTF-16 result ends in a whole zero unit
  EXPECT_EQ(ZyrBasToNarrow(narrow, 6, u"ab", ZYR_CP_UTF16, &n), ZYR_OK);
  EXPECT_EQ(std::string(narrow, 6), Bytes(std::u16string(u"ab", 3)));
  // Terminated UTF-16 narrow input stops at a zero unit, not a zero byte.
  EXPECT_EQ(ZyrBasMeasureWide(&n, narrow, ZYR_CP_UTF16), ZYR_OK);
  EXPECT_EQ(n, 2u);

  // The table reports what it wrote before stopping.
  std::string out;
  EXPECT_EQ(Table(ZYR_FORM_UTF16, ZYR_FORM_UTF8, Bytes(u"a\u00e9"), &out, 2), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(out, "a");
  EXPECT_EQ(Table(ZYR_FORM_UTF16, ZYR_FORM_UTF16, Bytes(u"ab"), &out, 3), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(out, Bytes(u"a"));
  EXPECT_EQ(Table(ZYR_FORM_UTF8, ZYR_FORM_UTF16, "ab\xc0\x80", &out), ZYR_E_INVALID_DATA);
  EXPECT_EQ(out, Bytes(u"ab"));
}

TEST(TextConvEntry, SelectorsAndAsymmetry) {
  std::size_t n = 7;
  char narrow[8];
  char16_t wide[8];
  auto bad = static_cast<ZyrBasCodePage>(6);
  EXPECT_EQ(ZyrBasMeasureWide(&n, "a", bad), ZYR_E_NOT_IMPLEMENTED);
  EXPECT_EQ(ZyrBasToWide(wide, 8, "a", bad, &n), ZYR_E_NOT_IMPLEMENTED);
  EXPECT_EQ(ZyrBasMeasureNarrow(&n, u"a", bad), ZYR_E_NOT_IMPLEMENTED);
  EXPECT_EQ(ZyrBasToNarrow(narrow, 8, u"a", bad, &n), ZYR_E_NOT_IMPLEMENTED);
  EXPECT_EQ(ZyrBasNarrowToNarrow(narrow, 8, "a", bad), ZYR_E_NOT_IMPLEMENTED);

  ZyrResult r;
  EXPECT_EQ(Decode("\xc3\xa9", ZYR_CP_ANSI_LATIN1, &r), u"\u00e9");  // read as ANSI
  EXPECT_EQ(Encode(u"\u00e9\u20ac", ZYR_CP_ANSI_LATIN1, &r), "\xe9?");
  EXPECT_EQ(Encode(u"\u00e9", ZYR_CP_OEM, &r), "\xc3\xa9");

  EXPECT_EQ(ZyrBasNarrowToNarrow(narrow, 8, "a!", ZYR_CP_UTF7), ZYR_OK);
  EXPECT_STREQ(narrow, "a+ACE-");
  EXPECT_EQ(ZyrBasNarrowToNarrow(narrow, 6, "a!", ZYR_CP_UTF7), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(ZyrBasNarrowToNarrow(narrow, 8, "\xc3\xa9", ZYR_CP_ANSI_LATIN1), ZYR_OK);
  EXPECT_STREQ(narrow, "\xe9");
  EXPECT_EQ(ZyrBasNarrowToNarrow(narrow, 8, "a\x80" "b", ZYR_CP_UTF8), ZYR_OK);
  EXPECT_STREQ(narrow, "ab");  // checked like a wide round, not copied
  EXPECT_EQ(ZyrBasNarrowToNarrow(narrow, 8, "\xf4\x90\x80\x80", ZYR_CP_UTF8), ZYR_OK);
  EXPECT_STREQ(narrow, "\xf0\x90\x80\x80");  // folded as the pair would fold it
  EXPECT_EQ(ZyrBasNarrowToNarrow(narrow, 8, "\xc0\x80", ZYR_CP_UTF8), ZYR_E_INVALID_DATA);
}

TEST(TextConvEntry, MeasuresAgreeAndRoundTrips) {
  for (ZyrBasCodePage cp : {ZYR_CP_ANSI, ZYR_CP_ANSI_LATIN1, ZYR_CP_OEM, ZYR_CP_UTF7, ZYR_CP_UTF8,
                            ZYR_CP_UTF16}) {
    for (const auto& text : kSamples) {
      SCOPED_TRACE(testing::Message() << "selector " << cp << " text length " << text.size());
      ZyrResult r;
      std::size_t measured = 0;
      ASSERT_EQ(ZyrBasMeasureNarrow(&measured, text.c_str(), cp), ZYR_OK);
      std::string narrow = Encode(text, cp, &r);
      ASSERT_EQ(r, ZYR_OK);
      EXPECT_EQ(measured, narrow.size());
      ZyrBasArray<char> encoded;
      ASSERT_EQ(ZyrBasEncodeNarrow(encoded, text.data(), text.size(), cp), ZYR_OK);
      EXPECT_EQ(std::string(encoded.begin(), encoded.Count()), narrow);
      // Latin-1 output is read back as ANSI, so it does not round-trip.
      if (cp == ZYR_CP_ANSI_LATIN1) continue;

      ASSERT_EQ(ZyrBasMeasureWide(&measured, narrow.data(), cp, narrow.size()), ZYR_OK);
      std::u16string back = Decode(narrow, cp, &r);
      ASSERT_EQ(r, ZYR_OK);
      EXPECT_EQ(measured, back.size());
      EXPECT_EQ(back, text);
      ZyrBasString appended;
      ASSERT_EQ(appended.AssignAscii("<"), ZYR_OK);
      ASSERT_EQ(ZyrBasAppendWide(appended, narrow.data(), narrow.size(), cp), ZYR_OK);
      EXPECT_EQ(std::u16string(appended.Text(), appended.Length()), u"<" + text);
    }
  }
}

TEST(TextConvEntry, LongTextIsNotCut) {
  // A two-byte character across byte 32766 and a pair across character
  // 32766: cutting the text at those counts would break both.
  std::string narrow(32765, 'a');
  narrow += "\xc3\xa9";
  narrow += std::string(8000, 'b');
  std::size_t n = 0;
  ASSERT_EQ(ZyrBasMeasureWide(&n, narrow.c_str(), ZYR_CP_ANSI), ZYR_OK);
  EXPECT_EQ(n, narrow.size() - 1);
  std::u16string wide(n + 1, u'\0');
  ASSERT_EQ(ZyrBasToWide(wide.data(), wide.size(), narrow.c_str(), ZYR_CP_ANSI, &n), ZYR_OK);
  EXPECT_EQ(wide[32765], u'\u00e9');

  std::u16string pairs(32765, u'x');
  pairs += u"\U0001F600";
  ZyrBasArray<char> utf8;
  ASSERT_EQ(ZyrBasEncodeNarrow(utf8, pairs.data(), pairs.size(), ZYR_CP_OEM), ZYR_OK);
  EXPECT_EQ(utf8.Count(), 32765u + 4);
  EXPECT_EQ(std::string(utf8.end() - 4, 4), "\xf0\x9f\x98\x80");
}

TEST(TextConvHotPath, FailuresLeaveTargetsClean) {
  ZyrBasArray<char> out;
  ASSERT_EQ(ZyrBasEncodeUtf8(out, u"a long enough line of text"), ZYR_OK);
  std::size_t capacity = out.Capacity();
  ASSERT_EQ(ZyrBasEncodeUtf8(out, u"short \u00e9"), ZYR_OK);
  EXPECT_EQ(std::string(out.begin(), out.Count()), "short \xc3\xa9");
  EXPECT_EQ(out.Capacity(), capacity);  // reused, not reallocated
  // High at the end, high before a non-low, a low before another low.
  for (const std::u16string& tail : {std::u16string(1, char16_t(0xdbff)),
                                    std::u16string(1, char16_t(0xdbff)) + u"x",
                                    std::u16string{char16_t(0xdc00), char16_t(0xdc01)}}) {
    ASSERT_EQ(ZyrBasEncodeUtf8(out, u"ok"), ZYR_OK);
    std::u16string text = u"ok" + tail;
    EXPECT_EQ(ZyrBasEncodeUtf8(out, text.data(), text.size()), ZYR_E_INVALID_DATA);
    EXPECT_EQ(out.Count(), 0u);
  }

  ZyrBasString s;
  ASSERT_EQ(s.AssignAscii("keep"), ZYR_OK);
  EXPECT_EQ(ZyrBasAppendWide(s, "ab\xe2\x82", 4, ZYR_CP_UTF8), ZYR_E_INVALID_DATA);
  EXPECT_TRUE(s.EqualsAscii("keep"));
  EXPECT_EQ(s.Text()[4], 0);
  EXPECT_EQ(ZyrBasAppendWide(s, "abc", 3, ZYR_CP_UTF16), ZYR_E_INVALID_DATA);
  EXPECT_TRUE(s.EqualsAscii("keep"));
  std::string big(100, 'z');
  ZyrBasTestFailAllocationsAfter(0);
  ZyrResult r = ZyrBasAppendWide(s, big.data(), big.size(), ZYR_CP_UTF8);
  ZyrBasTestFailAllocationsAfter(-1);
  EXPECT_EQ(r, ZYR_E_OUT_OF_MEMORY);
  EXPECT_TRUE(s.EqualsAscii("keep"));
}

// Text on its way into a log line: every unit that cannot be converted is
// spelt out, each byte or unit once, and valid text around it is untouched.
TEST(TextConvEscapes, BadBytesAndLoneSurrogatesAreSpeltOut) {
  struct Narrow {
    std::string in;
    std::u16string out;
  };
  const Narrow narrow[] = {
      {"h\xc3\xa9\xf0\x9f\x98\x80", u"h\u00e9\U0001F600"},  // valid: unchanged
      {"\xe0\xa0\x80\xf4\x8f\xbf\xbf", u"\u0800\U0010FFFF"},  // the edges of the ranges
      {"a\xc3(", u"a\\xC3("},                                  // a sequence broken off
      {"\xe2\x82", u"\\xE2\\x82"},                             // cut at the end
      {"x\x80y", u"x\\x80y"},                                  // a stray continuation byte
      {"\xc0\x80", u"\\xC0\\x80"},                             // overlong
      {"\xed\xa0\x80", u"\\xED\\xA0\\x80"},                    // a surrogate
      {"\xf4\x90\x80\x80", u"\\xF4\\x90\\x80\\x80"},           // past U+10FFFF
      {"\xf8\xff", u"\\xF8\\xFF"},
  };
  for (const Narrow& c : narrow) {
    std::size_t needed = 0, written = 0;
    ASSERT_EQ(ZyrBasDecodeUtf8Escaped(nullptr, 0, c.in.data(), c.in.size(), &needed), ZYR_OK);
    std::u16string out(needed, u'?');
    ASSERT_EQ(ZyrBasDecodeUtf8Escaped(out.data(), needed, c.in.data(), c.in.size(), &written), ZYR_OK);
    EXPECT_EQ(out.substr(0, written), c.out) << c.in;
    EXPECT_EQ(ZyrBasDecodeUtf8Escaped(out.data(), needed - 1, c.in.data(), c.in.size(), &written),
              ZYR_E_BUFFER_TOO_SMALL);
  }

  struct Wide {
    std::u16string in;
    std::string out;
  };
  const char16_t high = 0xdbff, low = 0xdc00;
  const Wide wide[] = {
      {std::u16string(u"ok") + high, "ok\\uDBFF"},
      {std::u16string{high, u'x'}, "\\uDBFFx"},
      {std::u16string{low, char16_t(0xdc01)}, "\\uDC00\\uDC01"},
      {std::u16string{char16_t(0xd800)} + u"\U0001F600\u00e9", "\\uD800\xf0\x9f\x98\x80\xc3\xa9"},
      {std::u16string(100, low) + u"end", [] {  // more room than the reservation had
         std::string s;
         for (int i = 0; i < 100; ++i) s += "\\uDC00";
         return s + "end";
       }()},
  };
  ZyrBasArray<char> bytes;
  for (const Wide& c : wide) {
    ASSERT_EQ(ZyrBasEncodeUtf8(bytes, c.in.data(), c.in.size(), ZyrBasBadText::Escape), ZYR_OK);
    EXPECT_EQ(std::string(bytes.begin(), bytes.Count()), c.out);
    EXPECT_EQ(ZyrBasEncodeUtf8(bytes, c.in.data(), c.in.size()), ZYR_E_INVALID_DATA);
  }
  // The other narrow forms spell it out the same way.
  std::u16string latin = std::u16string(u"a") + low + u"\u00e9";
  ASSERT_EQ(ZyrBasEncodeNarrow(bytes, latin.data(), latin.size(), ZYR_CP_ANSI_LATIN1, ZyrBasBadText::Escape),
            ZYR_OK);
  EXPECT_EQ(std::string(bytes.begin(), bytes.Count()), "a\\uDC00\xe9");
}
