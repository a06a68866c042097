#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <limits>
#include <string>
#include <vector>

#include "base/format.h"
#include "base/memory.h"

namespace {

using Slots = std::vector<std::uint64_t>;

std::uint64_t P(const void* p) { return ZyrBasSlotFromPointer(p); }
std::uint64_t D(double d) { return ZyrBasSlotFromDouble(d); }

// Readable in failure messages: UTF-16 down to bytes, non-ASCII as "?".
std::string Narrow(const char16_t* text, std::size_t n) {
  std::string s;
  for (std::size_t i = 0; i < n; ++i) s += text[i] < 128 ? static_cast<char>(text[i]) : '?';
  return s;
}

std::string Fmt(const char16_t* format, const Slots& slots = {}) {
  char16_t buffer[2048];
  std::size_t length = 99;
  ZyrResult r = ZyrBasFormatFixed(ZYR_CP_UTF8, buffer, 2048, format, &length,
                                  slots.empty() ? nullptr : slots.data());
  EXPECT_EQ(r, ZYR_OK) << Narrow(format, ZyrBasStrLen(format));
  EXPECT_EQ(buffer[length], 0);
  return Narrow(buffer, length);
}

std::u16string Wide(const ZyrBasString& s) { return std::u16string(s.Text(), s.Length()); }

}  // namespace

TEST(FormatScan, PercentSignsBrokenConversionsAndUnknownCombinations) {
  EXPECT_EQ(Fmt(u"100%"), "100%");
  EXPECT_EQ(Fmt(u"%5%|%-5%|%%"), "%|%|%");
  EXPECT_EQ(Fmt(u"a%5"), "a%5");          // format ends inside the conversion
  EXPECT_EQ(Fmt(u"%\u00e9x"), "%?x");    // conversion character out of range
  // A failed parse gives back the "*" slot: "%d" then reads the first slot.
  EXPECT_EQ(Fmt(u"%*\x01%d", {5}), "%*\x01" "5");
  // A "*" whose conversion takes no value reads no slot: here the slots
  // end after the first, so a read shows under the address sanitizer.
  EXPECT_EQ(Fmt(u"%d %*y %*\u0600 %*%", {5}), "5 %*y %*? %");
  // Unknown combinations are copied and take nothing.
  EXPECT_EQ(Fmt(u"%S %d", {7}), "%S 7");
  EXPECT_EQ(Fmt(u"%n|%-5.3a|%ws|%hZ|%Is|%d", {3}), "%n|%-5.3a|%ws|%hZ|%Is|3");
  EXPECT_EQ(Fmt(u"%*S %d", {9}), "%*S 9");
  EXPECT_EQ(Fmt(u"[%wd][%5wx][%*%][%d]", {4, 6}), "[][][%][4]");
}

TEST(FormatInteger, SizePrefixesPrecisionFlagsAndWidth) {
  const std::uint64_t big = 0x1'0000'0005ULL;
  EXPECT_EQ(Fmt(u"%d %i %ld %I32d", {0xffffffff, big, big, big}), "-1 5 5 5");
  EXPECT_EQ(Fmt(u"%I64d %lld %Id %zd", {0xffffffff, big, big, big}),
            "4294967295 4294967301 4294967301 4294967301");
  EXPECT_EQ(Fmt(u"%hhd %hd %hhu %hu", {0xff, 0xffff, 0x1ff, 0x1ffff}), "-1 -1 255 65535");
  EXPECT_EQ(Fmt(u"%lld %llu", {0x8000000000000000ULL, ~0ULL}),
            "-9223372036854775808 18446744073709551615");
  EXPECT_EQ(Fmt(u"%x %X %o %u", {~0ULL, 0xabc, 8, ~0ULL}), "ffffffff ABC 10 4294967295");
  // Precision, flags and width.
  EXPECT_EQ(Fmt(u"[%.0d][%3.0d][%.d]", {0, 0, 0}), "[][   ][]");
  EXPECT_EQ(Fmt(u"%#x %#x %#X %#o %#o", {0, 255, 255, 8, 0}), "0 0xff 0XFF 010 0");
  EXPECT_EQ(Fmt(u"%#.4o|%#08x|%#-6x|", {8, 255, 1}), "0010|0x0000ff|0x1   |");
  EXPECT_EQ(Fmt(u"%+d % d %+u % u %+d", {5, 5, 5, 5, static_cast<std::uint64_t>(-5)}),
            "+5  5 5 5 -5");
  EXPECT_EQ(Fmt(u"%05d|%-5d|%5.3d|%05.3d|% 05d", {static_cast<std::uint64_t>(-42),
                                                 static_cast<std::uint64_t>(-42), 7, 7, 7}),
            "-0042|-42  |  007|  007| 0007");
  EXPECT_EQ(Fmt(u"%.40d", {1}), std::string(31, '0') + "1");
  // "*" takes 32-bit slots; a negative width aligns left, a negative
  // precision counts as none.
  EXPECT_EQ(Fmt(u"%*d|%.*d|%.*d", {0xfffffffcULL, 7, 0xffffffffULL, 0, 3, 5}), "7   |0|005");
}

TEST(FormatChars, CharacterAndPointer) {
  EXPECT_EQ(Fmt(u"[%5c][%-3c][%hc]", {'A', 'b', 0x10043}), "[A][b][C]");
  EXPECT_EQ(Fmt(u"%p|%8p|%p", {0x1234, 0xbeef, 0xfedcba9876543210ULL}),
            "1234|0000beef|fedcba9876543210");
}

TEST(FormatText, WideAndNarrowStrings) {
  const char16_t* ab = u"ab";
  const char16_t unterminated[3] = {u'x', u'y', u'z'};
  EXPECT_EQ(Fmt(u"%s|%.3s|%8s|%-8.2s|", {0, 0, 0, 0}), "(null)|(nu|  (null)|(n      |");
  EXPECT_EQ(Fmt(u"%5s|%-5s|%05s|%ls", {P(ab), P(ab), P(ab), P(ab)}), "   ab|ab   |   ab|ab");
  EXPECT_EQ(Fmt(u"%.3s", {P(unterminated)}), "xyz");  // not read beyond the precision
  EXPECT_EQ(Fmt(u"%wZ|%.1wZ|%wZ", {4, P(u"wxyz"), 8, P(u"wxyz"), 6, 0}), "wx|w|(null)");
  // Narrow strings convert through the selector.
  char16_t buffer[32];
  std::uint64_t slots[] = {P("h\xc3\xa9!")};
  ASSERT_EQ(ZyrBasFormatFixed(ZYR_CP_UTF8, buffer, 32, u"<%hs>", nullptr, slots), ZYR_OK);
  EXPECT_EQ(std::u16string(buffer), u"<h\u00e9!>");
  // A byte that is no UTF-8 is spelt out and the line goes on; UTF-7 text
  // stays strict.
  std::uint64_t bad[] = {P("a\xc3("), 2, P("\xff\xfe"), P("a\xc3(")};
  ASSERT_EQ(ZyrBasFormatFixed(ZYR_CP_UTF8, buffer, 32, u"%hs|%.5Z|%.5hs", nullptr, bad), ZYR_OK);
  EXPECT_EQ(std::u16string(buffer), u"a\\xC3(|\\xFF\\|a\\xC3");
  EXPECT_EQ(ZyrBasFormatFixed(ZYR_CP_UTF7, buffer, 32, u"%hs", nullptr, bad), ZYR_OK);
  std::uint64_t badSeven[] = {P("+2D3")};
  EXPECT_EQ(ZyrBasFormatFixed(ZYR_CP_UTF7, buffer, 32, u"%hs", nullptr, badSeven), ZYR_E_INVALID_DATA);

  EXPECT_EQ(Fmt(u"%Z|%5.2Z|%Z|%.1hs", {3, P("abcdef"), 6, P("abcdef"), 2, 0, P("xyz")}),
            "abc|   ab|(null)|x");
  // An ASCII run is copied, what follows it converted: a NUL inside a
  // counted text, non-ASCII behind ASCII.
  std::uint64_t mixed[] = {5, P("a\0b\xc3\xa9"), P("xy\xc3\xa9z")};
  ASSERT_EQ(ZyrBasFormatFixed(ZYR_CP_UTF8, buffer, 32, u"%Z|%hs", nullptr, mixed), ZYR_OK);
  EXPECT_EQ(std::u16string(buffer, 10), std::u16string(u"a\0b\u00e9|xy\u00e9z", 10));
  std::string longText(700, 'n');  // longer than the on-stack conversion buffer
  longText += "end";
  EXPECT_EQ(Fmt(u"%hs", {P(longText.c_str())}), longText);
}

TEST(FormatFloat, FixedAndExponentForms) {
  EXPECT_EQ(Fmt(u"%08.3f", {D(-3.14159)}), "-003.142");
  EXPECT_EQ(Fmt(u"%e|%E", {D(1234.5), D(1234.5)}), "1.234500e+03|1.234500E+03");
  EXPECT_EQ(Fmt(u"%f|%e|%.0f|%#.0f", {D(0), D(0), D(3), D(3)}), "0.000000|0.000000e+00|3|3.");
  EXPECT_EQ(Fmt(u"%+.1f|% f|%-8.2f|", {D(2.25), D(1), D(-1.5)}), "+2.3| 1.000000|-1.50   |");
  EXPECT_EQ(Fmt(u"%010.2e|%e|%e", {D(-1.5), D(1e100), D(2.5e-7)}),
            "-01.50e+00|1.000000e+100|2.500000e-07");
  EXPECT_EQ(Fmt(u"%.3f|%.2f|%.1f", {D(0.0004), D(-0.0001), D(0.25)}), "0.000|-0.00|0.3");
  // Precision is capped at 20 digits.
  EXPECT_EQ(Fmt(u"%.40f", {D(1)}), "1." + std::string(20, '0'));
  EXPECT_EQ(Fmt(u"%.25e", {D(1.5)}), "1.5" + std::string(19, '0') + "e+00");
}

TEST(FormatFloat, RoundingCarriesIntoNewDigit) {
  EXPECT_EQ(Fmt(u"%.0f|%.0f|%.2f", {D(0.5), D(2.5), D(0.005)}), "1|3|0.01");
  EXPECT_EQ(Fmt(u"%.1f|%.0e|%.2e", {D(9.96), D(9.6), D(-9.999)}), "10.0|1e+01|-1.00e+01");
  EXPECT_EQ(Fmt(u"%g|%g", {D(9.9999996), D(999999.7)}), "10|1e+06");
}

TEST(FormatFloat, GeneralFormChoosesAndStrips) {
  EXPECT_EQ(Fmt(u"%g|%g|%G", {D(0.0001), D(0.00001), D(0.00001)}), "0.0001|1e-05|1E-05");
  EXPECT_EQ(Fmt(u"%g|%g|%g|%g", {D(0), D(100000), D(1e6), D(123456789)}),
            "0|100000|1e+06|1.23457e+08");
  EXPECT_EQ(Fmt(u"%.0g|%.3g|%#g|%#.2g", {D(25), D(0.000123456), D(1), D(3)}),
            "3e+01|0.000123|1.00000|3.0");
  EXPECT_EQ(Fmt(u"%g|%08g", {D(-2.5), D(-2.5)}), "-2.5|-00002.5");
}

TEST(FormatFloat, NanInfinityAndExtremes) {
  const double inf = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(Fmt(u"%5f|%.3e|%G|%f", {D(nan), D(-nan), D(nan), D(inf)}), "  nan|nan|nan|inf");
  EXPECT_EQ(Fmt(u"%-6f|%+E|%6g", {D(-inf), D(inf), D(-inf)}), "-inf  |+inf|  -inf");

  std::string huge = Fmt(u"%.0f", {D(1e40)});
  ASSERT_EQ(huge.size(), 41u);
  EXPECT_EQ(huge.substr(33), std::string(8, '0'));  // beyond the 32-digit expansion
  std::string max = Fmt(u"%f", {D(std::numeric_limits<double>::max())});
  EXPECT_EQ(max.size(), 309u + 7u);
  EXPECT_EQ(max.substr(0, 10), "1797693134");
  std::string tiny = Fmt(u"%e|%f", {D(5e-324), D(5e-324)});
  EXPECT_EQ(tiny.substr(0, 3), "4.9");
  EXPECT_EQ(tiny.substr(tiny.size() - 14), "e-324|0.000000");
}

TEST(FormatFloat, DoubleHelperForTypedValues) {
  ZyrBasString out;
  ASSERT_EQ(out.AssignAscii("v="), ZYR_OK);
  ASSERT_EQ(ZyrBasFormatDouble(out, 1.5, u'e', 20, true), ZYR_OK);
  EXPECT_EQ(Wide(out), u"v=1.50000000000000000000e+00");
  out.Clear();
  ZyrBasFormatDouble(out, 1.5, u'e', 2, false);
  ZyrBasFormatDouble(out, -0.015, u'e', 1, false);
  ZyrBasFormatDouble(out, -std::numeric_limits<double>::infinity(), u'e', 20, true);
  ZyrBasFormatDouble(out, 2.0, u'G', -1, true);
  EXPECT_EQ(Wide(out), u"1.50e00-1.5e-02-inf2");
  EXPECT_EQ(ZyrBasFormatDouble(out, 1, u'd', 2, true), ZYR_E_INVALID_ARGUMENT);
}

TEST(FormatFixed, BufferEnds) {
  char16_t buffer[8];
  std::size_t length = 99;
  auto fixed = [&](std::size_t capacity, const char16_t* format, const std::uint64_t* slots = nullptr) {
    return ZyrBasFormatFixed(ZYR_CP_UTF8, buffer, capacity, format, &length, slots);
  };
  EXPECT_EQ(fixed(0, u"x"), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(fixed(1, u""), ZYR_OK);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(fixed(7, u"abcdef"), ZYR_OK);
  EXPECT_EQ(std::u16string(buffer), u"abcdef");
  EXPECT_EQ(fixed(4, u"abcdef"), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(std::u16string(buffer), u"abc");
  EXPECT_EQ(length, 3u);
  // Ends inside padding, a number and a float: what fitted stays, terminated.
  std::uint64_t slots[] = {1, 123456, D(-1.25)};
  EXPECT_EQ(fixed(3, u"%5d", slots), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(std::u16string(buffer), u"  ");
  EXPECT_EQ(fixed(6, u"x%d", slots + 1), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(std::u16string(buffer), u"x1234");
  EXPECT_EQ(fixed(5, u"%f", slots + 2), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(std::u16string(buffer), u"-1.2");
  std::uint64_t narrow[] = {P("xyz\xc3\xa9")};
  EXPECT_EQ(fixed(3, u"%hs", narrow), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(std::u16string(buffer), u"xy");
  // A null slot list reads as zeros instead of crashing.
  EXPECT_EQ(Fmt(u"%d %s %f", {}), "0 (null) 0.000000");
}

TEST(FormatString, GrowsFromStackToHeap) {
  ZyrBasString out;
  std::uint64_t x[] = {P(u"x")};
  ASSERT_EQ(ZyrBasFormat(out, u"%5000s", x), ZYR_OK);
  ASSERT_EQ(out.Length(), 5000u);
  EXPECT_EQ(out[0], u' ');
  EXPECT_EQ(out[4999], u'x');
  ASSERT_EQ(ZyrBasFormat(out, u"<%600s>", x), ZYR_OK);  // first heap size
  EXPECT_EQ(out.Length(), 602u);
  ASSERT_EQ(ZyrBasFormat(out, u"%d-%d", std::vector<std::uint64_t>{4, 2}.data()), ZYR_OK);
  EXPECT_EQ(Wide(out), u"4-2");
}

TEST(FormatString, StackBufferHoldsFiveHundredElevenCharacters) {
  ZyrBasString out;
  ASSERT_EQ(out.Reserve(1024), ZYR_OK);
  ASSERT_EQ(out.AssignAscii("old"), ZYR_OK);
  std::uint64_t slots[] = {511, P(u"y"), 512, P(u"y")};
  ZyrBasTestFailAllocationsAfter(0);
  ZyrResult fits = ZyrBasFormat(out, u"%*s", slots);
  ZyrResult needsHeap = ZyrBasFormat(out, u"%*s", slots + 2);
  ZyrBasTestFailAllocationsAfter(-1);
  EXPECT_EQ(fits, ZYR_OK);
  EXPECT_EQ(out.Length(), 511u);
  EXPECT_EQ(needsHeap, ZYR_E_OUT_OF_MEMORY);
  EXPECT_EQ(out.Length(), 511u);  // left as it was
}

TEST(FormatString, AppendKeepsOldTextOnFailure) {
  ZyrBasString s;
  ASSERT_EQ(s.AssignAscii("n="), ZYR_OK);
  ZyrBasStringRef ref(s);
  std::uint64_t n[] = {42};
  ASSERT_EQ(ZyrBasFormatAppend(ref, u"%d;", n), ZYR_OK);
  ASSERT_EQ(ZyrBasFormatAppend(s, u"%x", n), ZYR_OK);
  EXPECT_EQ(Wide(s), u"n=42;2a");
  std::uint64_t wide[] = {3000, P(u"z")};
  ZyrBasTestFailAllocationsAfter(0);
  ZyrResult r = ZyrBasFormatAppend(ref, u"%*s", wide);
  ZyrBasTestFailAllocationsAfter(-1);
  EXPECT_EQ(r, ZYR_E_OUT_OF_MEMORY);
  EXPECT_EQ(Wide(s), u"n=42;2a");
}
