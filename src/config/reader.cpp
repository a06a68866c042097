#include "config/reader.h"

#include <cstring>

#include "base/memory.h"
#include "base/file.h"
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
      return Decode(line);
    }
  }
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
  if (ZyrFailed(r)) return r;
  if (length == 0) {
    line->Clear();
    return ZYR_OK;
  }
  r = line->Resize(length);
  if (ZyrFailed(r)) return r;
  std::size_t written = 0;
  r = ZyrBasToWide(line->Data(), length + 1, text, page, &written, n);
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

class Loader {
 public:
  explicit Loader(ZyrCfgDocument& document) : doc_(document) {}

  ZyrResult Run(ZyrTextStream& stream) {
    ZyrBasString line;
    ZyrResult result = ZYR_OK;
    while (ZyrSucceeded(stream.ReadLine(&line))) {
      ++doc_.lineNumber;
      result = Line(line.Text(), line.Length());
      if (ZyrFailed(result)) break;
    }
    doc_.currentSection.Reset();
    doc_.pendingComment.Clear();  // a comment that nothing followed is lost
    return result;
  }

 private:
  // Fails only when a comment cannot be kept.
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
      ZyrResult fatal = ZYR_OK;
      ZyrResult r = Header(s, n, p, &fatal);
      if (ZyrFailed(fatal)) return fatal;
      doc_.pendingComment.Clear();
      if (ZyrSucceeded(r)) {
        headerFailed_ = false;
        blankLines_ = 0;
      } else {
        // Values up to the next good header go with it, silently.
        RecordError(r);
        doc_.currentSection.Reset();
        headerFailed_ = true;
      }
      return ZYR_OK;
    }
    if (doc_.currentSection) {
      ZyrResult r = Value(s, n);
      if (ZyrFailed(r)) RecordError(r);
    } else if (!headerFailed_) {
      RecordError(ZYR_E_CFG_VALUE_OUTSIDE_SECTION);
    }
    doc_.pendingComment.Clear();
    blankLines_ = 0;
    return ZYR_OK;
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

  ZyrResult Header(const char16_t* s, std::size_t n, std::size_t p, ZyrResult* fatal) {
    std::size_t close = FindChar(s, n, p + 1, u']');
    // An empty name has no place in the document; it counts as a broken header.
    if (close == ZYR_NPOS || close == p + 1) return ZYR_E_CFG_SECTION_NOT_CLOSED;
    const char16_t* name = s + p + 1;
    std::size_t nameLength = close - p - 1;
    if (doc_.FindSection(name, nameLength)) return ZYR_E_CFG_DUPLICATE_SECTION;
    // The search starts at the bracket: a ";" inside the brackets stays in
    // the name and starts a comment as well.
    std::size_t semicolon = FindChar(s, n, p, u';');
    if (semicolon != ZYR_NPOS) {
      *fatal = AddComment(s + semicolon, n - semicolon);
      if (ZyrFailed(*fatal)) return *fatal;
    }
    ZyrCfgSectionRef section;
    ZyrResult r = ZyrCfgSectionRef::Make(&section);
    if (ZyrSucceeded(r)) r = section->SetName(name, nameLength);
    if (ZyrSucceeded(r)) r = section->comment.Assign(doc_.pendingComment);
    if (ZyrSucceeded(r)) r = doc_.AddSection(section);
    if (ZyrFailed(r)) return r;
    doc_.currentSection = static_cast<ZyrCfgSectionRef&&>(section);
    return ZYR_OK;
  }

  ZyrResult Value(const char16_t* s, std::size_t n) {
    std::size_t equals = FindChar(s, n, 0, u'=');
    if (equals == ZYR_NPOS) return ZYR_E_CFG_BAD_VALUE_LINE;
    std::size_t first, last;
    Trim(s, equals, &first, &last);
    if (first == last) return ZYR_E_CFG_BAD_VALUE_LINE;  // a value needs a name
    ZyrCfgSection& section = *doc_.currentSection;
    if (section.HasValue(s + first, last - first)) return ZYR_E_CFG_DUPLICATE_VALUE;
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
    return section.AddValue(value);
  }

  void RecordError(ZyrResult r) {
    // A list that cannot grow loses the entry; the load goes on.
    (void)doc_.lineErrors.Append(ZyrCfgLineError{doc_.lineNumber, r});
  }

  ZyrCfgDocument& doc_;
  bool headerFailed_ = false;
  std::uint64_t blankLines_ = 0;
};

}  // namespace

ZyrResult ZyrCfgFileBytes::Read(void* buffer, std::size_t count, std::size_t* got) {
  return file_.Read(buffer, count, got);
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
  // A folder opens for reading on this platform but holds no text.
  if (ZyrSucceeded(ZyrBasDirectoryExists(path))) return ZYR_E_ACCESS_DENIED;
  return file.Open(path, ZYR_FILE_OPEN_EXISTING, ZYR_FILE_READ, ZYR_FILE_SHARE_READ, 0);
}

ZyrResult ZyrCfgDocument::LoadOpened(ZyrBasFile& file) noexcept {
  ZyrCfgFileBytes bytes(file);
  ZyrFileTextStream stream(&bytes, ZYR_CFG_ENC_UNKNOWN, ZYR_CFG_EOL_UNKNOWN,
                           ZyrFileTextStream::kChunkSize);
  return Load(stream);
}

ZyrResult ZyrCfgDocument::LoadFile(const char16_t* path) noexcept {
  lineErrors.Clear();
  sections.Clear();
  lineNumber = 0;
  ZyrBasFile file;
  ZyrResult r = OpenFile(file, path);
  if (ZyrFailed(r)) return r;
  r = LoadOpened(file);
  file.Close();
  return r;
}
