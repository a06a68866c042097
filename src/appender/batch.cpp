#include "appender/batch.h"

#include "appender/appender.h"
#include "base/lock.h"
#include "base/thread_data.h"

namespace {
// Null on every thread but a draining one.
ZYR_THREAD_DATA(ZyrLogBatch*, tBatch);
}  // namespace

ZyrLogBatch* ZyrLogBatch::Current() {
  ZyrLogBatch** slot = tBatch.Get();
  return slot ? *slot : nullptr;
}

// Without memory for the thread's slot there is no batch: each line is a
// write of its own, as on the direct road.
void ZyrLogBatch::Begin() {
  if (ZyrLogBatch** slot = tBatch.Get()) *slot = this;
}

ZyrResult ZyrLogBatch::Enlist(ZyrLogAppender* appender) { return enlisted_.Append(appender); }

std::uint64_t ZyrLogBatch::End(ZyrResult* failure) {
  if (ZyrLogBatch** slot = tBatch.Get()) *slot = nullptr;
  std::uint64_t failed = 0;
  *failure = ZYR_OK;
  for (ZyrLogAppender* appender : enlisted_) {
    ZyrBasLockGuard guard(appender->Lock());
    ZyrResult r = ZYR_OK;
    failed += appender->EndBatch(&r);
    if (ZyrFailed(r)) *failure = r;
  }
  enlisted_.Clear();
  return failed;
}
