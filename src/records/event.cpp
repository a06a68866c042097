#include "records/event.h"

#include <cstring>

#include "base/format.h"
#include "base/identity.h"
#include "base/time.h"

void ZyrLogEvent::Swap(ZyrLogEvent& other) noexcept {
  auto swapScalar = [](auto& a, auto& b) {
    auto t = a;
    a = b;
    b = t;
  };
  LoggerName.Swap(other.LoggerName);
  swapScalar(Severity, other.Severity);
  Message.Swap(other.Message);
  swapScalar(Timestamp, other.Timestamp);
  FileName.Swap(other.FileName);
  swapScalar(Line, other.Line);
  swapScalar(BuildNr, other.BuildNr);
  swapScalar(SvnRev, other.SvnRev);
  swapScalar(Product, other.Product);
  swapScalar(ThreadId, other.ThreadId);
  swapScalar(ProcessId, other.ProcessId);
  swapScalar(LogFlags, other.LogFlags);
  swapScalar(ScrambleMode, other.ScrambleMode);
  Preamble.Swap(other.Preamble);
  RevisionText.Swap(other.RevisionText);
}

ZyrResult ZyrLogEvent::CopyFrom(const ZyrLogEvent& other) {
  Severity = other.Severity;
  Timestamp = other.Timestamp;
  Line = other.Line;
  BuildNr = other.BuildNr;
  SvnRev = other.SvnRev;
  Product = other.Product;
  ThreadId = other.ThreadId;
  ProcessId = other.ProcessId;
  LogFlags = other.LogFlags;
  ScrambleMode = other.ScrambleMode;
  ZyrResult r = Message.Assign(other.Message);
  if (ZyrSucceeded(r)) r = LoggerName.Assign(other.LoggerName);
  if (ZyrSucceeded(r)) r = FileName.Assign(other.FileName);
  if (ZyrSucceeded(r)) r = RevisionText.Assign(other.RevisionText);
  if (ZyrSucceeded(r)) r = Preamble.Assign(other.Preamble);
  return r;
}

// ---------------------------------------------------------------------------
// The typed argument list

namespace {

constexpr char16_t kHexDigits[] = u"0123456789abcdef";

// Appends `digits` hexadecimal digits of `value`, most significant first.
void AppendHex(ZyrBasString& text, std::uint64_t value, int digits) {
  char16_t buffer[16];
  for (int i = digits - 1; i >= 0; --i) {
    buffer[i] = kHexDigits[value & 15];
    value >>= 4;
  }
  (void)text.Append(buffer, buffer + digits);
}

// Escapes a string value: NUL becomes "\0", LF and CR become VT, a single
// quote is doubled. Runs without marked characters are copied whole.
void AppendEscaped(ZyrBasString& text, const char16_t* value, std::size_t length) {
  std::size_t run = 0;
  for (std::size_t i = 0; i < length; ++i) {
    char16_t c = value[i];
    const char16_t* replacement = nullptr;
    std::size_t replacementLength = 0;
    switch (c) {
      case 0: replacement = u"\\0"; replacementLength = 2; break;
      case 0x0a:
      case 0x0d: replacement = u"\x0b"; replacementLength = 1; break;
      case u'\'': replacement = u"''"; replacementLength = 2; break;
      default: continue;
    }
    (void)text.Append(value + run, value + i);
    (void)text.Append(replacement, replacementLength);
    run = i + 1;
  }
  (void)text.Append(value + run, value + length);
}

struct TagForm {
  const char* prefix;  // null: the tag prints an empty item
  int hexDigits;       // 0: not a hexadecimal value
};

// Prefix and width by tag, for the walk and for reading a walk back.
constexpr TagForm kTagForms[] = {
    {"ERRORCODE:0x", 8},  // 0
    {"SIZE:0x", 16},      // 1
    {nullptr, 0},         // 2: not assigned
    {"INT8:0x", 2},       // 3
    {"BYTE:0x", 2},       // 4
    {"INT16:0x", 4},      // 5
    {"WORD:0x", 4},       // 6
    {"INT32:0x", 8},      // 7
    {"DWORD:0x", 8},      // 8
    {"INT64:0x", 16},     // 9
    {"QWORD:0x", 16},     // 10
    {"BOOL:", 0},         // 11
    {"DOUBLE:", 0},       // 12
    {"CHAR:0x", 4},       // 13
    {"STR:", 0},          // 14
    {"TIME:", 0},         // 15
    {"STR:", 0},          // 16: read back as 14, the two print alike
    {nullptr, 0},         // 17: the end
    {"FILESIZE:0x", 16},  // 18
};
constexpr std::uint32_t kTagFormCount = sizeof kTagForms / sizeof kTagForms[0];

}  // namespace

ZyrResult ZyrLogWalkTypedList(ZyrBasString& text, const std::uint64_t* arguments) {
  text.Clear();
  bool first = true;
  for (;;) {
    std::uint32_t tag = static_cast<std::uint32_t>(*arguments++);
    if (tag == ZYR_TAG_END) return ZYR_OK;
    if (!first) (void)text.Append(u", ", 2);
    first = false;
    (void)text.Append(u'\'');
    if (tag <= ZYR_TAG_QWORD || tag == ZYR_TAG_FILESIZE) {
      std::uint64_t value = *arguments++;
      const TagForm& form = kTagForms[tag];
      if (form.prefix) {
        (void)text.AppendAscii(form.prefix);
        AppendHex(text, value, form.hexDigits);
      }
    } else {
      switch (tag) {
        case ZYR_TAG_BOOL:
          (void)text.AppendAscii((*arguments++ & 0xff) ? "BOOL:TRUE" : "BOOL:FALSE");
          break;
        case ZYR_TAG_DOUBLE: {
          double value;
          std::uint64_t bits = *arguments++;
          std::memcpy(&value, &bits, sizeof value);
          (void)text.AppendAscii(kTagForms[ZYR_TAG_DOUBLE].prefix);
          ZyrResult r = ZyrBasFormatDouble(text, value, 'e', 20, true);
          if (ZyrFailed(r)) {
            text.Clear();
            return r;
          }
          break;
        }
        case ZYR_TAG_CHAR:
          (void)text.AppendAscii(kTagForms[ZYR_TAG_CHAR].prefix);
          AppendHex(text, *arguments++ & 0xffff, 4);
          break;
        case ZYR_TAG_STR:
        case ZYR_TAG_TIME: {
          (void)text.AppendAscii(kTagForms[tag].prefix);
          auto* value = reinterpret_cast<const char16_t*>(static_cast<std::uintptr_t>(*arguments++));
          if (value) AppendEscaped(text, value, ZyrBasStrLen(value));
          break;
        }
        case ZYR_TAG_COUNTED_STR: {
          (void)text.AppendAscii(kTagForms[ZYR_TAG_COUNTED_STR].prefix);
          auto* value = reinterpret_cast<const char16_t*>(static_cast<std::uintptr_t>(*arguments++));
          std::size_t count = static_cast<std::size_t>(*arguments++);
          if (value) AppendEscaped(text, value, count);
          break;
        }
        default:
          // An unknown tag has no value slot that could be told; it prints
          // as an empty item and the walk goes on with the next slot.
          break;
      }
    }
    (void)text.Append(u'\'');
  }
}

namespace {

// The prefix at `at`, in full: the ASCII prefix against the wide text.
bool PrefixAt(const char16_t* text, std::size_t length, std::size_t at, const char* prefix,
              std::size_t* prefixLength) {
  std::size_t n = std::strlen(prefix);
  if (length - at < n) return false;
  for (std::size_t i = 0; i < n; ++i)
    if (text[at + i] != static_cast<char16_t>(prefix[i])) return false;
  *prefixLength = n;
  return true;
}

int HexValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  return -1;
}

}  // namespace

// The grammar is the walk's: items "'PREFIX:value'" joined by ", ", a
// quote inside a string doubled, so the first single quote ends an item.
bool ZyrLogTypedListReader::Next(ZyrLogTypedItem* item) {
  if (malformed_ || at_ == length_) return false;
  const char16_t* t = text_;
  std::size_t at = at_;
  if (at > 0) {  // the separator in front of every item but the first
    if (length_ - at < 2 || t[at] != u',' || t[at + 1] != u' ') return Fail();
    at += 2;
  }
  if (at == length_ || t[at] != u'\'') return Fail();
  ++at;
  *item = ZyrLogTypedItem{};
  item->tag = ZYR_TAG_UNASSIGNED;
  std::size_t prefixLength = 0;
  for (std::uint32_t tag = 0; tag < kTagFormCount; ++tag) {
    if (!kTagForms[tag].prefix || tag == ZYR_TAG_COUNTED_STR) continue;
    if (!PrefixAt(t, length_, at, kTagForms[tag].prefix, &prefixLength)) continue;
    item->tag = tag;
    break;
  }
  if (prefixLength == 0) {  // an item without a value: ''
    if (at == length_ || t[at] != u'\'') return Fail();
    at_ = at + 1;
    return true;
  }
  at += prefixLength;
  const TagForm& form = kTagForms[item->tag];
  std::size_t start = at;
  if (item->tag == ZYR_TAG_STR || item->tag == ZYR_TAG_TIME) {
    for (; at < length_; ++at) {
      if (t[at] != u'\'') continue;
      if (at + 1 == length_ || t[at + 1] != u'\'') break;  // the closing quote
      ++at;                                                 // a doubled one
    }
  } else {
    while (at < length_ && t[at] != u'\'') ++at;
  }
  if (at == length_) return Fail();
  item->text = t + start;
  item->textLength = at - start;
  if (form.hexDigits) {
    if (item->textLength != static_cast<std::size_t>(form.hexDigits)) return Fail();
    for (std::size_t i = 0; i < item->textLength; ++i) {
      int digit = HexValue(item->text[i]);
      if (digit < 0) return Fail();
      item->value = item->value << 4 | static_cast<unsigned>(digit);
    }
  } else if (item->tag == ZYR_TAG_BOOL) {
    std::size_t n = 0;
    if (PrefixAt(item->text, item->textLength, 0, "TRUE", &n) && n == item->textLength) item->value = 1;
    else if (!PrefixAt(item->text, item->textLength, 0, "FALSE", &n) || n != item->textLength) return Fail();
  }
  at_ = at + 1;
  return true;
}

// ---------------------------------------------------------------------------
// Compose

ZyrResult ZyrLogComposeEvent(ZyrLogEvent& event, const ZyrLogEventSource& source) {
  return ZyrLogComposeEventAt(event, source, ZyrBasSystemTime(), ZyrBasCurrentThreadId());
}

ZyrResult ZyrLogComposeEventAt(ZyrLogEvent& event, const ZyrLogEventSource& s,
                               std::uint64_t timestamp, std::uint32_t threadId) {
  bool publicLog = (s.logFlags & ZYR_LOGGER_PUBLIC) != 0;
  // A line break never breaks a line of the public log. The walker of a
  // typed list and the formatter take them out themselves.
  bool breaksTaken = false;
  bool typedList = false;
  ZyrResult r = ZYR_OK;
  if (s.arguments && publicLog && !s.format) {
    r = ZyrLogWalkTypedList(event.Message, s.arguments);
    breaksTaken = true;
    typedList = true;
  } else if (s.arguments) {
    r = ZyrBasFormat(event.Message, s.format ? s.format : u"", s.arguments, publicLog ? 0x0b : 0);
    breaksTaken = true;
  } else if (s.format) {
    r = event.Message.Assign(s.format);
  } else {
    event.Message.Clear();
  }
  if (ZyrFailed(r)) {
    event.Message.Clear();
    return r;
  }
  if (publicLog && !breaksTaken) ZyrBasReplaceLineBreaks(event.Message.Data(), event.Message.Length(), 0x0b);
  event.Timestamp = timestamp;
  event.ThreadId = threadId;
  event.ProcessId = ZyrBasCurrentProcessId();
  event.Severity = s.severity;
  event.Line = s.line;
  event.BuildNr = s.buildNr;
  event.SvnRev = s.revisionText ? 0xffffffffu : s.svnRev;
  event.Product = s.product;
  event.LogFlags = s.logFlags | (typedList ? ZYR_EVENT_TYPED_LIST : 0);
  event.ScrambleMode = s.scrambleMode;
  r = s.loggerName ? event.LoggerName.Assign(s.loggerName, s.loggerNameLength) : (event.LoggerName.Clear(), ZYR_OK);
  if (ZyrSucceeded(r)) r = s.fileName ? event.FileName.Assign(s.fileName) : (event.FileName.Clear(), ZYR_OK);
  if (ZyrSucceeded(r))
    r = s.revisionText ? event.RevisionText.Assign(s.revisionText) : (event.RevisionText.Clear(), ZYR_OK);
  if (ZyrSucceeded(r)) r = s.preamble ? event.Preamble.Assign(s.preamble) : (event.Preamble.Clear(), ZYR_OK);
  return r;
}
