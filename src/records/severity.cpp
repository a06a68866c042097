#include "records/severity.h"

#include "base/string.h"

namespace {
struct Point {
  const char16_t* name;
  ZyrLogSeverity number;
};
// The fixed order of the lookup.
constexpr Point kScale[] = {
    {u"ALL", ZYR_SEVERITY_ALL},     {u"DEBUG", ZYR_SEVERITY_DEBUG}, {u"DETAIL", ZYR_SEVERITY_DETAIL},
    {u"INFO", ZYR_SEVERITY_INFO},   {u"WARN", ZYR_SEVERITY_WARN},   {u"ERROR", ZYR_SEVERITY_ERROR},
    {u"FATAL", ZYR_SEVERITY_FATAL}, {u"OFF", ZYR_SEVERITY_OFF},
};
}  // namespace

ZyrLogSeverity ZyrLogSeverityFromName(const char16_t* name, ZyrLogSeverity fallback) {
  std::size_t length = ZyrBasStrLen(name);
  if (length == 0) return fallback;
  for (const Point& p : kScale)
    if (ZyrBasCompareNoCase(name, length, p.name, ZYR_TERMINATED) == 0) return p.number;
  return fallback;
}

const char16_t* ZyrLogSeverityName(ZyrLogSeverity severity) {
  switch (severity) {
    case ZYR_SEVERITY_ALL: return u"ALL";
    case ZYR_SEVERITY_DEBUG: return u"DEBUG";
    case ZYR_SEVERITY_DETAIL: return u"DETAIL";
    case ZYR_SEVERITY_WARN: return u"WARN";
    case ZYR_SEVERITY_ERROR: return u"ERROR";
    case ZYR_SEVERITY_FATAL: return u"FATAL";
    case ZYR_SEVERITY_OFF: return u"OFF";
    default: return u"INFO";
  }
}
