#include "records/event_capture.h"

#include "base/string.h"

namespace {

constexpr std::uint32_t kNone = ZyrLogCapture::kNone;

std::uint32_t LengthOf(const char16_t* text) {
  return text ? static_cast<std::uint32_t>(ZyrBasStrLen(text)) : kNone;
}

std::size_t UnitsOf(std::uint32_t length) { return length == kNone ? 0 : std::size_t{length} + 1; }

// Copies a terminated text of `length` units to `at` and returns the place
// behind its terminator.
char16_t* Put(char16_t* at, const char16_t* text, std::uint32_t length) {
  if (length == kNone) return at;
  ZyrBasCopyUnits(at, text, length);
  at[length] = 0;
  return at + length + 1;
}

}  // namespace

bool ZyrLogMeasureCapture(const ZyrLogEventSource& s, ZyrLogTextPool& pool, ZyrLogCapturePlan* plan) {
  // A typed list is walked at the call: its texts hide in tagged slots.
  if (s.arguments && !s.format && (s.logFlags & ZYR_LOGGER_PUBLIC)) return false;
  std::size_t units = 0;
  plan->keptFormat = nullptr;
  plan->format = ZyrBasFormatPlan{};
  if (s.format) {
    // A kept format was planned when it was kept; a new one is planned and
    // kept, whether or not it can be captured.
    const ZyrLogKeptText* kept = pool.Find(s.format);
    bool capturable;
    if (kept) {
      capturable = kept->planned;
      plan->format = kept->plan;
      plan->format.length = kept->length;
    } else {
      capturable = ZyrBasPlanFormat(s.format, &plan->format);
      if (!capturable) plan->format.length = ZyrBasStrLen(s.format);
      kept = pool.Keep(s.format, plan->format.length, capturable ? &plan->format : nullptr);
    }
    if (s.arguments && !capturable) return false;
    if (s.arguments) {
      std::uint64_t texts = plan->format.wideTexts;
      for (std::uint32_t i = 0, n = 0; texts; ++i, texts >>= 1) {
        if (!(texts & 1)) continue;
        const auto* text = reinterpret_cast<const char16_t*>(static_cast<std::uintptr_t>(s.arguments[i]));
        // A null text prints "(null)": the null slot is kept as it is.
        std::uint32_t length = LengthOf(text);
        plan->textLengths[n++] = length;
        units += UnitsOf(length);
      }
    } else {
      plan->format.slotCount = 0;
      plan->format.wideTexts = 0;
    }
    plan->keptFormat = kept;
    if (!kept) units += plan->format.length + 1;
  }
  // Without a format an argument list reads no slot (an empty format).
  // A file name is short: copying it costs less than comparing it with a
  // kept one.
  plan->fileNameLength = LengthOf(s.fileName);
  plan->revisionLength = LengthOf(s.revisionText);
  plan->preambleLength = s.preamble && *s.preamble ? LengthOf(s.preamble) : kNone;
  units += UnitsOf(plan->fileNameLength) + UnitsOf(plan->revisionLength) + UnitsOf(plan->preambleLength);
  // A text beyond what a length field holds is composed at the call.
  if (plan->format.length >= kNone || units >= kNone) return false;
  std::size_t bytes = sizeof(ZyrLogCapture) + plan->format.slotCount * sizeof(std::uint64_t) +
                      units * sizeof(char16_t);
  plan->bytes = (bytes + 7) & ~std::size_t{7};
  return true;
}

void ZyrLogWriteCapture(void* target, const ZyrLogEventSource& s, const ZyrLogCapturePlan& plan,
                        std::uint64_t stamp, std::uint32_t threadId) {
  auto* c = static_cast<ZyrLogCapture*>(target);
  c->stamp = stamp;
  c->keptFormat = plan.keptFormat ? plan.keptFormat->Text() : nullptr;
  c->wideTexts = plan.format.wideTexts;
  c->severity = s.severity;
  c->line = s.line;
  c->buildNr = s.buildNr;
  c->svnRev = s.svnRev;
  c->product = s.product;
  c->threadId = threadId;
  c->logFlags = s.logFlags;
  c->scrambleMode = s.scrambleMode;
  c->formatLength = s.format ? static_cast<std::uint32_t>(plan.format.length) : kNone;
  c->fileNameLength = plan.fileNameLength;
  c->revisionLength = plan.revisionLength;
  c->preambleLength = plan.preambleLength;
  c->slotCount = s.arguments ? plan.format.slotCount : kNone;
  auto* slots = reinterpret_cast<std::uint64_t*>(c + 1);
  std::uint32_t slotCount = s.arguments ? plan.format.slotCount : 0;
  char16_t* texts = reinterpret_cast<char16_t*>(slots + slotCount);
  char16_t* at = texts;
  if (!c->keptFormat) at = Put(at, s.format, c->formatLength);
  at = Put(at, s.fileName, c->fileNameLength);
  at = Put(at, s.revisionText, c->revisionLength);
  at = Put(at, s.preamble, c->preambleLength);
  std::uint64_t textSlots = plan.format.wideTexts;
  for (std::uint32_t i = 0, n = 0; i < slotCount; ++i, textSlots >>= 1) {
    std::uint64_t slot = s.arguments[i];
    if ((textSlots & 1) && slot) {
      const auto* text = reinterpret_cast<const char16_t*>(static_cast<std::uintptr_t>(slot));
      slot = static_cast<std::uint64_t>(at - texts) + 1;  // never 0, which stays null
      at = Put(at, text, plan.textLengths[n]);
    }
    n += textSlots & 1;
    slots[i] = slot;
  }
  c->textUnits = static_cast<std::uint32_t>(at - texts);
}

ZyrResult ZyrLogComposeCaptured(ZyrLogEvent& event, const ZyrLogCapture& c,
                                const ZyrBasStampClock& clock, const char16_t* loggerName,
                                std::size_t loggerNameLength) {
  const auto* stored = reinterpret_cast<const std::uint64_t*>(&c + 1);
  std::uint32_t slotCount = c.slotCount == kNone ? 0 : c.slotCount;
  const char16_t* texts = reinterpret_cast<const char16_t*>(stored + slotCount);
  const char16_t* at = texts;
  auto take = [&at](std::uint32_t length) -> const char16_t* {
    if (length == kNone) return nullptr;
    const char16_t* text = at;
    at += length + 1;
    return text;
  };
  // The copied texts stand in for the caller's: their slots point to them.
  std::uint64_t slots[ZyrLogCapturePlan::kMaxSlots];
  std::uint64_t textSlots = c.wideTexts;
  for (std::uint32_t i = 0; i < slotCount; ++i, textSlots >>= 1) {
    std::uint64_t slot = stored[i];
    slots[i] = (textSlots & 1) && slot ? ZyrBasSlotFromPointer(texts + slot - 1) : slot;
  }
  ZyrLogEventSource source{};
  source.loggerName = loggerName;
  source.loggerNameLength = loggerNameLength;
  source.severity = c.severity;
  source.format = c.keptFormat ? c.keptFormat : take(c.formatLength);
  source.fileName = take(c.fileNameLength);
  source.line = c.line;
  source.buildNr = c.buildNr;
  source.svnRev = c.svnRev;
  source.revisionText = take(c.revisionLength);
  source.product = c.product;
  source.logFlags = c.logFlags;
  source.scrambleMode = c.scrambleMode;
  source.preamble = take(c.preambleLength);
  // A format without an argument list is the message as it stands; with
  // one, even an empty one, it is printed.
  source.arguments = c.slotCount == kNone ? nullptr : slots;
  return ZyrLogComposeEventAt(event, source, clock.TimeOf(c.stamp), c.threadId);
}
