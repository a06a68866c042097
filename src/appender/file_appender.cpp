#include "appender/file_appender.h"

#include <bit>
#include <cstring>

#include "appender/batch.h"
#include "base/path.h"
#include "base/textconv.h"
#include "base/time.h"
#include "config/document.h"

namespace {

// Room for an ordinary line with its terminator, so that such a line needs
// no allocation.
constexpr std::size_t kLineReserve = 1025;

constexpr unsigned char kUtf8Mark[3] = {0xef, 0xbb, 0xbf};
constexpr unsigned char kUtf16Mark[2] = {0xff, 0xfe};

// Ends a line that was cut short (a full disk) so that a reader can tell it.
// All ASCII, so a UTF-16 unit's high byte is 0.
constexpr char16_t kTornMark[] = u" [torn line]\r\n";
constexpr std::size_t kTornMarkLength = sizeof kTornMark / sizeof kTornMark[0] - 1;

// UTF-16 files are written as the characters stand in memory.
static_assert(std::endian::native == std::endian::little, "UTF-16 log files are little-endian");

}  // namespace

// ---------------------------------------------------------------------------
// ZyrLogFileWriter

ZyrResult ZyrLogFileWriter::OpenLogFile(const char16_t* path, bool allowDelete, bool createFresh) {
  if (file_.IsOpen()) {
    (void)WriteHeld();
    (void)file_.Close();
    encoding_ = ZYR_LOG_ENCODING_NONE;
  }
  ZyrResult r = lineBuffer_.Reserve(kLineReserve + 1);
  if (ZyrSucceeded(r)) r = encodedBuffer_.Reserve(3 * kLineReserve);  // UTF-8 of such a line
  if (ZyrFailed(r)) return r;
  std::uint32_t share = ZYR_FILE_SHARE_READ | ZYR_FILE_SHARE_WRITE;
  if (allowDelete) share |= ZYR_FILE_SHARE_DELETE;

  if (createFresh) {
    // A new inode made under a temporary name and renamed into place, never
    // over an existing file: the file's creation time is now, whoever wins a
    // race to create it. The temporary file gets its creation time (birth
    // time, or the stored one) when it is made, and the rename keeps it.
    ZyrBasString folder, temp, tempPath;
    r = ZyrBasPathDirectory(folder, path);
    if (ZyrSucceeded(r)) r = ZyrBasMakeTempName(temp);
    if (ZyrSucceeded(r)) r = ZyrBasPathJoin(tempPath, folder.Text(), folder.Length(), temp.Text());
    if (ZyrFailed(r)) return r;
    ZyrBasFile fresh;
    if (ZyrSucceeded(fresh.Open(tempPath.Text(), ZYR_FILE_CREATE_NEW, ZYR_FILE_WRITE, share,
                                ZYR_FILE_SHARED_BY_ALL | ZYR_FILE_NO_LINK))) {
      // Set explicitly to the library's clock: where the file system keeps
      // no birth time, this is the time that the name of a dated file uses.
      (void)fresh.SetCreationTime(static_cast<std::int64_t>(ZyrBasSystemTime()));
      (void)fresh.Close();
      // A failure means that the file exists already: it keeps its time.
      if (ZyrFailed(ZyrBasMoveFileNoReplace(tempPath.Text(), path)))
        (void)ZyrBasDeleteFile(tempPath.Text(), 0);
    }
  }

  // Not opened for appending: the mark goes to offset 0, and each line is
  // placed at the end by the system at the moment of its write.
  // A link at the log's name is refused (ZYR_E_INVALID_NAME): log folders
  // may be writable by every account, and a planted link would make this
  // process append to any file it may write. So is anything but a regular
  // file: a FIFO would take lines until its buffer is full, then hold the
  // writer for good.
  r = file_.Open(path, ZYR_FILE_OPEN_ALWAYS, ZYR_FILE_READ | ZYR_FILE_WRITE, share,
                 ZYR_FILE_SHARED_BY_ALL | ZYR_FILE_NO_LINK | ZYR_FILE_REGULAR_ONLY);
  if (ZyrFailed(r)) return r;

  unsigned char head[3] = {};
  std::size_t got = 0;
  r = file_.ReadAt(0, head, sizeof head, &got);
  if (ZyrFailed(r)) got = 0;
  encoding_ = ZYR_LOG_ENCODING_UTF8;
  markMissing_ = false;
  if (got >= 2 && head[0] == kUtf16Mark[0] && head[1] == kUtf16Mark[1]) {
    encoding_ = ZYR_LOG_ENCODING_UTF16;
  } else if (got == 0) {
    markMissing_ = true;  // an empty file (or one that can't be read) gets the UTF-8 mark
  }
  // A non-empty file without a mark keeps its bytes and is continued as
  // UTF-8: the mark would overwrite what it starts with.
  sealPending_ = false;
  if (!markMissing_) UseAppendMode();
  return ZYR_OK;
}

void ZyrLogFileWriter::UseAppendMode() {
  // Opened without append mode so that the mark can go to offset 0; once it
  // stands, every line is one plain write. Should the switch fail, lines go
  // by a per-call append, slower and just as atomic.
  (void)file_.SetAppendMode();
}

ZyrResult ZyrLogFileWriter::WriteMark(bool wanted) {
  if (!markMissing_) return ZYR_OK;  // the mark is in place already
  if (!wanted) {
    // Left without a mark for good: the next open finds a file that does
    // not start with one and continues it as UTF-8.
    markMissing_ = false;
    UseAppendMode();
    return ZYR_OK;
  }
  // At offset 0, not at the end: another process that opened the empty file
  // at the same time writes the same bytes at the same place.
  const unsigned char* mark = encoding_ == ZYR_LOG_ENCODING_UTF16 ? kUtf16Mark : kUtf8Mark;
  std::size_t count = encoding_ == ZYR_LOG_ENCODING_UTF16 ? sizeof kUtf16Mark : sizeof kUtf8Mark;
  std::size_t done = 0;
  ZyrResult r = file_.WriteAt(0, mark, count, &done);
  if (ZyrFailed(r)) return r;
  if (done != count) return ZYR_E_DISK_FULL;
  markMissing_ = false;
  UseAppendMode();
  return ZYR_OK;
}

ZyrResult ZyrLogFileWriter::WriteLine(const char16_t* text, std::size_t length) {
  const void* bytes;
  std::size_t count;
  ZyrResult r;
  if (encoding_ != ZYR_LOG_ENCODING_UTF16 && !sealPending_) {
    // The usual road: the text straight into UTF-8 and the line end behind
    // it, with no wide copy of the line first.
    r = ZyrBasEncodeUtf8(encodedBuffer_, text, length, ZyrBasBadText::Escape);
    if (ZyrSucceeded(r)) r = encodedBuffer_.Reserve(encodedBuffer_.Count() + 2);
    if (ZyrFailed(r)) return r;
    char* end = encodedBuffer_.end();
    end[0] = '\r';
    end[1] = '\n';
    encodedBuffer_.SetCount(encodedBuffer_.Count() + 2);
    bytes = encodedBuffer_.begin();
    count = encodedBuffer_.Count();
  } else {
    // A fragment that could not be sealed in place is ended by this line's
    // own write, ahead of the line.
    if (!sealPending_) {
      r = lineBuffer_.Assign(text, length);
    } else {
      r = lineBuffer_.Assign(kTornMark, kTornMarkLength);
      if (ZyrSucceeded(r)) r = lineBuffer_.Append(text, length);
    }
    if (ZyrSucceeded(r)) r = lineBuffer_.Append(u"\r\n", 2);
    if (ZyrFailed(r)) return r;
    if (encoding_ == ZYR_LOG_ENCODING_UTF16) {
      bytes = lineBuffer_.Text();
      count = lineBuffer_.Length() * sizeof(char16_t);
    } else {
      r = ZyrBasEncodeUtf8(encodedBuffer_, lineBuffer_.Text(), lineBuffer_.Length(), ZyrBasBadText::Escape);
      if (ZyrFailed(r)) return r;
      bytes = encodedBuffer_.begin();
      count = encodedBuffer_.Count();
    }
  }
  if (holding_ && Hold(bytes, count)) return ZYR_OK;
  std::size_t done = 0;
  r = file_.Append(bytes, count, &done);
  if (ZyrFailed(r)) return r;  // nothing of the line was written
  if (done == count) {
    sealPending_ = false;
    return ZYR_OK;
  }
  // A regular file takes less than the whole write only when it has no room
  // left (disk, quota or file size limit); the caller learns that the line
  // did not make it whole, and the fragment is sealed so that no later line
  // fuses with it.
  SealFragment(static_cast<const unsigned char*>(bytes), done);
  return ZYR_E_DISK_FULL;
}

// The fragment's last bytes become the end of the torn mark, " [torn line]"
// and CR LF, in the file's encoding: a reader sees a line that ends in the
// mark (or, for a fragment shorter than the mark, a tail of it) and the next
// line, ours or another process's, starts on a line of its own. The bytes
// are overwritten in place, where this writer put them, so the file is
// never cut back while others append to it; a full disk has room for them,
// since they are written already. Where the overwrite fails, the mark goes
// ahead of the next line instead, which ends the fragment as long as nobody
// else wrote in between.
void ZyrLogFileWriter::SealFragment(const unsigned char* fragment, std::size_t size) {
  const bool wide = encoding_ == ZYR_LOG_ENCODING_UTF16;
  const std::size_t unit = wide ? 2 : 1;
  const std::size_t markBytes = kTornMarkLength * unit;
  // The start of the overwritten run: at least the mark's length back from
  // the end, then back to a character's start, so that no character is
  // left cut in front of the mark.
  std::size_t start = size > markBytes ? size - markBytes : 0;
  auto inside = [&](std::size_t at) {
    if (!wide) return (fragment[at] & 0xc0) == 0x80;  // a UTF-8 continuation byte
    if (at % 2) return true;
    unsigned u = fragment[at] | (fragment[at + 1] << 8u);
    return u >= 0xdc00 && u <= 0xdfff;  // the second half of a surrogate pair
  };
  while (start > 0 && start < size && inside(start)) --start;
  // The run is blanks and then the mark, aligned to the fragment's end.
  unsigned char seal[(kTornMarkLength + 4) * 2];
  std::size_t runLength = size - start;
  for (std::size_t i = 0; i < runLength; ++i) {
    std::size_t fromEnd = runLength - 1 - i;  // byte index counted from the end
    std::size_t byte;
    if (fromEnd < markBytes) {
      byte = markBytes - 1 - fromEnd;  // byte of the mark's encoding
      char16_t c = kTornMark[byte / unit];
      seal[i] = static_cast<unsigned char>(wide && byte % 2 ? c >> 8 : c);
    } else {
      byte = fromEnd - markBytes;  // blanks in front of the mark
      seal[i] = wide && byte % 2 == 0 ? 0 : ' ';
    }
  }
  std::int64_t end = 0;
  sealPending_ = ZyrFailed(file_.AppendEnd(&end)) ||
                 ZyrFailed(file_.Overwrite(end - static_cast<std::int64_t>(runLength), seal, runLength));
}

bool ZyrLogFileWriter::Hold(const void* bytes, std::size_t count) {
  std::size_t end = held_.Count() + count;
  if (end > 0xffffffffu || ZyrFailed(held_.Reserve(end)) ||
      ZyrFailed(heldEnds_.Reserve(heldEnds_.Count() + 1)))
    return false;
  std::memcpy(held_.end(), bytes, count);
  held_.SetCount(end);
  (void)heldEnds_.Append(static_cast<std::uint32_t>(end));
  sealPending_ = false;  // the torn mark went ahead of this line
  return true;
}

ZyrResult ZyrLogFileWriter::HoldLine(const char16_t* text, std::size_t length, std::size_t limit) {
  holding_ = true;
  ZyrResult r = WriteLine(text, length);
  holding_ = false;
  if (ZyrSucceeded(r) && held_.Count() >= limit) (void)WriteHeld();
  return r;
}

ZyrResult ZyrLogFileWriter::WriteHeld() {
  if (held_.Empty()) return ZYR_OK;
  std::size_t total = held_.Count(), done = 0;
  ZyrResult r = file_.IsOpen() ? file_.Append(held_.begin(), total, &done) : ZYR_E_INVALID_HANDLE;
  if (ZyrFailed(r)) done = 0;
  if (done < total) {
    // The lines wholly written stay; the one the write cut is sealed, so
    // that the next line starts on a line of its own.
    std::size_t whole = 0;
    while (heldEnds_[whole] <= done) ++whole;
    std::size_t start = whole ? heldEnds_[whole - 1] : 0;
    if (done > start)
      SealFragment(reinterpret_cast<const unsigned char*>(held_.begin()) + start, done - start);
    if (ZyrSucceeded(r)) r = ZYR_E_DISK_FULL;
    heldFailedLines_ += heldEnds_.Count() - whole;
    heldFailure_ = r;
  }
  held_.Clear();
  heldEnds_.Clear();
  return r;
}

std::uint64_t ZyrLogFileWriter::TakeHeldFailures(ZyrResult* failure) {
  std::uint64_t lines = heldFailedLines_;
  *failure = heldFailure_;
  heldFailedLines_ = 0;
  heldFailure_ = ZYR_OK;
  return lines;
}

ZyrResult ZyrLogFileWriter::EndAfterWrite(std::int64_t* end) { return file_.AppendEnd(end); }

ZyrResult ZyrLogFileWriter::Size(std::int64_t* size) {
  std::uint64_t bytes = 0;
  ZyrResult r = file_.GetSize(&bytes);
  if (ZyrSucceeded(r)) *size = static_cast<std::int64_t>(bytes);
  return r;
}

ZyrResult ZyrLogFileWriter::Flush() { return file_.Flush(); }

ZyrResult ZyrLogFileWriter::Truncate() { return file_.SetSize(0); }

ZyrResult ZyrLogFileWriter::Close() {
  if (!file_.IsOpen()) return ZYR_OK;
  (void)WriteHeld();
  ZyrResult r = file_.Close();
  encoding_ = ZYR_LOG_ENCODING_NONE;
  return r;
}

// ---------------------------------------------------------------------------
// ZyrLogFileBasedAppender

ZyrResult ZyrLogFileBasedAppender::SetFileName(const char16_t* name, std::size_t length) {
  if (ZyrBasPathIsAbsolute(name, length)) return fileName_.Assign(name, length);
  return ZyrBasPathJoin(fileName_, baseFolder_.Text(), baseFolder_.Length(), name, length);
}

ZyrResult ZyrLogFileBasedAppender::FullPath(ZyrBasString& out) const {
  ZyrBasString joined;
  ZyrResult r = ZyrBasPathJoin(joined, baseFolder_.Text(), baseFolder_.Length(), fileName_.Text(),
                               fileName_.Length());
  if (ZyrFailed(r)) return r;
  return ZyrBasFullPath(out, joined.Text(), joined.Length());
}

ZyrResult ZyrLogFileBasedAppender::ConfigureShared(ZyrCfgSection& section) {
  ZyrCfgValueRef value;
  ZyrResult r = section.FindValue(u"FileName", &value);
  if (ZyrFailed(r)) return r;
  r = SetFileName(value->text.Text(), value->text.Length());
  if (ZyrFailed(r)) return r;
  immediateWrite_ = 0;
  if (ZyrSucceeded(section.FindValue(u"ImmediateWrite", &value))) {
    // Exact words only: "TRUE" is false.
    const ZyrBasString& text = value->text;
    immediateWrite_ = text.Equals(u"true") || text.Equals(u"yes") || text.Equals(u"1");
  }
  return ZyrLogAppender::Configure(section);
}

ZyrResult ZyrLogFileBasedAppender::WriteConfig(ZyrCfgSection& section) {
  ZyrResult r = section.SetValue(u"FileName", fileName_.Text());
  if (ZyrSucceeded(r)) r = section.SetValue(u"ImmediateWrite", immediateWrite_ ? u"true" : u"false");
  if (ZyrSucceeded(r)) r = ZyrLogAppender::WriteConfig(section);
  return r;
}

ZyrResult ZyrLogFileBasedAppender::CheckType(ZyrCfgSection& section, const char16_t* expected) {
  ZyrCfgValueRef value;
  ZyrResult r = section.FindValue(u"AppenderType", &value);
  if (ZyrFailed(r)) return r;
  return value->text.Equals(expected) ? ZYR_OK : ZYR_E_WRONG_APPENDER_TYPE;
}

ZyrResult ZyrLogFileBasedAppender::WriteThrough(ZyrLogFileWriter& writer, const char16_t* text,
                                                std::size_t length) {
  if (ZyrLogBatch* batch = ZyrLogBatch::Current()) {
    if (!enlisted_ && ZyrSucceeded(batch->Enlist(this))) enlisted_ = 1;
    if (enlisted_) return writer.HoldLine(text, length, BatchLimit());
  }
  ZyrResult r = writer.WriteLine(text, length);
  if (ZyrSucceeded(r) && immediateWrite_) r = writer.Flush();
  return r;
}

std::uint64_t ZyrLogFileBasedAppender::EndBatchOf(ZyrLogFileWriter& writer, ZyrResult* failure) {
  enlisted_ = 0;
  if (ZyrSucceeded(writer.WriteHeld()) && immediateWrite_) (void)writer.Flush();
  return writer.TakeHeldFailures(failure);
}

void ZyrLogFileBasedAppender::HousekeepingTick() {
  housekeepingTick_.fetch_add(1, std::memory_order_relaxed);
}

bool ZyrLogFileBasedAppender::TargetMoved(ZyrLogFileWriter& writer) {
  checkedTick_ = housekeepingTick_.load(std::memory_order_relaxed);
  ZyrBasString path;
  bool same = true;
  if (!writer.IsOpen() || ZyrFailed(FullPath(path))) return false;
  return ZyrSucceeded(writer.IsAt(path.Text(), &same)) && !same;
}

void ZyrLogFileBasedAppender::EnsureFolder(const ZyrBasString& path) {
  ZyrBasString folder;
  if (ZyrSucceeded(ZyrBasPathDirectory(folder, path.Text(), path.Length())) && !folder.Empty())
    (void)ZyrBasCreateDirectoryTree(folder.Text());
}

// ---------------------------------------------------------------------------
// ZyrLogFileAppender

ZyrResult ZyrLogFileAppender::WriteText(const char16_t* text, std::size_t length) {
  if (!writer_.IsOpen() || TargetCheckDue()) {
    ZyrResult r = KeepTargetAtName();
    if (ZyrFailed(r)) return r;
  }
  return WriteThrough(writer_, text, length);
}

ZyrResult ZyrLogFileAppender::KeepTargetAtName() {
  if (writer_.IsOpen() && !TargetMoved(writer_)) return ZYR_OK;
  (void)writer_.Close();
  return OpenTarget();
}

ZyrResult ZyrLogFileAppender::OpenTarget() {
  ZyrBasString path;
  ZyrResult r = FullPath(path);
  if (ZyrFailed(r)) return r;
  EnsureFolder(path);
  // No deletion shared: a plain log is not rolled away by anyone.
  r = writer_.OpenLogFile(path.Text(), false, false);
  if (ZyrFailed(r)) return r;
  return writer_.WriteMark(LayoutMarksNewFile());
}

ZyrResult ZyrLogFileAppender::CloseTarget() { return writer_.Close(); }

ZyrResult ZyrLogFileAppender::Truncate() {
  ZyrResult r = writer_.Truncate();
  if (ZyrSucceeded(r) && ImmediateWrite()) r = writer_.Flush();
  return r;
}

ZyrResult ZyrLogFileAppender::Configure(ZyrCfgSection& section) {
  ZyrResult r = CheckType(section, u"File");
  if (ZyrFailed(r)) return r;
  return ConfigureShared(section);
}

ZyrResult ZyrLogFileAppender::WriteConfig(ZyrCfgSection& section) {
  ZyrResult r = section.SetValue(u"AppenderType", u"File");
  if (ZyrSucceeded(r)) r = ZyrLogFileBasedAppender::WriteConfig(section);
  return r;
}
