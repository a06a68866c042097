// ZyrLogEvent: one message on its way from a logger to the appenders. It is
// composed on the caller's stack, owns its five strings, and travels into
// the dispatcher's queue by move, never by copy of its strings.
#ifndef ZYR_RECORDS_EVENT_H
#define ZYR_RECORDS_EVENT_H

#include <cstdint>

#include "base/string.h"
#include "zyrlog/zyrlog.h"

// Set by Compose in the event's LogFlags, above every logger flag: Message
// is the walk of a typed list, which a layout may take apart again into its
// typed values.
inline constexpr std::uint32_t ZYR_EVENT_TYPED_LIST = 0x80000000u;

struct ZyrLogEvent {
  ZyrBasString LoggerName;
  ZyrLogSeverity Severity = 0;
  ZyrBasString Message;
  std::uint64_t Timestamp = 0;  // NT time: UTC, 100 ns since 1601-01-01
  ZyrBasString FileName;
  std::uint32_t Line = 0;
  std::uint32_t BuildNr = 0;
  std::uint32_t SvnRev = 0;  // 0xffffffff when the revision came as text
  std::uint32_t Product = 0;
  std::uint32_t ThreadId = 0;
  std::uint32_t ProcessId = 0;
  std::uint32_t LogFlags = 0;
  std::uint32_t ScrambleMode = 0;
  ZyrBasString Preamble;
  ZyrBasString RevisionText;

  ZyrLogEvent() = default;
  // Field by field; the strings hand over their storage.
  ZyrLogEvent(ZyrLogEvent&& other) noexcept
      : LoggerName(static_cast<ZyrBasString&&>(other.LoggerName)),
        Severity(other.Severity),
        Message(static_cast<ZyrBasString&&>(other.Message)),
        Timestamp(other.Timestamp),
        FileName(static_cast<ZyrBasString&&>(other.FileName)),
        Line(other.Line),
        BuildNr(other.BuildNr),
        SvnRev(other.SvnRev),
        Product(other.Product),
        ThreadId(other.ThreadId),
        ProcessId(other.ProcessId),
        LogFlags(other.LogFlags),
        ScrambleMode(other.ScrambleMode),
        Preamble(static_cast<ZyrBasString&&>(other.Preamble)),
        RevisionText(static_cast<ZyrBasString&&>(other.RevisionText)) {}
  ZyrLogEvent& operator=(ZyrLogEvent&& other) noexcept {
    Swap(other);
    return *this;
  }
  ZyrLogEvent(const ZyrLogEvent&) = delete;
  ZyrLogEvent& operator=(const ZyrLogEvent&) = delete;

  // Exchanges all fields.
  void Swap(ZyrLogEvent& other) noexcept;
  // Deep copy, for the rare case that needs one.
  ZyrResult CopyFrom(const ZyrLogEvent& other);
};

// Everything a log operation hands to Compose.
struct ZyrLogEventSource {
  const char16_t* loggerName;
  ZyrLogSeverity severity;
  const char16_t* format;        // may be null
  const char16_t* fileName;      // may be null
  std::uint32_t line;
  std::uint32_t buildNr;
  std::uint32_t svnRev;
  const char16_t* revisionText;  // null for the numeric form
  std::uint32_t product;
  std::uint32_t logFlags;
  std::uint32_t scrambleMode;
  const std::uint64_t* arguments;  // typed list or format arguments, or null
  const char16_t* preamble;      // may be null
  std::size_t loggerNameLength = ZYR_TERMINATED;  // known to the logger, else counted
};

// Fills a fresh event: message text, time, thread and process, the scalar
// fields and the strings. A failure leaves the event without a usable
// message and is the result.
ZyrResult ZyrLogComposeEvent(ZyrLogEvent& event, const ZyrLogEventSource& source);
// The same with time and thread taken by the caller: the worker composes a
// queued message with those of the call.
ZyrResult ZyrLogComposeEventAt(ZyrLogEvent& event, const ZyrLogEventSource& source,
                               std::uint64_t timestamp, std::uint32_t threadId);

// Walks a typed argument list into text: 'PREFIX:value' items separated by
// ", ", string values escaped. A piece that does not fit in memory is left
// out; only the double's formatter ends the walk with a failure.
ZyrResult ZyrLogWalkTypedList(ZyrBasString& text, const std::uint64_t* arguments);

// One item of a walked typed list, read back.
struct ZyrLogTypedItem {
  std::uint32_t tag;        // ZYR_TAG_*; a counted string reads as ZYR_TAG_STR, an
                            // item without a value (unassigned or unknown tag) as
                            // ZYR_TAG_UNASSIGNED
  std::uint64_t value;      // hexadecimal tags and CHAR: the bits; BOOL: 0 or 1
  const char16_t* text;     // the value as printed: for STR and TIME escaped, a
  std::size_t textLength;   // quote doubled; for DOUBLE the number
};

// Reads the text of ZyrLogWalkTypedList back, item by item, without a copy.
// A text that the walk did not make (a message that only looks like one, or
// one with a piece left out for lack of memory) ends the reading as
// malformed, at the first place that does not fit.
class ZyrLogTypedListReader {
 public:
  ZyrLogTypedListReader(const char16_t* walked, std::size_t length) : text_(walked), length_(length) {}
  // The next item: false at the end of the text, or where it is malformed.
  bool Next(ZyrLogTypedItem* item);
  bool Malformed() const { return malformed_; }

 private:
  bool Fail() {
    malformed_ = true;
    return false;
  }
  const char16_t* text_;
  std::size_t length_;
  std::size_t at_ = 0;
  bool malformed_ = false;
};

#endif
