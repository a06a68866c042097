#include "appender/housekeeper.h"

#include "base/file.h"
#include "base/memory.h"
#include "base/path.h"

ZyrLogHousekeeper::~ZyrLogHousekeeper() {
  if (lock_.Exists()) (void)WaitForAll();
  jobs_.Free();
}

ZyrResult ZyrLogHousekeeper::Init() { return lock_.Exists() ? ZYR_OK : lock_.Create(); }

ZyrResult ZyrLogHousekeeper::CompressRolled(const char16_t* path) {
  ZyrBasString folder, name, pattern;
  ZyrResult r = ZyrBasPathDirectory(folder, path);
  if (ZyrSucceeded(r)) r = ZyrBasPathFileName(name, path);
  if (ZyrFailed(r)) return r;
  // The rolled file is asked first. A file system that cannot compress
  // refuses its neighbours too (one folder, one file system): the listings,
  // which would read the attributes of every rolled file at every
  // rollover, are left out.
  r = StartJob(path);
  if (r == ZYR_E_NOT_SUPPORTED) return ZYR_OK;
  if (r == ZYR_E_OUT_OF_MEMORY) return r;
  std::size_t prefix = 0;
  while (prefix < name.Length() && name.Text()[prefix] != u'.') ++prefix;
  // Fixed to ".log": the rolled files of another extension stay as they are.
  r = pattern.Assign(name.Text(), prefix);
  if (ZyrSucceeded(r)) r = pattern.AppendAscii(".*-*-*.log");
  if (ZyrSucceeded(r)) r = CompressByMask(folder, pattern);
  if (ZyrFailed(r)) return r;
  r = pattern.Assign(name.Text(), prefix);
  if (ZyrSucceeded(r)) r = pattern.AppendAscii(".log.*");
  if (ZyrSucceeded(r)) r = CompressByMask(folder, pattern);
  return r;
}

ZyrResult ZyrLogHousekeeper::CompressByMask(const ZyrBasString& folder, const ZyrBasString& pattern) {
  // The listing and the attribute reads run without the lock, so that a
  // slow folder does not hold up the tick.
  ZyrBasArray<ZyrBasString> paths;
  ZyrBasDirEnum listing;
  // A failed listing ends like its normal end: what was found is treated.
  for (ZyrResult e = listing.Open(folder.Text(), pattern.Text(), ZYR_ENUM_FILES); e == ZYR_OK;
       e = listing.Next()) {
    const ZyrBasDirItem* item = nullptr;
    ZyrBasString path, extension;
    if (ZyrFailed(listing.Current(&item)) || ZyrFailed(item->FullPath(path)) ||
        ZyrFailed(ZyrBasPathExtension(extension, path.Text(), path.Length())))
      break;
    if (ZyrBasCompareNoCaseAscii(extension.Text(), extension.Length(), u".lock", 5) == 0) continue;
    std::uint32_t attributes = 0;
    if (ZyrFailed(ZyrBasFileAttributes(&attributes, path.Text()))) continue;
    if (attributes & (ZYR_ATTR_DIRECTORY | ZYR_ATTR_COMPRESSED)) continue;  // never asked twice
    ZyrResult r = paths.Append(static_cast<ZyrBasString&&>(path));
    if (ZyrFailed(r)) return r;
  }

  for (ZyrBasString& path : paths) {
    // A refusal (a file system without compression, a file held by
    // someone) is no fault: the file stays as it is, and the next rollover
    // asks again.
    if (StartJob(path.Text()) == ZYR_E_OUT_OF_MEMORY) return ZYR_E_OUT_OF_MEMORY;
  }
  return ZYR_OK;
}

ZyrResult ZyrLogHousekeeper::StartJob(const char16_t* path) {
  ZyrBasLockGuard guard(lock_);
  ZyrResult r = Collect(false);
  if (ZyrFailed(r)) return r;
  auto* job = ZyrNew<ZyrBasCompressionRequest>();
  if (!job) return ZYR_E_OUT_OF_MEMORY;
  r = job->Start(path);
  if (ZyrSucceeded(r) && job->Pending()) {
    // Without a list entry the running request keeps its job, never
    // collected: freeing it under the file system would be worse.
    (void)jobs_.Append(job);
    return r;
  }
  ZyrDelete(job);
  return r;
}

ZyrResult ZyrLogHousekeeper::CollectFinished() {
  ZyrBasLockGuard guard(lock_);
  return Collect(false);
}

ZyrResult ZyrLogHousekeeper::WaitForAll() {
  ZyrBasLockGuard guard(lock_);
  return Collect(true);
}

ZyrResult ZyrLogHousekeeper::Collect(bool wait) {
  ZyrResult result = ZYR_OK;
  std::size_t kept = 0;
  for (std::size_t i = 0; i < jobs_.Count(); ++i) {
    ZyrBasCompressionRequest* job = jobs_[i];
    ZyrResult r = ZyrSucceeded(result) ? job->Wait(wait) : ZYR_W_TIMEOUT;
    if (r == ZYR_OK) {
      ZyrDelete(job);
      continue;
    }
    // Still running stays; any other answer ends the pass, and what was
    // collected so far leaves the list all the same.
    if (r != ZYR_W_TIMEOUT) result = r;
    jobs_[kept++] = job;
  }
  jobs_.Truncate(kept);
  return result;
}
