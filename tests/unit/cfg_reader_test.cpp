#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "config/document.h"
#include "config/reader.h"
#include "test_support.h"

namespace {

using zyrtest::Str;
std::u16string S(const ZyrBasString& s) { return Str(s); }

struct Error {
  std::uint64_t line;
  ZyrResult result;
  bool operator==(const Error& o) const { return line == o.line && result == o.result; }
};

std::ostream& operator<<(std::ostream& os, const Error& e) {
  return os << "(line " << e.line << ", 0x" << std::hex << static_cast<std::uint32_t>(e.result)
            << std::dec << ")";
}

std::vector<Error> Errors(const ZyrCfgDocument& doc) {
  std::vector<Error> out;
  for (const ZyrCfgLineError& e : doc.lineErrors) out.push_back({e.line, e.result});
  return out;
}

void Load(ZyrCfgDocument& doc, const char16_t* text) {
  ZyrStringReader reader(text);
  ASSERT_EQ(doc.Load(reader), ZYR_OK);
}

ZyrCfgValueRef Value(const ZyrCfgDocument& doc, const char16_t* section, const char16_t* key) {
  ZyrCfgValueRef v;
  ZyrCfgSectionRef s = doc.FindSection(section);
  if (s) s->FindValue(key, &v);
  return v;
}

std::vector<std::u16string> Items(const ZyrCfgScannedValue& v) {
  std::vector<std::u16string> out;
  for (const ZyrBasString& s : v.items) out.push_back(S(s));
  return out;
}

// Every line a stream gives, until it fails; the failure is kept too.
std::vector<std::u16string> ReadAll(ZyrTextStream& stream, ZyrResult* end = nullptr) {
  std::vector<std::u16string> lines;
  ZyrBasString line;
  ZyrResult r;
  while (ZyrSucceeded(r = stream.ReadLine(&line))) {
    lines.push_back(S(line));
    if (lines.size() > 100000) break;  // a stream that never ends
  }
  if (end) *end = r;
  return lines;
}

std::string Bytes(const ZyrBasArray<std::uint8_t>& a) { return std::string(a.begin(), a.end()); }

std::string Utf16(const std::u16string& text, bool big, bool mark) {
  std::string out;
  if (mark) out += big ? "\xFE\xFF" : "\xFF\xFE";
  for (char16_t c : text) {
    char lo = static_cast<char>(c & 0xFF), hi = static_cast<char>(c >> 8);
    out += big ? hi : lo;
    out += big ? lo : hi;
  }
  return out;
}

// A byte file that fails on a chosen read.
class FailingFile : public ZyrCfgByteFile {
 public:
  FailingFile(std::string data, int failOn) : data_(std::move(data)), failOn_(failOn) {}
  ZyrResult Read(void* buffer, std::size_t count, std::size_t* got) override {
    *got = 0;
    if (++reads_ == failOn_) return ZYR_E_INVALID_HANDLE;
    std::size_t n = std::min(count, data_.size() - pos_);
    std::memcpy(buffer, data_.data() + pos_, n);
    pos_ += n;
    *got = n;
    return n == 0 ? ZYR_E_END_OF_DATA : (n < count ? ZYR_I_SHORT_READ : ZYR_OK);
  }
  ZyrResult Write(const void*, std::size_t) override { return ZYR_E_NOT_SUPPORTED; }

 private:
  std::string data_;
  int failOn_;
  int reads_ = 0;
  std::size_t pos_ = 0;
};

}  // namespace

// ---------------------------------------------------------------------------
// Value scanner

TEST(CfgScanner, RightHandSides) {
  struct Case {
    const char16_t* rhs;
    ZyrResult result;
    std::uint32_t kind;
    const char16_t* text;
    std::vector<std::u16string> items;
    const char16_t* comment;
  } cases[] = {
      {u" abc ; note", ZYR_OK, 0, u"abc", {}, u" note"},
      {u" \"a b\"", ZYR_OK, 0, u"a b", {}, u""},
      {u" \"say \\\"hi\\\"\"", ZYR_OK, 0, u"say \"hi\"", {}, u""},
      {u" a b", ZYR_OK, 1, u"a b", {u"a", u"b"}, u""},
      {u" \"a b\" c ;x", ZYR_OK, 1, u"\"a b\" c", {u"a b", u"c"}, u"x"},
      {u" a, b", ZYR_OK, 1, u"a, b", {u"a,", u"b"}, u""},
      {u" C:\\logs\\x.log", ZYR_OK, 0, u"C:\\logs\\x.log", {}, u""},
      {u" \"abc", ZYR_E_CFG_BAD_VALUE_LINE, 0, u"", {}, u""},
      {u" \"abc\"def", ZYR_E_CFG_BAD_VALUE_LINE, 0, u"", {}, u""},
      {u";only", ZYR_OK, 0, u"", {}, u"only"},
      {u" value = more", ZYR_OK, 1, u"value = more", {u"value", u"=", u"more"}, u""},
      {u" ab\"c d\" e", ZYR_OK, 1, u"ab\"c d\" e", {u"abc d", u"e"}, u""},
      {u" \"a\";c", ZYR_OK, 0, u"a", {}, u"c"},
      {u" \"a\"\"b\"", ZYR_E_CFG_BAD_VALUE_LINE, 0, u"", {}, u""},
      {u" \"a\"\\", ZYR_OK, 1, u"\"a\"\\", {u"a", u"\\"}, u""},
      {u" \"a\\\\\"\"", ZYR_OK, 0, u"a\"", {}, u""},  // \\" in quotes ends as a lone quote
      {u" \"C:\\dir\\\"", ZYR_E_CFG_BAD_VALUE_LINE, 0, u"", {}, u""},
      {u" a\\\"b", ZYR_E_CFG_BAD_VALUE_LINE, 0, u"", {}, u""},
      {u" a\\\"b\"", ZYR_OK, 0, u"a\\b", {}, u""},
      {u" \"in;quote\" ; out;side", ZYR_OK, 0, u"in;quote", {}, u" out;side"},
  };
  for (const Case& c : cases) {
    std::u16string rhs = c.rhs;
    SCOPED_TRACE(std::string(rhs.begin(), rhs.end()));
    ZyrCfgScannedValue v;
    ASSERT_EQ(v.lineComment.AssignAscii("untouched"), ZYR_OK);
    ZyrResult r = ZyrCfgScanValue(rhs.data(), rhs.size(), &v);
    ASSERT_EQ(r, c.result);
    if (ZyrFailed(r)) {
      EXPECT_EQ(S(v.lineComment), u"untouched");
      continue;
    }
    EXPECT_EQ(v.kind, c.kind);
    EXPECT_EQ(S(v.text), c.text);
    EXPECT_EQ(Items(v), c.items);
    EXPECT_EQ(S(v.lineComment), c.comment);
  }
}

// ---------------------------------------------------------------------------
// String streams

TEST(CfgStringStreams, ReaderSplitsAtLineFeedOnly) {
  ZyrResult end;
  ZyrStringReader a(u"one\r\ntwo\rthree\n\nfour\r");
  EXPECT_EQ(ReadAll(a, &end),
            (std::vector<std::u16string>{u"one", u"two\rthree", u"", u"four"}));
  EXPECT_EQ(end, ZYR_E_END_OF_DATA);

  ZyrBasString line;
  ZyrStringReader b(u"x\ny");
  EXPECT_EQ(b.ReadLine(&line), ZYR_OK);
  EXPECT_EQ(b.ReadLine(&line), ZYR_I_SHORT_READ);  // the line that uses up the text
  EXPECT_EQ(S(line), u"y");
  EXPECT_EQ(b.ReadLine(&line), ZYR_E_END_OF_DATA);

  ZyrStringReader c(u"x\n");
  EXPECT_EQ(ReadAll(c), std::vector<std::u16string>{u"x"});  // no extra empty line
  EXPECT_EQ(c.WriteLine(u"x", 1), ZYR_E_NOT_SUPPORTED);
}

TEST(CfgStringStreams, WriterAppendsWithCrLf) {
  ZyrBasString out;
  ASSERT_EQ(out.AssignAscii(">"), ZYR_OK);
  ZyrStringWriter w(&out);
  ASSERT_EQ(w.WriteText(u"a\nb", ZYR_TERMINATED), ZYR_OK);  // LF passes as it is
  ASSERT_EQ(w.WriteLine(u"[s]xyz", 3), ZYR_OK);
  ASSERT_EQ(w.WriteLine(u"", 0), ZYR_OK);
  EXPECT_EQ(S(out), u">a\nb[s]\r\n\r\n");
  ZyrBasString line;
  EXPECT_EQ(w.ReadLine(&line), ZYR_E_NOT_SUPPORTED);
}

// ---------------------------------------------------------------------------
// Loading

TEST(CfgLoad, EmptyTextGivesAnEmptyDocument) {
  ZyrCfgDocument doc;
  Load(doc, u"[old]\nk = v\nbad\n");
  ASSERT_EQ(doc.sections.Count(), 1u);
  Load(doc, u"");  // a second load starts from nothing
  EXPECT_EQ(doc.sections.Count(), 0u);
  EXPECT_TRUE(Errors(doc).empty());
  EXPECT_EQ(doc.lineNumber, 0u);
}

TEST(CfgLoad, CommentsAttachAcrossBlankLines) {
  ZyrCfgDocument doc;
  Load(doc,
       u"\n\n; first\n\n; second\nk = v\n"    // lines 1-6: blanks before a block vanish
       u"[s]\n"
       u"; lead\n\nk = v ; tail\n"            // a blank line does not detach
       u"  ;;  indented ; more\nm = 1\n"
       u"; lost at the end\n");
  EXPECT_EQ(Errors(doc), (std::vector<Error>{{6, ZYR_E_CFG_VALUE_OUTSIDE_SECTION}}));
  ZyrCfgSectionRef s = doc.FindSection(u"s");
  ASSERT_TRUE(s);
  EXPECT_EQ(S(s->comment), u"");  // the value line before it took the comment away
  ZyrCfgValueRef k = Value(doc, u"s", u"k");
  EXPECT_EQ(S(k->leadingComment), u" lead");
  EXPECT_EQ(S(k->lineComment), u" tail");
  EXPECT_EQ(S(Value(doc, u"s", u"m")->leadingComment), u";  indented ; more");
  EXPECT_EQ(doc.pendingComment.Length(), 0u);

  ZyrCfgDocument two;
  Load(two, u"[s]\n; first\n\n; second\nk = v\n");
  EXPECT_EQ(S(Value(two, u"s", u"k")->leadingComment), u" first\r\n\r\n second");
}

TEST(CfgLoad, SectionHeaders) {
  ZyrCfgDocument doc;
  Load(doc,
       u"; above\n"
       u"[a] trailing words ; behind\n"  // 2
       u"[ b ]\n"                        // 3
       u"  [c;d] x\n"                    // 4
       u"[e\n"                           // 5
       u"[]\n"                           // 6
       u"[a]\n"                          // 7
       u"[A]\n");                        // 8
  EXPECT_EQ(Errors(doc), (std::vector<Error>{{5, ZYR_E_CFG_SECTION_NOT_CLOSED},
                                             {6, ZYR_E_CFG_SECTION_NOT_CLOSED},
                                             {7, ZYR_E_CFG_DUPLICATE_SECTION}}));
  EXPECT_EQ(S(doc.FindSection(u"a")->comment), u" above\r\n behind");
  ASSERT_TRUE(doc.FindSection(u" b "));
  EXPECT_FALSE(doc.FindSection(u"b"));
  // A ";" inside the brackets stays in the name and starts a comment too.
  ASSERT_TRUE(doc.FindSection(u"c;d"));
  EXPECT_EQ(S(doc.FindSection(u"c;d")->comment), u"d] x");
  EXPECT_TRUE(doc.FindSection(u"A"));
  EXPECT_EQ(doc.sections.Count(), 4u);
}

TEST(CfgLoad, ValuesBehindAFailedHeaderVanishSilently) {
  ZyrCfgDocument doc;
  Load(doc,
       u"[a]\n"         // 1
       u"k = 1\n"       // 2
       u"[a]\n"         // 3 duplicate: its values go
       u"k = 2\n"       // 4
       u"; c\n"         // 5
       u"j = 3\n"       // 6
       u"[b\n"          // 7
       u"x = y\n"       // 8
       u"; meanwhile\n" // 9
       u"z = w\n"       // 10
       u"[c]\n"         // 11
       u"q = 1\n");     // 12
  EXPECT_EQ(Errors(doc), (std::vector<Error>{{3, ZYR_E_CFG_DUPLICATE_SECTION},
                                             {7, ZYR_E_CFG_SECTION_NOT_CLOSED}}));
  EXPECT_EQ(S(Value(doc, u"a", u"k")->text), u"1");
  EXPECT_FALSE(Value(doc, u"a", u"j"));
  EXPECT_EQ(S(doc.FindSection(u"c")->comment), u"");
  EXPECT_EQ(S(Value(doc, u"c", u"q")->leadingComment), u"");  // the comment went with them

  ZyrCfgDocument outside;
  Load(outside, u"k = v\n[s]\n");
  EXPECT_EQ(Errors(outside), (std::vector<Error>{{1, ZYR_E_CFG_VALUE_OUTSIDE_SECTION}}));
}

TEST(CfgLoad, BadValueLines) {
  ZyrCfgDocument doc;
  Load(doc,
       u"[s]\n"                     // 1
       u"; dropped\n"               // 2
       u" \t \n"                    // 3 blanks only: a bad line, not an empty one
       u"k = v\n"                   // 4
       u"no equals sign\n"          // 5
       u"= value\n"                 // 6
       u"  \t= value\n"             // 7
       u"k = again\n"               // 8
       u"q = \"open\n"              // 9
       u"key = value = more\n"      // 10
       u"Type = a\n"                // 11
       u"type = b\n"                // 12
       u"  spaced key\t= x\n"       // 13
       u"empty =\n");               // 14
  EXPECT_EQ(Errors(doc), (std::vector<Error>{{3, ZYR_E_CFG_BAD_VALUE_LINE},
                                             {5, ZYR_E_CFG_BAD_VALUE_LINE},
                                             {6, ZYR_E_CFG_BAD_VALUE_LINE},
                                             {7, ZYR_E_CFG_BAD_VALUE_LINE},
                                             {8, ZYR_E_CFG_DUPLICATE_VALUE},
                                             {9, ZYR_E_CFG_BAD_VALUE_LINE}}));
  ZyrCfgValueRef k = Value(doc, u"s", u"k");
  EXPECT_EQ(S(k->text), u"v");
  EXPECT_EQ(S(k->leadingComment), u"");  // the blank line dropped the pending comment
  EXPECT_FALSE(Value(doc, u"s", u"q"));
  ZyrCfgValueRef key = Value(doc, u"s", u"key");
  ASSERT_TRUE(key);
  EXPECT_EQ(key->kind, ZYR_CFG_LIST);
  EXPECT_EQ(S(key->text), u"value = more");
  EXPECT_EQ(key->items.Count(), 3u);
  EXPECT_EQ(S(Value(doc, u"s", u"type")->text), u"b");
  EXPECT_TRUE(Value(doc, u"s", u"spaced key"));
  EXPECT_TRUE(Value(doc, u"s", u"empty"));
}

// ---------------------------------------------------------------------------
// File text stream

TEST(CfgFileStream, ByteOrderMark) {
  struct Case {
    std::string bytes;
    std::uint32_t encoding;
  } cases[] = {
      {"\xEF\xBB\xBF[gr\xC3\xB6\xC3\x9F" "e]\n", ZYR_CFG_ENC_UTF8},
      {"[gr\xC3\xB6\xC3\x9F" "e]\n", ZYR_CFG_ENC_ANSI},  // the ANSI page is UTF-8 here
      {Utf16(u"\uFEFF[gr\u00f6\u00dfe]\r\n", false, false), ZYR_CFG_ENC_UTF16LE},
      {Utf16(u"\uFEFF[gr\u00f6\u00dfe]\r\n", true, false), ZYR_CFG_ENC_UTF16BE},
  };
  for (const Case& c : cases) {
    ZyrCfgMemoryFile file(c.bytes.data(), c.bytes.size());
    ZyrFileTextStream stream(&file);
    ZyrCfgDocument doc;
    ASSERT_EQ(doc.Load(stream), ZYR_OK);
    EXPECT_EQ(stream.Encoding(), c.encoding);
    EXPECT_TRUE(doc.FindSection(u"gr\u00f6\u00dfe")) << "encoding " << c.encoding;
  }
  // Too few bytes for any mark.
  ZyrCfgMemoryFile one("\xFF", 1);
  ZyrFileTextStream stream(&one);
  ZyrResult end;
  EXPECT_EQ(ReadAll(stream, &end).size(), 0u);  // 0xFF alone is no valid UTF-8
  EXPECT_EQ(stream.Encoding(), ZYR_CFG_ENC_ANSI);
}

TEST(CfgFileStream, MixedLineEndsAcrossChunkBoundaries) {
  const std::u16string text = u"a\r\nbb\rccc\n\r\n\n\u00e9\u4e2d\r\r\ndd\re";
  const std::vector<std::u16string> expected = {u"a", u"bb", u"ccc", u"", u"", u"\u00e9\u4e2d",
                                                u"", u"dd", u"e"};
  std::string utf8 = "\xEF\xBB\xBF" "a\r\nbb\rccc\n\r\n\n\xC3\xA9\xE4\xB8\xAD\r\r\ndd\re";
  std::string sources[] = {utf8, Utf16(text, false, true), Utf16(text, true, true)};
  // Every chunk size and every cap on the reads moves a CR, a CR LF and a
  // multi-byte character across a refill somewhere.
  for (const std::string& bytes : sources) {
    for (std::size_t chunk = 8; chunk <= 24; ++chunk) {
      for (std::size_t cap : {std::size_t(1), std::size_t(3), std::size_t(5), std::size_t(4096)}) {
        ZyrCfgMemoryFile file(bytes.data(), bytes.size());
        file.LimitReads(cap);
        ZyrFileTextStream stream(&file, ZYR_CFG_ENC_UNKNOWN, ZYR_CFG_EOL_UNKNOWN, chunk);
        ZyrResult end;
        ASSERT_EQ(ReadAll(stream, &end), expected) << "chunk " << chunk << " cap " << cap;
        EXPECT_EQ(end, ZYR_E_END_OF_DATA);
        EXPECT_EQ(stream.LineEnd(), ZYR_CFG_EOL_CRLF);  // the first line end seen
      }
    }
  }
  std::string lf = "x\ny\r\n";
  ZyrCfgMemoryFile file(lf.data(), lf.size());
  ZyrFileTextStream stream(&file);
  EXPECT_EQ(ReadAll(stream), (std::vector<std::u16string>{u"x", u"y"}));
  EXPECT_EQ(stream.LineEnd(), ZYR_CFG_EOL_LF);
}

TEST(CfgFileStream, LongLines) {
  std::string name(10000, 'n');
  std::string bytes = "[" + name + "]\r\n" + std::string(5000, 'k') + " = " + std::string(9000, 'v');
  ZyrCfgMemoryFile file(bytes.data(), bytes.size());
  ZyrFileTextStream stream(&file);
  ZyrCfgDocument doc;
  ASSERT_EQ(doc.Load(stream), ZYR_OK);
  ZyrCfgValueRef v = Value(doc, zyrtest::U16(name).c_str(), zyrtest::U16(std::string(5000, 'k')).c_str());
  ASSERT_TRUE(v);
  EXPECT_EQ(v->text.Length(), 9000u);
}

TEST(CfgFileStream, OddTrailingByteOfUtf16EndsTheText) {
  std::string bytes = Utf16(u"a\nbc", false, true) + "d";
  ZyrCfgMemoryFile file(bytes.data(), bytes.size());
  ZyrFileTextStream stream(&file, ZYR_CFG_ENC_UNKNOWN, ZYR_CFG_EOL_UNKNOWN, 8);
  ZyrResult end;
  EXPECT_EQ(ReadAll(stream, &end), (std::vector<std::u16string>{u"a", u"bc"}));
  EXPECT_EQ(end, ZYR_E_END_OF_DATA);
  ZyrBasString line;
  EXPECT_EQ(stream.ReadLine(&line), ZYR_E_END_OF_DATA);
}

TEST(CfgFileStream, FailuresEndTheTextAtTheirLine) {
  // Broken UTF-8 on line 3: what came before stays.
  std::string bytes = "\xEF\xBB\xBF[s]\na = 1\nb = \xC0\x80\nc = 3\n";
  ZyrCfgMemoryFile file(bytes.data(), bytes.size());
  ZyrFileTextStream stream(&file);
  ZyrCfgDocument doc;
  ASSERT_EQ(doc.Load(stream), ZYR_OK);
  EXPECT_TRUE(Value(doc, u"s", u"a"));
  EXPECT_FALSE(Value(doc, u"s", u"b"));
  EXPECT_FALSE(Value(doc, u"s", u"c"));

  // A failing read passes through ReadLine.
  std::string text = "[s]\n" + std::string(5000, 'x') + "\n";
  FailingFile failing(text, 2);
  ZyrFileTextStream failingStream(&failing);
  ZyrResult end;
  EXPECT_EQ(ReadAll(failingStream, &end), std::vector<std::u16string>{u"[s]"});
  EXPECT_EQ(end, ZYR_E_INVALID_HANDLE);
}

TEST(CfgFileStream, WritesEachEncodingWithItsLineEnd) {
  ZyrCfgMemoryFile le;
  ZyrFileTextStream a(&le, ZYR_CFG_ENC_UTF16LE, ZYR_CFG_EOL_CRLF);
  ASSERT_EQ(a.WriteMark(), ZYR_OK);
  ASSERT_EQ(a.WriteText(u"x\ny", ZYR_TERMINATED), ZYR_OK);
  ASSERT_EQ(a.WriteLine(u"\u00e9", 1), ZYR_OK);
  EXPECT_EQ(Bytes(le.Written()), Utf16(u"x\r\ny\u00e9\r\n", false, true));

  ZyrCfgMemoryFile be;
  ZyrFileTextStream b(&be, ZYR_CFG_ENC_UTF16BE, ZYR_CFG_EOL_CR);
  ASSERT_EQ(b.WriteMark(), ZYR_OK);
  ASSERT_EQ(b.WriteLine(u"\u4e2d", 1), ZYR_OK);
  EXPECT_EQ(Bytes(be.Written()), Utf16(u"\u4e2d\r", true, true));

  ZyrCfgMemoryFile ansi;
  ZyrFileTextStream d(&ansi, ZYR_CFG_ENC_ANSI, ZYR_CFG_EOL_LF);
  ASSERT_EQ(d.WriteMark(), ZYR_OK);  // no mark for ANSI
  ASSERT_EQ(d.WriteLine(u"\u00e9", ZYR_TERMINATED), ZYR_OK);
  EXPECT_EQ(Bytes(ansi.Written()), "\xC3\xA9\n");

  // What was written with a mark reads back by that mark.
  ZyrCfgMemoryFile back(le.Written().begin(), le.Written().Count());
  ZyrFileTextStream r(&back);
  EXPECT_EQ(ReadAll(r), (std::vector<std::u16string>{u"x", u"y\u00e9"}));
}

// ---------------------------------------------------------------------------
// Loading files

using CfgLoadFile = zyrtest::TempDirTest;

TEST_F(CfgLoadFile, ReadsAFileWithEitherSeparator) {
  zyrtest::WriteFile(P("privlog.cfg"), Utf16(u"[root]\r\nSeverity = Debug\r\n", false, true));
  for (const std::u16string& path : {zyrtest::U16(P("privlog.cfg")), WP("privlog.cfg")}) {
    ZyrCfgDocument doc;
    ASSERT_EQ(doc.LoadFile(path.c_str()), ZYR_OK);
    ZyrCfgValueRef v = Value(doc, u"root", u"Severity");
    ASSERT_TRUE(v);
    EXPECT_EQ(S(v->text), u"Debug");
  }
}

TEST_F(CfgLoadFile, FailedOpenLeavesTheDocumentEmpty) {
  ZyrCfgDocument doc;
  Load(doc, u"[old]\nbad\n");
  ASSERT_EQ(doc.sections.Count(), 1u);
  EXPECT_EQ(doc.LoadFile(WP("missing.cfg").c_str()), ZYR_E_FILE_NOT_FOUND);
  EXPECT_EQ(doc.sections.Count(), 0u);
  EXPECT_EQ(doc.lineErrors.Count(), 0u);
  EXPECT_TRUE(ZyrFailed(doc.LoadFile(zyrtest::U16(dir_).c_str())));
  EXPECT_EQ(doc.LoadFile(u""), ZYR_E_INVALID_ARGUMENT);
}
