// ZyrLogRollingFileAppender, AppenderType "RollingFile": a log of bounded
// size. When the live file has outgrown Size it is moved aside as
// "<log>.1", older numbers move up by one, the number FilesCount goes, and
// the next event starts a new live file.
//
// Several processes may write one such log at once. Lines need no
// coordination (the system appends each in one write); only the holder of
// the lock on "<log>.lock" renames anything, nobody waits for that lock, and
// the holder checks under it that the live file is still the one that grew
// too big, so that two processes passing the limit together roll once.
#ifndef ZYR_APPENDER_ROLLING_FILE_APPENDER_H
#define ZYR_APPENDER_ROLLING_FILE_APPENDER_H

#include <cstdint>

#include "appender/rolling_common.h"

inline constexpr std::int64_t kZyrLogDefaultRollSize = 0x100000;
inline constexpr std::uint64_t kZyrLogDefaultFilesCount = 10;

class ZyrLogRollingFileAppender final : public ZyrLogRollingAppenderBase {
 public:
  // Writes, then rolls when the live file is above Size.
  ZyrResult Append(ZyrLogEvent& event, const char16_t* text, std::size_t length) override;
  // Opens the lock file once, then the live file, shared for renaming.
  ZyrResult OpenTarget() override;
  // Size (signed), FilesCount (unsigned; a leading "-" or more than 15
  // digits fails), then the shared keys. A lowered FilesCount removes the
  // numbers above it at once, from the chain of the FileName in force
  // before this call.
  ZyrResult Configure(ZyrCfgSection& section) override;
  ZyrResult WriteConfig(ZyrCfgSection& section) override;
  // The held lines in one write, then the size rule once for all of them.
  std::uint64_t EndBatch(ZyrResult* failure) override;

  // `fullPath`, ".", the index in decimal without padding; an index of more
  // than 15 digits gives ZYR_E_BUFFER_TOO_SMALL.
  static ZyrResult RolledName(ZyrBasString& out, const ZyrBasString& fullPath, std::uint64_t index);
  // Moves the closed live file to number 1 after moving the chain up; with
  // FilesCount 0 the live file is deleted instead. Lists the folder once and
  // moves only the numbers that exist. All or nothing: when a move fails
  // (a folder at a rolled name, another account's file there in a sticky
  // folder), the moves made are undone, the live file stays, nothing is
  // deleted, and that failure is the result.
  ZyrResult Rotate();
  // Renames `path` to a temporary name beside it, then deletes that, so the
  // name is free at once even where a deletion waits for open handles.
  static ZyrResult RemoveRolled(const ZyrBasString& path);
  // Removes the numbers from FilesCount down to count + 1 that exist, then
  // keeps count.
  ZyrResult ShrinkTo(std::uint64_t count);

  std::int64_t Size() const { return size_; }
  std::int64_t CurrentSize() const { return currentSize_; }
  std::uint64_t FilesCount() const { return filesCount_; }

 private:
  // After a write: the size query, and the rollover when the live file
  // has passed Size.
  ZyrResult RollIfOver();
  // A batch is a fraction of Size, so that the live file passes Size by
  // at most one batch; with no room at all each line is a write of its own.
  std::size_t BatchLimit() const override {
    return size_ <= 0 ? 0 : size_ / 16 < static_cast<std::int64_t>(kBatchBytes) ? static_cast<std::size_t>(size_ / 16) : kBatchBytes;
  }

  std::int64_t size_ = kZyrLogDefaultRollSize;
  std::int64_t currentSize_ = 0;  // end of the live file seen after the last write
  std::uint64_t lastLineTime_ = 0;  // the time of the last line's event
  std::uint64_t filesCount_ = kZyrLogDefaultFilesCount;
  // Set while a rollover closes the old file and opens the new one: the
  // footer and the header it writes must not start a rollover of their own.
  std::uint8_t rollClosing_ = 0;
  // The housekeeping tick in which a rollover failed; no other is tried
  // before the tick moves on.
  static constexpr std::uint64_t kNoFailedRoll = ~std::uint64_t{0};
  std::uint64_t rollFailedTick_ = kNoFailedRoll;
};

#endif
