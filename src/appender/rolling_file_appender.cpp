#include "appender/rolling_file_appender.h"

#include "base/path.h"
#include "config/document.h"
#include "config/number.h"
#include "engine/manager.h"

namespace {

constexpr std::size_t kMaxIndexDigits = 15;

// Decimal text of a magnitude into the end of `buffer`; returns the first
// character.
char16_t* Decimal(char16_t* end, std::uint64_t value) {
  do {
    *--end = static_cast<char16_t>(u'0' + value % 10);
    value /= 10;
  } while (value != 0);
  return end;
}

ZyrResult SetNumber(ZyrCfgSection& section, const char16_t* key, std::uint64_t magnitude,
                    bool negative) {
  char16_t text[24];
  char16_t* end = text + 23;
  *end = 0;
  char16_t* first = Decimal(end, magnitude);
  if (negative) *--first = u'-';
  return section.SetValue(key, first);
}

// The three results by which a file system says that it offers no lock;
// the rollover then goes on without one.
bool LockUnsupported(ZyrResult r) {
  return r == ZYR_E_NOT_SUPPORTED || r == ZYR_E_INVALID_OPERATION || r == ZYR_E_NO_FREE_SLOT;
}

}  // namespace

ZyrResult ZyrLogRollingFileAppender::WriteText(const char16_t* text, std::size_t length) {
  // Open but without a file (a rollover whose close failed went on and
  // closed the file under the open state), or the live file gone from its
  // name (another process rolled it, or the folder was removed): take up
  // the live file again.
  if (!writer_.IsOpen() || (TargetCheckDue() && TargetMoved(writer_))) {
    ZyrResult r = ReopenLiveFile();
    if (ZyrFailed(r)) return r;
  }
  return WriteThrough(writer_, text, length);
}

ZyrResult ZyrLogRollingFileAppender::ReopenLiveFile() {
  (void)writer_.Close();
  // The lock file may have gone with the folder; a new one must be the
  // file that other processes lock. It is never held here: lines are
  // written outside a rollover's lock.
  if (fileLock_.State() == ZYR_LOCK_OPEN) fileLock_.Close();
  return OpenTarget();
}

ZyrResult ZyrLogRollingFileAppender::Append(ZyrLogEvent&, const char16_t* text, std::size_t length) {
  ZyrBasLockGuard guard(Lock());
  if (rollClosing_) return WriteText(text, length);

  // The line first: the line that passes the limit is the last of the old file.
  ZyrResult r = WriteText(text, length);
  if (ZyrFailed(r)) return r;
  // What the system counts, with other processes' lines and the mark.
  r = writer_.Size(&currentSize_);
  if (ZyrFailed(r)) return r;
  if (currentSize_ <= size_) return ZYR_OK;

  rollClosing_ = 1;
  (void)Close();
  rollClosing_ = 0;

  ZyrResult lock = fileLock_.TryLock(true);
  bool locked = ZyrSucceeded(lock);
  // Busy: another process is rolling this log. The appender stays closed,
  // and the next event opens whatever the live file then is.
  if (!locked && !LockUnsupported(lock)) return ZYR_OK;

  ZyrResult result = locked ? ZYR_OK : lock;
  if (ZyrSucceeded(OpenTarget())) {
    std::int64_t now = 0;
    result = writer_.Size(&now);
    (void)CloseTarget();
    // Smaller: somebody rolled between our close and our lock, and the live
    // file is a new one.
    if (ZyrSucceeded(result) && now >= currentSize_) result = Rotate();
  }
  if (locked) fileLock_.Unlock();
  return result;
}

ZyrResult ZyrLogRollingFileAppender::OpenTarget() {
  ZyrBasString path;
  ZyrResult r = FullPath(path);
  if (ZyrFailed(r)) return r;
  EnsureFolder(path);
  if (!fileLock_.IsOpen()) {
    // Without the lock file this appender writes nothing: a rollover must
    // never run unguarded beside other processes.
    ZyrBasString lockPath;
    r = lockPath.Assign(path);
    if (ZyrSucceeded(r)) r = lockPath.AppendAscii(".lock");
    if (ZyrSucceeded(r)) r = fileLock_.Open(lockPath.Text());
    if (ZyrFailed(r)) return r;
  }
  // Shared for renaming: a competing process moves the live file away
  // while this one holds it open.
  r = writer_.OpenLogFile(path.Text(), true, false);
  if (ZyrFailed(r)) return r;
  return writer_.WriteMark();
}

ZyrResult ZyrLogRollingFileAppender::CloseTarget() { return writer_.Close(); }

ZyrResult ZyrLogRollingFileAppender::Release() {
  ZyrBasLockGuard guard(Lock());
  if (IsOpened()) {
    ZyrResult r = Close();
    if (ZyrFailed(r)) return r;
  }
  if (fileLock_.IsOpen()) fileLock_.Close();
  return ZYR_OK;
}

ZyrResult ZyrLogRollingFileAppender::Configure(ZyrCfgSection& section) {
  ZyrCfgValueRef value;
  if (ZyrSucceeded(section.FindValue(u"AppenderType", &value)) && !value->text.Equals(u"RollingFile"))
    return ZYR_E_WRONG_APPENDER_TYPE;
  if (ZyrSucceeded(section.FindValue(u"Size", &value))) {
    // Reading stops at the first character that is no digit; no failure.
    std::int64_t size = 0;
    if (ZyrSucceeded(ZyrCfgParseSigned(value->text, &size))) size_ = size;
  }
  bool countGiven = false;
  std::uint64_t count = 0;
  if (ZyrSucceeded(section.FindValue(u"FilesCount", &value))) {
    ZyrResult r = ZyrCfgParseUnsigned(value->text, &count);
    if (ZyrFailed(r)) return r;
    countGiven = true;
  }
  ZyrResult r = ConfigureShared(section);
  if (countGiven) {
    // The removal of numbers above the new count runs once the file name
    // is known, so a first configuration cleans up after an earlier,
    // larger count too.
    if (ZyrSucceeded(r)) (void)ShrinkTo(count);
    else filesCount_ = count;
  }
  return r;
}

ZyrResult ZyrLogRollingFileAppender::WriteConfig(ZyrCfgSection& section) {
  bool negative = size_ < 0;
  std::uint64_t magnitude =
      negative ? 0 - static_cast<std::uint64_t>(size_) : static_cast<std::uint64_t>(size_);
  ZyrResult r = SetNumber(section, u"Size", magnitude, negative);
  if (ZyrSucceeded(r)) r = SetNumber(section, u"FilesCount", filesCount_, false);
  if (ZyrSucceeded(r)) r = section.SetValue(u"AppenderType", u"RollingFile");
  if (ZyrSucceeded(r)) r = ZyrLogFileBasedAppender::WriteConfig(section);
  return r;
}

ZyrResult ZyrLogRollingFileAppender::RolledName(ZyrBasString& out, const ZyrBasString& fullPath,
                                                std::uint64_t index) {
  char16_t digits[24];
  char16_t* end = digits + 23;
  *end = 0;
  char16_t* first = Decimal(end, index);
  if (static_cast<std::size_t>(end - first) > kMaxIndexDigits) return ZYR_E_BUFFER_TOO_SMALL;
  ZyrResult r = out.Reserve(fullPath.Length() + 1 + static_cast<std::size_t>(end - first) + 1);
  if (ZyrSucceeded(r)) r = out.Assign(fullPath);
  if (ZyrSucceeded(r)) r = out.Append(u'.');
  if (ZyrSucceeded(r)) r = out.Append(first, end);
  return r;
}

ZyrResult ZyrLogRollingFileAppender::Rotate() {
  ZyrBasString path;
  ZyrResult r = FullPath(path);
  if (ZyrFailed(r)) return r;
  if (filesCount_ == 0) {
    (void)ZyrBasDeleteFile(path.Text(), 0);
    return ZYR_OK;
  }
  // Top down, so that no file is overwritten before its own move; a number
  // that does not exist (a gap left by an interrupted rollover) just moves
  // up and out at the top.
  ZyrBasString from, to;
  r = RolledName(to, path, filesCount_);
  if (ZyrFailed(r)) return r;
  (void)RemoveRolled(to);
  for (std::uint64_t i = filesCount_ - 1; i >= 1; --i) {
    r = RolledName(from, path, i);
    if (ZyrFailed(r)) return r;
    (void)ZyrBasMoveFile(from.Text(), to.Text());
    from.Swap(to);  // number i is the target of the next move
  }
  r = ZyrBasMoveFile(path.Text(), to.Text());
  if (ZyrSucceeded(r)) {
    if (ZyrLogHierarchy* owner = Owner()) (void)owner->ReportRolledFile(to.Text());
    return ZYR_OK;
  }
  // The size limit holds even so; the old file's lines are lost.
  (void)ZyrBasDeleteFile(path.Text(), 0);
  return r;
}

ZyrResult ZyrLogRollingFileAppender::RemoveRolled(const ZyrBasString& path) {
  ZyrBasString folder, temp, tempPath;
  ZyrResult r = ZyrBasPathDirectory(folder, path.Text(), path.Length());
  if (ZyrSucceeded(r)) r = ZyrBasMakeTempName(temp);
  if (ZyrSucceeded(r)) r = ZyrBasPathJoin(tempPath, folder.Text(), folder.Length(), temp.Text());
  if (ZyrSucceeded(r)) r = ZyrBasMoveFile(path.Text(), tempPath.Text());
  if (ZyrSucceeded(r)) r = ZyrBasDeleteFile(tempPath.Text(), 0);
  return r;
}

ZyrResult ZyrLogRollingFileAppender::ShrinkTo(std::uint64_t count) {
  if (count >= filesCount_) {
    filesCount_ = count;
    return ZYR_OK;
  }
  ZyrBasString path, name;
  ZyrResult r = FullPath(path);
  if (ZyrFailed(r)) return r;
  for (std::uint64_t i = filesCount_; i > count; --i) {
    r = RolledName(name, path, i);
    if (ZyrFailed(r)) return r;
    (void)RemoveRolled(name);
  }
  filesCount_ = count;
  return ZYR_OK;
}
