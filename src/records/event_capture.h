// A message captured at the call, to be composed later on the worker: the
// caller's format (the text pool's copy, or one of its own) and a copy of
// its argument slots, with the texts that the slots point to copied too,
// the file name, revision and preamble copied, and time and thread taken
// at the call. Composed from the capture, the
// event reads exactly as if it had been composed at the call, while the
// caller pays for copies instead of the formatting.
//
// A capture is plain bytes that own nothing: it lives in the dispatcher's
// queue and is dropped there by forgetting it. A message whose arguments
// cannot be kept by value (narrow or counted texts, a typed list) is not
// captured: its caller composes it at the call.
#ifndef ZYR_RECORDS_EVENT_CAPTURE_H
#define ZYR_RECORDS_EVENT_CAPTURE_H

#include <cstddef>
#include <cstdint>

#include "base/format.h"
#include "base/time.h"
#include "records/event.h"
#include "records/text_pool.h"

// The fixed part; the slots and then the texts (each terminated) follow it.
struct ZyrLogCapture {
  static constexpr std::uint32_t kNone = 0xffffffffu;  // a length or count for a null source

  std::uint64_t stamp;  // ZyrBasStamp at the call
  const char16_t* keptFormat;  // as the text pool keeps it; null: copied behind
  std::uint64_t wideTexts;  // slots of copied texts: a null one stays 0, others hold 1 + its offset in units
  std::int32_t severity;
  std::uint32_t line;
  std::uint32_t buildNr;
  std::uint32_t svnRev;
  std::uint32_t product;
  std::uint32_t threadId;
  std::uint32_t logFlags;
  std::uint32_t scrambleMode;
  std::uint32_t formatLength;    // kNone: no format
  std::uint32_t fileNameLength;  // kNone: no file name
  std::uint32_t revisionLength;  // kNone: the numeric form
  std::uint32_t preambleLength;  // kNone: no preamble
  std::uint32_t slotCount;       // kNone: no argument list
  std::uint32_t textUnits;       // units of all texts, terminators included
};

// What Measure found, for Write.
struct ZyrLogCapturePlan {
  static constexpr std::size_t kMaxSlots = 64;
  std::size_t bytes;  // the whole capture, a multiple of 8
  ZyrBasFormatPlan format;
  const ZyrLogKeptText* keptFormat;
  std::uint32_t fileNameLength, revisionLength, preambleLength;
  std::uint32_t textLengths[kMaxSlots];  // of the slots in format.wideTexts, in slot order
};

// False when the message is not captured and must be composed at the call.
// The format is looked for in `pool`, and kept there when it is not yet.
bool ZyrLogMeasureCapture(const ZyrLogEventSource& source, ZyrLogTextPool& pool, ZyrLogCapturePlan* plan);
// Writes the capture that `plan` measured into `target`, plan.bytes bytes
// aligned to 8.
void ZyrLogWriteCapture(void* target, const ZyrLogEventSource& source, const ZyrLogCapturePlan& plan,
                        std::uint64_t stamp, std::uint32_t threadId);
// Composes the event from a capture, as ZyrLogComposeEvent would have at
// the call, with the name of the logger it was written through; `clock`
// makes the call's stamp its time.
ZyrResult ZyrLogComposeCaptured(ZyrLogEvent& event, const ZyrLogCapture& capture,
                                const ZyrBasStampClock& clock, const char16_t* loggerName,
                                std::size_t loggerNameLength);

#endif
