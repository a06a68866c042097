#include "appender/appender.h"

#include "base/memory.h"
#include "config/document.h"
#include "layout/layout.h"
#include "records/event.h"
#include "records/severity.h"

ZyrLogAppender::~ZyrLogAppender() { lock_.Delete(); }

ZyrResult ZyrLogAppender::WriteText(const char16_t*, std::size_t) { return ZYR_OK; }

ZyrResult ZyrLogAppender::Append(ZyrLogEvent&, const char16_t* text, std::size_t length) {
  return WriteText(text, length);
}

ZyrResult ZyrLogAppender::OpenTarget() { return ZYR_OK; }
std::uint64_t ZyrLogAppender::EndBatch(ZyrResult*) { return 0; }
ZyrResult ZyrLogAppender::CloseTarget() { return ZYR_OK; }
ZyrResult ZyrLogAppender::Truncate() { return ZYR_OK; }

ZyrResult ZyrLogAppender::Release() {
  ZyrBasLockGuard guard(lock_);
  return opened_ ? Close() : ZYR_OK;
}

ZyrResult ZyrLogAppender::Configure(ZyrCfgSection& section) {
  ZyrCfgValueRef value;
  ZyrResult r = section.FindValue(u"BreakSeverity", &value);
  if (r == ZYR_E_CFG_NOT_FOUND) {
    breakSeverity_ = ZYR_SEVERITY_ALL;
    return ZYR_OK;
  }
  if (ZyrFailed(r)) return r;
  // A name that is not on the scale counts as INFO.
  breakSeverity_ = ZyrLogSeverityFromName(value->text.Text(), ZYR_SEVERITY_INFO);
  return ZYR_OK;
}

ZyrResult ZyrLogAppender::WriteConfig(ZyrCfgSection& section) {
  ZyrResult r = section.SetName(name_.Text(), name_.Length());
  if (ZyrSucceeded(r)) r = section.SetValue(u"BreakSeverity", ZyrLogSeverityName(breakSeverity_));
  if (ZyrSucceeded(r)) r = section.SetValue(u"Type", u"Appender");
  return r;
}

ZyrResult ZyrLogAppender::Init(const char16_t* name, ZyrLogAppenderOwner* owner) {
  breakSeverity_ = ZYR_SEVERITY_ALL;
  ZyrResult r = name_.Assign(name);
  if (ZyrSucceeded(r) && !lock_.Exists()) r = lock_.Create();
  owner_ = owner;
  return r;
}

bool ZyrLogAppender::LayoutMarksNewFile() const { return !layout_ || layout_->MarksNewFile(); }

ZyrResult ZyrLogAppender::DoAppend(ZyrLogEvent& event) {
  if (!layout_) return ZYR_OK;  // without a layout nothing is written
  ZyrBasLockGuard guard(lock_);
  if (!ZyrLogSeverityPasses(event.Severity, breakSeverity_)) return ZYR_OK;
  ZyrResult r = layout_->FormatEvent(line_, event);
  if (ZyrFailed(r)) return r;
  return AppendFormattedLocked(event, line_.Text(), line_.Length());
}

ZyrResult ZyrLogAppender::AppendFormatted(ZyrLogEvent& event, const char16_t* text, std::size_t length) {
  ZyrBasLockGuard guard(lock_);
  return AppendFormattedLocked(event, text, length);
}

// The body of AppendFormatted for a caller that holds the lock already: the
// line road takes the appender's lock once, not once per step.
ZyrResult ZyrLogAppender::AppendFormattedLocked(ZyrLogEvent& event, const char16_t* text,
                                                std::size_t length) {
  if (!opened_) {
    ZyrResult r = Open();
    if (ZyrFailed(r)) return r;
    if (!event.Preamble.Empty()) {
      r = WriteText(event.Preamble.Text(), event.Preamble.Length());
      if (ZyrFailed(r)) return r;
    }
  }
  return Append(event, text, length);
}

ZyrResult ZyrLogAppender::Open() {
  ZyrBasLockGuard guard(lock_);
  if (opened_) return ZYR_OK;
  ZyrResult r = OpenTarget();
  if (ZyrFailed(r)) return r;
  opened_ = 1;
  if (layout_) {
    ZyrBasString header;
    r = layout_->GetHeader(header);
    if (ZyrFailed(r)) return r;
    if (!header.Empty()) return WriteFramingText(header);
  }
  return ZYR_OK;
}

ZyrResult ZyrLogAppender::Close() {
  ZyrBasLockGuard guard(lock_);
  if (!opened_ || closing_) return ZYR_OK;
  if (layout_) {
    ZyrBasString footer;
    ZyrResult r = layout_->GetFooter(footer);
    if (ZyrFailed(r)) return r;
    if (!footer.Empty()) {
      // A rolling appender's Append may itself decide to close when the
      // footer passes its limit; the mark keeps that from nesting.
      closing_ = 1;
      r = WriteFramingText(footer);
      closing_ = 0;
      if (ZyrFailed(r)) return r;
    }
  }
  ZyrResult r = CloseTarget();
  if (ZyrSucceeded(r)) opened_ = 0;
  return r;
}

ZyrResult ZyrLogAppender::WriteFramingText(const ZyrBasString& text) {
  ZyrBasLockGuard guard(lock_);
  ZyrLogEvent blank;
  return Append(blank, text.Text(), text.Length());
}

// A close that fails (its footer or the target's close refused) does not
// keep the old settings: the manager has merged the new section into its
// document already, and an equal section is never built again, so a section
// left unconfigured here would part object and document for good. The old
// target goes without its footer, the new section is configured, and the
// next event opens the new target. The result is that of Configure: the
// section was built; what was lost is a footer, no accepted line.
ZyrResult ZyrLogAppender::Reconfigure(ZyrCfgSection& section) {
  ZyrBasLockGuard guard(lock_);
  if (ZyrFailed(Close())) {
    (void)CloseTarget();  // a target that refuses again is closed at its next open
    opened_ = 0;
  }
  return Configure(section);
}

// ---------------------------------------------------------------------------
// Registry

ZyrResult ZyrLogAppenderRegistry::Find(const char16_t* name, std::size_t length,
                                       ZyrLogAppender** appender) {
  ZyrLogAppender** found = map_.Find(name, length);
  if (!found) return ZYR_E_APPENDER_NOT_FOUND;
  *appender = *found;
  return ZYR_OK;
}

ZyrResult ZyrLogAppenderRegistry::Insert(ZyrLogAppender* appender) {
  ZyrLogAppender* entry = appender;
  return map_.Insert(appender->Name(), static_cast<ZyrLogAppender*&&>(entry));
}

void ZyrLogAppenderRegistry::CloseAndDestroyAll() {
  // All are closed before any is destroyed.
  for (auto& e : map_) {
    ZyrBasLockGuard guard(e.value->Lock());
    if (e.value->IsOpened()) (void)e.value->Close();
    e.value->SetLayout(nullptr);
  }
  for (auto& e : map_) ZyrDelete(e.value);
  map_.Free();
}
