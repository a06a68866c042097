// The creator table: which class an AppenderType value makes.
#include "appender/appender.h"
#include "appender/console_appender.h"
#include "base/memory.h"

namespace {
template <class T>
ZyrResult Make(ZyrLogHierarchy* hierarchy, const char16_t* name, ZyrLogAppender** appender) {
  T* made = ZyrNew<T>();
  if (!made) return ZYR_E_OUT_OF_MEMORY;
  ZyrResult r = made->Init(name, hierarchy);
  if (ZyrFailed(r)) {
    ZyrDelete(made);
    return r;
  }
  *appender = made;
  return ZYR_OK;
}
}  // namespace

ZyrResult ZyrLogMakeAppender(const ZyrBasString& type, const ZyrBasString& logFolder,
                             ZyrLogHierarchy* hierarchy, const char16_t* name,
                             ZyrLogAppender** appender) {
  (void)logFolder;
  if (type.Equals(u"Console")) return Make<ZyrLogConsoleAppender>(hierarchy, name, appender);
  // "Syslog" makes a Null appender, whose Configure then refuses the type:
  // no syslog protocol exists in this library.
  if (type.Equals(u"Null") || type.Equals(u"Syslog"))
    return Make<ZyrLogNullAppender>(hierarchy, name, appender);
  // The file-based classes come with the file layer.
  if (type.Equals(u"RollingFile") || type.Equals(u"RollingDateFile") || type.Equals(u"File") ||
      type.Equals(u"SharedFile"))
    return ZYR_E_NOT_IMPLEMENTED;
  return ZYR_E_APPENDER_NOT_FOUND;
}
