#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "base/array.h"
#include "base/memory.h"
#include "base/string.h"

namespace {
std::u16string Str(const ZyrBasString& s) { return std::u16string(s.Text(), s.Length()); }
}  // namespace

TEST(BasString, EmptyShowsTheConstantTextAndKeepsCapacity) {
  ZyrBasString s;
  EXPECT_EQ(s.Text(), kZyrEmptyText);
  ASSERT_EQ(s.Assign(u"a fairly long text of many chars"), ZYR_OK);
  std::size_t cap = s.Capacity();
  ASSERT_EQ(s.Assign(u"", std::size_t{0}), ZYR_OK);
  EXPECT_EQ(s.Text(), kZyrEmptyText);
  EXPECT_EQ(s.Capacity(), cap);
  EXPECT_EQ(s.Length(), 0u);
}

TEST(BasString, GrowthFiguresOfInlineAndHeap) {
  ZyrBasString s, t, big;
  ASSERT_EQ(s.Assign(u"123456789012345"), ZYR_OK);  // 15 + terminator: inline
  EXPECT_TRUE(s.IsInline());
  ASSERT_EQ(s.Assign(u"1234567890123456"), ZYR_OK);  // 16: exact heap block of 17
  EXPECT_FALSE(s.IsInline());
  EXPECT_EQ(s.Capacity(), 17u);
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(t.Append(static_cast<char16_t>(u'a' + i)), ZYR_OK);
    EXPECT_EQ(t.IsInline(), i < 15) << i;
    if (i >= 15) {
      EXPECT_EQ(t.Capacity(), 129u) << i;
    }
  }
  ASSERT_EQ(big.Reserve(200), ZYR_OK);
  EXPECT_EQ(big.Capacity(), 300u);
  ASSERT_EQ(big.Reserve(500, true), ZYR_OK);
  EXPECT_EQ(big.Capacity(), 500u);
}

TEST(BasString, InsertEraseReplaceAndFind) {
  ZyrBasString s;
  ASSERT_EQ(s.Assign(u"hello world"), ZYR_OK);
  const char16_t comma[] = u",";
  ASSERT_EQ(s.Insert(5, comma, comma + 1), ZYR_OK);
  EXPECT_EQ(Str(s), u"hello, world");
  s.Erase(0, 7);
  EXPECT_EQ(Str(s), u"world");
  ASSERT_EQ(s.Replace(1, 3, u"OO", 2), ZYR_OK);
  EXPECT_EQ(Str(s), u"wOOd");
  ASSERT_EQ(s.Replace(2, ZYR_NPOS, u"!", 1), ZYR_OK);
  EXPECT_EQ(Str(s), u"wO!");
  ASSERT_EQ(s.Replace(99, 0, u"?", 1), ZYR_OK);  // the position clamps to the length
  EXPECT_EQ(Str(s), u"wO!?");
  EXPECT_EQ(s.Find(u"!", 1, 0), 2u);
  EXPECT_EQ(s.Find(u"", 0, 1), 1u);
  EXPECT_EQ(s.Find(u"x", 1, 0), ZYR_NPOS);
  EXPECT_EQ(s.Find(u"O", 1, 4), ZYR_NPOS);
  EXPECT_EQ(s.Find(u"wO!?x", 5, 0), ZYR_NPOS);
  // Appending a piece of itself.
  ASSERT_EQ(s.Append(s.Text(), 2), ZYR_OK);
  EXPECT_EQ(Str(s), u"wO!?wO");
}

TEST(BasString, ReplaceAllResumesBehindTheInsertedText) {
  ZyrBasString s;
  ASSERT_EQ(s.Assign(u"a.a.a"), ZYR_OK);
  ASSERT_EQ(s.ReplaceAll(u"a", 1, u"aa", 2), ZYR_OK);
  EXPECT_EQ(Str(s), u"aa.aa.aa");
  EXPECT_EQ(s.ReplaceAll(u"zz", 2, u"y", 1), ZYR_I_NOT_FOUND);
  EXPECT_EQ(Str(s), u"aa.aa.aa");
  ASSERT_EQ(s.ReplaceAll(u"%USERPROFILE%", ZYR_TERMINATED, u"/home/u", ZYR_TERMINATED), ZYR_I_NOT_FOUND);
}

TEST(BasString, SwapMoveResizeAndFailedAllocation) {
  ZyrBasString a, b;
  ASSERT_EQ(a.Assign(u"short"), ZYR_OK);
  ASSERT_EQ(b.Assign(u"a string that lives on the heap"), ZYR_OK);
  a.Swap(b);
  EXPECT_EQ(Str(a), u"a string that lives on the heap");
  EXPECT_EQ(Str(b), u"short");
  EXPECT_TRUE(b.IsInline());
  EXPECT_FALSE(a.IsInline());
  ZyrBasString moved(static_cast<ZyrBasString&&>(b));
  EXPECT_EQ(Str(moved), u"short");
  EXPECT_EQ(b.Length(), 0u);

  // A failed allocation leaves the string whole.
  ZyrBasTestFailAllocationsAfter(0);
  ZyrResult r = moved.Append(u"this does not fit the inline buffer at all");
  ZyrBasTestFailAllocationsAfter(-1);
  EXPECT_EQ(r, ZYR_E_OUT_OF_MEMORY);
  EXPECT_EQ(Str(moved), u"short");

  // Resizing to "terminated" recounts from the first zero.
  ZyrBasString s;
  ASSERT_EQ(s.Resize(10), ZYR_OK);
  EXPECT_EQ(s.Length(), 10u);
  s.Data()[0] = u'x';
  s.Data()[1] = u'y';
  s.Data()[2] = 0;
  ASSERT_EQ(s.Resize(ZYR_TERMINATED), ZYR_OK);
  EXPECT_EQ(Str(s), u"xy");
}

TEST(BasCompare, OrdinalAsciiFoldAndSystemFold) {
  EXPECT_LT(ZyrBasCompareOrdinal(u"Type", 4, u"type", 4), 0);  // upper case sorts first
  EXPECT_LT(ZyrBasCompareOrdinal(u"ab", 2, u"abc", 3), 0);
  EXPECT_EQ(ZyrBasCompareOrdinal(u"abc", 3, u"abc", 3), 0);
  // A unit above 0xFF sorts by its low byte first: U+0141 (low byte 0x41)
  // comes before "B" (0x42) though its code is larger.
  EXPECT_LT(ZyrBasCompareOrdinal(u"\u0141", 1, u"B", 1), 0);

  EXPECT_EQ(ZyrBasCompareNoCaseAscii(u"ROOT", 4, u"root", 4), 0);
  EXPECT_NE(ZyrBasCompareNoCaseAscii(u"\u00e9", 1, u"\u00c9", 1), 0);  // only letters of ASCII
  EXPECT_NE(ZyrBasCompareNoCaseAscii(u"roo", 3, u"root", 4), 0);

  EXPECT_EQ(ZyrBasCompareNoCase(u"info", 4, u"INFO", 4), 0);
  EXPECT_EQ(ZyrBasCompareNoCase(u"\u00e9t\u00e9", 3, u"\u00c9T\u00c9", 3), 0);
  EXPECT_EQ(ZyrBasCompareNoCase(u"\u03b1", 1, u"\u0391", 1), 0);  // Greek alpha
  EXPECT_EQ(ZyrBasCompareNoCase(u"INF", 3, u"INFO", 4), -1);
  EXPECT_EQ(ZyrBasCompareNoCase(u"INFOS", 5, u"INFO", 4), 1);
  EXPECT_NE(ZyrBasCompareNoCase(u"a", 1, u"A", 1, false), 0);
  EXPECT_EQ(ZyrBasUpcaseChar(u'['), u'[');
  EXPECT_EQ(ZyrBasUpcaseChar(u'\u00ff'), u'\u0178');
}

TEST(BasFree, FixedBufferCopiesAndAppends) {
  char16_t buf[4];
  EXPECT_EQ(ZyrBasStrCopy(buf, 0, u"x"), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(ZyrBasStrCopy(buf, 4, u"abcd"), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(buf[0], 0);
  EXPECT_EQ(ZyrBasStrCopy(buf, 4, u"abc"), ZYR_OK);
  std::size_t pos = 1;
  EXPECT_EQ(ZyrBasStrAppendAt(buf, 4, u"XY", &pos), ZYR_OK);
  EXPECT_EQ(std::u16string(buf), u"aXY");
  EXPECT_EQ(pos, 3u);
  EXPECT_EQ(ZyrBasStrAppendAt(buf, 4, u"Z", nullptr), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(std::u16string(buf), u"aXY");
  char16_t full[2] = {u'a', u'b'};
  EXPECT_EQ(ZyrBasStrAppendAt(full, 2, u"c", nullptr), ZYR_E_STRING_BUFFER_FULL);
  EXPECT_EQ(ZyrBasStrCopyRange(buf, 4, u"hello", 1, 5), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(ZyrBasStrCopyRange(buf, 4, u"hello", 1, 3), ZYR_OK);
  EXPECT_EQ(std::u16string(buf), u"ell");

  char16_t data[3];
  ZyrBasCountedBuffer counted{0, 3, data};
  std::size_t needed = 0;
  EXPECT_EQ(ZyrBasCountedCopy(counted, u"abc", 3, &needed), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(needed, 4u);
  EXPECT_EQ(ZyrBasFindLastDot(u"a.tar.gz"), 5u);
  EXPECT_EQ(ZyrBasFindColon(u"C:\\x"), 1u);
}

TEST(BasGrowth, SharedRuleForArrays) {
  const std::size_t rows[][4] = {{1, 1, false, 257}, {1, 2, false, 129}, {1, 8, false, 33}, {31, 8, false, 33},
                                 {33, 8, false, 49}, {1, sizeof(ZyrBasString), false, 5}, {7, 8, true, 7}};
  for (const auto& r : rows) EXPECT_EQ(ZyrBasGrowCount(r[0], r[1], r[2] != 0), r[3]) << r[0] << " of " << r[1];

  ZyrBasArray<void*> list;
  ASSERT_EQ(list.Append(nullptr), ZYR_OK);
  EXPECT_EQ(list.Capacity(), 33u);
  for (int i = 1; i < 33; ++i) ASSERT_EQ(list.Append(nullptr), ZYR_OK);
  EXPECT_EQ(list.Capacity(), 33u);
  ASSERT_EQ(list.Append(nullptr), ZYR_OK);
  EXPECT_EQ(list.Capacity(), 51u);  // 34 needed: 34 + 17
}

TEST(BasNameMap, IteratesInByteOrderAndRefusesDuplicates) {
  ZyrBasNameMap<int> map;
  ASSERT_EQ(map.Insert(u"b", 1, 2), ZYR_OK);
  ASSERT_EQ(map.Insert(u"a", 1, 1), ZYR_OK);
  ASSERT_EQ(map.Insert(u"B", 1, 3), ZYR_OK);
  EXPECT_EQ(map.Insert(u"a", 1, 9), ZYR_E_ALREADY_EXISTS);
  std::u16string order;
  for (auto& e : map) order += std::u16string(e.name.Text(), e.name.Length());
  EXPECT_EQ(order, u"Bab");
  EXPECT_EQ(*map.Find(u"a"), 1);
  EXPECT_EQ(map.Remove(u"zz"), ZYR_I_NOT_FOUND);
  EXPECT_EQ(map.Remove(u"a"), ZYR_OK);
  EXPECT_EQ(map.Find(u"a"), nullptr);
}

TEST(BasScan, LineBreaksReplacedAtEveryPlace) {
  for (std::size_t length : {1u, 7u, 8u, 9u, 17u, 33u})
    for (std::size_t at = 0; at < length; ++at) {
      std::u16string text(length, u'x'), expected(length, u'x');
      text[at] = at % 2 ? u'\r' : u'\n';
      expected[at] = 0x0b;
      ZyrBasReplaceLineBreaks(text.data(), text.size(), 0x0b);
      ASSERT_EQ(text, expected) << length << " " << at;
    }
}

TEST(BasScan, ShortCopiesOfEveryLengthTouchOnlyTheirUnits) {
  char16_t source[40], target[44];
  for (std::size_t i = 0; i < 40; ++i) source[i] = static_cast<char16_t>(u'A' + i);
  for (std::size_t n = 0; n <= 40; ++n) {
    std::fill(target, target + 44, u'#');
    ZyrBasCopyUnits(target + 2, source, n);
    for (std::size_t i = 0; i < 44; ++i)
      ASSERT_EQ(target[i], i >= 2 && i < n + 2 ? source[i - 2] : u'#') << n << " " << i;
  }
}

TEST(BasScan, PercentOrEndFoundFromEveryAlignment) {
  char16_t buffer[64];
  for (std::size_t start = 0; start < 8; ++start)
    for (std::size_t at = start; at < 40; ++at)
      for (char16_t stop : {u'%', u'\0'}) {
        std::fill(buffer, buffer + 63, u'a');
        buffer[at] = stop;
        buffer[63] = 0;
        ASSERT_EQ(ZyrBasFindPercentOrEnd(buffer + start), buffer + at) << start << " " << at;
      }
  // A unit whose low byte is "%" is no "%".
  const char16_t tricky[] = {0x0125, 0x2500, u'%', 0};
  EXPECT_EQ(ZyrBasFindPercentOrEnd(tricky), tricky + 2);
}
