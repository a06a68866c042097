// The writing side of a logger: composing an event and the climb through
// the appenders, and the logger's own configuration keys.
#include "appender/appender.h"
#include "base/result.h"
#include "config/document.h"
#include "engine/logger.h"
#include "engine/manager.h"
#include "records/event.h"
#include "records/severity.h"

ZyrResult ZyrLoggerNode::Log(ZyrLogSeverity severity, const char16_t* format,
                             const char16_t* fileName, std::uint32_t line, std::uint32_t buildNr,
                             std::uint32_t svnRev, std::uint32_t product,
                             std::uint32_t scrambleMode, const std::uint64_t* arguments) {
  return LogNumber(severity, format, fileName, line, buildNr, svnRev, product, scrambleMode,
                   arguments);
}

ZyrResult ZyrLoggerNode::LogShort(ZyrLogSeverity severity, const char16_t* format,
                                  const char16_t* fileName, std::uint32_t line,
                                  std::uint32_t buildNr, std::uint32_t svnRev,
                                  std::uint32_t scrambleMode, const std::uint64_t* arguments) {
  return Log(severity, format, fileName, line, buildNr, svnRev, 0, scrambleMode, arguments);
}

ZyrResult ZyrLoggerNode::LogNumber(ZyrLogSeverity severity, const char16_t* format,
                                   const char16_t* fileName, std::uint32_t line,
                                   std::uint32_t buildNr, std::uint32_t svnRev,
                                   std::uint32_t product, std::uint32_t scrambleMode,
                                   const std::uint64_t* arguments) {
  return Write(severity, format, fileName, line, buildNr, svnRev, nullptr, product, scrambleMode,
               arguments);
}

ZyrResult ZyrLoggerNode::LogRevision(ZyrLogSeverity severity, const char16_t* format,
                                     const char16_t* fileName, std::uint32_t line,
                                     std::uint32_t buildNr, const char16_t* revisionText,
                                     std::uint32_t product, std::uint32_t scrambleMode,
                                     const std::uint64_t* arguments) {
  return LogText(severity, format, fileName, line, buildNr, revisionText, product, scrambleMode,
                 arguments);
}

ZyrResult ZyrLoggerNode::LogText(ZyrLogSeverity severity, const char16_t* format,
                                 const char16_t* fileName, std::uint32_t line,
                                 std::uint32_t buildNr, const char16_t* revisionText,
                                 std::uint32_t product, std::uint32_t scrambleMode,
                                 const std::uint64_t* arguments) {
  return Write(severity, format, fileName, line, buildNr, 0xffffffffu,
               revisionText ? revisionText : u"", product, scrambleMode, arguments);
}

// No severity test here: the caller tests the public threshold before the
// call, so a message below it never gets this far.
ZyrResult ZyrLoggerNode::Write(ZyrLogSeverity severity, const char16_t* format,
                               const char16_t* fileName, std::uint32_t line,
                               std::uint32_t buildNr, std::uint32_t svnRev,
                               const char16_t* revisionText, std::uint32_t product,
                               std::uint32_t scrambleMode, const std::uint64_t* arguments) {
  std::uint32_t logFlags = flags.load();
  const char16_t* preamble =
      (hierarchy_ && (logFlags & ZYR_LOGGER_PUBLIC)) ? hierarchy_->preamble.Text() : nullptr;
  const char16_t* name = NameText();
  if (!name) return ZYR_E_OUT_OF_MEMORY;
  ZyrLogEventSource source{name,         severity,     format,   fileName,  line,
                           buildNr,      svnRev,       revisionText, product, logFlags,
                           scrambleMode, arguments,    preamble,     NameLength()};
  if (!hierarchy_) return ZYR_E_NOT_INITIALIZED;
  // The dispatcher composes the event where its road says: at the call on
  // the direct road, on the worker for a queued message that it captures.
  return hierarchy_->Dispatch(this, source);
}

// The climb is a loop, not a call per level, so that a deep logger costs no
// machine stack.
ZyrResult ZyrLoggerNode::Append(ZyrLogEvent& event) {
  // A reload is taking the logger locks: give way a little first, never
  // for long, so that a reload that waits for this thread is not held up.
  if (hierarchy_) {
    for (int i = 0; i < 16 && hierarchy_->treeWanted.load(std::memory_order_relaxed); ++i) ZyrBasYield();
  }
  ZyrResult reported = ZYR_OK;  // the first failure of the climb, as a warning
  for (ZyrLoggerNode* logger = this; logger;) {
    ZyrResult failure = ZYR_OK;
    bool lost = false;
    // A logger without appenders is passed without its lock: taking it
    // would change nothing that a writer can see. A reload that gives it
    // appenders holds the lock of every logger, so this event goes on to
    // wait at the first ancestor that has some, as it would have had it
    // passed here a moment earlier. Below the named loggers, usually
    // without appenders of their own, this spares a lock pair a line.
    if (logger->appenderCount_.load(std::memory_order_relaxed) != 0) {
      ZyrBasLockGuard guard(logger->lock_);
      for (ZyrLogAppender* appender : logger->appenders_) {
        ZyrResult r = appender->DoAppend(event);
        // The first failure is kept, marked as a warning; the others still
        // get the event. An appender's own warning tells of a line that was
        // written all the same (a rollover that failed), and the climb goes
        // on.
        if (ZyrFailed(r)) {
          if (ZyrSucceeded(failure)) failure = ZyrResultAsWarning(r);
          lost |= !ZyrResultIsWarning(r);
        }
      }
    }
    if (ZyrFailed(failure)) {
      if (lost) return failure;  // the ancestors do not see this event
      if (ZyrSucceeded(reported)) reported = failure;
    }
    if (!logger->IsAdditive()) return reported;
    logger = logger->Parent();  // no logger lock held from here
  }
  return reported;
}

ZyrResult ZyrLoggerNode::CloseAppenders() {
  ZyrBasLockGuard guard(lock_);
  for (ZyrLogAppender* appender : appenders_) {
    ZyrBasLockGuard appenderGuard(appender->Lock());
    ZyrResult r = appender->Release();
    if (ZyrFailed(r)) return r;
  }
  return ZYR_OK;
}

ZyrResult ZyrLoggerNode::Configure(ZyrCfgSection& section) {
  ZyrLoggerNode* parent = Parent();
  bool additive = parent != nullptr;
  ZyrCfgValueRef value;
  ZyrResult r = section.FindValue(u"Additive", &value);
  if (ZyrSucceeded(r)) {
    // Exact comparison: "False" counts as true.
    const ZyrBasString& t = value->text;
    additive = !(t.Equals(u"false") || t.Equals(u"no") || t.Equals(u"0"));
  } else if (r != ZYR_E_CFG_NOT_FOUND) {
    return r;
  }
  SetAdditive(additive);
  ZyrLogSeverity severity = ZYR_SEVERITY_INFO;
  if (additive && parent) {
    severity = parent->ReadThreshold();  // an additive logger follows its parent
  } else {
    r = section.FindValue(u"Severity", &value);
    if (ZyrSucceeded(r)) severity = ZyrLogSeverityFromName(value->text.Text(), ZYR_SEVERITY_INFO);
    else if (r != ZYR_E_CFG_NOT_FOUND) return r;
  }
  SetThreshold(severity);
  return ZYR_OK;
}

ZyrResult ZyrLoggerNode::Save(ZyrCfgSection& section) {
  ZyrResult r = section.SetName(NameData(), NameLength());
  if (ZyrSucceeded(r)) r = section.AddRawValue(u"Type", u"Logger");
  if (ZyrSucceeded(r) && !IsAdditive()) {
    r = section.AddRawValue(u"Additive", u"false");
    if (ZyrSucceeded(r)) r = section.AddRawValue(u"Severity", ZyrLogSeverityName(ReadThreshold()));
  }
  if (ZyrSucceeded(r) && !appenders_.Empty()) {
    ZyrBasString names;
    for (std::size_t i = 0; i < appenders_.Count() && ZyrSucceeded(r); ++i) {
      if (i) r = names.Append(u',');
      if (ZyrSucceeded(r)) r = names.Append(appenders_[i]->Name());
    }
    if (ZyrSucceeded(r)) r = section.AddRawValue(u"AddAppenders", names.Text());
  }
  return r;
}
