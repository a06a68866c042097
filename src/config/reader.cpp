#include "config/reader.h"

#include <algorithm>
#include <cstring>

#include "base/memory.h"
#include "base/file.h"
#include "base/trust.h"
#include "base/textconv.h"

namespace {

constexpr char16_t kCR = 13;
constexpr char16_t kLF = 10;

std::size_t Measure(const char16_t* text, std::size_t length) noexcept {
  if (!text) return 0;
  return length == ZYR_TERMINATED ? ZyrBasStrLen(text) : length;
}

// Blanks that classify a line: TAB, VT, SPACE.
bool IsLineBlank(char16_t c) noexcept { return c == 9 || c == 11 || c == 32; }
// Blanks that separate the tokens of a value: TAB, SPACE.
bool IsTokenBlank(char16_t c) noexcept { return c == 9 || c == 32; }
// What trimming removes from both ends: SPACE, TAB, LF, CR, VT.
bool IsTrim(char16_t c) noexcept { return c == 32 || c == 9 || c == 10 || c == 13 || c == 11; }

void Trim(const char16_t* text, std::size_t length, std::size_t* first, std::size_t* last) noexcept {
  std::size_t a = 0, b = length;
  while (a < b && IsTrim(text[a])) ++a;
  while (b > a && IsTrim(text[b - 1])) --b;
  *first = a;
  *last = b;
}

std::size_t FindChar(const char16_t* text, std::size_t length, std::size_t start,
                     char16_t c) noexcept {
  for (std::size_t i = start; i < length; ++i)
    if (text[i] == c) return i;
  return ZYR_NPOS;
}

}  // namespace

// ---------------------------------------------------------------------------
// ZyrStringReader, ZyrStringWriter

ZyrStringReader::ZyrStringReader(const char16_t* text, std::size_t length) noexcept
    : text_(text ? text : kZyrEmptyText), length_(Measure(text, length)) {}

ZyrResult ZyrStringReader::ReadLine(ZyrBasString* line) {
  if (position_ >= length_) return ZYR_E_END_OF_DATA;
  std::size_t start = position_;
  std::size_t lf = FindChar(text_, length_, start, kLF);
  std::size_t end = lf == ZYR_NPOS ? length_ : lf;
  std::size_t next = lf == ZYR_NPOS ? length_ : lf + 1;
  // One CR before the LF, or at the very end of the text, belongs to the line end.
  std::size_t cut = end;
  if (cut > start && text_[cut - 1] == kCR) --cut;
  ZyrResult r = line->Assign(text_ + start, cut - start);
  if (ZyrFailed(r)) return r;
  position_ = next;
  return position_ >= length_ ? ZYR_I_SHORT_READ : ZYR_OK;
}

ZyrResult ZyrStringWriter::WriteText(const char16_t* text, std::size_t length) {
  return target_->Append(text, Measure(text, length));
}

ZyrResult ZyrStringWriter::WriteLine(const char16_t* text, std::size_t length) {
  std::size_t n = Measure(text, length);
  // Room for both pieces first, so that a failure appends nothing.
  ZyrResult r = target_->Reserve(target_->Length() + n + 3);
  if (ZyrSucceeded(r)) r = target_->Append(text, n);
  if (ZyrSucceeded(r)) r = target_->Append(u"\r\n", 2);
  return r;
}

// ---------------------------------------------------------------------------
// ZyrCfgMemoryFile

ZyrResult ZyrCfgMemoryFile::Read(void* buffer, std::size_t count, std::size_t* got) {
  std::size_t left = size_ - position_;
  std::size_t n = count < left ? count : left;
  if (n > readLimit_) n = readLimit_;
  if (n) std::memcpy(buffer, data_ + position_, n);
  position_ += n;
  *got = n;
  if (n == 0 && count != 0) return ZYR_E_END_OF_DATA;
  return n < count ? ZYR_I_SHORT_READ : ZYR_OK;
}

ZyrResult ZyrCfgMemoryFile::Write(const void* bytes, std::size_t count) {
  ZyrResult r = written_.Reserve(written_.Count() + count);
  if (ZyrFailed(r)) return r;
  const std::uint8_t* b = static_cast<const std::uint8_t*>(bytes);
  for (std::size_t i = 0; i < count; ++i) written_.Append(b[i]);
  return ZYR_OK;
}

// ---------------------------------------------------------------------------
// ZyrFileTextStream

ZyrFileTextStream::ZyrFileTextStream(ZyrCfgByteFile* byteFile, std::uint32_t textEncoding,
                                     std::uint32_t textLineEnd, std::size_t chunk) noexcept
    : file(byteFile), encoding(textEncoding), lineEnd(textLineEnd), chunkSize(chunk < 8 ? 8 : chunk) {}

ZyrFileTextStream::~ZyrFileTextStream() { ZyrBasFree(buffer); }

ZyrResult ZyrFileTextStream::Refill() {
  if (endOfFile) return ZYR_OK;
  if (!buffer) {
    buffer = static_cast<std::uint8_t*>(ZyrBasAlloc(static_cast<std::size_t>(chunkSize)));
    if (!buffer) return ZYR_E_OUT_OF_MEMORY;
  }
  std::size_t kept = static_cast<std::size_t>(dataEnd - readPosition);
  if (kept && readPosition) std::memmove(buffer, buffer + readPosition, kept);
  readPosition = 0;
  dataEnd = kept;
  std::size_t want = static_cast<std::size_t>(chunkSize) - kept;
  std::size_t got = 0;
  ZyrResult r = file->Read(buffer + kept, want, &got);
  if (got > want) got = want;
  if (r == ZYR_E_END_OF_DATA || (ZyrSucceeded(r) && got == 0)) {
    endOfFile = true;
    dataEnd += got;
    return ZYR_OK;
  }
  if (ZyrFailed(r)) return r;
  dataEnd += got;
  return ZYR_OK;
}

ZyrResult ZyrFileTextStream::DetectMark() {
  // A short read may give less than a mark; the longest mark takes 3 bytes.
  do {
    ZyrResult r = Refill();
    if (ZyrFailed(r)) return r;
  } while (!endOfFile && dataEnd - readPosition < 3);
  markChecked = true;
  if (encoding != ZYR_CFG_ENC_UNKNOWN) return ZYR_OK;
  const std::uint8_t* b = buffer + readPosition;
  std::size_t n = static_cast<std::size_t>(dataEnd - readPosition);
  if (n >= 2 && b[0] == 0xFF && b[1] == 0xFE) {
    encoding = ZYR_CFG_ENC_UTF16LE;
    readPosition += 2;
  } else if (n >= 2 && b[0] == 0xFE && b[1] == 0xFF) {
    encoding = ZYR_CFG_ENC_UTF16BE;
    readPosition += 2;
  } else if (n >= 3 && b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF) {
    encoding = ZYR_CFG_ENC_UTF8;
    readPosition += 3;
  } else {
    encoding = ZYR_CFG_ENC_ANSI;
  }
  return ZYR_OK;
}

ZyrResult ZyrFileTextStream::ReadLine(ZyrBasString* line) {
  if (!markChecked) {
    ZyrResult r = DetectMark();
    if (ZyrFailed(r)) return r;
  }
  const bool wide = encoding == ZYR_CFG_ENC_UTF16LE || encoding == ZYR_CFG_ENC_UTF16BE;
  const bool bigEndian = encoding == ZYR_CFG_ENC_UTF16BE;
  const std::size_t w = wide ? 2 : 1;
  auto unitAt = [&](std::size_t i) -> char16_t {
    if (!wide) return buffer[i];
    return bigEndian ? static_cast<char16_t>(buffer[i] << 8 | buffer[i + 1])
                     : static_cast<char16_t>(buffer[i] | buffer[i + 1] << 8);
  };
  lineBytes.Clear();
  for (;;) {
    if (!endOfFile && dataEnd - readPosition <= 4) {
      ZyrResult r = Refill();
      if (ZyrFailed(r)) return r;
    }
    const std::size_t start = static_cast<std::size_t>(readPosition);
    const std::size_t end = static_cast<std::size_t>(dataEnd);
    // Before the end of the file a CR is never judged without the unit behind it.
    const std::size_t lookAhead = endOfFile ? w : 2 * w;
    std::size_t i = start;
    std::size_t endUnits = 0;
    std::uint32_t style = ZYR_CFG_EOL_UNKNOWN;
    for (; i + lookAhead <= end; i += w) {
      char16_t u = unitAt(i);
      if (u == kCR) {
        bool crlf = i + 2 * w <= end && unitAt(i + w) == kLF;
        endUnits = crlf ? 2 : 1;
        style = crlf ? ZYR_CFG_EOL_CRLF : ZYR_CFG_EOL_CR;
        break;
      }
      if (u == kLF) {
        endUnits = 1;
        style = ZYR_CFG_EOL_LF;
        break;
      }
    }
    if (i > start) {
      ZyrResult r = lineBytes.Reserve(lineBytes.Count() + (i - start));
      if (ZyrFailed(r)) return r;
      for (std::size_t k = start; k < i; ++k) lineBytes.Append(buffer[k]);
    }
    if (endUnits) {
      readPosition = i + endUnits * w;
      if (lineEnd == ZYR_CFG_EOL_UNKNOWN) lineEnd = style;
      return Decode(line);
    }
    readPosition = i;
    if (endOfFile) {
      // What is left is less than one unit: the half of a UTF-16 unit at the
      // end of an odd-sized file. It is no text, and reading ends here.
      readPosition = dataEnd;
      if (lineBytes.Empty()) return ZYR_E_END_OF_DATA;
      if (wholeLinesOnly) return Widened(line);
      return Decode(line);
    }
  }
}

// The line's bytes one by one as units, for a line that is no text: the
// reader still sees where it belongs. ZYR_E_INVALID_DATA, or a lack of memory.
ZyrResult ZyrFileTextStream::Widened(ZyrBasString* line) {
  ZyrResult r = line->Resize(lineBytes.Count());
  if (ZyrFailed(r)) return r;
  for (std::size_t i = 0; i < lineBytes.Count(); ++i) line->Data()[i] = lineBytes[i];
  return ZYR_E_INVALID_DATA;
}

ZyrResult ZyrFileTextStream::Decode(ZyrBasString* line) {
  const std::size_t n = lineBytes.Count();
  const std::uint8_t* b = lineBytes.begin();
  if (n == 0) {
    line->Clear();
    return ZYR_OK;
  }
  if (encoding == ZYR_CFG_ENC_UTF16LE || encoding == ZYR_CFG_ENC_UTF16BE) {
    const std::size_t units = n / 2;
    ZyrResult r = line->Resize(units);
    if (ZyrFailed(r)) return r;
    char16_t* out = line->Data();
    const bool big = encoding == ZYR_CFG_ENC_UTF16BE;
    for (std::size_t i = 0; i < units; ++i) {
      std::uint8_t lo = big ? b[2 * i + 1] : b[2 * i];
      std::uint8_t hi = big ? b[2 * i] : b[2 * i + 1];
      out[i] = static_cast<char16_t>(lo | hi << 8);
    }
    return ZYR_OK;
  }
  ZyrBasCodePage page = encoding == ZYR_CFG_ENC_UTF8 ? ZYR_CP_UTF8 : ZYR_CP_ANSI;
  const char* text = reinterpret_cast<const char*>(b);
  std::size_t length = 0;
  ZyrResult r = ZyrBasMeasureWide(&length, text, page, n);
  if (r == ZYR_E_INVALID_DATA) return Widened(line);
  if (ZyrFailed(r)) return r;
  if (length == 0) {
    line->Clear();
    return ZYR_OK;
  }
  r = line->Resize(length);
  if (ZyrFailed(r)) return r;
  std::size_t written = 0;
  r = ZyrBasToWide(line->Data(), length + 1, text, page, &written, n);
  if (r == ZYR_E_INVALID_DATA) return Widened(line);
  if (ZyrFailed(r)) return r;
  return line->Resize(written);
}

ZyrResult ZyrFileTextStream::WriteEncoded(const char16_t* text, std::size_t length) {
  if (length == 0) return ZYR_OK;
  if (encoding == ZYR_CFG_ENC_UTF16LE || encoding == ZYR_CFG_ENC_UTF16BE) {
    if (length > static_cast<std::size_t>(-1) / 2) return ZYR_E_OUT_OF_MEMORY;
    std::uint8_t* bytes = static_cast<std::uint8_t*>(ZyrBasAlloc(length * 2));
    if (!bytes) return ZYR_E_OUT_OF_MEMORY;
    const bool big = encoding == ZYR_CFG_ENC_UTF16BE;
    for (std::size_t i = 0; i < length; ++i) {
      std::uint8_t lo = static_cast<std::uint8_t>(text[i] & 0xFF);
      std::uint8_t hi = static_cast<std::uint8_t>(text[i] >> 8);
      bytes[2 * i] = big ? hi : lo;
      bytes[2 * i + 1] = big ? lo : hi;
    }
    ZyrResult r = file->Write(bytes, length * 2);
    ZyrBasFree(bytes);
    return r;
  }
  // An encoding never set writes as ANSI, which is what reading assumes of
  // text without a mark.
  ZyrBasCodePage page = encoding == ZYR_CFG_ENC_UTF8 ? ZYR_CP_UTF8 : ZYR_CP_ANSI;
  std::size_t needed = 0;
  ZyrResult r = ZyrBasMeasureNarrow(&needed, text, page, length);
  if (ZyrFailed(r)) return r;
  if (needed == 0) return ZYR_OK;
  char* bytes = static_cast<char*>(ZyrBasAlloc(needed + 1));
  if (!bytes) return ZYR_E_OUT_OF_MEMORY;
  std::size_t written = 0;
  r = ZyrBasToNarrow(bytes, needed + 1, text, page, &written, length);
  if (ZyrSucceeded(r)) r = file->Write(bytes, written);
  ZyrBasFree(bytes);
  return r;
}

ZyrResult ZyrFileTextStream::WriteText(const char16_t* text, std::size_t length) {
  std::size_t n = Measure(text, length);
  const char16_t* eol = lineEnd == ZYR_CFG_EOL_LF ? u"\n" : lineEnd == ZYR_CFG_EOL_CR ? u"\r" : u"\r\n";
  std::size_t start = 0;
  for (;;) {
    std::size_t lf = FindChar(text, n, start, kLF);
    std::size_t end = lf == ZYR_NPOS ? n : lf;
    ZyrResult r = WriteEncoded(text + start, end - start);
    if (ZyrFailed(r) || lf == ZYR_NPOS) return r;
    r = WriteEncoded(eol, ZyrBasStrLen(eol));
    if (ZyrFailed(r)) return r;
    start = lf + 1;
  }
}

ZyrResult ZyrFileTextStream::WriteLine(const char16_t* text, std::size_t length) {
  ZyrResult r = WriteText(text, length);
  if (ZyrFailed(r)) return r;
  return WriteText(u"\n", 1);
}

ZyrResult ZyrFileTextStream::WriteMark() {
  static const std::uint8_t kLittle[] = {0xFF, 0xFE};
  static const std::uint8_t kBig[] = {0xFE, 0xFF};
  static const std::uint8_t kUtf8[] = {0xEF, 0xBB, 0xBF};
  switch (encoding) {
    case ZYR_CFG_ENC_UTF16LE: return file->Write(kLittle, sizeof kLittle);
    case ZYR_CFG_ENC_UTF16BE: return file->Write(kBig, sizeof kBig);
    case ZYR_CFG_ENC_UTF8: return file->Write(kUtf8, sizeof kUtf8);
    default: return ZYR_OK;
  }
}

// ---------------------------------------------------------------------------
// Value scanner

ZyrResult ZyrCfgScanValue(const char16_t* text, std::size_t length,
                          ZyrCfgScannedValue* out) noexcept {
  enum State { Between, InQuote, Escape, AfterQuote };
  const std::size_t n = Measure(text, length);
  if (!text) text = kZyrEmptyText;
  ZyrCfgScannedValue result;
  ZyrBasArray<ZyrBasString> tokens;
  ZyrBasString token;
  bool open = false;
  State state = Between;
  std::size_t valueEnd = n;  // the right-hand side without its comment
  ZyrResult r = ZYR_OK;

  auto push = [&]() -> ZyrResult {
    if (!open) return ZYR_OK;
    ZyrResult pushed = tokens.Append(static_cast<ZyrBasString&&>(token));
    if (ZyrFailed(pushed)) return pushed;
    token = ZyrBasString();
    open = false;
    return ZYR_OK;
  };

  for (std::size_t i = 0; i < n && ZyrSucceeded(r); ++i) {
    const char16_t c = text[i];
    bool comment = false;
    switch (state) {
      case Between:
        if (IsTokenBlank(c)) {
          r = push();
        } else if (c == u'"') {
          open = true;
          state = InQuote;
        } else if (c == u';') {
          comment = true;
        } else {
          open = true;
          r = token.Append(c);
        }
        break;
      case InQuote:
        if (c == u'"') {
          r = push();  // the token is open, so even "" gives one
          state = AfterQuote;
        } else if (c == u'\\' && i + 1 < n && text[i + 1] == u'"') {
          state = Escape;
        } else {
          r = token.Append(c);
        }
        break;
      case Escape:
        r = token.Append(c);
        state = InQuote;
        break;
      case AfterQuote:
        if (IsTokenBlank(c)) {
          r = push();
          state = Between;
        } else if (c == u';') {
          comment = true;
        } else if (c == u'\\') {
          open = true;
          r = token.Append(c);
        } else {
          return ZYR_E_CFG_BAD_VALUE_LINE;
        }
        break;
    }
    if (comment) {
      r = result.lineComment.Assign(text + i + 1, n - i - 1);
      valueEnd = i;
      break;
    }
  }
  if (ZyrFailed(r)) return r;
  if (state == InQuote || state == Escape) return ZYR_E_CFG_BAD_VALUE_LINE;

  std::size_t first, last;
  Trim(text, valueEnd, &first, &last);
  r = push();
  if (ZyrFailed(r)) return r;
  for (ZyrBasString& t : tokens) {
    r = t.ReplaceAll(u"\\\"", 2, u"\"", 1);
    if (ZyrFailed(r)) return r;
  }
  if (tokens.Count() == 0) {
    r = result.text.Assign(text + first, last - first);
  } else if (tokens.Count() == 1) {
    result.text.Swap(tokens[0]);
  } else {
    result.kind = ZYR_CFG_LIST;
    r = result.text.Assign(text + first, last - first);
    result.items.Swap(tokens);
  }
  if (ZyrFailed(r)) return r;
  out->kind = result.kind;
  out->text.Swap(result.text);
  out->lineComment.Swap(result.lineComment);
  out->items.Swap(result.items);
  return ZYR_OK;
}

// ---------------------------------------------------------------------------
// Loading a document

namespace {

// The entries read for one map of the document (its sections, or the keys
// of one section), kept in the order read and sorted once when the map is
// complete; the first of a name wins. Inserting each into a sorted array
// moved half of its entries for every name out of order, so a million
// sections in random order took minutes; a tree beside it costs a cache
// miss at every level. Sorting costs O(n log n) on one array that holds the
// first eight units of each name, so that most comparisons touch nothing
// else.
template <class R>
class StagedNames {
 public:
  ZyrResult Add(const R& item, std::uint64_t line) noexcept {
    const ZyrBasString& name = item->name;
    return entries_.Emplace(ZyrBasGrowth::Standard,
                            Entry{{Prefix(name, 0), Prefix(name, 4)}, name.Text(), name.Length(), line, R(item)});
  }

  // Moves the entries into the empty `map` in name order. For every entry
  // whose name came before, `repeated(line)` is called instead, in name
  // order; its failure ends the move.
  template <class Repeated>
  ZyrResult MoveInto(ZyrBasNameMap<R>& map, Repeated repeated) noexcept {
    std::sort(entries_.begin(), entries_.end(), [](const Entry& a, const Entry& b) {
      int c = Compare(a, b);
      return c != 0 ? c < 0 : a.line < b.line;
    });
    ZyrResult r = ZYR_OK;
    const Entry* last = nullptr;
    for (Entry& e : entries_) {
      if (last && Compare(*last, e) == 0) {
        r = repeated(e.line);
      } else {
        r = map.Insert(e.name, e.length, static_cast<R&&>(e.item));
        last = &e;
      }
      if (ZyrFailed(r)) break;
    }
    entries_.Clear();
    return r;
  }

  bool Empty() const noexcept { return entries_.Empty(); }

 private:
  struct Entry {
    std::uint64_t prefix[2];
    const char16_t* name;  // in the item, which the entry holds
    std::size_t length;
    std::uint64_t line;
    R item;
  };

  // Four units from `from` as the name order sees them, byte by byte, with
  // zeros behind a shorter name: unequal prefixes order their names.
  static std::uint64_t Prefix(const ZyrBasString& name, std::size_t from) noexcept {
    std::uint64_t p = 0;
    for (std::size_t i = from; i < from + 4; ++i) {
      char16_t u = i < name.Length() ? name.Text()[i] : 0;
      p = p << 16 | static_cast<std::uint64_t>(u & 0xff) << 8 | static_cast<std::uint64_t>(u >> 8);
    }
    return p;
  }

  // By the first eight units where they differ, which settles most names
  // without touching them; else by the whole names.
  static int Compare(const Entry& a, const Entry& b) noexcept {
    for (int i = 0; i < 2; ++i)
      if (a.prefix[i] != b.prefix[i]) return a.prefix[i] < b.prefix[i] ? -1 : 1;
    return ZyrBasCompareOrdinal(a.name, a.length, b.name, b.length);
  }

  ZyrBasArray<Entry> entries_;
};

// Out of memory ends a load with ZYR_E_OUT_OF_MEMORY, whatever it struck: a
// document with a line missing would be applied as if it were whole.
//
// Repeated names are told apart when a map is complete (StagedNames): the
// values of a section are checked when the section ends, the sections when
// the text ends. Until then a repeated section takes its lines like any
// other; its errors are marked with its header's line and vanish with it,
// so that, as for any failed header, only the header's own error stands.
class Loader {
 public:
  explicit Loader(ZyrCfgDocument& document) : doc_(document) {}

  ZyrResult Run(ZyrTextStream& stream) {
    ZyrBasString line;
    ZyrResult result = ZYR_OK;
    for (;;) {
      ZyrResult read = stream.ReadLine(&line);
      if (read == ZYR_E_END_OF_DATA) break;
      // Any other failure of the text (a read error, a file too large, no
      // memory) fails the load: what was read is not the whole text.
      if (ZyrFailed(read) && read != ZYR_E_INVALID_DATA) {
        result = read;
        break;
      }
      ++doc_.lineNumber;
      result = read == ZYR_E_INVALID_DATA ? Unreadable(line.Text(), line.Length())
                                         : Line(line.Text(), line.Length());
      if (ZyrFailed(result)) break;
    }
    if (ZyrSucceeded(result)) result = EndSection();
    if (ZyrSucceeded(result))
      result = sections_.MoveInto(doc_.sections, [this](std::uint64_t header) {
        return repeatedSections_.Append(header);
      });
    if (ZyrSucceeded(result)) result = SettleErrors();
    doc_.currentSection.Reset();
    doc_.pendingComment.Clear();  // a comment that nothing followed is lost
    if (ZyrFailed(result)) doc_.sections.Clear();
    return result;
  }

 private:
  // Fails only when memory runs out.
  ZyrResult Line(const char16_t* s, std::size_t n) {
    if (n == 0) {
      ++blankLines_;  // kept pending: a blank line does not detach a comment
      return ZYR_OK;
    }
    std::size_t p = 0;
    while (p < n && IsLineBlank(s[p])) ++p;
    if (p < n && s[p] == u';') {
      for (; blankLines_; --blankLines_) {
        ZyrResult r = AddComment(nullptr, 0);
        if (ZyrFailed(r)) return r;
      }
      return AddComment(s, n);
    }
    if (p < n && s[p] == u'[') {
      ZyrResult r = EndSection();
      if (ZyrSucceeded(r)) r = Header(s, n, p);
      if (r == ZYR_E_OUT_OF_MEMORY) return r;
      doc_.pendingComment.Clear();
      if (ZyrSucceeded(r)) {
        headerFailed_ = false;
        blankLines_ = 0;
        return ZYR_OK;
      }
      return HeaderFailed(r);
    }
    if (doc_.currentSection) {
      ZyrResult r = Value(s, n);
      if (r == ZYR_E_OUT_OF_MEMORY) return r;
      if (ZyrFailed(r) && ZyrFailed(r = RecordError(r))) return r;
    } else if (!headerFailed_) {
      ZyrResult r = RecordError(ZYR_E_CFG_VALUE_OUTSIDE_SECTION);
      if (ZyrFailed(r)) return r;
    }
    doc_.pendingComment.Clear();
    blankLines_ = 0;
    return ZYR_OK;
  }

  // A line that is no text (bytes the encoding cannot convert, a last line
  // cut short) is recorded with ZYR_E_INVALID_DATA and skipped, but as
  // silently as any line behind a failed header. Where it stands as a
  // section header it breaks the section as a failed header does, so that
  // the values behind it do not land in the section before.
  ZyrResult Unreadable(const char16_t* s, std::size_t n) {
    std::size_t p = 0;
    while (p < n && IsLineBlank(s[p])) ++p;
    doc_.pendingComment.Clear();
    if (p < n && s[p] == u'[') {
      ZyrResult r = EndSection();
      return ZyrFailed(r) ? r : HeaderFailed(ZYR_E_INVALID_DATA);
    }
    blankLines_ = 0;
    return doc_.currentSection || !headerFailed_ ? RecordError(ZYR_E_INVALID_DATA) : ZYR_OK;
  }

  // Values up to the next good header go with a failed one, silently.
  ZyrResult HeaderFailed(ZyrResult failure) {
    doc_.currentSection.Reset();
    headerFailed_ = true;
    return RecordError(failure);
  }

  // Adds one comment line to the pending comment: leading blanks and one
  // ";" go, everything behind stays. Null text adds an empty line.
  ZyrResult AddComment(const char16_t* s, std::size_t n) {
    std::size_t p = 0;
    while (p < n && IsTrim(s[p])) ++p;
    if (p < n && s[p] == u';') ++p;
    if (!doc_.pendingComment.Empty()) {
      ZyrResult r = doc_.pendingComment.Append(u"\r\n", 2);
      if (ZyrFailed(r)) return r;
    }
    return doc_.pendingComment.Append(s + p, n - p);
  }

  ZyrResult Header(const char16_t* s, std::size_t n, std::size_t p) {
    std::size_t close = FindChar(s, n, p + 1, u']');
    // An empty name has no place in the document; it counts as a broken header.
    if (close == ZYR_NPOS || close == p + 1) return ZYR_E_CFG_SECTION_NOT_CLOSED;
    const char16_t* name = s + p + 1;
    std::size_t nameLength = close - p - 1;
    // The search starts at the bracket: a ";" inside the brackets stays in
    // the name and starts a comment as well.
    std::size_t semicolon = FindChar(s, n, p, u';');
    if (semicolon != ZYR_NPOS) {
      ZyrResult r = AddComment(s + semicolon, n - semicolon);
      if (ZyrFailed(r)) return r;
    }
    ZyrCfgSectionRef section;
    ZyrResult r = ZyrCfgSectionRef::Make(&section);
    if (ZyrSucceeded(r)) r = section->SetName(name, nameLength);
    if (ZyrSucceeded(r)) r = section->comment.Assign(doc_.pendingComment);
    if (ZyrSucceeded(r)) r = sections_.Add(section, doc_.lineNumber);
    if (ZyrFailed(r)) return r;
    doc_.currentSection = static_cast<ZyrCfgSectionRef&&>(section);
    sectionLine_ = doc_.lineNumber;
    return ZYR_OK;
  }

  ZyrResult Value(const char16_t* s, std::size_t n) {
    std::size_t equals = FindChar(s, n, 0, u'=');
    if (equals == ZYR_NPOS) return ZYR_E_CFG_BAD_VALUE_LINE;
    std::size_t first, last;
    Trim(s, equals, &first, &last);
    if (first == last) return ZYR_E_CFG_BAD_VALUE_LINE;  // a value needs a name
    ZyrCfgScannedValue scanned;
    ZyrResult r = ZyrCfgScanValue(s + equals + 1, n - equals - 1, &scanned);
    if (ZyrFailed(r)) return r;
    ZyrCfgValueRef value;
    r = ZyrCfgValueRef::Make(&value);
    if (ZyrSucceeded(r)) r = value->name.Assign(s + first, last - first);
    if (ZyrSucceeded(r)) r = value->leadingComment.Assign(doc_.pendingComment);
    if (ZyrFailed(r)) return r;
    value->kind = scanned.kind;
    value->text.Swap(scanned.text);
    value->lineComment.Swap(scanned.lineComment);
    value->items.Swap(scanned.items);
    return values_.Add(value, doc_.lineNumber);
  }

  // The values read for the current section go into it; a repeated key is
  // an error at its line.
  ZyrResult EndSection() {
    if (!doc_.currentSection) return ZYR_OK;
    return values_.MoveInto(doc_.currentSection->values, [this](std::uint64_t line) {
      return RecordErrorAt(line, ZYR_E_CFG_DUPLICATE_VALUE, sectionLine_);
    });
  }

  // ZYR_E_OUT_OF_MEMORY when the list cannot grow: a problem that nobody
  // could see afterwards would be lost without a trace.
  ZyrResult RecordError(ZyrResult r) {
    return RecordErrorAt(doc_.lineNumber, r, doc_.currentSection ? sectionLine_ : 0);
  }
  // `section`: the header line of the section the line stands in, or 0.
  ZyrResult RecordErrorAt(std::uint64_t line, ZyrResult r, std::uint64_t section) {
    if (!doc_.lineErrors.Empty() && doc_.lineErrors.Last().line > line) errorsUnordered_ = true;
    ZyrResult grown = errorSections_.Append(section);
    if (ZyrSucceeded(grown)) grown = doc_.lineErrors.Append(ZyrCfgLineError{line, r});
    if (ZyrFailed(grown) && errorSections_.Count() > doc_.lineErrors.Count())
      errorSections_.Truncate(doc_.lineErrors.Count());
    return grown;
  }

  // The errors of a repeated section's lines go with it, and the header's
  // own error stands for them; then all in the order of lines.
  ZyrResult SettleErrors() {
    if (repeatedSections_.Empty() && !errorsUnordered_) return ZYR_OK;
    std::sort(repeatedSections_.begin(), repeatedSections_.end());
    std::size_t kept = 0;
    for (std::size_t i = 0; i < doc_.lineErrors.Count(); ++i) {
      std::uint64_t section = errorSections_[i];
      if (section && std::binary_search(repeatedSections_.begin(), repeatedSections_.end(), section)) continue;
      doc_.lineErrors[kept++] = doc_.lineErrors[i];
    }
    doc_.lineErrors.Truncate(kept);
    for (std::uint64_t header : repeatedSections_) {
      ZyrResult r = doc_.lineErrors.Append(ZyrCfgLineError{header, ZYR_E_CFG_DUPLICATE_SECTION});
      if (ZyrFailed(r)) return r;
    }
    std::sort(doc_.lineErrors.begin(), doc_.lineErrors.end(),
              [](const ZyrCfgLineError& a, const ZyrCfgLineError& b) { return a.line < b.line; });
    return ZYR_OK;
  }

  ZyrCfgDocument& doc_;
  StagedNames<ZyrCfgSectionRef> sections_;
  StagedNames<ZyrCfgValueRef> values_;  // of the current section
  std::uint64_t sectionLine_ = 0;       // the current section's header line
  ZyrBasArray<std::uint64_t> errorSections_;     // beside lineErrors: the section of each
  ZyrBasArray<std::uint64_t> repeatedSections_;  // header lines of repeated sections
  bool errorsUnordered_ = false;  // a repeated key's error came behind a later line's
  bool headerFailed_ = false;
  std::uint64_t blankLines_ = 0;
};

// Reads of a file that keeps changing under them, before the load gives up.
constexpr int kReadAttempts = 3;

}  // namespace

ZyrResult ZyrCfgFileBytes::Read(void* buffer, std::size_t count, std::size_t* got) {
  // One byte more than the limit is asked for, so that a file of exactly
  // the limit reads whole and a larger one shows.
  if (left_ != ~std::uint64_t{0} && count > left_ + 1) count = static_cast<std::size_t>(left_ + 1);
  ZyrResult r = file_.Read(buffer, count, got);
  if (*got > left_) return ZYR_E_SIZE_TOO_LARGE;
  left_ -= *got;
  return r;
}

ZyrResult ZyrCfgFileBytes::Stamp(ZyrCfgFileStamp* out) {
  ZyrBasDirEntry info;
  ZyrResult r = file_.Query(&info);
  if (ZyrFailed(r)) return r;
  out->size = static_cast<std::uint64_t>(info.sizeHigh) << 32 | info.sizeLow;
  out->lastWrite = info.lastWriteTime;
  out->change = info.changeTime;
  return ZYR_OK;
}

ZyrResult ZyrCfgFileBytes::Rewind() {
  left_ = limit_;
  return file_.Seek(0, 0);
}

ZyrResult ZyrCfgFileBytes::Write(const void* bytes, std::size_t count) {
  std::size_t done = 0;
  ZyrResult r = file_.Write(bytes, count, &done);
  if (ZyrSucceeded(r) && done != count) r = ZYR_E_WRITE_FAULT;
  return r;
}

ZyrResult ZyrCfgDocument::Load(ZyrTextStream& stream) noexcept {
  lineErrors.Clear();
  sections.Clear();
  lineNumber = 0;
  pendingComment.Clear();
  currentSection.Reset();
  Loader loader(*this);
  return loader.Run(stream);
}

ZyrResult ZyrCfgDocument::OpenFile(ZyrBasFile& file, const char16_t* path) noexcept {
  if (!path || !*path) return ZYR_E_INVALID_ARGUMENT;
  // Without waiting, and regular files only: a FIFO at the name would hold
  // the caller, and with it the manager's lock, for good; a device would
  // give bytes without end.
  ZyrResult r = file.Open(path, ZYR_FILE_OPEN_EXISTING, ZYR_FILE_READ, ZYR_FILE_SHARE_READ,
                          ZYR_FILE_REGULAR_ONLY);
  if (ZyrSucceeded(r)) r = ZyrBasCheckTrusted(file, path);
  if (ZyrFailed(r)) (void)file.Close();
  return r;
}

ZyrResult ZyrCfgDocument::LoadBytes(ZyrCfgByteFile& file, std::uint32_t how) noexcept {
  for (int attempt = 0; attempt < kReadAttempts; ++attempt) {
    ZyrCfgFileStamp before, after;
    ZyrResult r = attempt > 0 ? file.Rewind() : ZYR_OK;
    if (ZyrSucceeded(r)) r = file.Stamp(&before);
    if (ZyrSucceeded(r) && before.size > kZyrCfgMaxFileBytes) r = ZYR_E_SIZE_TOO_LARGE;
    if (ZyrSucceeded(r)) {
      ZyrFileTextStream stream(&file, ZYR_CFG_ENC_UNKNOWN, ZYR_CFG_EOL_UNKNOWN,
                               ZyrFileTextStream::kChunkSize);
      stream.WholeLinesOnly(how == ZYR_CFG_READ_CHANGED);
      ZyrResult loaded = Load(stream);
      r = file.Stamp(&after);
      // Size and times as before: what was read is one version of the
      // file. Otherwise it may be half of each, and it is read again.
      if (ZyrSucceeded(r) && after == before) return loaded;
    }
    if (ZyrFailed(r)) {
      sections.Clear();
      return r;
    }
  }
  sections.Clear();
  return ZYR_E_SHARING_VIOLATION;  // rewritten during every read
}

ZyrResult ZyrCfgDocument::LoadOpened(ZyrBasFile& file, std::uint32_t how) noexcept {
  ZyrResult r = file.Seek(0, 0);
  if (ZyrFailed(r)) return r;
  ZyrCfgFileBytes bytes(file, kZyrCfgMaxFileBytes);
  return LoadBytes(bytes, how);
}

ZyrResult ZyrCfgDocument::LoadFile(const char16_t* path, std::uint32_t how) noexcept {
  lineErrors.Clear();
  sections.Clear();
  lineNumber = 0;
  ZyrBasFile file;
  ZyrResult r = OpenFile(file, path);
  if (ZyrFailed(r)) return r;
  r = LoadOpened(file, how);
  file.Close();
  return r;
}
