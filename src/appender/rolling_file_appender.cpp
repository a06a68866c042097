#include "appender/rolling_file_appender.h"

#include <algorithm>

#include "appender/rolling_common.h"
#include "base/array.h"
#include "base/path.h"
#include "base/result.h"
#include "config/document.h"
#include "config/number.h"
#include "records/event.h"

namespace {

constexpr std::size_t kMaxIndexDigits = 15;
// The first count whose top number would need more digits than a rolled
// name has room for.
constexpr std::uint64_t kFirstCountTooLarge = 1000000000000000ull;

// The numbers N of the rolled files "<path>.N" that exist with low < N <=
// high, highest first, from one listing of the folder. A rollover and a
// shrink move or remove these only, so their cost follows the files on
// disk, not FilesCount. Only names that RolledName makes count: decimal
// digits without a leading zero. A missing folder holds no rolled file.
ZyrResult ExistingNumbers(const ZyrBasString& path, std::uint64_t low, std::uint64_t high,
                          ZyrBasArray<std::uint64_t>& numbers) {
  numbers.Clear();
  ZyrBasString folder, pattern;
  ZyrResult r = ZyrBasPathDirectory(folder, path.Text(), path.Length());
  if (ZyrSucceeded(r)) r = ZyrBasPathFileName(pattern, path.Text(), path.Length());
  if (ZyrFailed(r)) return r;
  std::size_t prefix = pattern.Length() + 1;  // the name and its "."
  r = pattern.AppendAscii(".*");
  if (ZyrFailed(r)) return r;
  ZyrBasDirEnum listing;
  r = listing.Open(folder.Text(), pattern.Text(), ZYR_ENUM_FILES | ZYR_ENUM_NAMES_ONLY);
  if (r == ZYR_E_PATH_NOT_FOUND || r == ZYR_E_FILE_NOT_FOUND) return ZYR_OK;
  for (; r == ZYR_OK; r = listing.Next()) {
    const ZyrBasDirItem* item = nullptr;
    r = listing.Current(&item);
    if (ZyrFailed(r)) return r;
    // The name itself, not a wildcard in it, must match.
    if (ZyrBasCompareOrdinal(item->Name(), prefix - 1, pattern.Text(), prefix - 1) != 0) continue;
    const char16_t* digits = item->Name() + prefix;
    std::size_t count = item->NameLength() - prefix;
    if (count == 0 || count > kMaxIndexDigits || digits[0] == u'0') continue;
    std::uint64_t n = 0;
    for (std::size_t i = 0; i < count && n != ~0ull; ++i)
      n = digits[i] >= u'0' && digits[i] <= u'9' ? n * 10 + (digits[i] - u'0') : ~0ull;
    if (n <= low || n > high) continue;
    r = numbers.Append(n);
    if (ZyrFailed(r)) return r;
  }
  if (ZyrFailed(r)) return r;
  std::sort(numbers.begin(), numbers.end(), [](std::uint64_t a, std::uint64_t b) { return a > b; });
  return ZYR_OK;
}

// The renames of one rollover, each recorded before it is made, so that a
// rollover that cannot finish puts every file back where it was: the live
// file stays, above Size, and no rolled file is lost or overwritten. Each
// target name was left free by the move before it, or holds no file of the
// chain (a link, say, which goes); a folder there fails the move. A source
// that is gone (another process that lowered FilesCount removed it) has
// nothing to move and stops nothing.
class RollMoves {
 public:
  ZyrResult Move(const ZyrBasString& from, const ZyrBasString& to) {
    Step step;
    ZyrResult r = step.from.Assign(from);
    if (ZyrSucceeded(r)) r = step.to.Assign(to);
    if (ZyrSucceeded(r)) r = done_.Append(static_cast<Step&&>(step));
    if (ZyrFailed(r)) return r;
    r = ZyrBasMoveFile(from.Text(), to.Text());
    if (ZyrSucceeded(r)) return r;
    done_.Truncate(done_.Count() - 1);
    return r == ZYR_E_FILE_NOT_FOUND ? ZYR_I_NOT_FOUND : r;
  }
  // Back in reverse order. A move back that fails leaves that file under
  // the name it was given: moved, not lost.
  void Undo() {
    for (std::size_t i = done_.Count(); i-- > 0;)
      (void)ZyrBasMoveFile(done_[i].to.Text(), done_[i].from.Text());
    done_.Clear();
  }

 private:
  struct Step {
    ZyrBasString from, to;
  };
  ZyrBasArray<Step> done_;
};

ZyrResult TempBeside(ZyrBasString& out, const ZyrBasString& path) {
  ZyrBasString folder, temp;
  ZyrResult r = ZyrBasPathDirectory(folder, path.Text(), path.Length());
  if (ZyrSucceeded(r)) r = ZyrBasMakeTempName(temp);
  if (ZyrSucceeded(r)) r = ZyrBasPathJoin(out, folder.Text(), folder.Length(), temp.Text());
  return r;
}

}  // namespace

ZyrResult ZyrLogRollingFileAppender::Append(ZyrLogEvent& e, const char16_t* text, std::size_t length) {
  ZyrBasLockGuard guard(Lock());
  if (rollClosing_) return WriteText(text, length);

  // After a pause, other processes may have rolled the file held here
  // through the whole chain and removed it: a line written into it would be
  // lost. Such a line looks at the live name first (a stat and an fstat);
  // lines that follow each other closely find their file full and roll, as
  // below, before it can go. 10 ms: a chain of 40 files of 64 KiB went by in
  // some 100 ms under eight writing processes.
  constexpr std::int64_t kPauseBeforeNameCheck = 100000;  // 10 ms in 100 ns units
  if (static_cast<std::int64_t>(e.Timestamp - lastLineTime_) > kPauseBeforeNameCheck) RequestTargetCheck();
  lastLineTime_ = e.Timestamp;

  // The line first: the line that passes the limit is the last of the old file.
  ZyrResult r = WriteText(text, length);
  if (ZyrFailed(r)) return r;
  // Held back for the worker's batch: the size is asked after its write.
  if (writer_.HeldBytes() != 0) return ZYR_OK;
  return RollIfOver();
}

std::uint64_t ZyrLogRollingFileAppender::EndBatch(ZyrResult* failure) {
  bool held = writer_.HeldBytes() != 0;
  std::uint64_t lost = EndBatchOf(writer_, failure);
  // A rollover that fails loses no line of this batch: they are written.
  if (held && writer_.IsOpen()) (void)RollIfOver();
  return lost;
}

ZyrResult ZyrLogRollingFileAppender::RollIfOver() {
  // What the system counts, with other processes' lines and the mark: the
  // end of the file where the system put this line.
  ZyrResult r = writer_.EndAfterWrite(&currentSize_);
  if (ZyrFailed(r)) return r;
  if (currentSize_ <= size_) return ZYR_OK;
  // After a rollover that failed, the next try waits for the housekeeping
  // tick to move on (about a second): the lines between grow the file past
  // Size and are not each given a close, a footer and a header.
  if (rollFailedTick_ == HousekeepingTickNow()) return ZYR_OK;

  rollClosing_ = 1;
  (void)Close();
  rollClosing_ = 0;

  ZyrResult lock = TryRollLock();
  bool locked = ZyrSucceeded(lock);
  // Busy: another process is rolling this log. The appender stays closed,
  // and the next event opens whatever the live file then is.
  if (!locked && !ZyrLogFileLock::Unsupported(lock)) return ZYR_OK;

  ZyrResult result = OpenTarget();
  if (ZyrSucceeded(result)) {
    std::int64_t now = 0;
    result = writer_.Size(&now);
    (void)CloseTarget();
    // Smaller: somebody rolled between our close and our lock, and the live
    // file is a new one.
    if (ZyrSucceeded(result) && now >= currentSize_) {
      result = Rotate();
      // The new live file at once, with its mark and header, not at the
      // next event: a shipper that follows the live name (imfile) finds the
      // name gone otherwise, keeps reading the moved file under its old name
      // for seconds, and reads what other processes still append to it a
      // second time under the rolled name. The header skips the size check
      // as the footer does. A failed open is tried again by the next event.
      if (ZyrSucceeded(result)) {
        rollClosing_ = 1;
        (void)Open();
        rollClosing_ = 0;
      }
    }
  }
  if (locked) fileLock_.Unlock();
  if (ZyrSucceeded(result)) {
    rollFailedTick_ = kNoFailedRoll;
    return ZYR_OK;
  }
  // The line is written: a rollover that could not move the live file aside
  // (a folder or another account's file at a rolled name, say) keeps it,
  // and the caller hears of it as a warning, once a tick while it lasts.
  rollFailedTick_ = HousekeepingTickNow();
  return ZyrResultAsWarning(result);
}

ZyrResult ZyrLogRollingFileAppender::OpenTarget() {
  ZyrBasString path;
  ZyrResult r = PrepareTarget(path);
  if (ZyrFailed(r)) return r;
  // Shared for renaming: a competing process moves the live file away
  // while this one holds it open.
  r = writer_.OpenLogFile(path.Text(), true, false);
  if (ZyrFailed(r)) return r;
  return writer_.WriteMark(LayoutMarksNewFile());
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
  if (ZyrSucceeded(section.FindValue(u"FilesCount", &value))) {
    std::uint64_t count = 0;
    ZyrResult r = ZyrCfgParseUnsigned(value->text, &count);
    if (ZyrFailed(r)) return r;
    // A count whose rolled names could not be made would silently turn the
    // limit off: refuse it, as a sign in front is refused.
    if (count >= kFirstCountTooLarge) return ZYR_E_INVALID_ARGUMENT;
    // Before the shared keys: a reload that changes FileName and lowers
    // FilesCount at once prunes the chain of the old name, which is the one
    // that holds numbers above the new count. A first configuration has no
    // chain yet.
    if (FileName().Empty()) filesCount_ = count;
    else (void)ShrinkTo(count);
  }
  return ConfigureShared(section);
}

ZyrResult ZyrLogRollingFileAppender::WriteConfig(ZyrCfgSection& section) {
  bool negative = size_ < 0;
  std::uint64_t magnitude =
      negative ? 0 - static_cast<std::uint64_t>(size_) : static_cast<std::uint64_t>(size_);
  ZyrResult r = ZyrLogSetDecimal(section, u"Size", magnitude, negative);
  if (ZyrSucceeded(r)) r = ZyrLogSetDecimal(section, u"FilesCount", filesCount_, false);
  if (ZyrSucceeded(r)) r = section.SetValue(u"AppenderType", u"RollingFile");
  if (ZyrSucceeded(r)) r = ZyrLogFileBasedAppender::WriteConfig(section);
  return r;
}

ZyrResult ZyrLogRollingFileAppender::RolledName(ZyrBasString& out, const ZyrBasString& fullPath,
                                                std::uint64_t index) {
  char16_t digits[24];
  char16_t* end = digits + 23;
  *end = 0;
  char16_t* first = ZyrLogDecimal(end, index);
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
  // Only the numbers that exist move, so the folder ends exactly as if
  // every number from FilesCount down had been tried. Top down, so that no
  // file is overwritten before its own move; a gap left by an interrupted
  // rollover moves up and out at the top. A listing that fails leaves the
  // live file where it is, above the limit, and a later line tries again.
  ZyrBasArray<std::uint64_t> numbers;
  r = ExistingNumbers(path, 0, filesCount_, numbers);
  if (ZyrFailed(r)) return r;
  // The number FilesCount goes aside first and is deleted only once the
  // live file is number 1: until then every move can be undone.
  RollMoves moves;
  ZyrBasString from, to, top;
  for (std::uint64_t n : numbers) {
    r = RolledName(from, path, n);
    if (ZyrSucceeded(r)) r = n == filesCount_ ? TempBeside(top, path) : RolledName(to, path, n + 1);
    if (ZyrSucceeded(r)) r = moves.Move(from, n == filesCount_ ? top : to);
    if (ZyrFailed(r)) break;
    if (r == ZYR_I_NOT_FOUND && n == filesCount_) top.Clear();
  }
  if (ZyrSucceeded(r)) r = RolledName(to, path, 1);
  if (ZyrSucceeded(r)) r = moves.Move(path, to);
  // The live file gone as well: a process that found no lock to take has
  // rolled it; there is nothing left to roll.
  if (ZyrFailed(r) || r == ZYR_I_NOT_FOUND) {
    moves.Undo();
    return ZyrFailed(r) ? r : ZYR_OK;
  }
  if (!top.Empty()) (void)ZyrBasDeleteFile(top.Text(), 0);
  if (ZyrLogAppenderOwner* owner = Owner()) (void)owner->ReportRolledFile(to.Text());
  return ZYR_OK;
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
  // The numbers above the new count, up to the old one, that exist: one
  // listing, however far apart the two counts are.
  ZyrBasString path, name;
  ZyrBasArray<std::uint64_t> numbers;
  ZyrResult r = FullPath(path);
  if (ZyrSucceeded(r)) r = ExistingNumbers(path, count, filesCount_, numbers);
  if (ZyrFailed(r)) return r;
  for (std::uint64_t n : numbers) {
    r = RolledName(name, path, n);
    if (ZyrFailed(r)) return r;
    (void)RemoveRolled(name);
  }
  filesCount_ = count;
  return ZYR_OK;
}
