// The Standard log line, the system's external log format:
//   [logger] SEVERITY yyyy-mm-dd hh:mm:ss,mmm COMPUTER PID:p THID:t ID:file:line.build.rev.product MSG:text
// in UTC, without line terminator (the appender adds it).
#ifndef ZYR_RECORDS_STANDARD_LINE_H
#define ZYR_RECORDS_STANDARD_LINE_H

#include "base/string.h"
#include "records/event.h"

// Replaces `line` by the Standard line of the event. A time outside the
// representable range gives ZYR_E_TIME_OUT_OF_RANGE and no line.
ZyrResult ZyrLogComposeStandardLine(const ZyrLogEvent& event, ZyrBasString& line);

// The computer name of the log lines, looked up once per process.
const ZyrBasString& ZyrLogCachedHostName();

#endif
