#include "base/file.h"

#include <cstring>

#include "base/array.h"
#include "base/memory.h"
#include "base/path.h"
#include "base/os/file_os.h"
#include "base/os/native_path.h"
#include "base/random.h"

// ---------------------------------------------------------------------------
// Streams

ZyrResult ZyrBasStream::Serialize(ZyrBasStream&, ZyrBasHandleExporter&, std::uint32_t) {
  return ZYR_E_NOT_IMPLEMENTED;
}
ZyrResult ZyrBasStream::Deserialize(ZyrBasStream&, ZyrBasHandleImporter&, std::uint32_t) {
  return ZYR_E_NOT_IMPLEMENTED;
}

ZyrResult ZyrBasRandomStream::Read(void* buffer, std::size_t count, std::size_t* done, std::uint32_t flags) {
  std::size_t moved = 0;
  ZyrResult r = ReadAt(position_, buffer, count, done ? &moved : nullptr, flags);
  if (done) *done = moved;
  if (ZyrSucceeded(r)) position_ += static_cast<std::int64_t>(done ? moved : count);
  return r;
}

ZyrResult ZyrBasRandomStream::Write(const void* buffer, std::size_t count, std::size_t* done,
                                    std::uint32_t flags) {
  std::size_t moved = 0;
  ZyrResult r = WriteAt(position_, buffer, count, &moved, flags);
  if (done) *done = moved;
  if (ZyrSucceeded(r)) position_ += static_cast<std::int64_t>(done ? moved : count);
  return r;
}

ZyrResult ZyrBasRandomStream::Tell(std::int64_t* position) {
  *position = position_;
  return ZYR_OK;
}

ZyrResult ZyrBasRandomStream::Seek(std::int64_t offset, int origin) {
  std::int64_t base;
  switch (origin) {
    case 0: base = 0; break;
    case 1: base = position_; break;
    case 2: {
      std::uint64_t size = 0;
      ZyrResult r = GetSize(&size);
      if (ZyrFailed(r)) return r;
      base = static_cast<std::int64_t>(size);
      break;
    }
    default: return ZYR_E_INVALID_ARGUMENT;
  }
  std::int64_t target;
  if (__builtin_add_overflow(base, offset, &target)) return ZYR_E_INVALID_ARGUMENT;
  if (target < 0) return ZYR_E_NEGATIVE_SEEK;
  position_ = target;
  return ZYR_OK;
}

// ---------------------------------------------------------------------------
// ZyrBasFileBase

ZyrResult ZyrBasFileBase::ReadAt(std::int64_t offset, void* buffer, std::size_t count,
                                 std::size_t* done, std::uint32_t) {
  if (done) *done = 0;
  if (offset < 0) return ZYR_E_INVALID_ARGUMENT;
  std::size_t moved = 0;
  ZyrResult r = ZyrBasOsReadAt(handle_, offset, buffer, count, &moved);
  if (ZyrFailed(r)) return r;
  if (done) *done = moved;
  if (moved == count) return ZYR_OK;
  if (moved == 0 || !done) return ZYR_E_END_OF_DATA;
  return ZYR_I_SHORT_READ;
}

ZyrResult ZyrBasFileBase::WriteAt(std::int64_t offset, const void* buffer, std::size_t count,
                                  std::size_t* done, std::uint32_t) {
  if (done) *done = 0;
  if (offset < 0) return ZYR_E_INVALID_ARGUMENT;
  std::size_t moved = 0;
  ZyrResult r = ZyrBasOsWriteAt(handle_, offset, buffer, count, &moved);
  if (done) *done = moved;  // given even on failure
  if (ZyrSucceeded(r) && stable_ && sizeKnown_) {
    std::uint64_t end = static_cast<std::uint64_t>(offset) + moved;
    if (end > cachedSize_) cachedSize_ = end;
  }
  return r;
}

ZyrResult ZyrBasFileBase::GetSize(std::uint64_t* size) {
  if (stable_ && sizeKnown_) {
    *size = cachedSize_;
    return ZYR_OK;
  }
  ZyrResult r = ZyrBasOsGetSize(handle_, size);
  if (ZyrSucceeded(r) && stable_) {
    cachedSize_ = *size;
    sizeKnown_ = true;
  }
  return r;
}

ZyrResult ZyrBasFileBase::SetSize(std::uint64_t size) {
  ZyrResult r = ZyrBasOsSetSize(handle_, size);
  if (ZyrSucceeded(r) && stable_) {
    cachedSize_ = size;
    sizeKnown_ = true;
  }
  return r;
}

ZyrResult ZyrBasFileBase::Map(std::uint64_t offset, std::size_t size, ZyrBasFileView** view,
                              std::uint32_t flags) {
  *view = nullptr;
  // Views start at a page boundary here: the granularity is the page size.
  const std::uint64_t page = ZyrBasOsPageSize();
  const std::uint64_t aligned = offset & ~(page - 1);
  const std::uint64_t lost = offset - aligned;
  const bool sizeGiven = size != 0;
  std::uint64_t want;
  if (!sizeGiven || size > kZyrBasMaxView) want = kZyrBasMaxView;
  else want = size + lost < kZyrBasMaxView ? size + lost : kZyrBasMaxView;

  std::uint64_t fileSize = 0;
  ZyrResult r = GetSize(&fileSize);
  if (ZyrFailed(r)) return r;
  if (offset >= fileSize) return ZYR_E_END_OF_DATA;

  if (sizeGiven) want = (want + page - 1) & ~(page - 1);
  const std::uint64_t rest = fileSize - aligned;
  const bool reachesEnd = want >= rest;
  if (want > rest) want = rest;

  // The mapping of the file is made anew once the file has grown beyond it.
  if (sectionHeld_ && sectionSize_ < aligned + want) sectionHeld_ = false;
  if (!sectionHeld_) {
    sectionHeld_ = true;
    sectionSize_ = fileSize;
  }

  void* block = ZyrBasAlloc(sizeof(ZyrBasFileView));
  if (!block) return ZYR_E_OUT_OF_MEMORY;
  ZyrBasFileView* v = new (block) ZyrBasFileView();
  void* base = nullptr;
  r = ZyrBasOsMap(handle_, aligned, static_cast<std::size_t>(want), CanWrite(), &base);
  if (ZyrFailed(r)) {
    ZyrDelete(v);
    return r;
  }
  const std::uint64_t behind = want - lost;  // what the view covers from the asked offset
  v->base_ = base;
  v->address_ = static_cast<char*>(base) + lost;
  v->offset_ = offset;
  v->size_ = static_cast<std::size_t>(sizeGiven && size < behind ? size : behind);
  v->alignedOffset_ = aligned;
  v->alignedSize_ = static_cast<std::size_t>(want);
  v->reachesEnd_ = reachesEnd;
  v->flags_ = flags;
  v->file_ = this;
  v->generation_ = generation_;
  ++viewCount_;
  *view = v;
  return ZYR_OK;
}

ZyrResult ZyrBasFileBase::Close() {
  ZyrResult result = ZYR_OK;
  sectionHeld_ = false;
  sectionSize_ = 0;
  viewCount_ = 0;
  ++generation_;
  if (handle_ >= 0) {
    if (deleteOnCloseArmed_) {
      ZyrResult r = ZyrBasOsDeleteName(deleteOnClose_.Data());
      if (ZyrFailed(r)) result = r;
    }
    ZyrResult r = ZyrBasOsClose(handle_);
    if (ZyrFailed(r)) result = r;
    handle_ = -1;
  }
  deleteOnCloseArmed_ = false;
  position_ = 0;
  stable_ = false;
  sizeKnown_ = false;
  append_ = false;
  return result;
}

ZyrResult ZyrBasFileBase::Append(const void* buffer, std::size_t count, std::size_t* done) {
  std::size_t moved = 0;
  ZyrResult r = ZyrBasOsAppend(handle_, append_, buffer, count, &moved);
  if (done) *done = moved;
  return r;
}

ZyrResult ZyrBasFileBase::SetAppendMode() {
  if (append_) return ZYR_OK;
  ZyrResult r = ZyrBasOsSetAppendMode(&handle_);
  if (ZyrSucceeded(r)) append_ = true;
  return r;
}

ZyrResult ZyrBasFileBase::AppendEnd(std::int64_t* end) { return ZyrBasOsPosition(handle_, end); }

ZyrResult ZyrBasFileBase::Overwrite(std::int64_t offset, const void* buffer, std::size_t count) {
  if (offset < 0) return ZYR_E_INVALID_ARGUMENT;
  return ZyrBasOsOverwrite(handle_, offset, buffer, count);
}

ZyrResult ZyrBasFileBase::Flush() { return ZyrBasOsFlush(handle_); }

ZyrResult ZyrBasFileBase::Query(ZyrBasDirEntry* entry) { return ZyrBasOsQueryHandle(handle_, entry); }

ZyrResult ZyrBasFileBase::IsAt(const char16_t* path, bool* same) {
  *same = false;
  if (!path) return ZYR_E_INVALID_ARGUMENT;
  ZyrBasNarrowText native;
  ZyrResult r = ZyrBasNativePath(path, ZYR_TERMINATED, native);
  if (ZyrFailed(r)) return r;
  return ZyrBasOsIsSameFile(handle_, native.Data(), same);
}

ZyrResult ZyrBasFileBase::GetCreationTime(std::int64_t* time) {
  ZyrBasDirEntry e;
  ZyrResult r = ZyrBasOsQueryHandle(handle_, &e);
  if (ZyrSucceeded(r)) *time = e.creationTime;
  return r;
}

ZyrResult ZyrBasFileBase::SetCreationTime(std::int64_t time) {
  return ZyrBasOsSetCreationTime(handle_, time);
}

// ---------------------------------------------------------------------------
// ZyrBasFile

ZyrBasFile::~ZyrBasFile() { Close(); }

ZyrResult ZyrBasFile::Open(const char16_t* path, std::uint32_t mode, std::uint32_t access,
                           std::uint32_t share, std::uint32_t options) {
  if (IsOpen()) Close();
  if (!path) return ZYR_E_INVALID_ARGUMENT;
  ZyrBasNarrowText native;
  ZyrResult r = ZyrBasNativePath(path, ZYR_TERMINATED, native);
  if (ZyrFailed(r)) return r;
  int fd = -1;
  bool created = false;
  r = ZyrBasOsOpen(native.Data(), mode, access, options, &fd, &created);
  if (ZyrFailed(r)) return r;
  if (options & ZYR_FILE_DELETE_ON_CLOSE) {
    r = deleteOnClose_.Resize(native.Length());
    if (ZyrFailed(r)) {
      // The file could not be removed at close: remove it now, which ends
      // its life as the option asks, and report.
      ZyrBasOsDeleteName(native.Data());
      ZyrBasOsClose(fd);
      return r;
    }
    std::memcpy(deleteOnClose_.Data(), native.Data(), native.Length() + 1);
    deleteOnCloseArmed_ = true;
  }
  handle_ = fd;
  access_ = access & 3;
  share_ = share;
  asynchronous_ = (options & ZYR_FILE_ASYNCHRONOUS) != 0;
  append_ = mode == ZYR_FILE_APPEND;
  // Nobody can change the file while it is open: no write, no delete, and
  // no writer admitted by the sharing.
  stable_ = !(access & ZYR_FILE_WRITE) && !(options & ZYR_FILE_DELETE_ON_CLOSE) &&
            !(share & ZYR_FILE_SHARE_WRITE);
  sizeKnown_ = false;
  position_ = 0;
  return ZYR_OK;
}

namespace {

constexpr std::uint16_t kSerialVersion = 4;

ZyrResult PutBytes(ZyrBasStream& s, const void* p, std::size_t n) {
  std::size_t done = 0;
  ZyrResult r = s.Write(p, n, &done);
  if (ZyrSucceeded(r) && done != n) return ZYR_E_WRITE_FAULT;
  return r;
}

ZyrResult PutNumber(ZyrBasStream& s, std::uint64_t v, std::size_t bytes) {
  unsigned char b[8];
  for (std::size_t i = 0; i < bytes; ++i) b[i] = static_cast<unsigned char>(v >> (8 * i));
  return PutBytes(s, b, bytes);
}

ZyrResult GetNumber(ZyrBasStream& s, std::uint64_t* v, std::size_t bytes) {
  unsigned char b[8];
  std::size_t done = 0;
  ZyrResult r = s.Read(b, bytes, &done);
  if (ZyrFailed(r) || done != bytes) return ZYR_E_CORRUPT_STREAM;
  *v = 0;
  for (std::size_t i = bytes; i-- > 0;) *v = (*v << 8) | b[i];
  return ZYR_OK;
}

ZyrResult GetFlag(ZyrBasStream& s, bool* flag) {
  std::uint64_t v;
  ZyrResult r = GetNumber(s, &v, 1);
  if (ZyrFailed(r)) return r;
  if (v >= 2) return ZYR_E_CORRUPT_STREAM;
  *flag = v != 0;
  return ZYR_OK;
}

}  // namespace

ZyrResult ZyrBasFile::Serialize(ZyrBasStream& target, ZyrBasHandleExporter& exporter, std::uint32_t) {
  ZyrResult r = PutNumber(target, kSerialVersion, 2);
  if (ZyrSucceeded(r)) r = PutNumber(target, handle_ >= 0 ? 1 : 0, 1);
  if (ZyrSucceeded(r) && handle_ >= 0) r = exporter.Export(target, handle_);
  if (ZyrSucceeded(r)) r = PutNumber(target, 0, 1);
  if (ZyrSucceeded(r)) r = PutNumber(target, access_ & 0xff, 1);
  if (ZyrSucceeded(r)) r = PutNumber(target, sectionSize_, 8);
  if (ZyrSucceeded(r)) r = PutNumber(target, reserved_, 8);
  if (ZyrSucceeded(r)) r = PutNumber(target, stable_ ? 1 : 0, 1);
  if (ZyrSucceeded(r)) r = PutNumber(target, sizeKnown_ ? 1 : 0, 1);
  if (ZyrSucceeded(r)) r = PutNumber(target, cachedSize_, 8);
  if (ZyrSucceeded(r)) r = PutNumber(target, asynchronous_ ? 1 : 0, 1);
  return r;
}

ZyrResult ZyrBasFile::Deserialize(ZyrBasStream& source, ZyrBasHandleImporter& importer, std::uint32_t) {
  if (IsOpen()) Close();
  std::uint64_t version = 0, access = 0, sectionSize = 0, reserved = 0, cachedSize = 0;
  bool valid = false, section = false, stable = false, sizeKnown = false, asynchronous = false;
  int fd = -1;
  ZyrResult r = GetNumber(source, &version, 2);
  if (ZyrSucceeded(r) && version != kSerialVersion) r = ZYR_E_CORRUPT_STREAM;
  if (ZyrSucceeded(r)) r = GetFlag(source, &valid);
  if (ZyrSucceeded(r) && valid) r = importer.Import(source, &fd);
  if (ZyrSucceeded(r)) r = GetFlag(source, &section);
  if (ZyrSucceeded(r) && section) {
    // Written by a platform whose mappings have handles: take it and let
    // it go, since a mapping is made again on demand here.
    int sectionHandle = -1;
    r = importer.Import(source, &sectionHandle);
    if (ZyrSucceeded(r) && sectionHandle >= 0) ZyrBasOsClose(sectionHandle);
  }
  if (ZyrSucceeded(r)) r = GetNumber(source, &access, 1);
  if (ZyrSucceeded(r)) r = GetNumber(source, &sectionSize, 8);
  if (ZyrSucceeded(r)) r = GetNumber(source, &reserved, 8);
  if (ZyrSucceeded(r)) r = GetFlag(source, &stable);
  if (ZyrSucceeded(r)) r = GetFlag(source, &sizeKnown);
  if (ZyrSucceeded(r)) r = GetNumber(source, &cachedSize, 8);
  if (ZyrSucceeded(r)) r = GetFlag(source, &asynchronous);
  if (ZyrFailed(r)) {
    if (fd >= 0) ZyrBasOsClose(fd);
    return r;
  }
  handle_ = fd;
  access_ = static_cast<std::uint32_t>(access) & 3;
  reserved_ = reserved;
  stable_ = stable;
  sizeKnown_ = sizeKnown;
  cachedSize_ = cachedSize;
  asynchronous_ = asynchronous;
  position_ = 0;
  return ZYR_OK;
}

// ---------------------------------------------------------------------------
// ZyrBasFileView

ZyrBasFileView::~ZyrBasFileView() { Unmap(); }

ZyrResult ZyrBasFileView::Flush() {
  if (!base_) return ZYR_OK;
  return ZyrBasOsFlushView(base_, alignedSize_);
}

ZyrResult ZyrBasFileView::Unmap() {
  if (!base_) return ZYR_OK;
  ZyrResult r = ZyrBasOsUnmap(base_, alignedSize_);
  base_ = address_ = nullptr;
  if (file_ && file_->generation_ == generation_ && file_->viewCount_ > 0 && --file_->viewCount_ == 0) {
    file_->sectionHeld_ = false;
    file_->sectionSize_ = 0;
  }
  file_ = nullptr;
  return r;
}
