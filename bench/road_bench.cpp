// Cost of the library's own road: a real logger below its threshold, a
// direct-road message to a Null appender (compose, dispatch, Standard line),
// and a queue-road message as the caller sees it.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "zyrlog/log.h"
#include "zyrlog/zyrlog.h"

namespace {

// One log object for the whole run, with the default log folder moved into
// a temporary folder and every logger writing to a Null appender.
class Library {
 public:
  Library() {
    char templ[] = "/tmp/zyr-bench-XXXXXX";
    if (const char* made = mkdtemp(templ)) {
      dir_ = made;
      setenv("LOCALAPPDATA", made, 1);
    }
    if (ZyrFailed(ZyrGetLogObject(&IID_IZyrLog, &log_))) return;
    log_->LoadConfigText(
        u"[root]\nSeverity = INFO\nAddAppenders = null\n"
        u"[null]\nType = Appender\nAppenderType = Null\n");
    log_->GetLogger(&logger_, u"bench.road");
  }
  ~Library() {
    if (log_) ZyrReleaseLogObject(&IID_IZyrLog, log_);
    if (!dir_.empty()) (void)!system(("rm -rf '" + dir_ + "'").c_str());
  }
  IZyrLog* log() { return log_; }
  ZyrLogger* logger() { return logger_; }

 private:
  std::string dir_;
  IZyrLog* log_ = nullptr;
  ZyrLogger* logger_ = nullptr;
};

Library& Lib() {
  static Library library;
  return library;
}

void BM_RealLoggerBelowThreshold(benchmark::State& state) {
  ZyrLogger* logger = Lib().logger();
  if (!logger) return state.SkipWithError("no logger");
  int value = 42;
  for (auto _ : state) {
    benchmark::DoNotOptimize(logger);
    ZYR_DEBUG(logger, u"value %d of %s", value, u"text");
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_RealLoggerBelowThreshold);

void BM_DirectRoadToNull(benchmark::State& state) {
  ZyrLogger* logger = Lib().logger();
  if (!logger) return state.SkipWithError("no logger");
  int value = 42;
  for (auto _ : state) {
    ZyrResult r = zyrlog::LogFormat(logger, ZYR_SEVERITY_INFO, u"request %d of %d for %s",
                                    u"road.cpp", 10, value, value + 1, u"client-7");
    if (ZyrFailed(r)) return state.SkipWithError("log call failed");
  }
}
BENCHMARK(BM_DirectRoadToNull);

void BM_QueueRoadCaller(benchmark::State& state) {
  ZyrLogger* logger = Lib().logger();
  if (!logger) return state.SkipWithError("no logger");
  if (ZyrFailed(Lib().log()->StartDispatcher())) return state.SkipWithError("no worker");
  int value = 42;
  for (auto _ : state) {
    ZyrResult r = zyrlog::LogFormat(logger, ZYR_SEVERITY_INFO, u"request %d of %d for %s",
                                    u"road.cpp", 10, value, value + 1, u"client-7");
    if (ZyrFailed(r)) {
      state.SkipWithError("log call failed");
      break;
    }
  }
  Lib().log()->StopDispatcher();
}
BENCHMARK(BM_QueueRoadCaller);

}  // namespace
