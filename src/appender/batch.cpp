#include "appender/batch.h"

#include "appender/appender.h"
#include "base/lock.h"

namespace {
// Read for every line a file appender writes: initial-exec, no call.
__attribute__((tls_model("initial-exec"))) thread_local ZyrLogBatch* tBatch = nullptr;
}  // namespace

ZyrLogBatch* ZyrLogBatch::Current() { return tBatch; }

void ZyrLogBatch::Begin() { tBatch = this; }

ZyrResult ZyrLogBatch::Enlist(ZyrLogAppender* appender) { return enlisted_.Append(appender); }

std::uint64_t ZyrLogBatch::End(ZyrResult* failure) {
  tBatch = nullptr;
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
