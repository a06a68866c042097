// The Standard log line, the system's external log format:
//   [logger] SEVERITY yyyy-mm-dd hh:mm:ss,mmm COMPUTER PID:p THID:t ID:file:line.build.rev.product MSG:text
// in UTC, without line terminator (the appender adds it).
#ifndef ZYR_RECORDS_STANDARD_LINE_H
#define ZYR_RECORDS_STANDARD_LINE_H

#include "base/string.h"
#include "records/event.h"

// Writes a decimal number at `p`, "-" in front when `negative`, and moves
// `p` behind it. The digits are counted first and written in place from
// the right, two at a time: no copy of a few characters through a call.
inline void ZyrLogPutDecimal(char16_t*& p, std::uint32_t magnitude, bool negative = false) {
  const ZyrBasDigitPairs& digits = kZyrBasDigitPairs;
  if (negative) *p++ = u'-';
  std::uint32_t u = magnitude;
  unsigned count = 1;
  std::uint32_t rest = u;
  if (rest >= 100000000) count += 8, rest /= 100000000;
  if (rest >= 10000) count += 4, rest /= 10000;
  if (rest >= 100) count += 2, rest /= 100;
  if (rest >= 10) ++count;
  char16_t* d = p + count;
  p = d;
  while (u >= 100) {
    unsigned pair = u % 100;
    u /= 100;
    d -= 2;
    d[0] = digits.pair[pair][0];
    d[1] = digits.pair[pair][1];
  }
  if (u >= 10) {
    d -= 2;
    d[0] = digits.pair[u][0];
    d[1] = digits.pair[u][1];
  } else {
    *--d = static_cast<char16_t>(u'0' + u);
  }
}

// Replaces `line` by the Standard line of the event. A time outside the
// representable range gives ZYR_E_TIME_OUT_OF_RANGE and no line.
ZyrResult ZyrLogComposeStandardLine(const ZyrLogEvent& event, ZyrBasString& line);

// "YYYY-MM-DD HH:MM:SS" (UTC) of the second of `time`, kept per thread: the
// lines of one second share it. Valid until the thread's next call. A time
// outside the representable range gives ZYR_E_TIME_OUT_OF_RANGE.
ZyrResult ZyrLogSecondText(std::uint64_t time, const char16_t** text, std::size_t* length);

// The computer name of the log lines, looked up once per process.
const ZyrBasString& ZyrLogCachedHostName();

#endif
