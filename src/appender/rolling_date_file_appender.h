// ZyrLogRollingDateFileAppender, AppenderType "RollingDateFile": one log
// file per UTC day. The first line after midnight UTC finds the live file
// from the day before, moves it to a name with the date on which it was
// created ("common.log" becomes "common.2014-11-03.log"), and lands in a
// new live file. Old dated files go by number (FilesCount) or by age
// (DaysCount). The machine's time zone plays no part.
//
// Keys, with their defaults: AppenderType "RollingDateFile" (required),
// FileName (required), FilesCount 0, DaysCount 0 (not both above 0),
// ImmediateWrite false, BreakSeverity ALL. With neither count set every
// dated file is kept: nothing of a user's logs is removed unless a limit
// asks for it.
//
// Several processes may write one such log, with the lock on "<log>.lock"
// of the size-rolling appender: only its holder rolls at midnight, nobody
// waits for it, and a roll moves only a live file created on an earlier
// day, so two processes that pass midnight together roll once.
#ifndef ZYR_APPENDER_ROLLING_DATE_FILE_APPENDER_H
#define ZYR_APPENDER_ROLLING_DATE_FILE_APPENDER_H

#include <cstdint>

#include "appender/rolling_common.h"

class ZyrLogRollingDateFileAppender final : public ZyrLogRollingAppenderBase {
 public:
  // Rolls first when the day has changed, then writes: the first line of a
  // new day lands in the new file.
  ZyrResult Append(ZyrLogEvent& event, const char16_t* text, std::size_t length) override;
  // Opens the lock file once, then PrepareAndOpen.
  ZyrResult OpenTarget() override;
  // FilesCount, DaysCount (both above 0 fails, and neither is stored), then
  // the shared keys.
  ZyrResult Configure(ZyrCfgSection& section) override;
  ZyrResult WriteConfig(ZyrCfgSection& section) override;

  // Sets NextRollTime one millisecond after the coming midnight UTC; a live
  // file created on an earlier day rolls first; then opens the live file,
  // made fresh with the creation time of now if it is missing.
  ZyrResult PrepareAndOpen(const ZyrBasString& path);
  // Moves the closed live file to its dated name, then removes old dated
  // files. A live file created today stays: another process rolled it. A
  // move that fails keeps the live file, which is opened on; the next line
  // written then answers with the warning form of that failure.
  ZyrResult Roll();
  // The path with the date of `creationTime` (UTC) in place of its
  // extension, followed by the extension again.
  static ZyrResult DatedName(ZyrBasString& out, const ZyrBasString& path, std::uint64_t creationTime);
  // Removes the oldest dated files (by creation time) beyond FilesCount, or
  // those created DaysCount days or more before Now.
  ZyrResult RemoveOldFiles();

  std::uint64_t FilesCount() const { return filesCount_; }
  std::uint64_t DaysCount() const { return daysCount_; }
  std::uint64_t NextRollTime() const { return nextRollTime_; }

 private:
  std::uint64_t filesCount_ = 0;
  std::uint64_t daysCount_ = 0;
  std::uint64_t now_ = ~0ull;           // system time of the last open or Append
  std::uint64_t nextRollTime_ = ~0ull;  // Append rolls from this time on
  // Set while a roll closes the file: the footer belongs to the old day.
  std::uint8_t rollClosing_ = 0;
  ZyrResult rollFailure_ = ZYR_OK;  // of the last roll, for the next line's caller
};

#endif
