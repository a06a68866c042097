#include "appender/rolling_common.h"

#include "base/lock.h"
#include "config/document.h"

ZyrResult ZyrLogRollingAppenderBase::CloseTarget() { return writer_.Close(); }

ZyrResult ZyrLogRollingAppenderBase::Release() {
  ZyrBasLockGuard guard(Lock());
  if (IsOpened()) {
    ZyrResult r = Close();
    if (ZyrFailed(r)) return r;
  }
  if (fileLock_.IsOpen()) fileLock_.Close();
  return ZYR_OK;
}

ZyrResult ZyrLogRollingAppenderBase::PrepareTarget(ZyrBasString& path) {
  ZyrResult r = FullPath(path);
  if (ZyrFailed(r)) return r;
  EnsureFolder(path);
  return fileLock_.IsOpen() ? ZYR_OK : fileLock_.OpenBeside(path);
}

ZyrResult ZyrLogRollingAppenderBase::TryRollLock() {
  ZyrResult lock = fileLock_.TryLock(true);
  if (ZyrFailed(lock) && !ZyrLogFileLock::Unsupported(lock)) ZyrBasYield();
  return lock;
}

char16_t* ZyrLogDecimal(char16_t* end, std::uint64_t value) {
  do {
    *--end = static_cast<char16_t>(u'0' + value % 10);
    value /= 10;
  } while (value != 0);
  return end;
}

ZyrResult ZyrLogSetDecimal(ZyrCfgSection& section, const char16_t* key, std::uint64_t magnitude,
                           bool negative) {
  char16_t text[24];
  char16_t* end = text + 23;
  *end = 0;
  char16_t* first = ZyrLogDecimal(end, magnitude);
  if (negative) *--first = u'-';
  return section.SetValue(key, first);
}

ZyrResult ZyrLogRollingAppenderBase::WriteText(const char16_t* text, std::size_t length) {
  if (!writer_.IsOpen() || (TargetCheckDue() && TargetMoved(writer_))) {
    ZyrResult r = ReopenLiveFile();
    if (ZyrFailed(r)) return r;
  }
  return WriteThrough(writer_, text, length);
}

ZyrResult ZyrLogRollingAppenderBase::ReopenLiveFile() {
  (void)writer_.Close();
  // The lock file may have gone with the folder; a new one must be the
  // file that other processes lock. It is never held here: lines are
  // written outside a rollover's lock.
  if (fileLock_.State() == ZYR_LOCK_OPEN) fileLock_.Close();
  return OpenTarget();
}
