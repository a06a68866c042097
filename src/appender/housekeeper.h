// ZyrLogHousekeeper: asks the file system to store rolled log files
// compressed. It removes nothing; the rolling appenders do that. A rollover
// hands over the new name of its rolled file and goes on: requests that
// the file system keeps running are held here and collected at the
// engine's tick without waiting, and all of them when the engine stops.
// One exists in the engine, owned by the dispatcher.
#ifndef ZYR_APPENDER_HOUSEKEEPER_H
#define ZYR_APPENDER_HOUSEKEEPER_H

#include "base/array.h"
#include "base/compression.h"
#include "base/lock.h"
#include "base/string.h"
#include "zyrlog/result.h"

class ZyrLogHousekeeper {
 public:
  ZyrLogHousekeeper() = default;
  // Waits for every request still running: the file system may still
  // hold it.
  ~ZyrLogHousekeeper();
  ZyrLogHousekeeper(const ZyrLogHousekeeper&) = delete;
  ZyrLogHousekeeper& operator=(const ZyrLogHousekeeper&) = delete;

  // Creates the lock.
  ZyrResult Init();
  // After a rollover of `path`: `path` itself, and unless the file system
  // refused it, the siblings of the log that match
  // "<prefix>.*-*-*.log" (dated) and "<prefix>.log.*" (numbered), the
  // prefix being the file name up to its first ".", are asked to be
  // compressed, if they are not yet. So files that an earlier try left
  // over get another chance, and the ".lock" file is left out.
  ZyrResult CompressRolled(const char16_t* path);
  // The engine's tick: collects ended requests, without waiting.
  ZyrResult CollectFinished();
  // The engine's stop: collects all, waiting for each.
  ZyrResult WaitForAll();

  std::size_t PendingCount() const { return jobs_.Count(); }

  // Around a fork: the lock taken before, given back after, made anew in
  // the child.
  void ForkPrepare() { lock_.Enter(); }
  void ForkParent() { lock_.Leave(); }
  void ForkChild() { lock_.RenewAfterFork(); }

 private:
  ZyrResult CompressByMask(const ZyrBasString& folder, const ZyrBasString& pattern);
  // One request for `path`, held while it runs; the file system's answer.
  ZyrResult StartJob(const char16_t* path);
  ZyrResult Collect(bool wait);

  ZyrBasCriticalSection lock_;  // guards jobs_; after the appenders' locks
  // Requests still running, each allocated alone: the file system may
  // hold its address until it ends.
  ZyrBasArray<ZyrBasCompressionRequest*> jobs_;
};

#endif
