// The log file writer, which every file appender embeds, the part that the
// file appenders share (file name, base folder, flush policy), and the plain
// "File" appender: one file that grows without limit.
//
// Log files are text with a byte order mark: new files are UTF-8 (EF BB BF);
// a file that starts FF FE is continued in UTF-16 little-endian. Every line,
// header and footer ends in CR LF. Lines go to the end of the file in one
// system write each, placed by the system at the moment of the write, so
// several processes can share one file without tearing each other's lines.
#ifndef ZYR_APPENDER_FILE_APPENDER_H
#define ZYR_APPENDER_FILE_APPENDER_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "appender/appender.h"
#include "base/array.h"
#include "base/file.h"
#include "base/string.h"

inline constexpr std::uint32_t ZYR_LOG_ENCODING_NONE = 0;  // closed
inline constexpr std::uint32_t ZYR_LOG_ENCODING_UTF8 = 1;
inline constexpr std::uint32_t ZYR_LOG_ENCODING_UTF16 = 2;  // little-endian

class ZyrLogFileWriter {
 public:
  // Opens or creates `path`, read and write, readable and writable by every
  // account when this call creates it. An open file is closed first.
  // `allowDelete`: others may rename or remove the file while it is open.
  // `createFresh`: a file that does not exist yet comes into being through a
  // temporary name, so that its creation time is the time of this call.
  // The encoding comes from the file's first bytes. A symbolic link at
  // `path` is refused with ZYR_E_INVALID_NAME, and nothing is written
  // through it.
  ZyrResult OpenLogFile(const char16_t* path, bool allowDelete, bool createFresh);
  // The byte order mark at offset 0, for a file that has none yet; with
  // `wanted` false a new file stays without one.
  ZyrResult WriteMark(bool wanted = true);
  // The text and CR LF, encoded, in one write at the end of the file. A lone
  // surrogate, which has no UTF-8 form, is written as "\uDNNN"; a UTF-16
  // file takes it as it stands. A line that only partly fits (a full disk)
  // gives ZYR_E_DISK_FULL, and the part written ends in " [torn line]" and
  // CR LF, so that the next line starts on a line of its own.
  ZyrResult WriteLine(const char16_t* text, std::size_t length);
  // On the worker's road: the line, encoded as WriteLine writes it, is held
  // back to go out with the lines around it in one write. When the held
  // lines reach `limit` bytes they are written at once. Whatever that write
  // loses is counted for TakeHeldFailures, not answered here.
  ZyrResult HoldLine(const char16_t* text, std::size_t length, std::size_t limit);
  // Writes the held lines in one write at the end of the file, each line
  // whole, several at once; a close or a new open writes them first. A
  // short write seals the line it cuts as WriteLine seals one.
  ZyrResult WriteHeld();
  std::size_t HeldBytes() const { return held_.Count(); }
  // The held lines that reached no file since the last call, and the last
  // failure.
  std::uint64_t TakeHeldFailures(ZyrResult* failure);
  // The end of the file as the last line's write left it, other processes'
  // lines before it included: one cheap query, with no size kept here.
  ZyrResult EndAfterWrite(std::int64_t* end);
  // The end-of-file position as the system reports it now, so it counts
  // what other processes have written too.
  ZyrResult Size(std::int64_t* size);
  ZyrResult Flush();
  // Whether `path` still names the open file (false when closed).
  ZyrResult IsAt(const char16_t* path, bool* same) {
    *same = false;
    return file_.IsOpen() ? file_.IsAt(path, same) : ZYR_OK;
  }
  // Sets the end of the file to 0.
  ZyrResult Truncate();
  // A closed writer answers 0 at once.
  ZyrResult Close();

  bool IsOpen() const { return file_.IsOpen(); }
  std::uint32_t Encoding() const { return encoding_; }
  // Sharing asked for at the open; the system does not enforce it.
  std::uint32_t SharedAccess() const { return file_.SharedAccess(); }

 private:
  ZyrBasFile file_;
  ZyrBasString lineBuffer_;           // the line with its terminator, kept between lines
  std::uint32_t encoding_ = ZYR_LOG_ENCODING_NONE;
  ZyrBasArray<char> encodedBuffer_;  // the line in UTF-8, kept between lines
  bool markMissing_ = false;         // the file was empty at the open
  bool sealPending_ = false;         // a torn fragment waits for its mark
  bool holding_ = false;             // WriteLine holds the line back
  ZyrBasArray<char> held_;           // held lines, encoded, whole
  ZyrBasArray<std::uint32_t> heldEnds_;  // the end of each held line in held_
  std::uint64_t heldFailedLines_ = 0;
  ZyrResult heldFailure_ = ZYR_OK;

  // False without memory to hold the line: it is written at once.
  bool Hold(const void* bytes, std::size_t count);
  void UseAppendMode();
  void SealFragment(const unsigned char* fragment, std::size_t size);
};

class ZyrLogFileBasedAppender : public ZyrLogAppender {
 public:
  // The caller's log folder, given by the creator; may stay empty.
  ZyrResult SetBaseFolder(const ZyrBasString& folder) { return baseFolder_.Assign(folder); }
  // Drive forms ("X:", "X:\...") and two leading separators are absolute and
  // stored as they stand; anything else is joined to the base folder, which
  // keeps a name with one leading separator (a POSIX absolute path) as it is
  // unless the base folder has a drive.
  ZyrResult SetFileName(const char16_t* name, std::size_t length = ZYR_TERMINATED);
  // The file name made absolute and normalised; it depends on the current
  // directory when no base folder is set, so it is asked at every open.
  ZyrResult FullPath(ZyrBasString& out) const;
  ZyrResult WriteConfig(ZyrCfgSection& section) override;

  // Run by the housekeeping tick, at most once a second: every file
  // appender then compares its open file with its name once, before its
  // next line. A plain log removed while open (Linux allows it), or its
  // folder removed, is so noticed without a system call per line.
  static void HousekeepingTick();

  // The bytes of lines that a file appender holds back on the worker's
  // road before it writes them in one write.
  static constexpr std::size_t kBatchBytes = 64 * 1024;

  const ZyrBasString& FileName() const { return fileName_; }
  const ZyrBasString& BaseFolder() const { return baseFolder_; }
  bool ImmediateWrite() const { return immediateWrite_ != 0; }

 protected:
  // Reads FileName (required), ImmediateWrite, then the base's keys; each
  // class calls it after its own keys.
  ZyrResult ConfigureShared(ZyrCfgSection& section);
  // The AppenderType check of a class: ZYR_E_CFG_NOT_FOUND when absent.
  static ZyrResult CheckType(ZyrCfgSection& section, const char16_t* expected);
  // The line, then a flush when ImmediateWrite asks for one. On the
  // draining thread the line is held back instead, for the batch's end.
  ZyrResult WriteThrough(ZyrLogFileWriter& writer, const char16_t* text, std::size_t length);
  // The held lines written, flushed if ImmediateWrite asks for it; the
  // lines lost, with the failure.
  std::uint64_t EndBatchOf(ZyrLogFileWriter& writer, ZyrResult* failure);
  // How many bytes of lines one write may carry.
  virtual std::size_t BatchLimit() const { return kBatchBytes; }
  // Folder tree of `path`, made if missing; the open that follows reports a
  // folder that could not be made.
  static void EnsureFolder(const ZyrBasString& path);
  // The count of housekeeping ticks so far (about one a second).
  static std::uint32_t HousekeepingTickNow() {
    return housekeepingTick_.load(std::memory_order_relaxed);
  }
  // A housekeeping tick has passed since the last comparison: one relaxed
  // read before each line, no call.
  bool TargetCheckDue() const {
    return housekeepingTick_.load(std::memory_order_relaxed) != checkedTick_;
  }
  // Makes the comparison due before the next line, whatever the tick.
  void RequestTargetCheck() { checkedTick_ = housekeepingTick_.load(std::memory_order_relaxed) - 1; }
  // When a check is due: true if the writer's open file is no longer at
  // this appender's name (removed, renamed away, its folder removed). The
  // class then opens its target again, which makes the folder again. Lines
  // written into the removed file since the last tick are lost with it; a
  // name that can't be looked at counts as unchanged.
  bool TargetMoved(ZyrLogFileWriter& writer);

 private:
  static inline std::atomic<std::uint32_t> housekeepingTick_{0};
  std::uint32_t checkedTick_ = 0;  // the housekeeping tick of the last comparison
  ZyrBasString fileName_;
  ZyrBasString baseFolder_;
  std::uint8_t immediateWrite_ = 0;
  std::uint8_t enlisted_ = 0;  // in the draining thread's batch
};

// AppenderType "File", and "SharedFile", which the creator table maps to the
// same class and whose Configure refuses it: a plain file is shared by
// every process anyway.
class ZyrLogFileAppender final : public ZyrLogFileBasedAppender {
 public:
  ZyrResult WriteText(const char16_t* text, std::size_t length) override;
  ZyrResult OpenTarget() override;
  ZyrResult CloseTarget() override;
  ZyrResult Truncate() override;
  ZyrResult Configure(ZyrCfgSection& section) override;
  ZyrResult WriteConfig(ZyrCfgSection& section) override;
  std::uint64_t EndBatch(ZyrResult* failure) override { return EndBatchOf(writer_, failure); }

  ZyrLogFileWriter& Writer() { return writer_; }

 private:
  // The file again when it is gone from its name, or when a reopen failed.
  ZyrResult KeepTargetAtName();

  ZyrLogFileWriter writer_;
};

#endif
