// The contenders of the comparison: the limit loops, zyrlog on its roads,
// and the two peer libraries. Each writes the same message, "request SEQ
// from worker W for client-7" with two integers and a short text, in a line
// of the same shape: logger, severity, UTC time, host, process, thread,
// source place, message.
#ifndef ZYR_BENCH_COMPARE_CONTENDERS_H
#define ZYR_BENCH_COMPARE_CONTENDERS_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// What a row measures, and so which limit it is set beside.
enum class Kind {
  kLimit,    // the plain write loop
  kFile,     // a file that grows without bound
  kRolling,  // a file rolled by size: its limit is the loop with the size query
  kNoOutput, // the full road to an output that writes nothing
  kBelow,    // a call below the logger's threshold
};

struct RunConfig {
  std::string folder;        // empty folder of this measurement, all files go below it
  std::string host;          // host name of the lines
  std::uint32_t workers = 1;
  std::uint32_t perWorker = 0;  // measured calls of each worker
  bool paced = false;        // lines come in small groups with pauses, see Loop
};

class Contender {
 public:
  virtual ~Contender() = default;
  // Opens files and loads configuration. On failure `why` says what failed,
  // with the library's result code where it has one.
  virtual bool Setup(const RunConfig& config, std::string* why) = 0;
  // Lines that bring the contender to its steady state; they carry another
  // word than the measured lines and are not counted.
  virtual void WarmUp(std::uint32_t worker, std::uint32_t count) = 0;
  // The measured calls of `worker`: sequence numbers 0 to count - 1. With
  // `latencies`, the duration of each call in nanoseconds goes there.
  virtual void Write(std::uint32_t worker, std::uint32_t count, std::uint32_t* latencies) = 0;
  // Returns when every line written so far is in the kernel's hands: a
  // flush, or the end of a queue.
  virtual void Complete() = 0;
  virtual void Close() = 0;
  // Calls that reported a failure.
  virtual std::uint64_t Errors() const { return 0; }
};

struct ContenderInfo {
  const char* id;     // machine name, e.g. "zyrlog-rolling-queue"
  const char* label;  // row of the table
  Kind kind;
  bool queue;         // a worker thread writes: caller latency and time to disk
  bool buffered;      // lines stay in process memory after the call returns
  std::unique_ptr<Contender> (*make)();
  bool processes = false;  // each worker is a process of its own, not a thread
  bool paced = false;      // RunConfig::paced for this row
};

// The size rule of the rolling rows: the file size of zyrlog's built-in
// default, and enough rolled files to keep every line of a default round
// (200,000 lines of some 132 bytes fill 26 files), so that losses are counted
// line by line. With fewer files a writer whose lines all rolled away could
// not be told from one whose lines were lost; longer rounds count from each
// writer's oldest line still kept.
inline constexpr std::uint64_t kRollSize = 1024000;
inline constexpr int kRollFiles = 40;

const std::vector<ContenderInfo>& AllContenders();

// Monotonic clock in nanoseconds.
std::uint64_t NowNs();

// A paced writer sends kPaceGroup lines, then waits kPaceGapNs on the clock
// (spinning, so that the gap is the same on a loaded machine): a program
// that logs in small groups, where an asynchronous road finds its worker
// idle at every group's first line.
inline constexpr std::uint32_t kPaceGroup = 16;
inline constexpr std::uint64_t kPaceGapNs = 20000;

// Runs `call(sequence)` for each measured sequence number, timing each call
// only when latencies are asked for, so that the other rows carry no clock.
template <class Call>
inline void Loop(std::uint32_t count, std::uint32_t* latencies, bool paced, Call&& call) {
  for (std::uint32_t s = 0; s < count; ++s) {
    if (latencies) {
      std::uint64_t start = NowNs();
      call(s);
      std::uint64_t took = NowNs() - start;
      latencies[s] = took > UINT32_MAX ? UINT32_MAX : static_cast<std::uint32_t>(took);
    } else {
      call(s);
    }
    if (paced && s % kPaceGroup == kPaceGroup - 1) {
      std::uint64_t until = NowNs() + kPaceGapNs;
      while (NowNs() < until) {
      }
    }
  }
}

template <class Call>
inline void Loop(std::uint32_t count, std::uint32_t* latencies, Call&& call) {
  Loop(count, latencies, false, static_cast<Call&&>(call));
}

// quill's asynchronous rotating file (quill_contender.cpp); a contender that
// says why it is not available where the quill headers were not found.
std::unique_ptr<Contender> MakeQuillContender();

#endif
