#include "records/standard_line.h"

#include <atomic>
#include <cstring>
#include <new>

#include "base/identity.h"
#include "base/lock.h"
#include "base/thread_data.h"
#include "base/time.h"
#include "records/severity.h"

namespace {

ZyrBasSpinLock g_hostLock;
std::atomic<ZyrBasString*> g_hostName{nullptr};
// Raw storage, built at the first need and never destroyed: a static
// string would be freed by the runtime at exit while threads that still
// log read it, and a module without a language runtime destroys no statics.
alignas(ZyrBasString) unsigned char g_hostStorage[sizeof(ZyrBasString)];

// Two decimal digits at a time: the line has some twenty digits, and this
// halves the divisions.
constexpr const ZyrBasDigitPairs& kDigits = kZyrBasDigitPairs;

inline void AppendPair(char16_t*& p, unsigned value) {
  p[0] = kDigits.pair[value][0];
  p[1] = kDigits.pair[value][1];
  p += 2;
}

// Appends a signed decimal number.
inline void AppendDecimal(char16_t*& p, std::int32_t value) {
  std::uint32_t u = value < 0 ? 0u - static_cast<std::uint32_t>(value) : static_cast<std::uint32_t>(value);
  if (value < 0) *p++ = u'-';
  ZyrLogPutDecimal(p, u);
}

inline void AppendText(char16_t*& p, const char16_t* text, std::size_t length) {
  ZyrBasCopyUnits(p, text, length);
  p += length;
}

template <std::size_t N>
inline void AppendFixed(char16_t*& p, const char16_t (&text)[N]) {
  AppendText(p, text, N - 1);
}

constexpr std::uint64_t kTicksPerSecond = 10000000;

// "YYYY-MM-DD HH:MM:SS" of the second of the thread's last line: the lines
// of one second share it, and only the milliseconds are new. Per thread, so
// that no line waits for another's.
struct SecondText {
  std::uint64_t second = ~0ull;  // no second has this number
  std::size_t length = 0;
  char16_t text[24];
};
ZYR_THREAD_DATA(SecondText, tSecondText);

// Fills the text of the second of `time`; a time that does not split into
// fields leaves it as it was and answers the failure.
ZyrResult RenderSecond(SecondText& cache, std::uint64_t time) {
  ZyrBasTimeFields t;
  ZyrResult r = ZyrBasTimeToFields(t, time);
  if (r != ZYR_OK) {
    // The all-ones sentinel splits with a remark; a line needs a real time.
    return ZyrFailed(r) ? r : ZYR_E_TIME_OUT_OF_RANGE;
  }
  char16_t* p = cache.text;
  if (t.year < 10000) {
    AppendPair(p, t.year / 100);
    AppendPair(p, t.year % 100);
  } else {
    AppendDecimal(p, t.year);  // at least four digits, as "%04d" gives
  }
  *p++ = u'-';
  AppendPair(p, t.month);
  *p++ = u'-';
  AppendPair(p, t.day);
  *p++ = u' ';
  AppendPair(p, t.hour);
  *p++ = u':';
  AppendPair(p, t.minute);
  *p++ = u':';
  AppendPair(p, t.second);
  cache.length = static_cast<std::size_t>(p - cache.text);
  cache.second = time / kTicksPerSecond;
  return ZYR_OK;
}

}  // namespace

const ZyrBasString& ZyrLogCachedHostName() {
  ZyrBasString* name = g_hostName.load(std::memory_order_acquire);
  if (name) return *name;
  ZyrBasSpinGuard guard(g_hostLock);
  name = g_hostName.load(std::memory_order_acquire);
  if (!name) {
    name = new (g_hostStorage) ZyrBasString();
    ZyrBasStringRef ref(*name);
    // The lookup ends in "localhost" at worst; a failure beyond that leaves
    // the field empty, for it has no road back to a caller.
    if (ZyrFailed(ZyrBasComputerName(ref))) name->Clear();
    g_hostName.store(name, std::memory_order_release);
  }
  return *name;
}

namespace {

inline ZyrResult SecondOf(std::uint64_t time, const char16_t** text, std::size_t* length) {
  SecondText* cached = tSecondText.Get();
  if (!cached) return ZYR_E_OUT_OF_MEMORY;
  SecondText& second = *cached;
  if (second.second != time / kTicksPerSecond) {
    ZyrResult r = RenderSecond(second, time);
    if (ZyrFailed(r)) return r;
  }
  *text = second.text;
  *length = second.length;
  return ZYR_OK;
}

}  // namespace

ZyrResult ZyrLogSecondText(std::uint64_t time, const char16_t** text, std::size_t* length) {
  return SecondOf(time, text, length);
}

ZyrResult ZyrLogComposeStandardLine(const ZyrLogEvent& e, ZyrBasString& line) {
  const char16_t* secondText;
  std::size_t secondLength;
  ZyrResult r = SecondOf(e.Timestamp, &secondText, &secondLength);
  if (ZyrFailed(r)) return r;
  const char16_t* severity = ZyrLogSeverityName(e.Severity);
  const ZyrBasString& host = ZyrLogCachedHostName();
  bool textRevision = !e.RevisionText.Empty();
  // Room for every fixed piece and number, then the strings themselves.
  std::size_t room = 160 + e.LoggerName.Length() + host.Length() + e.FileName.Length() +
                     e.Message.Length() + e.RevisionText.Length();
  line.Clear();
  r = line.Reserve(room + 1);
  if (ZyrFailed(r)) return r;
  char16_t* begin = line.Data();
  char16_t* p = begin;

  *p++ = u'[';
  AppendText(p, e.LoggerName.Text(), e.LoggerName.Length());
  *p++ = u']';
  *p++ = u' ';
  AppendText(p, severity, ZyrBasStrLen(severity));
  *p++ = u' ';
  AppendText(p, secondText, secondLength);
  unsigned millisecond = static_cast<unsigned>(e.Timestamp % kTicksPerSecond / 10000);
  *p++ = u',';
  *p++ = static_cast<char16_t>(u'0' + millisecond / 100);
  AppendPair(p, millisecond % 100);
  *p++ = u' ';
  AppendText(p, host.Text(), host.Length());
  AppendFixed(p, u" PID:");
  AppendDecimal(p, static_cast<std::int32_t>(e.ProcessId));
  AppendFixed(p, u" THID:");
  AppendDecimal(p, static_cast<std::int32_t>(e.ThreadId));
  AppendFixed(p, u" ID:");
  if (e.FileName.Empty()) AppendFixed(p, u"MISSINGFILEID");
  else AppendText(p, e.FileName.Text(), e.FileName.Length());
  *p++ = u':';
  AppendDecimal(p, static_cast<std::int32_t>(e.Line));
  *p++ = u'.';
  AppendDecimal(p, static_cast<std::int32_t>(e.BuildNr));
  *p++ = u'.';
  if (textRevision) AppendText(p, e.RevisionText.Text(), e.RevisionText.Length());
  else AppendDecimal(p, static_cast<std::int32_t>(e.SvnRev));
  *p++ = u'.';
  AppendDecimal(p, static_cast<std::int32_t>(e.Product));
  AppendFixed(p, u" MSG:");
  if (e.Message.Empty()) *p++ = u'*';
  else AppendText(p, e.Message.Text(), e.Message.Length());
  return line.Resize(static_cast<std::size_t>(p - begin));
}
