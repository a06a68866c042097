// ZyrLogBatch: the lines that file appenders hold back while a thread drains
// the queue, so that each appender writes many whole lines in one system
// write instead of one write per line. The draining thread opens a batch
// for its drain; an appender that gets a line on that thread holds it and
// enlists, and the batch's end has every enlisted appender write what it
// holds. The direct road has no batch: there each line is one write.
#ifndef ZYR_APPENDER_BATCH_H
#define ZYR_APPENDER_BATCH_H

#include <cstdint>

#include "base/array.h"
#include "zyrlog/result.h"

class ZyrLogAppender;

class ZyrLogBatch {
 public:
  // The batch of the calling thread while it drains; null elsewhere.
  static ZyrLogBatch* Current();

  // Makes this the calling thread's batch until End.
  void Begin();
  // Every enlisted appender writes what it holds, under its lock. Returns
  // the lines that reached no file then, with the last failure in *failure.
  std::uint64_t End(ZyrResult* failure);
  // Called by an appender, under its lock, when it holds its first line of
  // this batch. Without memory to enlist, the appender writes at once.
  ZyrResult Enlist(ZyrLogAppender* appender);

 private:
  ZyrBasArray<ZyrLogAppender*> enlisted_;
};

#endif
