#include "records/standard_line.h"

#include <atomic>

#include "base/identity.h"
#include "base/lock.h"
#include "base/time.h"
#include "records/severity.h"

namespace {

ZyrBasSpinLock g_hostLock;
std::atomic<ZyrBasString*> g_hostName{nullptr};
ZyrBasString g_hostStorage;

// Appends a signed decimal number.
inline void AppendDecimal(char16_t*& p, std::int32_t value) {
  std::uint32_t u = value < 0 ? 0u - static_cast<std::uint32_t>(value) : static_cast<std::uint32_t>(value);
  if (value < 0) *p++ = u'-';
  char16_t digits[10];
  int n = 0;
  do {
    digits[n++] = static_cast<char16_t>(u'0' + u % 10);
    u /= 10;
  } while (u);
  while (n) *p++ = digits[--n];
}

// Appends a number zero-padded to `width` digits (fields of the time).
inline void AppendPadded(char16_t*& p, std::uint32_t value, int width) {
  char16_t digits[10];
  int n = 0;
  do {
    digits[n++] = static_cast<char16_t>(u'0' + value % 10);
    value /= 10;
  } while (value);
  while (n < width) digits[n++] = u'0';
  while (n) *p++ = digits[--n];
}

inline void AppendText(char16_t*& p, const char16_t* text, std::size_t length) {
  for (std::size_t i = 0; i < length; ++i) *p++ = text[i];
}

inline void AppendAscii(char16_t*& p, const char* text) {
  while (*text) *p++ = static_cast<unsigned char>(*text++);
}

}  // namespace

const ZyrBasString& ZyrLogCachedHostName() {
  ZyrBasString* name = g_hostName.load(std::memory_order_acquire);
  if (name) return *name;
  ZyrBasSpinGuard guard(g_hostLock);
  name = g_hostName.load(std::memory_order_acquire);
  if (!name) {
    ZyrBasStringRef ref(g_hostStorage);
    // The lookup ends in "localhost" at worst; a failure beyond that leaves
    // the field empty, for it has no road back to a caller.
    if (ZyrFailed(ZyrBasComputerName(ref))) g_hostStorage.Clear();
    name = &g_hostStorage;
    g_hostName.store(name, std::memory_order_release);
  }
  return *name;
}

ZyrResult ZyrLogComposeStandardLine(const ZyrLogEvent& e, ZyrBasString& line) {
  ZyrBasTimeFields t;
  ZyrResult r = ZyrBasTimeToFields(t, e.Timestamp);
  if (r != ZYR_OK) {
    // The all-ones sentinel splits with a remark; a line needs a real time.
    return ZyrFailed(r) ? r : ZYR_E_TIME_OUT_OF_RANGE;
  }
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
  AppendPadded(p, t.year, 4);
  *p++ = u'-';
  AppendPadded(p, t.month, 2);
  *p++ = u'-';
  AppendPadded(p, t.day, 2);
  *p++ = u' ';
  AppendPadded(p, t.hour, 2);
  *p++ = u':';
  AppendPadded(p, t.minute, 2);
  *p++ = u':';
  AppendPadded(p, t.second, 2);
  *p++ = u',';
  AppendPadded(p, t.millisecond, 3);
  *p++ = u' ';
  AppendText(p, host.Text(), host.Length());
  AppendAscii(p, " PID:");
  AppendDecimal(p, static_cast<std::int32_t>(e.ProcessId));
  AppendAscii(p, " THID:");
  AppendDecimal(p, static_cast<std::int32_t>(e.ThreadId));
  AppendAscii(p, " ID:");
  if (e.FileName.Empty()) AppendAscii(p, "MISSINGFILEID");
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
  AppendAscii(p, " MSG:");
  if (e.Message.Empty()) *p++ = u'*';
  else AppendText(p, e.Message.Text(), e.Message.Length());
  return line.Resize(static_cast<std::size_t>(p - begin));
}
