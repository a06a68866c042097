// One measurement: one contender, one thread count, one round, run in a
// process of its own so that its peak resident size is its own and no state
// of one library reaches the next.
#ifndef ZYR_BENCH_COMPARE_RUNNER_H
#define ZYR_BENCH_COMPARE_RUNNER_H

#include <cstdint>

#include "contenders.h"

// Plain data: it crosses a pipe from the measuring process.
struct Measurement {
  int available = 0;             // 0: setup failed, see why
  char why[200] = {};
  std::uint64_t calls = 0;       // measured calls, all workers
  double callSeconds = 0;        // from the start until the last call returned
  double completeSeconds = 0;    // from the start until everything was in the kernel's hands
  double p50 = -1, p99 = -1, p999 = -1;  // caller latency in ns, queue rows only
  double allocationsPerCall = 0;
  long peakRssKib = 0;
  int verified = 0;              // rows that write files
  std::uint64_t missingAtReturn = 0;  // lines not on disk when the last call returned
  int missingAtReturnKnown = 0;  // not for queue rows: their lines are in flight by design
  std::uint64_t missingAtEnd = 0;     // lines not on disk after the contender closed
  std::uint64_t keptAtEnd = 0;
  std::uint64_t duplicates = 0;
  double bytesPerLine = 0;
  std::uint64_t errors = 0;
  std::uint64_t torn = 0;         // lines holding a broken or fused message
  std::uint64_t largestFile = 0;  // bytes of the largest file written
};

struct RunPlan {
  std::uint32_t workers = 1;
  std::uint64_t calls = 0;        // measured calls, split evenly across workers
  std::uint32_t warmUp = 1000;    // per worker
  unsigned timeLimitSeconds = 300;
  bool paced = false;
};

// Runs the measurement in a child process with `folder` as its empty
// folder and returns what it found. A child that dies is reported as not
// available, with the signal or exit status.
Measurement RunMeasurement(const ContenderInfo& info, const RunPlan& plan, const std::string& folder,
                           const std::string& host);

#endif
