#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "config/document.h"
#include "config/reader.h"
#include "test_support.h"

namespace {

using zyrtest::Str;
std::u16string S(const ZyrBasString& s) { return Str(s); }

using Errs = std::vector<std::pair<std::uint64_t, ZyrResult>>;  // line, result
using Lines = std::vector<std::u16string>;

Errs Errors(const ZyrCfgDocument& doc) {
  Errs out;
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

// Every line a stream gives, until it fails; the failure is kept too.
Lines ReadAll(ZyrTextStream& stream, ZyrResult* end = nullptr) {
  Lines lines;
  ZyrBasString line;
  ZyrResult r;
  while (ZyrSucceeded(r = stream.ReadLine(&line)) && lines.size() <= 100000)  // bounded: a stream that never ends
    lines.push_back(S(line));
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
  int failOn_, reads_ = 0;
  std::size_t pos_ = 0;
};

}  // namespace

TEST(CfgScanner, RightHandSides) {
  struct Case {
    const char16_t* rhs;
    ZyrResult result;
    std::uint32_t kind;
    const char16_t* text;
    Lines items;
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
    SCOPED_TRACE(zyrtest::Narrow(rhs));
    ZyrCfgScannedValue v;
    ASSERT_EQ(v.lineComment.AssignAscii("untouched"), ZYR_OK);
    ZyrResult r = ZyrCfgScanValue(rhs.data(), rhs.size(), &v);
    ASSERT_EQ(r, c.result);
    if (ZyrFailed(r)) {
      EXPECT_EQ(S(v.lineComment), u"untouched");
      continue;
    }
    Lines items;
    for (const ZyrBasString& s : v.items) items.push_back(S(s));
    EXPECT_EQ(v.kind, c.kind);
    EXPECT_EQ(S(v.text), c.text);
    EXPECT_EQ(items, c.items);
    EXPECT_EQ(S(v.lineComment), c.comment);
  }
}

// The string writer's CR LF is bound by the saved-text tests.
TEST(CfgStringStreams, ReaderSplitsAtLineFeedOnly) {
  ZyrResult end;
  ZyrStringReader a(u"one\r\ntwo\rthree\n\nfour\r");
  EXPECT_EQ(ReadAll(a, &end), (Lines{u"one", u"two\rthree", u"", u"four"}));
  EXPECT_EQ(end, ZYR_E_END_OF_DATA);

  ZyrBasString line;
  ZyrStringReader b(u"x\ny");
  EXPECT_EQ(b.ReadLine(&line), ZYR_OK);
  EXPECT_EQ(b.ReadLine(&line), ZYR_I_SHORT_READ);  // the line that uses up the text
  EXPECT_EQ(S(line), u"y");
  EXPECT_EQ(b.ReadLine(&line), ZYR_E_END_OF_DATA);
  ZyrStringReader c(u"x\n");
  EXPECT_EQ(ReadAll(c), Lines{u"x"});  // no extra empty line
  EXPECT_EQ(c.WriteLine(u"x", 1), ZYR_E_NOT_SUPPORTED);
}

TEST(CfgLoad, CommentsAttachAcrossBlankLines) {
  ZyrCfgDocument doc;
  Load(doc,
       u"\n\n; first\n\n; second\nk = v\n"    // lines 1-6: blanks before a block vanish
       u"[s]\n"
       u"; lead\n\nk = v ; tail\n"            // a blank line does not detach
       u"  ;;  indented ; more\nm = 1\n"
       u"; lost at the end\n");
  EXPECT_EQ(Errors(doc), (Errs{{6, ZYR_E_CFG_VALUE_OUTSIDE_SECTION}}));
  EXPECT_EQ(S(doc.FindSection(u"s")->comment), u"");  // the value line before it took the comment away
  ZyrCfgValueRef k = Value(doc, u"s", u"k");
  EXPECT_EQ(S(k->leadingComment), u" lead");
  EXPECT_EQ(S(k->lineComment), u" tail");
  EXPECT_EQ(S(Value(doc, u"s", u"m")->leadingComment), u";  indented ; more");
  EXPECT_EQ(doc.pendingComment.Length(), 0u);

  ZyrCfgDocument two;
  Load(two, u"[s]\n; first\n\n; second\nk = v\n");
  EXPECT_EQ(S(Value(two, u"s", u"k")->leadingComment), u" first\r\n\r\n second");
  Load(doc, u"");  // a second load starts from nothing
  EXPECT_EQ(doc.sections.Count(), 0u);
  EXPECT_TRUE(Errors(doc).empty());
  EXPECT_EQ(doc.lineNumber, 0u);
}

TEST(CfgLoad, SectionHeaders) {
  ZyrCfgDocument doc;
  Load(doc,
       u"; above\n[a] trailing words ; behind\n"  // 1-2
       u"[ b ]\n  [c;d] x\n"                      // 3-4
       u"[e\n[]\n[a]\n[A]\n");                    // 5-8
  EXPECT_EQ(Errors(doc), (Errs{{5, ZYR_E_CFG_SECTION_NOT_CLOSED},
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
       u"[a]\nk = 1\n"                      // 1-2
       u"[a]\nk = 2\n; c\nj = 3\n"          // 3-6: a duplicate, its values go
       u"[b\nx = y\n; meanwhile\nz = w\n"   // 7-10
       u"[c]\nq = 1\n");                    // 11-12
  EXPECT_EQ(Errors(doc), (Errs{{3, ZYR_E_CFG_DUPLICATE_SECTION}, {7, ZYR_E_CFG_SECTION_NOT_CLOSED}}));
  EXPECT_EQ(S(Value(doc, u"a", u"k")->text), u"1");
  EXPECT_FALSE(Value(doc, u"a", u"j"));
  EXPECT_EQ(S(doc.FindSection(u"c")->comment), u"");
  EXPECT_EQ(S(Value(doc, u"c", u"q")->leadingComment), u"");  // the comment went with them

  ZyrCfgDocument outside;
  Load(outside, u"k = v\n[s]\n");
  EXPECT_EQ(Errors(outside), (Errs{{1, ZYR_E_CFG_VALUE_OUTSIDE_SECTION}}));
}

TEST(CfgLoad, BadValueLines) {
  ZyrCfgDocument doc;
  Load(doc,
       u"[s]\n; dropped\n"
       u" \t \n"                                    // 3 blanks only: a bad line, not an empty one
       u"k = v\nno equals sign\n= value\n  \t= value\n"  // 4-7
       u"k = again\nq = \"open\n"                   // 8-9
       u"key = value = more\nType = a\ntype = b\n"  // 10-12
       u"  spaced key\t= x\nempty =\n");            // 13-14
  EXPECT_EQ(Errors(doc), (Errs{{3, ZYR_E_CFG_BAD_VALUE_LINE}, {5, ZYR_E_CFG_BAD_VALUE_LINE},
                               {6, ZYR_E_CFG_BAD_VALUE_LINE}, {7, ZYR_E_CFG_BAD_VALUE_LINE},
                               {8, ZYR_E_CFG_DUPLICATE_VALUE}, {9, ZYR_E_CFG_BAD_VALUE_LINE}}));
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
    SCOPED_TRACE(c.encoding);
    ZyrCfgMemoryFile file(c.bytes.data(), c.bytes.size());
    ZyrFileTextStream stream(&file);
    ZyrCfgDocument doc;
    ASSERT_EQ(doc.Load(stream), ZYR_OK);
    EXPECT_EQ(stream.Encoding(), c.encoding);
    EXPECT_TRUE(doc.FindSection(u"gr\u00f6\u00dfe"));
  }
  // Too few bytes for any mark.
  ZyrCfgMemoryFile one("\xFF", 1);
  ZyrFileTextStream stream(&one);
  EXPECT_EQ(ReadAll(stream).size(), 0u);  // 0xFF alone is no valid UTF-8
  EXPECT_EQ(stream.Encoding(), ZYR_CFG_ENC_ANSI);
}

// A mark split over short reads was once detected before it was whole.
TEST(CfgFileStream, MixedLineEndsAcrossChunkBoundaries) {
  const std::u16string text = u"a\r\nbb\rccc\n\r\n\n\u00e9\u4e2d\r\r\ndd\re";
  const Lines expected = {u"a", u"bb", u"ccc", u"", u"", u"\u00e9\u4e2d", u"", u"dd", u"e"};
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
  EXPECT_EQ(ReadAll(stream), (Lines{u"x", u"y"}));
  EXPECT_EQ(stream.LineEnd(), ZYR_CFG_EOL_LF);
}

TEST(CfgFileStream, LongLinesOddBytesAndReadFailuresEndTheText) {
  std::string name(10000, 'n'), key(5000, 'k');
  std::string longText = "[" + name + "]\r\n" + key + " = " + std::string(9000, 'v');
  ZyrCfgMemoryFile longFile(longText.data(), longText.size());
  ZyrFileTextStream longStream(&longFile);
  ZyrCfgDocument doc;
  ASSERT_EQ(doc.Load(longStream), ZYR_OK);
  ZyrCfgValueRef v = Value(doc, zyrtest::U16(name).c_str(), zyrtest::U16(key).c_str());
  ASSERT_TRUE(v);
  EXPECT_EQ(v->text.Length(), 9000u);

  // An odd trailing byte of UTF-16 ends the text.
  std::string odd = Utf16(u"a\nbc", false, true) + "d";
  ZyrCfgMemoryFile oddFile(odd.data(), odd.size());
  ZyrFileTextStream oddStream(&oddFile, ZYR_CFG_ENC_UNKNOWN, ZYR_CFG_EOL_UNKNOWN, 8);
  ZyrResult end;
  EXPECT_EQ(ReadAll(oddStream, &end), (Lines{u"a", u"bc"}));
  EXPECT_EQ(end, ZYR_E_END_OF_DATA);
  ZyrBasString line;
  EXPECT_EQ(oddStream.ReadLine(&line), ZYR_E_END_OF_DATA);

  // A failing read passes through ReadLine.
  FailingFile failing("[s]\n" + std::string(5000, 'x') + "\n", 2);
  ZyrFileTextStream failingStream(&failing);
  EXPECT_EQ(ReadAll(failingStream, &end), Lines{u"[s]"});
  EXPECT_EQ(end, ZYR_E_INVALID_HANDLE);
}

TEST(CfgFileStream, WritesEachEncodingWithItsLineEnd) {
  // A mark (none for ANSI), a text whose LF becomes the line end, a line of one character.
  auto write = [](ZyrCfgMemoryFile& file, std::uint32_t encoding, std::uint32_t end, const char16_t* line) {
    ZyrFileTextStream stream(&file, encoding, end);
    EXPECT_EQ(stream.WriteMark(), ZYR_OK);
    EXPECT_EQ(stream.WriteText(u"x\ny", ZYR_TERMINATED), ZYR_OK);
    EXPECT_EQ(stream.WriteLine(line, 1), ZYR_OK);
    return Bytes(file.Written());
  };
  ZyrCfgMemoryFile le, be, ansi;
  EXPECT_EQ(write(le, ZYR_CFG_ENC_UTF16LE, ZYR_CFG_EOL_CRLF, u"\u00e9"), Utf16(u"x\r\ny\u00e9\r\n", false, true));
  EXPECT_EQ(write(be, ZYR_CFG_ENC_UTF16BE, ZYR_CFG_EOL_CR, u"\u4e2d"), Utf16(u"x\ry\u4e2d\r", true, true));
  EXPECT_EQ(write(ansi, ZYR_CFG_ENC_ANSI, ZYR_CFG_EOL_LF, u"\u00e9"), "x\ny\xC3\xA9\n");
  // What was written with a mark reads back by that mark.
  ZyrCfgMemoryFile back(le.Written().begin(), le.Written().Count());
  ZyrFileTextStream r(&back);
  EXPECT_EQ(ReadAll(r), (Lines{u"x", u"y\u00e9"}));
}

using CfgLoadFile = zyrtest::TempDirTest;

TEST_F(CfgLoadFile, ReadsEitherSeparatorAndAFailedOpenLeavesTheDocumentEmpty) {
  zyrtest::WriteFile(P("privlog.cfg"), Utf16(u"[root]\r\nSeverity = Debug\r\n", false, true));
  for (const std::u16string& path : {zyrtest::U16(P("privlog.cfg")), WP("privlog.cfg")}) {
    ZyrCfgDocument doc;
    ASSERT_EQ(doc.LoadFile(path.c_str()), ZYR_OK);
    ZyrCfgValueRef v = Value(doc, u"root", u"Severity");
    ASSERT_TRUE(v);
    EXPECT_EQ(S(v->text), u"Debug");
  }
  ZyrCfgDocument doc;
  Load(doc, u"[old]\nbad\n");
  ASSERT_EQ(doc.sections.Count(), 1u);
  EXPECT_EQ(doc.LoadFile(WP("missing.cfg").c_str()), ZYR_E_FILE_NOT_FOUND);
  EXPECT_EQ(doc.sections.Count(), 0u);
  EXPECT_EQ(doc.lineErrors.Count(), 0u);
  EXPECT_TRUE(ZyrFailed(doc.LoadFile(zyrtest::U16(dir_).c_str())));
  EXPECT_EQ(doc.LoadFile(u""), ZYR_E_INVALID_ARGUMENT);
}

namespace {

// Loads bytes as a file is read: `how` decides what an unterminated last
// line is.
ZyrResult LoadBytes(ZyrCfgDocument& doc, const std::string& bytes,
                    std::uint32_t how = ZYR_CFG_READ_NAMED) {
  ZyrCfgMemoryFile file(bytes.data(), bytes.size());
  return doc.LoadBytes(file, how);
}

// A file that is being rewritten: each read from the start gives the next
// of `versions`, and the stamps taken before and after a read differ until
// the read of version `stableFrom`.
class RewrittenFile : public ZyrCfgByteFile {
 public:
  RewrittenFile(std::vector<std::string> versions, std::size_t stableFrom)
      : versions_(std::move(versions)), stableFrom_(stableFrom) {}
  ZyrResult Read(void* buffer, std::size_t count, std::size_t* got) override {
    const std::string& v = versions_[read_];
    *got = std::min(count, v.size() - position_);
    std::memcpy(buffer, v.data() + position_, *got);
    position_ += *got;
    return *got == 0 ? ZYR_E_END_OF_DATA : *got < count ? ZYR_I_SHORT_READ : ZYR_OK;
  }
  ZyrResult Write(const void*, std::size_t) override { return ZYR_E_NOT_SUPPORTED; }
  ZyrResult Stamp(ZyrCfgFileStamp* out) override {
    out->size = versions_[read_].size();
    out->lastWrite = read_ >= stableFrom_ ? 0 : static_cast<std::int64_t>(++stamps_);
    return ZYR_OK;
  }
  ZyrResult Rewind() override {
    if (read_ + 1 < versions_.size()) ++read_;
    position_ = 0;
    return ZYR_OK;
  }

 private:
  std::vector<std::string> versions_;
  std::size_t stableFrom_, read_ = 0, position_ = 0, stamps_ = 0;
};

}  // namespace

// A line whose bytes are no text in the file's encoding (a Latin-1 byte in
// a file without a mark, read as UTF-8) is a line error with its number;
// the reading goes on. A broken header still breaks its section.
TEST(CfgLoad, LinesThatAreNoTextAreLineErrorsAndTheReadGoesOn) {
  ZyrCfgDocument doc;
  ASSERT_EQ(LoadBytes(doc, "[s]\na = 1\nb = caf\xE9\nc = 3\n"   // 1-4
                           " [t\xE9]\nd = 4\n"                   // 5-6
                           "[u]\n; \xE9 comment\ne = 5\n"),      // 7-9
            ZYR_OK);
  EXPECT_EQ(Errors(doc), (Errs{{3, ZYR_E_INVALID_DATA}, {5, ZYR_E_INVALID_DATA}, {8, ZYR_E_INVALID_DATA}}));
  EXPECT_TRUE(Value(doc, u"s", u"a"));
  EXPECT_FALSE(Value(doc, u"s", u"b"));
  EXPECT_TRUE(Value(doc, u"s", u"c"));
  EXPECT_FALSE(Value(doc, u"s", u"d"));  // not moved into the section before
  EXPECT_EQ(doc.sections.Count(), 2u);
  EXPECT_EQ(S(Value(doc, u"u", u"e")->leadingComment), u"");
}

// A file read again because it changed may be half saved: its last line,
// without a line end, is not applied then. Named files keep theirs.
TEST(CfgLoad, UnterminatedLastLineOfAChangedFileIsNotApplied) {
  struct Row {
    std::string bytes;
    std::uint32_t how;
    bool applied;
    Errs errors;
  };
  const Row rows[] = {
      {"[s]\nk = 1\nFileName = /t", ZYR_CFG_READ_NAMED, true, {}},
      {"[s]\nk = 1\nFileName = /t", ZYR_CFG_READ_CHANGED, false, {{3, ZYR_E_INVALID_DATA}}},
      {"[s]\nk = 1\nFileName = /tmp/x.log\n", ZYR_CFG_READ_CHANGED, true, {}},
      {"[s]\nk = 1\nFileName = /tmp/x.log\r", ZYR_CFG_READ_CHANGED, true, {}},
      {Utf16(u"[s]\r\nk = 1\r\nFileName = /t", false, true), ZYR_CFG_READ_CHANGED, false, {{3, ZYR_E_INVALID_DATA}}},
  };
  for (const Row& row : rows) {
    ZyrCfgDocument doc;
    ASSERT_EQ(LoadBytes(doc, row.bytes, row.how), ZYR_OK);
    EXPECT_TRUE(Value(doc, u"s", u"k"));
    EXPECT_EQ(static_cast<bool>(Value(doc, u"s", u"FileName")), row.applied) << row.bytes;
    EXPECT_EQ(Errors(doc), row.errors) << row.bytes;
  }
}

// Size and times compared before and after: a read that overlapped a write
// is done again, and a file that never holds still is refused.
TEST(CfgLoad, FileChangedWhileReadIsReadAgain) {
  struct Row {
    std::size_t stableFrom;
    ZyrResult result;
    const char16_t* severity;
  };
  const Row rows[] = {{0, ZYR_OK, u"A"}, {1, ZYR_OK, u"B"}, {2, ZYR_OK, u"C"}, {3, ZYR_E_SHARING_VIOLATION, nullptr}};
  for (const Row& row : rows) {
    RewrittenFile file({"[root]\nSeverity = A\nFileName = /t", "[root]\nSeverity = B\n", "[root]\nSeverity = C\n",
                        "[root]\nSeverity = D\n"},
                       row.stableFrom);
    ZyrCfgDocument doc;
    EXPECT_EQ(doc.LoadBytes(file, ZYR_CFG_READ_CHANGED), row.result);
    ZyrCfgValueRef v = Value(doc, u"root", u"Severity");
    EXPECT_EQ(v ? S(v->text) : u"", row.severity ? row.severity : u"");
  }
}

// Sections and keys in any order, with repeats: the maps come out in name
// order, the first of a name wins, and each repeat is an error at its line.
TEST(CfgLoad, NamesInAnyOrderComeOutSortedAndTheFirstWins) {
  std::u16string text;
  Errs expected;
  std::uint64_t line = 0;
  std::vector<int> first(1000, -1);  // the first i of each name
  for (int n = 0; n < 3000; ++n) {
    int i = (n * 7919) % 3000;  // a fixed shuffle
    std::u16string name = zyrtest::U16("s" + std::to_string(i % 1000));
    text += u"[" + name + u"]\n";
    ++line;
    if (first[i % 1000] >= 0) {
      expected.push_back({line, ZYR_E_CFG_DUPLICATE_SECTION});
      continue;
    }
    first[i % 1000] = i;
    text += u"k3 = " + zyrtest::U16(std::to_string(i)) + u"\nk1 = 1\nk2 = 2\nk1 = again\n";
    line += 4;
    expected.push_back({line, ZYR_E_CFG_DUPLICATE_VALUE});
  }
  ZyrCfgDocument doc;
  Load(doc, text.c_str());
  EXPECT_EQ(Errors(doc), expected);
  ASSERT_EQ(doc.sections.Count(), 1000u);
  for (std::size_t i = 1; i < doc.sections.Count(); ++i)
    EXPECT_LT(doc.sections.At(i - 1).name.Compare(doc.sections.At(i).name), 0);
  ZyrCfgSectionRef s = doc.FindSection(u"s7");
  ASSERT_TRUE(s);
  ASSERT_EQ(s->values.Count(), 3u);
  EXPECT_EQ(S(s->values.At(0).value->text), u"1");
  EXPECT_EQ(S(s->values.At(2).value->text), zyrtest::U16(std::to_string(first[7])));
}
