#include "appender/rolling_date_file_appender.h"

#include <algorithm>

#include "appender/rolling_common.h"
#include "appender/rolling_file_appender.h"
#include "base/array.h"
#include "base/format.h"
#include "base/path.h"
#include "base/time.h"
#include "config/document.h"
#include "config/number.h"

namespace {

constexpr std::uint64_t kTicksPerDay = 864000000000ull;

// By year, then month, then day.
bool EarlierDay(const ZyrBasTimeFields& a, const ZyrBasTimeFields& b) {
  if (a.year != b.year) return a.year < b.year;
  if (a.month != b.month) return a.month < b.month;
  return a.day < b.day;
}

ZyrResult ReadCount(ZyrCfgSection& section, const char16_t* key, std::uint64_t* count) {
  ZyrCfgValueRef value;
  *count = 0;
  if (ZyrFailed(section.FindValue(key, &value))) return ZYR_OK;
  return ZyrCfgParseUnsigned(value->text, count);
}

// A dated file as the listing found it; `order` is its place in the
// listing, which decides between two files of the same creation time.
struct DatedFile {
  std::int64_t created = 0;
  std::uint32_t order = 0;
  ZyrBasString path;
};

}  // namespace

ZyrResult ZyrLogRollingDateFileAppender::Append(ZyrLogEvent&, const char16_t* text,
                                                std::size_t length) {
  ZyrBasLockGuard guard(Lock());
  if (rollClosing_) return WriteText(text, length);  // the old day's footer
  // One clock reading and one comparison while the day lasts.
  now_ = ZyrBasSystemTime();
  if (now_ >= nextRollTime_) {
    rollClosing_ = 1;
    ZyrResult r = Close();
    rollClosing_ = 0;
    if (ZyrFailed(r)) return r;
    // Busy: another process is rolling. The open below finds whichever
    // file is live then.
    ZyrResult lock = TryRollLock();
    bool locked = ZyrSucceeded(lock);
    if (locked || ZyrLogFileLock::Unsupported(lock)) {
      (void)Roll();
      if (locked) fileLock_.Unlock();
    }
    r = Open();
    if (ZyrFailed(r)) return r;
  }
  return WriteText(text, length);
}

ZyrResult ZyrLogRollingDateFileAppender::OpenTarget() {
  ZyrBasString path;
  ZyrResult r = PrepareTarget(path);
  if (ZyrSucceeded(r)) r = PrepareAndOpen(path);
  if (ZyrFailed(r)) return r;
  return writer_.WriteMark(LayoutMarksNewFile());
}

ZyrResult ZyrLogRollingDateFileAppender::Configure(ZyrCfgSection& section) {
  ZyrResult r = CheckType(section, u"RollingDateFile");
  if (ZyrFailed(r)) return r;
  std::uint64_t files = 0, days = 0;
  r = ReadCount(section, u"FilesCount", &files);
  if (ZyrSucceeded(r)) r = ReadCount(section, u"DaysCount", &days);
  if (ZyrFailed(r)) return r;
  if (files > 0 && days > 0) return ZYR_E_INVALID_ARGUMENT;
  // Neither set keeps every dated file (RemoveOldFiles).
  filesCount_ = files;
  daysCount_ = days;
  return ConfigureShared(section);
}

ZyrResult ZyrLogRollingDateFileAppender::WriteConfig(ZyrCfgSection& section) {
  ZyrResult r = filesCount_ != 0 ? ZyrLogSetDecimal(section, u"FilesCount", filesCount_, false)
                                 : ZyrLogSetDecimal(section, u"DaysCount", daysCount_, false);
  if (ZyrSucceeded(r)) r = section.SetValue(u"AppenderType", u"RollingDateFile");
  if (ZyrSucceeded(r)) r = ZyrLogFileBasedAppender::WriteConfig(section);
  return r;
}

ZyrResult ZyrLogRollingDateFileAppender::PrepareAndOpen(const ZyrBasString& path) {
  now_ = ZyrBasSystemTime();
  ZyrBasTimeFields today;
  ZyrResult r = ZyrBasTimeToFields(today, now_);
  if (ZyrFailed(r)) return r;
  // One millisecond after the coming midnight UTC: never before it.
  std::uint64_t left = ((((23u - today.hour) * 60ull + (59u - today.minute)) * 60 + (59u - today.second)) *
                            1000 + (1000u - today.millisecond)) * 1000 + (1000u - today.microsecond);
  nextRollTime_ = now_ + left * 10;

  // A live file from an earlier day (a process that stopped over midnight,
  // a log unused for days) rolls now, under its own date.
  ZyrBasDirEntry info;
  if (ZyrSucceeded(ZyrBasFileInformation(&info, path.Text()))) {
    ZyrBasTimeFields created;
    r = ZyrBasTimeToFields(created, static_cast<std::uint64_t>(info.creationTime));
    if (ZyrFailed(r)) return r;
    if (EarlierDay(created, today)) {
      // The lock is tried here too, never waited for. Busy means that
      // another process is rolling this very file: a roll of ours could
      // move the fresh file that it makes next under yesterday's name, over
      // the file it rolled. So this open takes whichever file is live, and
      // the next line looks again.
      ZyrResult lock = TryRollLock();
      bool locked = ZyrSucceeded(lock);
      if (locked || ZyrLogFileLock::Unsupported(lock)) {
        r = Roll();
        if (locked) fileLock_.Unlock();
        if (ZyrFailed(r)) return r;
      } else {
        nextRollTime_ = now_;
      }
    }
  }
  // Made fresh if missing, with its creation time set to now.
  return writer_.OpenLogFile(path.Text(), true, true);
}

ZyrResult ZyrLogRollingDateFileAppender::Roll() {
  ZyrBasString path, target;
  ZyrResult r = FullPath(path);
  if (ZyrFailed(r)) return r;
  ZyrBasDirEntry info;
  r = ZyrBasFileInformation(&info, path.Text());
  if (ZyrFailed(r)) return r;
  std::uint64_t creation = static_cast<std::uint64_t>(info.creationTime);
  ZyrBasTimeFields created, today;
  r = ZyrBasTimeToFields(created, creation);
  if (ZyrSucceeded(r)) r = ZyrBasTimeToFields(today, now_);
  if (ZyrFailed(r)) return r;
  // A live file of today was made by a process that rolled first (two
  // processes passing midnight together), or the clock went back: it
  // stays, and no dated name is taken twice.
  if (!EarlierDay(created, today)) return ZYR_OK;
  r = DatedName(target, path, creation);
  if (ZyrFailed(r)) return r;
  r = ZyrBasMoveFile(path.Text(), target.Text());
  (void)RemoveOldFiles();
  // A failed move is not reported: the live file stays and is opened on.
  if (ZyrSucceeded(r)) {
    if (ZyrLogAppenderOwner* owner = Owner()) (void)owner->ReportRolledFile(target.Text());
  }
  return ZYR_OK;
}

ZyrResult ZyrLogRollingDateFileAppender::DatedName(ZyrBasString& out, const ZyrBasString& path,
                                                   std::uint64_t creationTime) {
  ZyrBasTimeFields f;
  ZyrResult r = ZyrBasTimeToFields(f, creationTime);
  if (ZyrFailed(r)) return r;
  std::uint64_t fields[3] = {f.year, f.month, f.day};
  ZyrBasString date, extension;
  r = ZyrBasFormat(date, u"%04d-%02d-%02d", fields);
  if (ZyrSucceeded(r)) r = ZyrBasPathExtension(extension, path.Text(), path.Length());
  if (ZyrSucceeded(r))
    r = ZyrBasPathChangeExtension(out, path.Text(), path.Length(), date.Text(), date.Length());
  if (ZyrSucceeded(r)) r = out.Append(extension);
  return r;
}

ZyrResult ZyrLogRollingDateFileAppender::RemoveOldFiles() {
  // Left to the user: with neither limit set, every dated file stays.
  if (filesCount_ == 0 && daysCount_ == 0) return ZYR_OK;
  ZyrBasString path, folder, name, extension, pattern;
  ZyrResult r = FullPath(path);
  if (ZyrSucceeded(r)) r = ZyrBasPathDirectory(folder, path.Text(), path.Length());
  if (ZyrSucceeded(r)) r = ZyrBasPathFileName(name, FileName().Text(), FileName().Length());
  if (ZyrSucceeded(r)) r = ZyrBasPathExtension(extension, name.Text(), name.Length());
  if (ZyrSucceeded(r)) r = ZyrBasPathChangeExtension(pattern, name.Text(), name.Length(), u"*-*-*");
  if (ZyrSucceeded(r)) r = pattern.Append(extension);  // "common.*-*-*.log"
  if (ZyrFailed(r)) return r;

  ZyrBasArray<DatedFile> files;
  ZyrBasDirEnum listing;
  r = listing.Open(folder.Text(), pattern.Text(), ZYR_ENUM_FILES);
  for (; r == ZYR_OK; r = listing.Next()) {
    const ZyrBasDirItem* item = nullptr;
    r = listing.Current(&item);
    if (ZyrFailed(r)) return r;
    DatedFile file;
    file.created = item->CreationTime();
    file.order = static_cast<std::uint32_t>(files.Count());
    r = item->FullPath(file.path);
    if (ZyrSucceeded(r)) r = files.Append(static_cast<DatedFile&&>(file));
    if (ZyrFailed(r)) return r;
  }
  if (ZyrFailed(r)) return r;  // the normal end is ZYR_I_NO_MORE_ITEMS
  std::sort(files.begin(), files.end(), [](const DatedFile& a, const DatedFile& b) {
    return a.created != b.created ? a.created < b.created : a.order < b.order;
  });
  // Ordered by creation time, one file per time: of two with the same time
  // the one listed later stands for both, and the other is neither counted
  // nor removed.
  std::size_t kept = 0;
  for (std::size_t i = 0; i < files.Count(); ++i) {
    if (i + 1 < files.Count() && files[i + 1].created == files[i].created) continue;
    if (kept != i) files[kept] = static_cast<DatedFile&&>(files[i]);
    ++kept;
  }

  std::size_t remove = 0;
  if (daysCount_ == 0) {
    // Counted in full: a FilesCount beyond what a folder can hold keeps all.
    if (kept > filesCount_) remove = kept - static_cast<std::size_t>(filesCount_);
  } else {
    // Created at or before the limit goes; a limit before any time that a
    // file can carry keeps all.
    if (daysCount_ < now_ / kTicksPerDay) {
      std::int64_t limit = static_cast<std::int64_t>(now_ - daysCount_ * kTicksPerDay);
      while (remove < kept && files[remove].created <= limit) ++remove;
    }
  }
  for (std::size_t i = 0; i < remove; ++i) (void)ZyrLogRollingFileAppender::RemoveRolled(files[i].path);
  return ZYR_OK;
}
