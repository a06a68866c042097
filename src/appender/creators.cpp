// The creator table: which class an AppenderType value makes.
#include "appender/appender.h"
#include "appender/console_appender.h"
#include "appender/file_appender.h"
#include "appender/rolling_date_file_appender.h"
#include "appender/rolling_file_appender.h"
#include "base/memory.h"

namespace {
template <class T>
ZyrResult Make(ZyrLogAppenderOwner* owner, const char16_t* name, ZyrLogAppender** appender) {
  T* made = ZyrNew<T>();
  if (!made) return ZYR_E_OUT_OF_MEMORY;
  ZyrResult r = made->Init(name, owner);
  if (ZyrFailed(r)) {
    ZyrDelete(made);
    return r;
  }
  *appender = made;
  return ZYR_OK;
}

// The file-based classes take the caller's log folder, against which a
// relative FileName is read.
template <class T>
ZyrResult MakeFileBased(ZyrLogAppenderOwner* owner, const char16_t* name,
                        const ZyrBasString& logFolder, ZyrLogAppender** appender) {
  ZyrLogAppender* made = nullptr;
  ZyrResult r = Make<T>(owner, name, &made);
  if (ZyrFailed(r)) return r;
  r = static_cast<T*>(made)->SetBaseFolder(logFolder);
  if (ZyrFailed(r)) {
    ZyrDelete(made);
    return r;
  }
  *appender = made;
  return ZYR_OK;
}
}  // namespace

ZyrResult ZyrLogMakeAppender(const ZyrBasString& type, const ZyrBasString& logFolder,
                             ZyrLogAppenderOwner* owner, const char16_t* name,
                             ZyrLogAppender** appender) {
  if (type.Equals(u"Console")) return Make<ZyrLogConsoleAppender>(owner, name, appender);
  // "Syslog" makes a Null appender, whose Configure then refuses the type:
  // no syslog protocol exists in this library.
  if (type.Equals(u"Null") || type.Equals(u"Syslog"))
    return Make<ZyrLogNullAppender>(owner, name, appender);
  if (type.Equals(u"RollingFile"))
    return MakeFileBased<ZyrLogRollingFileAppender>(owner, name, logFolder, appender);
  // "SharedFile" has no class of its own: it makes a File appender, whose
  // Configure then refuses the type.
  if (type.Equals(u"File") || type.Equals(u"SharedFile"))
    return MakeFileBased<ZyrLogFileAppender>(owner, name, logFolder, appender);
  if (type.Equals(u"RollingDateFile"))
    return MakeFileBased<ZyrLogRollingDateFileAppender>(owner, name, logFolder, appender);
  return ZYR_E_APPENDER_NOT_FOUND;
}
