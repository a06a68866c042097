// What both rolling appenders share: the live file's writer and the lock
// file beside it, and the decimal text of their counts.
#ifndef ZYR_APPENDER_ROLLING_COMMON_H
#define ZYR_APPENDER_ROLLING_COMMON_H

#include <cstdint>

#include "appender/file_appender.h"
#include "appender/file_lock.h"
#include "zyrlog/result.h"

class ZyrCfgSection;

// The lock file "<log>.lock" is opened with the first open and stays open
// until Release; only its holder renames anything.
class ZyrLogRollingAppenderBase : public ZyrLogFileBasedAppender {
 public:
  // The live file only; the lock file stays open until Release.
  // Open but without a file (a roll whose close failed went on and closed
  // the file under the open state), or the live file gone from its name
  // (another process rolled it, or the folder was removed): the live file
  // is taken up again before the line.
  ZyrResult WriteText(const char16_t* text, std::size_t length) override;
  ZyrResult CloseTarget() override;
  ZyrResult Release() override;
  std::uint64_t EndBatch(ZyrResult* failure) override { return EndBatchOf(writer_, failure); }

  const ZyrLogFileLock& FileLock() const { return fileLock_; }
  ZyrLogFileWriter& Writer() { return writer_; }

 protected:
  // The full path, its folder made, and the lock file opened if it is not:
  // without the lock file nothing is written, so that a roll never runs
  // unguarded beside other processes.
  ZyrResult PrepareTarget(ZyrBasString& path);
  ZyrResult ReopenLiveFile();
  // Tries the lock file for a roll, never waiting. When another process
  // holds it, this one gives up the processor once before it goes on to
  // write into whatever file is live: the holder may be the process that
  // waits for this core, and every line written before its roll ends lands
  // in the file that is being rolled away.
  ZyrResult TryRollLock();

  ZyrLogFileWriter writer_;
  ZyrLogFileLock fileLock_;
};

// Writes the decimal digits of `value` backwards, ending just before
// `end`; returns the first digit.
char16_t* ZyrLogDecimal(char16_t* end, std::uint64_t value);
// Sets `key` to the decimal text of the magnitude, with "-" if negative.
ZyrResult ZyrLogSetDecimal(ZyrCfgSection& section, const char16_t* key, std::uint64_t magnitude,
                           bool negative);

#endif
