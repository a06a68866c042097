// The severity scale: eight named points of a signed 32-bit number, the two
// conversions between name and number, and the one filter rule.
#ifndef ZYR_RECORDS_SEVERITY_H
#define ZYR_RECORDS_SEVERITY_H

#include "zyrlog/zyrlog.h"

// The number of a name of the scale, compared without case over the whole
// text; `fallback` for anything else. Reports no failure.
ZyrLogSeverity ZyrLogSeverityFromName(const char16_t* name, ZyrLogSeverity fallback);

// The name of a number, in capitals; "INFO" for a number without a name.
const char16_t* ZyrLogSeverityName(ZyrLogSeverity severity);

// A message passes a filter when its severity is at least the filter, in
// signed comparison: ALL passes everything, OFF stops all but OFF.
inline bool ZyrLogSeverityPasses(ZyrLogSeverity severity, ZyrLogSeverity filter) {
  return severity >= filter;
}

#endif
