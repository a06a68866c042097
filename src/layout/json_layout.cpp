#include "layout/json_layout.h"

#include <cstring>

#include "base/memory.h"
#include "config/document.h"
#include "records/event.h"
#include "records/severity.h"
#include "records/standard_line.h"

const char16_t* const ZyrLogJsonLayout::kFieldNames[kFieldCount] = {
    u"time", u"severity", u"severity_number", u"logger", u"host",     u"pid",     u"tid",
    u"file", u"line",     u"build",           u"revision", u"product", u"msg",    u"args",
};

namespace {

constexpr char16_t kHexUpper[] = u"0123456789ABCDEF";
constexpr const ZyrBasDigitPairs& kDigits = kZyrBasDigitPairs;

// The most units a value other than a text takes, with its closing quote
// where it has one: a signed 64-bit number, or the time. Also the room
// that a literal's fixed-size copy may write beyond the literal.
constexpr std::size_t kBoundedRoom = 32;

// Values that are JSON strings: their prefix ends in the opening quote.
constexpr bool IsTextField(std::uint32_t field) {
  using F = ZyrLogJsonLayout;
  return field == F::kTime || field == F::kSeverity || field == F::kLogger || field == F::kHost ||
         field == F::kFile || field == F::kRevision || field == F::kMessage;
}

// No escape needed: not a control character, quote, backslash or surrogate.
inline bool Plain(char16_t c) {
  return c >= 0x20 && c != u'"' && c != u'\\' && (c & 0xf800) != 0xd800;
}
inline bool HighSurrogate(char16_t c) { return (c & 0xfc00) == 0xd800; }
inline bool LowSurrogate(char16_t c) { return (c & 0xfc00) == 0xdc00; }

// Whether no unit of `t` needs an escape: eight units a step, as one
// vector compare of each kind where the compiler has vectors, the last step
// overlapping the one before it; short texts as four units in one 64-bit
// word, where a borrow can only spread from a lane that is a hit already,
// so "any" is exact.
inline bool AllPlain(const char16_t* t, std::size_t n) {
#if defined(__GNUC__)
  if (n >= 8) {
    typedef std::uint16_t Eight __attribute__((vector_size(16)));
    Eight bad = {};
    for (std::size_t i = 0;; i += 8) {
      if (i + 8 > n) i = n - 8;
      Eight x;
      std::memcpy(&x, t + i, sizeof x);
      // Plain numbers: clang 14 crashes on a vector compared with a char16_t.
      bad |= (x < 0x20) | (x == 0x22) | (x == 0x5c) | ((x & 0xf800) == 0xd800);  // control, '"', '\\', surrogate
      if (i + 8 == n) break;
    }
    std::uint64_t half[2];
    std::memcpy(half, &bad, sizeof half);
    return (half[0] | half[1]) == 0;
  }
#endif
  if (n >= 4) {
    constexpr std::uint64_t kOnes = 0x0001000100010001ull, kHigh = 0x8000800080008000ull;
    for (std::size_t i : {std::size_t{0}, n - 4}) {
      std::uint64_t x;
      std::memcpy(&x, t + i, sizeof x);
      std::uint64_t quote = x ^ (kOnes * u'"'), backslash = x ^ (kOnes * u'\\');
      std::uint64_t surrogate = (x & (kOnes * 0xf800)) ^ (kOnes * 0xd800);
      std::uint64_t hit = ((x - kOnes * 0x20) & ~x) | ((quote - kOnes) & ~quote) |
                          ((backslash - kOnes) & ~backslash) | ((surrogate - kOnes) & ~surrogate);
      if (hit & kHigh) return false;
    }
    return n <= 8 || AllPlain(t + 4, n - 8);  // only without vectors: the middle
  }
  for (std::size_t i = 0; i < n; ++i)
    if (!Plain(t[i])) return false;
  return true;
}

// Literals are copied as one block of 16 or of this many units, whatever
// their length: a fixed-size move costs less than one chosen by the length.
// The literals have that much readable room behind each start, and each
// field has that much room planned in the line.
constexpr std::size_t kLiteralBlock = 32;

// The line as it is written: straight into the string's storage. The room
// for the usual line is planned at the start, so values go in unchecked;
// what makes a line longer than planned (an escape, a typed value) asks
// for more first. After a failed growth nothing unplanned is written (the
// text or typed list that asked is cut short), the planned rest still
// fits, and the line ends with ZYR_E_OUT_OF_MEMORY.
class JsonOut {
 public:
  explicit JsonOut(ZyrBasString& text) : text_(text) {}

  ZyrResult Start(std::size_t plan) {
    text_.Clear();
    ZyrResult r = text_.Reserve(plan + 1);
    if (ZyrFailed(r)) return r;
    begin_ = p_ = text_.Data();
    plan_ = plan;
    return ZYR_OK;
  }
  ZyrResult Finish() { return failed_ ? ZYR_E_OUT_OF_MEMORY : text_.Resize(Offset()); }

  bool Failed() const { return failed_; }
  std::size_t Offset() const { return static_cast<std::size_t>(p_ - begin_); }
  void Rewind(std::size_t offset) { p_ = begin_ + offset; }
  char16_t* Begin() { return begin_; }
  // Room for `n` units beyond the plan.
  bool More(std::size_t n) {
    plan_ += n;
    return (plan_ < text_.Capacity() && !failed_) || Grow();
  }

  // Unchecked: within the plan.
  void Unit(char16_t c) { *p_++ = c; }
  void Units(const char16_t* text, std::size_t n) {
    ZyrBasCopyUnits(p_, text, n);
    p_ += n;
  }
  void Literal(const char16_t* text, std::size_t n) {
    if (n <= kLiteralBlock / 2) std::memcpy(p_, text, kLiteralBlock);  // most keys: 16 units
    else if (n <= kLiteralBlock) std::memcpy(p_, text, kLiteralBlock * sizeof(char16_t));
    else std::memcpy(p_, text, n * sizeof(char16_t));
    p_ += n;
  }
  template <std::size_t N>
  void Fixed(const char16_t (&text)[N]) {
    Units(text, N - 1);
  }
  void Decimal(std::uint32_t magnitude, bool negative = false) { ZyrLogPutDecimal(p_, magnitude, negative); }
  void Signed(std::int32_t v) {
    Decimal(v < 0 ? 0u - static_cast<std::uint32_t>(v) : static_cast<std::uint32_t>(v), v < 0);
  }
  // 64-bit values, rare (typed lists): at most 21 units.
  void Signed64(std::uint64_t magnitude, bool negative) {
    char16_t digits[20];
    char16_t* d = digits + 20;
    do {
      *--d = static_cast<char16_t>(u'0' + magnitude % 10);
      magnitude /= 10;
    } while (magnitude);
    if (negative) *p_++ = u'-';
    Units(d, static_cast<std::size_t>(digits + 20 - d));
  }

  // The inside of a JSON string, `n` units planned. Runs of plain units are
  // copied whole; a surrogate pair stays as it is; a lone surrogate becomes
  // the text "\uDxxx", its backslash escaped, since no UTF-8 can carry it.
  // `quotesDoubled`: a walked string value, whose quotes the walk doubled;
  // each pair is one quote here.
  void Body(const char16_t* t, std::size_t n, bool quotesDoubled = false) {
    if (!quotesDoubled && AllPlain(t, n)) Units(t, n);
    else Escaped(t, n, quotesDoubled);
  }

 private:
  void Escaped(const char16_t* t, std::size_t n, bool quotesDoubled) {
    std::size_t i = 0;
    while (i < n) {
      std::size_t run = i;
      while (run < n && Plain(t[run]) && (!quotesDoubled || t[run] != u'\'')) ++run;
      Units(t + i, run - i);
      if (run == n) return;
      i = run;
      char16_t c = t[i++];
      if (c == u'\'') {  // quotesDoubled: the second of the pair goes
        *p_++ = c;
        if (i < n && t[i] == u'\'') ++i;
      } else if (HighSurrogate(c) && i < n && LowSurrogate(t[i])) {
        *p_++ = c;
        *p_++ = t[i++];
      } else if (c == u'"' || c == u'\\') {
        if (!More(1)) return;
        *p_++ = u'\\';
        *p_++ = c;
      } else if (c >= 0x20) {  // a lone surrogate
        if (!More(6)) return;
        Fixed(u"\\\\u");
        for (int shift = 12; shift >= 0; shift -= 4) *p_++ = kHexUpper[(c >> shift) & 15];
      } else if (c == u'\b' || c == u'\f' || c == u'\n' || c == u'\r' || c == u'\t') {
        if (!More(1)) return;
        *p_++ = u'\\';
        *p_++ = c == u'\b' ? u'b' : c == u'\f' ? u'f' : c == u'\n' ? u'n' : c == u'\r' ? u'r' : u't';
      } else {
        if (!More(5)) return;
        Fixed(u"\\u00");
        *p_++ = kHexUpper[c >> 4];
        *p_++ = kHexUpper[c & 15];
      }
    }
  }

  bool Grow() {
    if (failed_) return false;
    std::size_t used = Offset();
    if (ZyrFailed(text_.Resize(used)) || ZyrFailed(text_.Reserve(plan_ + plan_ / 2 + 1))) {
      failed_ = true;
      return false;
    }
    begin_ = text_.Data();
    p_ = begin_ + used;
    return true;
  }

  ZyrBasString& text_;
  char16_t* begin_ = nullptr;
  char16_t* p_ = nullptr;
  std::size_t plan_ = 0;  // units the storage has room for, from the start
  bool failed_ = false;
};

// The key of each argument object, by tag; null for tags without a value.
constexpr const char16_t* kArgumentKeys[] = {
    u"{\"errorcode\":", u"{\"size\":",  nullptr,         u"{\"int8\":",  u"{\"byte\":",
    u"{\"int16\":",     u"{\"word\":",  u"{\"int32\":",   u"{\"dword\":", u"{\"int64\":",
    u"{\"qword\":",     u"{\"bool\":",  u"{\"double\":",  u"{\"char\":",  u"{\"str\":",
    u"{\"time\":",      u"{\"str\":",   nullptr,          u"{\"filesize\":",
};

bool LooksLikeNumber(const char16_t* t, std::size_t n) {
  if (n == 0 || !(t[0] == u'-' || (t[0] >= u'0' && t[0] <= u'9'))) return false;
  for (std::size_t i = 0; i < n; ++i)
    if (!((t[i] >= u'0' && t[i] <= u'9') || t[i] == u'.' || t[i] == u'e' || t[i] == u'+' || t[i] == u'-'))
      return false;
  return true;
}

// One typed value as {"kind":value}. Numbers are numbers, signed kinds
// signed; an error code stays the hexadecimal text by which codes are
// looked up; a double that is no number (nan, inf) is its text; a CHAR is
// the character; an item without a value (an unknown tag) is null.
bool PutArgument(JsonOut& out, const ZyrLogTypedItem& item) {
  const char16_t* key = item.tag == ZYR_TAG_UNASSIGNED ? nullptr : kArgumentKeys[item.tag];
  std::size_t keyLength = key ? ZyrBasStrLen(key) : 0;
  // The key, a bounded value or the text as it stands, quotes and brace.
  if (!out.More(keyLength + kBoundedRoom + item.textLength)) return false;
  if (!key) {
    out.Fixed(u"null");
    return true;
  }
  out.Units(key, keyLength);
  std::uint64_t v = item.value;
  auto putSigned = [&](std::int64_t s) {
    out.Signed64(s < 0 ? 0 - static_cast<std::uint64_t>(s) : static_cast<std::uint64_t>(s), s < 0);
  };
  switch (item.tag) {
    case ZYR_TAG_ERRORCODE:
      out.Fixed(u"\"0x");
      out.Units(item.text, item.textLength);
      out.Unit(u'"');
      break;
    case ZYR_TAG_INT8: putSigned(static_cast<std::int8_t>(v)); break;
    case ZYR_TAG_INT16: putSigned(static_cast<std::int16_t>(v)); break;
    case ZYR_TAG_INT32: putSigned(static_cast<std::int32_t>(v)); break;
    case ZYR_TAG_INT64: putSigned(static_cast<std::int64_t>(v)); break;
    case ZYR_TAG_BOOL:
      if (v) out.Fixed(u"true");
      else out.Fixed(u"false");
      break;
    case ZYR_TAG_DOUBLE:
      if (LooksLikeNumber(item.text, item.textLength)) {
        out.Units(item.text, item.textLength);
      } else {
        out.Unit(u'"');
        out.Body(item.text, item.textLength);
        out.Unit(u'"');
      }
      break;
    case ZYR_TAG_CHAR: {
      char16_t c = static_cast<char16_t>(v);
      out.Unit(u'"');
      out.Body(&c, 1);
      out.Unit(u'"');
      break;
    }
    case ZYR_TAG_STR:
    case ZYR_TAG_TIME:
      out.Unit(u'"');
      out.Body(item.text, item.textLength, true);
      out.Unit(u'"');
      break;
    default: out.Signed64(v, false); break;  // SIZE, BYTE, WORD, DWORD, QWORD, FILESIZE
  }
  out.Unit(u'}');
  return !out.Failed();
}

// The array of a walked typed list; false where the message is not such a
// walk (the caller takes the field back out) or memory ran out.
bool PutArguments(JsonOut& out, const ZyrBasString& walked) {
  ZyrLogTypedListReader reader(walked.Text(), walked.Length());
  ZyrLogTypedItem item;
  if (!out.More(2)) return false;
  out.Unit(u'[');
  for (bool first = true; reader.Next(&item); first = false) {
    if (!first) {
      if (!out.More(1)) return false;
      out.Unit(u',');
    }
    if (!PutArgument(out, item)) return false;
  }
  if (reader.Malformed()) return false;
  out.Unit(u']');
  return true;
}

bool IsBlank(char16_t c) { return c == u' ' || c == u'\t'; }

void Trim(const char16_t*& begin, const char16_t*& end) {
  while (begin < end && IsBlank(*begin)) ++begin;
  while (end > begin && IsBlank(end[-1])) --end;
}

}  // namespace

ZyrResult ZyrLogJsonLayout::FormatEvent(ZyrBasString& text, const ZyrLogEvent& e) {
  // Planned: the literals, every value but a text at its longest, the
  // texts as they stand, and the braces.
  std::size_t plan = literals_.Length() + kBoundedRoom * (entries_.Count() + 1) + 2 + e.LoggerName.Length() +
                     e.FileName.Length() + e.RevisionText.Length() + e.Message.Length();
  JsonOut out(text);
  ZyrResult r = out.Start(plan);
  if (ZyrFailed(r)) return r;
  const bool arguments = (e.LogFlags & ZYR_EVENT_TYPED_LIST) && e.ScrambleMode == 0;
  const char16_t* literals = literals_.Text();
  // Every literal starts with a comma; the first one becomes the brace.
  for (const Entry& entry : entries_) {
    out.Literal(literals + entry.offset, entry.length);
    switch (entry.field) {
      case kTime: {
        // "2014-11-03T09:41:07.512Z": the second's text of the Standard
        // line with a T, then the milliseconds.
        const char16_t* second;
        std::size_t length;
        r = ZyrLogSecondText(e.Timestamp, &second, &length);
        if (ZyrFailed(r)) return r;
        out.Units(second, length - 9);  // the date, then " HH:MM:SS"
        out.Unit(u'T');
        out.Units(second + length - 8, 8);
        unsigned millisecond = static_cast<unsigned>(e.Timestamp % 10000000 / 10000);
        out.Unit(u'.');
        out.Unit(static_cast<char16_t>(u'0' + millisecond / 100));
        out.Units(kDigits.pair[millisecond % 100], 2);
        out.Fixed(u"Z\"");
        break;
      }
      case kSeverity: {
        // Three to six capitals: the length in three looks.
        const char16_t* name = ZyrLogSeverityName(e.Severity);
        out.Units(name, !name[3] ? 3 : !name[4] ? 4 : !name[5] ? 5 : 6);
        out.Unit(u'"');
        break;
      }
      case kSeverityNumber: out.Signed(e.Severity); break;
      case kLogger:
        out.Body(e.LoggerName.Text(), e.LoggerName.Length());
        out.Unit(u'"');
        break;
      case kHost: break;  // constant: in the literals
      case kPid: out.Decimal(e.ProcessId); break;
      case kTid: out.Decimal(e.ThreadId); break;
      case kFile:
        out.Body(e.FileName.Text(), e.FileName.Length());
        out.Unit(u'"');
        break;
      case kLine: out.Signed(static_cast<std::int32_t>(e.Line)); break;
      case kBuild: out.Signed(static_cast<std::int32_t>(e.BuildNr)); break;
      case kRevision:
        if (e.RevisionText.Empty()) out.Signed(static_cast<std::int32_t>(e.SvnRev));
        else out.Body(e.RevisionText.Text(), e.RevisionText.Length());
        out.Unit(u'"');
        break;
      case kProduct: out.Signed(static_cast<std::int32_t>(e.Product)); break;
      case kMessage:
        out.Body(e.Message.Text(), e.Message.Length());
        out.Unit(u'"');
        break;
      case kArgs: {
        // Only for a typed list; a message that only looked like one
        // leaves the field out.
        std::size_t at = out.Offset() - (entry.length - entry.keep);
        if (!arguments || !PutArguments(out, e.Message)) out.Rewind(at);
        break;
      }
      case kFieldCount: break;
    }
  }
  out.Literal(literals + tail_.offset, tail_.length);
  if (out.Offset() == 0) {
    out.Fixed(u"{}");
  } else {
    out.Begin()[0] = u'{';
    out.Unit(u'}');
  }
  return out.Finish();
}

ZyrResult ZyrLogJsonLayout::SetFields(const char16_t* text, std::size_t length) {
  if (length == 0) {  // every field under its own name
    text = u"time, severity, severity_number, logger, host, pid, tid, file, line, build, revision, "
           u"product, msg, args";
    length = ZyrBasStrLen(text);
  }
  ZyrBasArray<Entry> entries;
  ZyrBasArray<ZyrBasString> keys;
  ZyrBasString literals, normal, pending;
  const ZyrBasString& host = ZyrLogCachedHostName();
  const char16_t* end = text + length;
  for (const char16_t* piece = text; piece <= end;) {
    const char16_t* pieceEnd = piece;
    while (pieceEnd < end && *pieceEnd != u',') ++pieceEnd;
    const char16_t* colon = piece;
    while (colon < pieceEnd && *colon != u':') ++colon;
    const char16_t *nameBegin = piece, *nameEnd = colon;
    const char16_t *keyBegin = colon < pieceEnd ? colon + 1 : piece, *keyEnd = colon < pieceEnd ? pieceEnd : colon;
    Trim(nameBegin, nameEnd);
    Trim(keyBegin, keyEnd);
    std::size_t nameLength = static_cast<std::size_t>(nameEnd - nameBegin);
    std::size_t keyLength = static_cast<std::size_t>(keyEnd - keyBegin);
    std::uint32_t field = 0;
    while (field < kFieldCount &&
           ZyrBasCompareOrdinal(nameBegin, nameLength, kFieldNames[field], ZyrBasStrLen(kFieldNames[field])) != 0)
      ++field;
    if (field == kFieldCount || keyLength == 0) return ZYR_E_INVALID_ARGUMENT;
    // ,"key": as escaped; two equal keys would make an ambiguous object.
    ZyrBasString key;
    JsonOut out(key);
    ZyrResult r = out.Start(keyLength + 4);
    if (ZyrFailed(r)) return r;
    out.Fixed(u",\"");
    out.Body(keyBegin, keyLength);
    out.Fixed(u"\":");
    r = out.Finish();
    if (ZyrFailed(r)) return r;
    for (const ZyrBasString& other : keys)
      if (other.Equals(key.Text(), key.Length())) return ZYR_E_INVALID_ARGUMENT;
    // The literal in front of a changing field; the host is written out.
    std::uint32_t keep = static_cast<std::uint32_t>(pending.Length());
    r = pending.Append(key);
    if (ZyrSucceeded(r) && IsTextField(field)) r = pending.Append(u'"');
    if (ZyrSucceeded(r) && field == kHost) {
      ZyrBasString written;
      JsonOut value(written);
      r = value.Start(host.Length() + 1);
      if (ZyrSucceeded(r)) {
        value.Body(host.Text(), host.Length());
        value.Unit(u'"');
        r = value.Finish();
      }
      if (ZyrSucceeded(r)) r = pending.Append(written);
    } else if (ZyrSucceeded(r)) {
      Entry entry{static_cast<Field>(field), static_cast<std::uint32_t>(literals.Length()),
                  static_cast<std::uint32_t>(pending.Length()), keep};
      r = literals.Append(pending);
      if (ZyrSucceeded(r)) r = entries.Append(static_cast<Entry&&>(entry));
      pending.Clear();
    }
    if (ZyrSucceeded(r)) r = keys.Append(static_cast<ZyrBasString&&>(key));
    if (ZyrSucceeded(r) && !normal.Empty()) r = normal.Append(u", ", 2);
    if (ZyrSucceeded(r)) r = normal.Append(nameBegin, nameEnd);
    if (ZyrSucceeded(r) && ZyrBasCompareOrdinal(keyBegin, keyLength, nameBegin, nameLength) != 0) {
      r = normal.Append(u':');
      if (ZyrSucceeded(r)) r = normal.Append(keyBegin, keyEnd);
    }
    if (ZyrFailed(r)) return r;
    piece = pieceEnd + 1;
  }
  Entry tail{kFieldCount, static_cast<std::uint32_t>(literals.Length()),
             static_cast<std::uint32_t>(pending.Length()), 0};
  ZyrResult r = literals.Append(pending);
  // Readable room for the fixed-size copy of the last literal.
  for (std::size_t i = 0; i < kLiteralBlock && ZyrSucceeded(r); ++i) r = literals.Append(u' ');
  if (ZyrFailed(r)) return r;
  entries_.Swap(entries);
  tail_ = tail;
  literals_.Swap(literals);
  fieldsText_.Swap(normal);
  return ZYR_OK;
}

ZyrResult ZyrLogJsonLayout::Configure(ZyrCfgSection& section) {
  ZyrCfgValueRef value;
  ZyrResult r = section.FindValue(u"LayoutType", &value);
  if (ZyrFailed(r) || !value->text.Equals(u"Json")) return ZYR_E_WRONG_LAYOUT_TYPE;
  if (ZyrSucceeded(section.FindValue(u"Fields", &value)))
    return SetFields(value->text.Text(), value->text.Length());
  return SetFields(u"", 0);
}

ZyrResult ZyrLogJsonLayout::Save(ZyrCfgSection& section) {
  section.ClearValues();
  ZyrResult r = section.SetName(Name().Text(), Name().Length());
  if (ZyrSucceeded(r)) r = section.AddRawValue(u"Type", u"Layout");
  if (ZyrSucceeded(r)) r = section.AddRawValue(u"LayoutType", u"Json");
  if (ZyrSucceeded(r)) r = ZyrLogSaveLayoutText(section, u"Fields", fieldsText_);
  return r;
}

void ZyrLogJsonLayout::Destroy(std::uint32_t flags) {
  this->~ZyrLogJsonLayout();
  if (flags & 1) ZyrBasFree(this);
}

// Every field from the start: a layout whose first Configure failed still
// writes whole lines, and no line ever changes the layout.
ZyrResult ZyrLogJsonLayoutCreator::Create(ZyrLogLayout** layout, const char16_t* name) {
  ZyrResult r = ZyrLogMakeLayout<ZyrLogJsonLayout>(layout, name);
  if (ZyrFailed(r)) return r;
  r = static_cast<ZyrLogJsonLayout*>(*layout)->SetFields(u"", 0);
  if (ZyrFailed(r)) {
    (*layout)->Destroy(1);
    *layout = nullptr;
  }
  return r;
}
