#include "contenders.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <optional>

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <spdlog/async.h>
#include <spdlog/async_logger.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

#include "zyrlog/log.h"
#include "zyrlog/zyrlog.h"
// The front door's rows pass the file name that the contract's rows pass,
// so that both write the same line.
#define ZYRLOG_FILE u"compare.cpp"
#include "zyrlog/zyrlog.hpp"


std::uint64_t NowNs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000000000u + now.tv_nsec;
}

namespace {

// Keeps the compiler from hoisting a threshold read out of a loop.
inline void Barrier() { asm volatile("" ::: "memory"); }

std::string Hex(std::uint32_t code) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", code);
  return text;
}

// ---------------------------------------------------------------------------
// The limit: pre-formatted lines, one write per line to a file opened with
// O_APPEND; optionally the size query a size-rolling appender makes per line.

enum class SizeQuery { kNone, kFstatBefore, kPositionAfter };

class LimitContender final : public Contender {
 public:
  explicit LimitContender(SizeQuery sizeQuery) : sizeQuery_(sizeQuery) {}
  ~LimitContender() override { Close(); }

  bool Setup(const RunConfig& config, std::string* why) override {
    std::string path = config.folder + "/limit.log";
    fd_ = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd_ < 0) {
      *why = "cannot open " + path;
      return false;
    }
    // The line zyrlog's Standard layout makes for the same message.
    timeval now;
    gettimeofday(&now, nullptr);
    tm utc;
    gmtime_r(&now.tv_sec, &utc);
    char stamp[64];
    std::snprintf(stamp, sizeof stamp, "%04d-%02d-%02d %02d:%02d:%02d,%03d", utc.tm_year + 1900,
                  utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                  static_cast<int>(now.tv_usec / 1000));
    int pid = getpid();
    int tid = static_cast<int>(syscall(SYS_gettid));
    lines_.resize(config.workers);
    for (std::uint32_t w = 0; w < config.workers; ++w) {
      Lines& lines = lines_[w];
      lines.text.reserve(static_cast<std::size_t>(config.perWorker) * 160);
      lines.offsets.reserve(config.perWorker + 1);
      char line[512];
      for (std::uint32_t s = 0; s < config.perWorker; ++s) {
        int length = std::snprintf(line, sizeof line,
                                   "[bench] INFO %s %s PID:%d THID:%d ID:compare.cpp:%d.0.0.0 "
                                   "MSG:request %u from worker %u for client-7\r\n",
                                   stamp, config.host.c_str(), pid, tid, __LINE__, s, w);
        lines.offsets.push_back(lines.text.size());
        lines.text.append(line, static_cast<std::size_t>(length));
      }
      lines.offsets.push_back(lines.text.size());
    }
    warmUp_ = std::string("[bench] INFO ") + stamp + " warm-up line of the limit loop\r\n";
    return true;
  }

  void WarmUp(std::uint32_t, std::uint32_t count) override {
    for (std::uint32_t i = 0; i < count; ++i) Put(warmUp_.data(), warmUp_.size());
  }

  void Write(std::uint32_t worker, std::uint32_t count, std::uint32_t* latencies) override {
    const Lines& lines = lines_[worker];
    Loop(count, latencies, [&](std::uint32_t s) {
      Put(lines.text.data() + lines.offsets[s], lines.offsets[s + 1] - lines.offsets[s]);
    });
  }

  void Complete() override {}
  void Close() override {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }
  std::uint64_t Errors() const override { return errors_.load(); }

 private:
  struct Lines {
    std::string text;
    std::vector<std::size_t> offsets;
  };

  void Put(const char* data, std::size_t size) {
    if (sizeQuery_ == SizeQuery::kFstatBefore) {
      struct stat info;
      if (fstat(fd_, &info) != 0) errors_.fetch_add(1, std::memory_order_relaxed);
    }
    if (write(fd_, data, size) != static_cast<ssize_t>(size))
      errors_.fetch_add(1, std::memory_order_relaxed);
    // After an append the position is the end of the file as that write
    // left it, other writers' lines included: the size a rolling appender
    // needs, in the cheapest call.
    if (sizeQuery_ == SizeQuery::kPositionAfter && lseek(fd_, 0, SEEK_CUR) < 0)
      errors_.fetch_add(1, std::memory_order_relaxed);
  }

  SizeQuery sizeQuery_;
  int fd_ = -1;
  std::vector<Lines> lines_;
  std::string warmUp_;
  std::atomic<std::uint64_t> errors_{0};
};

// ---------------------------------------------------------------------------
// zyrlog through its client contract, as a client module uses it.

// kNull* rows write nothing: the road's cost with one thing changed, the
// Custom layout or the Json line in place of the Standard line, a typed
// list in place of format text, or the message scrambled.
enum class ZyrOutput { kFile, kRolling, kNull, kNullCustom, kNullJson, kNullTyped, kNullScrambled, kBelow };

std::u16string Widen(const std::string& text) {
  // Paths of the benchmark are ASCII or UTF-8; decode UTF-8 to UTF-16.
  std::u16string out;
  for (std::size_t i = 0; i < text.size();) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    std::uint32_t code = c;
    int more = c >= 0xf0 ? 3 : c >= 0xe0 ? 2 : c >= 0xc0 ? 1 : 0;
    if (more) code = c & (0x3f >> more);
    ++i;
    for (int k = 0; k < more && i < text.size(); ++k, ++i)
      code = (code << 6) | (static_cast<unsigned char>(text[i]) & 0x3f);
    if (code >= 0x10000) {
      code -= 0x10000;
      out.push_back(static_cast<char16_t>(0xd800 + (code >> 10)));
      out.push_back(static_cast<char16_t>(0xdc00 + (code & 0x3ff)));
    } else {
      out.push_back(static_cast<char16_t>(code));
    }
  }
  return out;
}

// With `front`, the calls go through the C++ front door (zyrlog/zyrlog.hpp):
// the same message as a "{}" format with its text in UTF-8, as a Linux
// program writes it; the configuration is the same, set through the
// contract.
class ZyrContender final : public Contender {
 public:
  ZyrContender(ZyrOutput output, bool queue, bool front = false)
      : output_(output), queue_(queue), front_(front) {}
  ~ZyrContender() override { Close(); }

  bool Setup(const RunConfig& config, std::string* why) override {
    paced_ = config.paced;
    // The default log folder lies below LOCALAPPDATA: keep it inside this
    // measurement's folder, so that nothing escapes the count.
    std::string appData = config.folder + "/appdata";
    mkdir(appData.c_str(), 0755);
    setenv("LOCALAPPDATA", appData.c_str(), 1);

    ZyrResult r = ZyrGetLogObject(&IID_IZyrLog, &log_);
    if (ZyrFailed(r)) return Fail(why, "ZyrGetLogObject", r);
    std::u16string text = u"[root]\nSeverity = INFO\nAddAppenders = out\n";
    // The queue's default budget (32 MiB at 376 bytes an entry, 89240
    // entries) drops the newest third when a burst outruns the disk; a round
    // here is such a burst. Without a limit every accepted line is written,
    // as the peer's asynchronous logger blocks rather than drops.
    if (queue_) text += u"MaxQueueSize = 0\n";
    text += u"[out]\nType = Appender\n";
    std::u16string file = Widen(config.folder + "/zyrlog.log");
    switch (output_) {
      case ZyrOutput::kFile:
        text += u"AppenderType = File\nFileName = " + file + u"\n";
        break;
      case ZyrOutput::kRolling:
        text += u"AppenderType = RollingFile\nSize = " + Widen(std::to_string(kRollSize)) +
                u"\nFilesCount = " + Widen(std::to_string(kRollFiles)) + u"\nFileName = " + file +
                u"\n";
        break;
      case ZyrOutput::kNullCustom:
        // The same fields as the Standard line, by the Custom layout's tokens.
        text += u"AppenderType = Null\nLayout = custom\n"
                u"[custom]\nType = Layout\nLayoutType = Custom\n"
                u"Format = [%logger] %severity %date %time %hostname PID:%pid THID:%tid "
                u"ID:%filename:%line.%buildnr.%svnrev.%product MSG:%msg\n";
        break;
      case ZyrOutput::kNullJson:
        text += u"AppenderType = Null\nLayout = json\n[json]\nType = Layout\nLayoutType = Json\n";
        break;
      case ZyrOutput::kNull:
      case ZyrOutput::kNullTyped:
      case ZyrOutput::kNullScrambled:
      case ZyrOutput::kBelow:
        text += u"AppenderType = Null\n";
        break;
    }
    r = log_->LoadConfigText(text.c_str());
    if (ZyrFailed(r)) return Fail(why, "LoadConfigText", r);
    r = log_->GetLogger(&logger_, u"bench");
    if (ZyrFailed(r)) return Fail(why, "GetLogger", r);
    if (front_) {
      frontLog_.emplace();
      frontLogger_ = frontLog_->GetLogger("bench");
      if (frontLogger_.Status().Failed())
        return Fail(why, "zyrlog::Log::GetLogger", frontLogger_.Status().Code());
    }
    if (output_ == ZyrOutput::kBelow && zyrlog::Enabled(logger_, ZYR_SEVERITY_DEBUG)) {
      *why = "DEBUG passes the configured threshold";
      return false;
    }
    if (queue_) {
      r = log_->StartDispatcher();
      if (ZyrFailed(r)) return Fail(why, "StartDispatcher", r);
      started_ = true;
    }
    return true;
  }

  void WarmUp(std::uint32_t worker, std::uint32_t count) override {
    for (std::uint32_t i = 0; i < count; ++i) {
      if (front_) ZYRLOG_INFO(frontLogger_, "request {} from warm-up {} for {}", i, worker, "client-7");
      else Put(u"request %d from warm-up %d for %s", i, worker);
    }
  }

  void Write(std::uint32_t worker, std::uint32_t count, std::uint32_t* latencies) override {
    if (front_) return WriteFront(worker, count);
    if (output_ == ZyrOutput::kBelow) {
      ZyrLogger* logger = logger_;
      Loop(count, latencies, [&](std::uint32_t s) {
        Barrier();
        ZYR_DEBUG(logger, u"request %d from worker %d for %s", static_cast<int>(s),
                  static_cast<int>(worker), u"client-7");
      });
      return;
    }
    Loop(count, latencies, paced_,
         [&](std::uint32_t s) { Put(u"request %d from worker %d for %s", s, worker); });
  }

  void Complete() override {
    if (started_) {
      log_->StopDispatcher();
      started_ = false;
    } else if (log_) {
      (void)log_->Flush();
    }
  }

  void Close() override {
    if (started_) log_->StopDispatcher();
    started_ = false;
    errors_ += FrontFailures();
    frontLogger_ = zyrlog::Logger();
    frontLog_.reset();
    if (log_) ZyrReleaseLogObject(&IID_IZyrLog, log_);
    log_ = nullptr;
  }

  std::uint64_t Errors() const override { return errors_.load() + FrontFailures(); }

 private:
  static bool Fail(std::string* why, const char* what, ZyrResult r) {
    *why = std::string(what) + " answered " + Hex(static_cast<std::uint32_t>(r));
    if (r == ZYR_E_NOT_IMPLEMENTED) *why += " (ZYR_E_NOT_IMPLEMENTED)";
    return false;
  }

  // The client helper's road: the threshold test, then the call.
  void Put(const char16_t* format, std::uint32_t sequence, std::uint32_t worker) {
    if (!zyrlog::Enabled(logger_, ZYR_SEVERITY_INFO)) return;
    ZyrResult r;
    if (output_ == ZyrOutput::kNullTyped) {
      // The same three values as a typed list: two numbers and a text.
      r = zyrlog::LogTyped(logger_, ZYR_SEVERITY_INFO, u"compare.cpp", __LINE__, 0, 0, 0,
                           zyrlog::Dword(sequence), zyrlog::Dword(worker), zyrlog::Str(u"client-7"));
    } else if (output_ == ZyrOutput::kNullScrambled) {
      std::uint64_t slots[3] = {sequence, worker, reinterpret_cast<std::uintptr_t>(u"client-7")};
      r = logger_->Log(ZYR_SEVERITY_INFO, format, u"compare.cpp", __LINE__, 0, 0, 0, 1, slots);
    } else {
      r = zyrlog::LogFormat(logger_, ZYR_SEVERITY_INFO, format, u"compare.cpp", __LINE__,
                            static_cast<int>(sequence), static_cast<int>(worker), u"client-7");
    }
    if (ZyrFailed(r)) errors_.fetch_add(1, std::memory_order_relaxed);
  }

  std::uint64_t FrontFailures() const { return frontLog_ ? frontLog_->FailedCalls() : 0; }

  // The front door's rows are rows of the direct road, which time no single
  // call.
  void WriteFront(std::uint32_t worker, std::uint32_t count) {
    const zyrlog::Logger& logger = frontLogger_;
    int w = static_cast<int>(worker);
    if (output_ == ZyrOutput::kBelow) {
      for (std::uint32_t s = 0; s < count; ++s) {
        Barrier();
        ZYRLOG_DEBUG(logger, "request {} from worker {} for {}", static_cast<int>(s), w, "client-7");
      }
      return;
    }
    for (std::uint32_t s = 0; s < count; ++s)
      ZYRLOG_INFO(logger, "request {} from worker {} for {}", static_cast<int>(s), w, "client-7");
  }

  ZyrOutput output_;
  bool queue_;
  bool paced_ = false;
  bool started_ = false;
  IZyrLog* log_ = nullptr;
  ZyrLogger* logger_ = nullptr;
  std::atomic<std::uint64_t> errors_{0};
  bool front_;
  std::optional<zyrlog::Log> frontLog_;  // shares the one manager with log_
  zyrlog::Logger frontLogger_;
};

// ---------------------------------------------------------------------------
// log4cplus: RollingFileAppender configured by properties.

class Log4cplusContender final : public Contender {
 public:
  enum Mode { kFlushEachLine, kBuffered, kBelow };
  explicit Log4cplusContender(Mode mode) : mode_(mode) {}
  ~Log4cplusContender() override { Close(); }

  bool Setup(const RunConfig& config, std::string* why) override {
    log4cplus::initialize();
    initialized_ = true;
    log4cplus::helpers::Properties p;
    p.setProperty("log4cplus.rootLogger", "INFO, R");
    p.setProperty("log4cplus.appender.R", "log4cplus::RollingFileAppender");
    p.setProperty("log4cplus.appender.R.File", config.folder + "/log4cplus.log");
    p.setProperty("log4cplus.appender.R.Append", "true");
    p.setProperty("log4cplus.appender.R.MaxFileSize", std::to_string(kRollSize));
    p.setProperty("log4cplus.appender.R.MaxBackupIndex", std::to_string(kRollFiles));
    p.setProperty("log4cplus.appender.R.ImmediateFlush", mode_ == kBuffered ? "false" : "true");
    p.setProperty("log4cplus.appender.R.layout", "log4cplus::PatternLayout");
    p.setProperty("log4cplus.appender.R.layout.ConversionPattern",
                  "[%c] %p %d{%Y-%m-%d %H:%M:%S,%q} %h PID:%i THID:%T ID:%b:%L.0.0.0 MSG:%m%n");
    log4cplus::PropertyConfigurator configurator(p);
    configurator.configure();
    logger_ = log4cplus::Logger::getInstance("bench");
    if (mode_ == kBelow ? logger_.isEnabledFor(log4cplus::DEBUG_LOG_LEVEL)
                        : !logger_.isEnabledFor(log4cplus::INFO_LOG_LEVEL)) {
      *why = "the configured level was not taken";
      return false;
    }
    return true;
  }

  void WarmUp(std::uint32_t worker, std::uint32_t count) override {
    for (std::uint32_t i = 0; i < count; ++i)
      LOG4CPLUS_INFO_FMT(logger_, "request %u from warm-up %u for %s", i, worker, "client-7");
  }

  void Write(std::uint32_t worker, std::uint32_t count, std::uint32_t* latencies) override {
    if (mode_ == kBelow) {
      Loop(count, latencies, [&](std::uint32_t s) {
        Barrier();
        LOG4CPLUS_DEBUG_FMT(logger_, "request %u from worker %u for %s", s, worker, "client-7");
      });
      return;
    }
    Loop(count, latencies, [&](std::uint32_t s) {
      LOG4CPLUS_INFO_FMT(logger_, "request %u from worker %u for %s", s, worker, "client-7");
    });
  }

  // The library has no flush of its own: closing its appenders is how a
  // buffered one hands over its tail.
  void Complete() override { Close(); }

  void Close() override {
    if (!initialized_) return;
    log4cplus::Logger::shutdown();
    initialized_ = false;
  }

 private:
  Mode mode_;
  bool initialized_ = false;
  log4cplus::Logger logger_;
};

// ---------------------------------------------------------------------------
// spdlog: the rotating file sink, synchronous or behind its thread pool.

class SpdlogContender final : public Contender {
 public:
  enum Mode { kFlushEachLine, kBuffered, kAsync, kBelow };
  explicit SpdlogContender(Mode mode) : mode_(mode) {}
  ~SpdlogContender() override { Close(); }

  bool Setup(const RunConfig& config, std::string* why) override {
    try {
      sink_ = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(config.folder + "/spdlog.log",
                                                                     kRollSize, kRollFiles);
      if (mode_ == kAsync) {
        // spdlog's own defaults: 8192 queued messages, one thread, callers
        // wait when the queue is full.
        pool_ = std::make_shared<spdlog::details::thread_pool>(spdlog::details::default_async_q_size, 1);
        logger_ = std::make_shared<spdlog::async_logger>("bench", sink_, pool_,
                                                         spdlog::async_overflow_policy::block);
      } else {
        logger_ = std::make_shared<spdlog::logger>("bench", sink_);
      }
      std::string pattern = "[%n] %l %Y-%m-%d %H:%M:%S,%e " + config.host +
                            " PID:%P THID:%t ID:%s:%#.0.0.0 MSG:%v";
      logger_->set_pattern(pattern, spdlog::pattern_time_type::utc);
      logger_->set_level(spdlog::level::info);
      if (mode_ == kFlushEachLine || mode_ == kAsync) logger_->flush_on(spdlog::level::trace);
    } catch (const std::exception& e) {
      *why = std::string("spdlog: ") + e.what();
      return false;
    }
    return true;
  }

  void WarmUp(std::uint32_t worker, std::uint32_t count) override {
    for (std::uint32_t i = 0; i < count; ++i)
      logger_->log(spdlog::source_loc{__FILE__, __LINE__, ""}, spdlog::level::info,
                   "request {} from warm-up {} for {}", i, worker, "client-7");
  }

  void Write(std::uint32_t worker, std::uint32_t count, std::uint32_t* latencies) override {
    spdlog::logger* logger = logger_.get();
    if (mode_ == kBelow) {
      Loop(count, latencies, [&](std::uint32_t s) {
        Barrier();
        logger->log(spdlog::source_loc{__FILE__, __LINE__, ""}, spdlog::level::debug,
                    "request {} from worker {} for {}", s, worker, "client-7");
      });
      return;
    }
    Loop(count, latencies, [&](std::uint32_t s) {
      logger->log(spdlog::source_loc{__FILE__, __LINE__, ""}, spdlog::level::info,
                  "request {} from worker {} for {}", s, worker, "client-7");
    });
  }

  void Complete() override {
    if (!logger_) return;
    logger_->flush();
    // The pool's end waits for its thread, which writes out the queue first.
    pool_.reset();
  }

  void Close() override {
    pool_.reset();
    logger_.reset();
    sink_.reset();
  }

 private:
  Mode mode_;
  std::shared_ptr<spdlog::sinks::rotating_file_sink_mt> sink_;
  std::shared_ptr<spdlog::details::thread_pool> pool_;
  std::shared_ptr<spdlog::logger> logger_;
};

template <class T, auto... Args>
std::unique_ptr<Contender> Make() {
  return std::make_unique<T>(Args...);
}

}  // namespace

const std::vector<ContenderInfo>& AllContenders() {
  using L4 = Log4cplusContender;
  using Sp = SpdlogContender;
  static const std::vector<ContenderInfo> all = {
      {"limit-write", "limit: write() per line, O_APPEND", Kind::kLimit, false, false,
       Make<LimitContender, SizeQuery::kNone>},
      {"limit-fstat-write", "limit: fstat()+write() per line", Kind::kLimit, false, false,
       Make<LimitContender, SizeQuery::kFstatBefore>},
      {"limit-write-lseek", "limit: write()+lseek() per line", Kind::kLimit, false, false,
       Make<LimitContender, SizeQuery::kPositionAfter>},
      {"zyrlog-file", "zyrlog File, direct", Kind::kFile, false, false,
       Make<ZyrContender, ZyrOutput::kFile, false>},
      {"zyrlog-rolling", "zyrlog RollingFile, direct", Kind::kRolling, false, false,
       Make<ZyrContender, ZyrOutput::kRolling, false>},
      {"zyrlog-file-queue", "zyrlog File, queue", Kind::kFile, true, false,
       Make<ZyrContender, ZyrOutput::kFile, true>},
      {"zyrlog-rolling-queue", "zyrlog RollingFile, queue", Kind::kRolling, true, false,
       Make<ZyrContender, ZyrOutput::kRolling, true>},
      {"zyrlog-rolling-queue-paced", "zyrlog RollingFile, queue, paced", Kind::kRolling, true,
       false, Make<ZyrContender, ZyrOutput::kRolling, true>, false, true},
      // The reference for an asynchronous caller: per-thread queues, the
      // text made on its backend thread.
      {"quill-rotating", "quill rotating file (async)", Kind::kRolling, true, false,
       MakeQuillContender},
      {"quill-rotating-paced", "quill rotating file (async), paced", Kind::kRolling, true, false,
       MakeQuillContender, false, true},
      // One file shared by as many processes as the row has workers.
      {"limit-write-procs", "limit: write() per line, processes", Kind::kLimit, false, false,
       Make<LimitContender, SizeQuery::kNone>, true},
      // The ceiling of a shared rolling log: each line also asks for the size.
      {"limit-write-lseek-procs", "limit: write()+lseek() per line, processes", Kind::kLimit, false,
       false, Make<LimitContender, SizeQuery::kPositionAfter>, true},
      {"zyrlog-rolling-procs", "zyrlog RollingFile, processes", Kind::kRolling, false, false,
       Make<ZyrContender, ZyrOutput::kRolling, false>, true},
      {"zyrlog-null", "zyrlog Null appender (no I/O)", Kind::kNoOutput, false, false,
       Make<ZyrContender, ZyrOutput::kNull, false>},
      {"zyrlog-null-custom", "zyrlog Null, Custom layout line", Kind::kNoOutput, false, false,
       Make<ZyrContender, ZyrOutput::kNullCustom, false>},
      {"zyrlog-null-json", "zyrlog Null, Json layout line", Kind::kNoOutput, false, false,
       Make<ZyrContender, ZyrOutput::kNullJson, false>},
      {"zyrlog-null-typed", "zyrlog Null, typed-list message", Kind::kNoOutput, false, false,
       Make<ZyrContender, ZyrOutput::kNullTyped, false>},
      {"zyrlog-null-scrambled", "zyrlog Null, scrambled message", Kind::kNoOutput, false, false,
       Make<ZyrContender, ZyrOutput::kNullScrambled, false>},
      {"log4cplus-rolling", "log4cplus Rolling, ImmediateFlush=true", Kind::kRolling, false, false,
       Make<L4, L4::kFlushEachLine>},
      {"log4cplus-rolling-buffered", "log4cplus Rolling, ImmediateFlush=false [buffered]",
       Kind::kRolling, false, true, Make<L4, L4::kBuffered>},
      {"spdlog-rotating", "spdlog rotating, flush_on(trace)", Kind::kRolling, false, false,
       Make<Sp, Sp::kFlushEachLine>},
      {"spdlog-rotating-buffered", "spdlog rotating, default [buffered]", Kind::kRolling, false,
       true, Make<Sp, Sp::kBuffered>},
      {"spdlog-async", "spdlog async rotating, flush_on(trace)", Kind::kRolling, true, false,
       Make<Sp, Sp::kAsync>},
      {"zyrlog-below", "zyrlog below threshold", Kind::kBelow, false, false,
       Make<ZyrContender, ZyrOutput::kBelow, false>},
      // The same messages through the C++ front door.
      {"zyrlog-front-file", "zyrlog File, direct, front door", Kind::kFile, false, false,
       Make<ZyrContender, ZyrOutput::kFile, false, true>},
      {"zyrlog-front-null", "zyrlog Null appender, front door", Kind::kNoOutput, false, false,
       Make<ZyrContender, ZyrOutput::kNull, false, true>},
      {"zyrlog-front-below", "zyrlog below threshold, front door", Kind::kBelow, false, false,
       Make<ZyrContender, ZyrOutput::kBelow, false, true>},
      {"log4cplus-below", "log4cplus below threshold", Kind::kBelow, false, false,
       Make<L4, L4::kBelow>},
      {"spdlog-below", "spdlog below threshold", Kind::kBelow, false, false, Make<Sp, Sp::kBelow>},
  };
  return all;
}
