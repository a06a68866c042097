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
  const char* prefix;
  int hexDigits;  // 0: not a hexadecimal value
};

// Prefix and width by tag; tags 11 to 17 are handled apart.
constexpr TagForm kHexTags[] = {
    {"ERRORCODE:0x", 8},  // 0
    {"SIZE:0x", 16},      // 1
    {"", 0},              // 2: not assigned
    {"INT8:0x", 2},       // 3
    {"BYTE:0x", 2},       // 4
    {"INT16:0x", 4},      // 5
    {"WORD:0x", 4},       // 6
    {"INT32:0x", 8},      // 7
    {"DWORD:0x", 8},      // 8
    {"INT64:0x", 16},     // 9
    {"QWORD:0x", 16},     // 10
};

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
      if (tag == ZYR_TAG_FILESIZE) {
        (void)text.AppendAscii("FILESIZE:0x");
        AppendHex(text, value, 16);
      } else {
        const TagForm& form = kHexTags[tag];
        (void)text.AppendAscii(form.prefix);
        if (form.hexDigits) AppendHex(text, value, form.hexDigits);
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
          (void)text.AppendAscii("DOUBLE:");
          ZyrResult r = ZyrBasFormatDouble(text, value, 'e', 20, true);
          if (ZyrFailed(r)) {
            text.Clear();
            return r;
          }
          break;
        }
        case ZYR_TAG_CHAR:
          (void)text.AppendAscii("CHAR:0x");
          AppendHex(text, *arguments++ & 0xffff, 4);
          break;
        case ZYR_TAG_STR:
        case ZYR_TAG_TIME: {
          (void)text.AppendAscii(tag == ZYR_TAG_STR ? "STR:" : "TIME:");
          auto* value = reinterpret_cast<const char16_t*>(static_cast<std::uintptr_t>(*arguments++));
          if (value) AppendEscaped(text, value, ZyrBasStrLen(value));
          break;
        }
        case ZYR_TAG_COUNTED_STR: {
          (void)text.AppendAscii("STR:");
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
  ZyrResult r = ZYR_OK;
  if (s.arguments && publicLog && !s.format) {
    r = ZyrLogWalkTypedList(event.Message, s.arguments);
    breaksTaken = true;
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
  event.LogFlags = s.logFlags;
  event.ScrambleMode = s.scrambleMode;
  r = s.loggerName ? event.LoggerName.Assign(s.loggerName, s.loggerNameLength) : (event.LoggerName.Clear(), ZYR_OK);
  if (ZyrSucceeded(r)) r = s.fileName ? event.FileName.Assign(s.fileName) : (event.FileName.Clear(), ZYR_OK);
  if (ZyrSucceeded(r))
    r = s.revisionText ? event.RevisionText.Assign(s.revisionText) : (event.RevisionText.Clear(), ZYR_OK);
  if (ZyrSucceeded(r)) r = s.preamble ? event.Preamble.Assign(s.preamble) : (event.Preamble.Clear(), ZYR_OK);
  return r;
}
