#include "appender/console_appender.h"

#include "base/textconv.h"
#include "config/document.h"

namespace {
// The AppenderType check that each class makes of its own section.
ZyrResult CheckType(ZyrCfgSection& section, const char16_t* expected) {
  ZyrCfgValueRef value;
  ZyrResult r = section.FindValue(u"AppenderType", &value);
  if (ZyrFailed(r)) return r;
  return value->text.Equals(expected) ? ZYR_OK : ZYR_E_WRONG_APPENDER_TYPE;
}
}  // namespace

ZyrResult ZyrLogConsoleAppender::WriteText(const char16_t* text, std::size_t length) {
  if (!ready_) return ZYR_E_NOT_INITIALIZED;
  // A lone surrogate is spelt "\uDNNN", as in a log file.
  ZyrResult r = ZyrBasEncodeNarrow(encoded_, text, length, ZYR_CP_OEM, ZyrBasBadText::Escape);
  if (ZyrFailed(r)) return r;
  r = encoded_.Append('\n');
  if (ZyrFailed(r)) return r;
  return ZyrBasConsoleWrite(target_, encoded_.begin(), encoded_.Count());
}

ZyrResult ZyrLogConsoleAppender::Configure(ZyrCfgSection& section) {
  ZyrResult r = CheckType(section, u"Console");
  if (ZyrFailed(r)) return r;
  r = ZyrLogAppender::Configure(section);
  if (ZyrFailed(r)) return r;
  ZyrCfgValueRef value;
  r = section.FindValue(u"Target", &value);
  if (r == ZYR_E_CFG_NOT_FOUND) {
    target_ = ZYR_CONSOLE_STDOUT;
  } else if (ZyrFailed(r)) {
    return r;
  } else {
    // Exact comparison: anything but "System.out" is standard error.
    target_ = value->text.Equals(u"System.out") ? ZYR_CONSOLE_STDOUT : ZYR_CONSOLE_STDERR;
  }
  ready_ = 1;
  return ZYR_OK;
}

ZyrResult ZyrLogConsoleAppender::WriteConfig(ZyrCfgSection& section) {
  ZyrResult r = section.SetValue(u"AppenderType", u"Console");
  if (ZyrSucceeded(r))
    r = section.SetValue(u"Target", target_ == ZYR_CONSOLE_STDERR ? u"System.err" : u"System.out");
  if (ZyrSucceeded(r)) r = ZyrLogAppender::WriteConfig(section);
  return r;
}

// A Null appender reads no BreakSeverity: it stays ALL.
ZyrResult ZyrLogNullAppender::Configure(ZyrCfgSection& section) { return CheckType(section, u"Null"); }

ZyrResult ZyrLogNullAppender::WriteConfig(ZyrCfgSection& section) {
  ZyrResult r = section.SetValue(u"AppenderType", u"Null");
  if (ZyrSucceeded(r)) r = ZyrLogAppender::WriteConfig(section);
  return r;
}
