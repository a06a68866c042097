#include "engine/builder.h"

#include "appender/appender.h"
#include "config/document.h"
#include "config/number.h"
#include "config/variables.h"
#include "engine/dispatcher.h"
#include "engine/manager.h"
#include "layout/custom_layout.h"
#include "layout/json_layout.h"
#include "layout/layout.h"

namespace {

bool IsTrimmed(char16_t c) { return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r' || c == 0x0b; }

// The section as the builder sees it: the same name, no comment, every
// value expanded and single, so that only the text counts from here on.
ZyrResult Expand(const ZyrCfgSection& source, ZyrCfgSectionRef* out) {
  ZyrCfgSectionRef section;
  ZyrResult r = ZyrCfgSectionRef::Make(&section);
  if (ZyrSucceeded(r)) r = section->SetName(source.name.Text(), source.name.Length());
  ZyrCfgValueIterator values = source.Values();
  ZyrCfgValueRef value;
  while (ZyrSucceeded(r) && ZyrSucceeded(values.Current(&value))) {
    ZyrBasString expanded;
    r = ZyrCfgExpandVariables(value->text, expanded);
    if (ZyrSucceeded(r)) r = section->AddRawValue(value->name.Text(), expanded.Text());
    if (ZyrSucceeded(r)) values.Next();
  }
  if (ZyrSucceeded(r)) *out = section;
  return r;
}

ZyrResult BuildLayout(ZyrLogManager& manager, ZyrCfgSection& section) {
  ZyrCfgValueRef type;
  ZyrResult r = section.FindValue(u"LayoutType", &type);
  if (ZyrFailed(r)) return r;
  ZyrLogStandardLayoutCreator standard;
  ZyrLogCustomLayoutCreator custom;
  ZyrLogJsonLayoutCreator json;
  ZyrLogLayoutCreator* creator = nullptr;
  ZyrCfgSectionRef fixed;
  ZyrCfgSection* configureFrom = &section;
  if (type->text.Equals(u"Standard")) {
    creator = &standard;
  } else if (type->text.Equals(u"Custom")) {
    creator = &custom;
  } else if (type->text.Equals(u"Json")) {
    creator = &json;
  } else if (type->text.Equals(u"Fw")) {
    // A fixed form: configured from a section of its own; the stored
    // section stays as it was given, and its other keys are ignored.
    creator = &custom;
    r = ZyrCfgSectionRef::Make(&fixed);
    if (ZyrSucceeded(r)) r = fixed->SetName(section.name.Text(), section.name.Length());
    if (ZyrSucceeded(r)) r = fixed->AddRawValue(u"LayoutType", u"Custom");
    if (ZyrSucceeded(r)) r = fixed->AddRawValue(u"Format", kZyrFwFormat);
    if (ZyrFailed(r)) return r;
    configureFrom = fixed.Get();
  } else {
    return ZYR_E_LAYOUT_NOT_FOUND;
  }
  ZyrLogLayout* layout = nullptr;
  if (manager.Layouts().Find(section.name.Text(), &layout) == ZYR_E_LAYOUT_NOT_FOUND) {
    r = creator->Create(&layout, section.name.Text());
    if (ZyrFailed(r)) return r;
    r = manager.Layouts().Add(layout);
    if (ZyrFailed(r)) {
      layout->Destroy(1);
      return r;
    }
  }
  return layout->Configure(*configureFrom);
}

ZyrResult BuildAppender(ZyrLogManager& manager, ZyrCfgSection& section, const ZyrBasString& logFolder) {
  ZyrCfgValueRef type;
  ZyrResult r = section.FindValue(u"AppenderType", &type);
  if (ZyrFailed(r)) return r;
  ZyrLogAppender* appender = nullptr;
  if (ZyrFailed(manager.Appenders().Find(section.name.Text(), section.name.Length(), &appender))) {
    // A new appender; an existing one is configured anew whatever its type,
    // and its own Configure refuses a type that does not fit.
    r = ZyrLogMakeAppender(type->text, logFolder, &manager.Hierarchy(), section.name.Text(), &appender);
    if (ZyrFailed(r)) return r;
    r = manager.Appenders().Insert(appender);
    if (ZyrFailed(r)) {
      ZyrDelete(appender);
      return r;
    }
  }
  r = appender->Reconfigure(section);
  if (ZyrFailed(r)) return r;
  ZyrCfgValueRef layoutName;
  const char16_t* name = u"defaultLayout";
  if (ZyrSucceeded(section.FindValue(u"Layout", &layoutName))) name = layoutName->text.Text();
  ZyrLogLayout* layout = nullptr;
  r = manager.Layouts().Find(name, &layout);
  if (ZyrFailed(r)) return r;
  ZyrBasLockGuard guard(appender->Lock());
  appender->SetLayout(layout);
  return ZYR_OK;
}

void ApplyQueueBudget(ZyrLogManager& manager, ZyrCfgSection& section) {
  ZyrLogDispatcher* dispatcher = manager.Hierarchy().dispatcher;
  ZyrCfgValueRef value;
  if (ZyrFailed(section.FindValue(u"MaxQueueSize", &value))) {
    dispatcher->SetMaxQueueSize(kZyrDefaultMaxQueueBytes);
    return;
  }
  std::uint64_t bytes = 0;
  if (ZyrSucceeded(ZyrCfgParseUnsigned(value->text, &bytes))) dispatcher->SetMaxQueueSize(bytes);
}

ZyrResult BuildLogger(ZyrLogManager& manager, ZyrCfgSection& section) {
  ZyrLoggerNode* logger = nullptr;
  if (section.name.Equals(u"root")) {
    logger = manager.Hierarchy().root;
    ApplyQueueBudget(manager, section);
  } else {
    ZyrResult r = manager.Hierarchy().FindOrCreate(&logger, section.name.Text(), 0);
    if (ZyrFailed(r)) return r;
  }
  ZyrResult r = logger->Configure(section);
  if (ZyrFailed(r)) return r;
  logger->ClearAppenders();
  ZyrCfgValueRef list;
  if (ZyrFailed(section.FindValue(u"AddAppenders", &list)) || list->text.Empty()) return ZYR_OK;
  // Split at ";" and ","; each piece trimmed; empty pieces stay and fail.
  const char16_t* p = list->text.Text();
  std::size_t n = list->text.Length();
  std::size_t start = 0;
  for (std::size_t i = 0; i <= n; ++i) {
    if (i < n && p[i] != u';' && p[i] != u',') continue;
    std::size_t b = start, e = i;
    while (b < e && IsTrimmed(p[b])) ++b;
    while (e > b && IsTrimmed(p[e - 1])) --e;
    ZyrLogAppender* appender = nullptr;
    r = manager.Appenders().Find(p + b, e - b, &appender);
    if (ZyrFailed(r)) return r;
    r = logger->AddAppender(appender);
    if (ZyrFailed(r)) return r;
    start = i + 1;
  }
  return ZYR_OK;
}

}  // namespace

ZyrResult ZyrCfgBuild(ZyrLogManager& manager, ZyrCfgDocument& active, const ZyrCfgDocument& document,
                      const ZyrBasString& logFolder) {
  ZyrBasArray<ZyrCfgSectionRef> layouts, appenders, loggers;
  // Merge phase, in byte order of the section names.
  ZyrCfgSectionIterator sections = document.Sections();
  ZyrCfgSectionRef source;
  while (ZyrSucceeded(sections.Current(&source))) {
    sections.Next();
    ZyrCfgSectionRef section;
    ZyrResult r = Expand(*source, &section);
    if (ZyrFailed(r)) return r;
    ZyrCfgSectionRef present = active.FindSection(section->name.Text(), section->name.Length());
    if (present && present->Equals(*section)) continue;  // unchanged: nothing is rebuilt
    if (section->name.Equals(u"root")) {
      r = loggers.InsertAt(0, ZyrCfgSectionRef(section));
    } else {
      const ZyrBasString* type = section->GetType();
      if (!type || type->Equals(u"Logger")) r = loggers.Append(ZyrCfgSectionRef(section));
      else if (type->Equals(u"Appender")) r = appenders.Append(ZyrCfgSectionRef(section));
      else if (type->Equals(u"Layout")) r = layouts.Append(ZyrCfgSectionRef(section));
      // Any other Type: stored, applied to nothing.
    }
    if (ZyrFailed(r)) return r;
    (void)active.RemoveSection(section->name.Text(), section->name.Length());
    r = active.AddSection(section);
    if (ZyrFailed(r)) return r;
  }
  // Build phase: layouts, appenders, loggers (root first, parents before
  // children), so that each can bind what the same text defines.
  for (ZyrCfgSectionRef& s : layouts) {
    ZyrResult r = BuildLayout(manager, *s);
    if (ZyrFailed(r)) return r;
  }
  for (ZyrCfgSectionRef& s : appenders) {
    ZyrResult r = BuildAppender(manager, *s, logFolder);
    if (ZyrFailed(r)) return r;
  }
  for (ZyrCfgSectionRef& s : loggers) {
    ZyrResult r = BuildLogger(manager, *s);
    if (ZyrFailed(r)) return r;
  }
  return ZYR_OK;
}
