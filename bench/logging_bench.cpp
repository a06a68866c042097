// Cost of the client helper. The loggers here are stand-ins that do no
// work, so the figures are those of the call site alone: the threshold test,
// and above it the packing of the arguments and the virtual call.
#include <benchmark/benchmark.h>

#include "zyrlog/log.h"

namespace {

class NullLogger final : public ZyrLogger {
 public:
  explicit NullLogger(ZyrLogSeverity t) { threshold.store(t); }
  benchmark::IterationCount calls = 0;

  const char16_t* GetName() override { return u"null"; }
  // Not inlined: the call stays a call even where the compiler guesses the
  // target, as it must for a logger that lives in another module.
  [[gnu::noinline]] ZyrResult Log(ZyrLogSeverity, const char16_t*, const char16_t*, std::uint32_t,
                                  std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t,
                                  const std::uint64_t* a) override {
    benchmark::DoNotOptimize(a);
    return ++calls, ZYR_OK;
  }
  ZyrResult LogShort(ZyrLogSeverity, const char16_t*, const char16_t*, std::uint32_t,
                     std::uint32_t, std::uint32_t, std::uint32_t, const std::uint64_t*) override {
    return ++calls, ZYR_OK;
  }
  ZyrResult LogNumber(ZyrLogSeverity, const char16_t*, const char16_t*, std::uint32_t,
                      std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t,
                      const std::uint64_t*) override {
    return ++calls, ZYR_OK;
  }
  ZyrResult Configure(ZyrCfgSection&) override { return ZYR_OK; }
  ZyrResult Save(ZyrCfgSection&) override { return ZYR_OK; }
  ZyrResult LogRevision(ZyrLogSeverity, const char16_t*, const char16_t*, std::uint32_t,
                        std::uint32_t, const char16_t*, std::uint32_t, std::uint32_t,
                        const std::uint64_t*) override {
    return ++calls, ZYR_OK;
  }
  ZyrResult LogText(ZyrLogSeverity, const char16_t*, const char16_t*, std::uint32_t,
                    std::uint32_t, const char16_t*, std::uint32_t, std::uint32_t,
                    const std::uint64_t*) override {
    return ++calls, ZYR_OK;
  }
  void Destroy(std::uint32_t) override {}
};

// A message below the threshold: one relaxed read and a compare. The
// logger pointer is hidden from the optimiser and memory is clobbered on
// every round, so the threshold is read afresh each time and the test
// cannot be hoisted out of the loop.
void BM_BelowThreshold(benchmark::State& state) {
  NullLogger logger(ZYR_SEVERITY_WARN);
  ZyrLogger* target = &logger;
  int value = 42;
  for (auto _ : state) {
    benchmark::DoNotOptimize(target);
    ZYR_DEBUG(target, u"value %d of %s", value, u"text");
    benchmark::ClobberMemory();
  }
  if (logger.calls != 0) state.SkipWithError("a message below the threshold reached the logger");
}
BENCHMARK(BM_BelowThreshold);

// The same message at the threshold: packing two slots on the stack and
// the virtual call into a logger that does nothing.
void BM_AtThresholdPackOnly(benchmark::State& state) {
  NullLogger logger(ZYR_SEVERITY_DEBUG);
  ZyrLogger* target = &logger;
  int value = 42;
  for (auto _ : state) {
    benchmark::DoNotOptimize(target);
    ZYR_DEBUG(target, u"value %d of %s", value, u"text");
    benchmark::ClobberMemory();
  }
  if (logger.calls != state.iterations()) state.SkipWithError("a message was lost");
}
BENCHMARK(BM_AtThresholdPackOnly);

}  // namespace
