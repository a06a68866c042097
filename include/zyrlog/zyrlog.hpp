// zyrlog front door: the C++ way into the library, header only, over the
// client contract of zyrlog/zyrlog.h.
//
//   #include <zyrlog/zyrlog.hpp>
//
//   zyrlog::Log log;                                   // gets a log object
//   zyrlog::Result r = log.LoadConfigFile("/etc/myapp/log.cfg");
//   if (r.Failed()) std::fprintf(stderr, "%s\n", r.Describe().c_str());
//   zyrlog::Logger net = log.GetLogger("app.net");
//   ZYRLOG_INFO(net, "connected to {} in {} ms", host, ms);
//   log.StartWorker();                                 // optional: callers never wait for the disk
//   }                                                  // the worker stops, queued lines are written
//
// Text is UTF-8 everywhere: names, paths, configuration, formats and
// string arguments. Formats are checked and translated while the call
// compiles (zyrlog/format.hpp). Below the logger's threshold a call costs
// one relaxed atomic read: its arguments are not evaluated and nothing is
// called. docs/api.md is the reference.
#ifndef ZYRLOG_ZYRLOG_HPP
#define ZYRLOG_ZYRLOG_HPP

#include <atomic>
#include <cstdint>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "zyrlog/format.hpp"
#include "zyrlog/result.hpp"
#include "zyrlog/zyrlog.h"

namespace zyrlog {

enum class Severity : ZyrLogSeverity {
  kAll = ZYR_SEVERITY_ALL,
  kDebug = ZYR_SEVERITY_DEBUG,
  kDetail = ZYR_SEVERITY_DETAIL,
  kInfo = ZYR_SEVERITY_INFO,
  kWarn = ZYR_SEVERITY_WARN,
  kError = ZYR_SEVERITY_ERROR,
  kFatal = ZYR_SEVERITY_FATAL,
  kOff = ZYR_SEVERITY_OFF,
};

class Log;
class Logger;

namespace impl {

// What a handle and its loggers share: the log object, released when the
// last of them goes, and the count of failed log calls.
struct Shared {
  std::atomic<std::int32_t> refs{1};
  IZyrLog* log = nullptr;
  std::atomic<std::uint64_t> failedCalls{0};
  std::atomic<ZyrResult> lastFailure{ZYR_OK};

  void Acquire() noexcept { refs.fetch_add(1, std::memory_order_relaxed); }
  void Release() noexcept {
    if (refs.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    ZyrReleaseLogObject(&IID_IZyrLog, log);
    delete this;
  }
  [[gnu::cold, gnu::noinline]] void CountFailure(ZyrResult r) noexcept {
    failedCalls.fetch_add(1, std::memory_order_relaxed);
    lastFailure.store(r, std::memory_order_relaxed);
  }
};

// The threshold of a Logger without a logger: every severity passes, so
// that calls through a logger that could not be had reach the call and are
// counted as failed calls of the handle rather than dropped in silence.
// (Not a ZyrLogger of our own: a subclass in sight of the compiler would
// make it guess at every virtual call of the logger, a compare and branch
// on each message road that includes this header.)
inline constinit const std::atomic<ZyrLogSeverity> kNoLoggerThreshold{ZYR_SEVERITY_ALL};

// UTF-8 text as the NUL-terminated UTF-16 that the contract takes: on the
// stack when short, else on the heap. Malformed UTF-8 is
// ZYR_E_INVALID_DATA and a NUL inside the text ZYR_E_INVALID_ARGUMENT,
// since the contract would silently end the text there.
class Utf16 {
 public:
  explicit Utf16(std::string_view text) noexcept {
    char16_t* out = local_;
    if (text.size() >= sizeof local_ / sizeof local_[0]) {
      heap_ = new (std::nothrow) char16_t[text.size() + 1];
      if (!heap_) {
        status_ = ZYR_E_OUT_OF_MEMORY;
        return;
      }
      out = heap_;
    }
    std::size_t i = 0, n = 0;
    while (i < text.size()) {
      std::int32_t code = DecodeUtf8(text.data(), text.size(), i);
      if (code <= 0) {
        status_ = code < 0 ? ZYR_E_INVALID_DATA : ZYR_E_INVALID_ARGUMENT;
        return;
      }
      if (code >= 0x10000) {
        out[n++] = static_cast<char16_t>(0xd800 + ((code - 0x10000) >> 10));
        out[n++] = static_cast<char16_t>(0xdc00 + ((code - 0x10000) & 0x3ff));
      } else {
        out[n++] = static_cast<char16_t>(code);
      }
    }
    out[n] = 0;
    text_ = out;
  }
  ~Utf16() { delete[] heap_; }
  Utf16(const Utf16&) = delete;
  Utf16& operator=(const Utf16&) = delete;

  ZyrResult Status() const noexcept { return status_; }
  const char16_t* Text() const noexcept { return text_; }

 private:
  char16_t local_[256];
  char16_t* heap_ = nullptr;
  const char16_t* text_ = nullptr;
  ZyrResult status_ = ZYR_OK;
};

// UTF-16 from the contract as UTF-8; a lone surrogate becomes U+FFFD.
inline void AppendUtf8(std::string& out, const char16_t* text, std::size_t length) {
  for (std::size_t i = 0; i < length; ++i) {
    std::uint32_t code = text[i];
    if (code >= 0xd800 && code < 0xdc00 && i + 1 < length && text[i + 1] >= 0xdc00 && text[i + 1] < 0xe000)
      code = 0x10000 + ((code - 0xd800) << 10) + (text[++i] - 0xdc00);
    else if (code >= 0xd800 && code < 0xe000)
      code = 0xfffd;
    if (code < 0x80) {
      out.push_back(static_cast<char>(code));
    } else if (code < 0x800) {
      out.push_back(static_cast<char>(0xc0 | code >> 6));
      out.push_back(static_cast<char>(0x80 | (code & 0x3f)));
    } else if (code < 0x10000) {
      out.push_back(static_cast<char>(0xe0 | code >> 12));
      out.push_back(static_cast<char>(0x80 | (code >> 6 & 0x3f)));
      out.push_back(static_cast<char>(0x80 | (code & 0x3f)));
    } else {
      out.push_back(static_cast<char>(0xf0 | code >> 18));
      out.push_back(static_cast<char>(0x80 | (code >> 12 & 0x3f)));
      out.push_back(static_cast<char>(0x80 | (code >> 6 & 0x3f)));
      out.push_back(static_cast<char>(0x80 | (code & 0x3f)));
    }
  }
}

// The same into `out`, replacing it; false when memory ran out (out is
// then left empty).
inline bool AssignUtf8(std::string& out, const char16_t* text, std::size_t length) noexcept {
#if defined(__cpp_exceptions)
  try {
    out.clear();
    AppendUtf8(out, text, length);
  } catch (...) {
    out.clear();
    return false;
  }
#else
  out.clear();
  AppendUtf8(out, text, length);
#endif
  return true;
}

constexpr ZyrLogSeverity SeverityValue(ZyrLogSeverity severity) noexcept { return severity; }
constexpr ZyrLogSeverity SeverityValue(Severity severity) noexcept {
  return static_cast<ZyrLogSeverity>(severity);
}

struct LoggerAccess;

}  // namespace impl

// ---------------------------------------------------------------------------
// A named logger. Copies share the log object with the handle that made
// them: the object lives until the handle and its last Logger are gone, so a
// Logger is never left pointing at a released log. A default Logger, or one
// whose name was refused, writes nothing; the calls through the latter count
// as failed calls of its handle, with ZYR_E_NOT_INITIALIZED.
class Logger {
 public:
  Logger() noexcept = default;
  Logger(const Logger& other) noexcept
      : threshold_(other.threshold_), raw_(other.raw_), shared_(other.shared_), status_(other.status_) {
    if (shared_) shared_->Acquire();
  }
  Logger(Logger&& other) noexcept
      : threshold_(std::exchange(other.threshold_, &impl::kNoLoggerThreshold)),
        raw_(std::exchange(other.raw_, nullptr)),
        shared_(std::exchange(other.shared_, nullptr)),
        status_(std::exchange(other.status_, ZYR_E_NOT_INITIALIZED)) {}
  Logger& operator=(Logger other) noexcept {
    std::swap(threshold_, other.threshold_);
    std::swap(raw_, other.raw_);
    std::swap(shared_, other.shared_);
    std::swap(status_, other.status_);
    return *this;
  }
  ~Logger() {
    if (shared_) shared_->Release();
  }

  // One relaxed atomic read: whether a message of this severity is written.
  bool Enabled(ZyrLogSeverity severity) const noexcept {
    return severity >= threshold_->load(std::memory_order_relaxed);
  }
  bool Enabled(Severity severity) const noexcept { return Enabled(static_cast<ZyrLogSeverity>(severity)); }

  // How getting this logger went: ZYR_OK, or why it writes nothing.
  Result Status() const noexcept { return status_; }
  // The contract's logger, for the ZYR_ macros of zyrlog/log.h (typed
  // lists); null when Status failed.
  ZyrLogger* Raw() const noexcept { return raw_; }

 private:
  friend class Log;
  friend struct impl::LoggerAccess;
  Logger(ZyrLogger* raw, impl::Shared* shared, ZyrResult status) noexcept
      : threshold_(raw ? &raw->threshold : &impl::kNoLoggerThreshold), raw_(raw), shared_(shared),
        status_(status) {
    if (shared_) shared_->Acquire();
  }

  // The logger's own threshold, read by Enabled without touching the rest.
  const std::atomic<ZyrLogSeverity>* threshold_ = &impl::kNoLoggerThreshold;
  ZyrLogger* raw_ = nullptr;
  impl::Shared* shared_ = nullptr;
  ZyrResult status_ = ZYR_E_NOT_INITIALIZED;
};

// ---------------------------------------------------------------------------
// The log handle: gets a log object when made, releases it once when the
// handle and its Loggers are gone. Move-only; a moved-from or closed
// handle answers ZYR_E_NOT_INITIALIZED. Every operation may be called from
// any thread, except Close and moves, which must not race with other use
// of the same handle.
class Log {
 public:
  Log() noexcept {
    IZyrLog* log = nullptr;
    status_ = ZyrGetLogObject(&IID_IZyrLog, &log);
    if (ZyrFailed(status_)) return;
    shared_ = new (std::nothrow) impl::Shared;
    if (!shared_) {
      ZyrReleaseLogObject(&IID_IZyrLog, log);
      status_ = ZYR_E_OUT_OF_MEMORY;
      return;
    }
    shared_->log = log;
  }
  ~Log() { Close(); }
  Log(Log&& other) noexcept
      : shared_(std::exchange(other.shared_, nullptr)),
        status_(std::exchange(other.status_, ZYR_E_NOT_INITIALIZED)),
        workerStarted_(other.workerStarted_.exchange(false)) {}
  Log& operator=(Log&& other) noexcept {
    if (this != &other) {
      Close();
      shared_ = std::exchange(other.shared_, nullptr);
      status_ = std::exchange(other.status_, ZYR_E_NOT_INITIALIZED);
      workerStarted_ = other.workerStarted_.exchange(false);
    }
    return *this;
  }
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  // ZYR_OK while the handle holds a log object; else why it does not.
  Result Status() const noexcept { return status_; }

  // Configuration. A file loaded here is watched and taken up again by
  // itself when it changes. Relative names are looked up in the
  // configuration folder (SetFolders), else the current folder.
  Result LoadConfigFile(std::string_view path) noexcept {
    return WithText(path, [](IZyrLog* log, const char16_t* text) { return log->LoadConfigFile(text); });
  }
  Result LoadConfigText(std::string_view text) noexcept {
    return WithText(text, [](IZyrLog* log, const char16_t* t) { return log->LoadConfigText(t); });
  }
  Result SaveConfigFile(std::string_view path, bool protect = false) noexcept {
    return WithText(path, [protect](IZyrLog* log, const char16_t* text) {
      return log->SaveConfigFile(text, protect ? 1 : 0);
    });
  }
  // The configuration as it stands, as text.
  Result GetConfigText(std::string& text) noexcept {
    if (!shared_) return status_;
    std::uint64_t needed = 0;
    char16_t none[1];
    ZyrResult r = shared_->log->GetConfigText(none, 0, &needed);
    if (ZyrSucceeded(r)) text.clear();
    // The configuration may grow between the two calls: ask again.
    for (int attempt = 0; r == ZYR_E_BUFFER_TOO_SMALL && attempt < 8; ++attempt) {
      char16_t* buffer = new (std::nothrow) char16_t[needed];
      if (!buffer) return ZYR_E_OUT_OF_MEMORY;
      r = shared_->log->GetConfigText(buffer, needed - 1, &needed);
      if (ZyrSucceeded(r) && !impl::AssignUtf8(text, buffer, needed - 1)) r = ZYR_E_OUT_OF_MEMORY;
      delete[] buffer;
    }
    return r;
  }
  // Drops every configuration loaded and goes back to the built-in one.
  Result ResetConfig() noexcept { return shared_ ? shared_->log->ResetConfig() : status_; }
  // Where relative configuration and log file names are found. An empty
  // configFolder leaves it as it is; an empty logFolder means the default
  // log folder. The first log folder that takes effect stays.
  Result SetFolders(std::string_view configFolder, std::string_view logFolder = {}) noexcept {
    if (!shared_) return status_;
    impl::Utf16 config(configFolder), logs(logFolder);
    if (ZyrFailed(config.Status())) return config.Status();
    if (ZyrFailed(logs.Status())) return logs.Status();
    return shared_->log->SetFolders(configFolder.empty() ? nullptr : config.Text(),
                                    logFolder.empty() ? nullptr : logs.Text(), 0);
  }
  // Writes out what is queued and closes every appender's file; the next
  // line opens it again (for log rotation by an outside tool).
  Result Flush() noexcept { return shared_ ? shared_->log->Flush() : status_; }

  // The worker: one thread of the process writes every line; callers only
  // queue. It serves the whole process, every handle included.
  Result StartWorker() noexcept {
    if (!shared_) return status_;
    ZyrResult r = shared_->log->StartDispatcher();
    if (ZyrSucceeded(r)) workerStarted_.store(true);
    return r;
  }
  // Writes out everything queued and stops the worker.
  void StopWorker() noexcept {
    if (shared_) shared_->log->StopDispatcher();
    workerStarted_.store(false);
  }

  // The logger of that name, made with its ancestors if need be ("a.b.c").
  // An empty name or "root" is the root logger. A refused name (a blank in
  // it, malformed UTF-8) gives a Logger whose Status says why.
  Logger GetLogger(std::string_view name) const noexcept {
    if (!shared_) return Logger(nullptr, nullptr, status_);
    impl::Utf16 wide(name);
    if (ZyrFailed(wide.Status())) return Logger(nullptr, shared_, wide.Status());
    ZyrLogger* raw = nullptr;
    ZyrResult r = shared_->log->GetLogger(&raw, wide.Text());
    if (ZyrFailed(r) || !raw) return Logger(nullptr, shared_, ZyrFailed(r) ? r : ZYR_E_OBJECT_NOT_FOUND);
    return Logger(raw, shared_, ZYR_OK);
  }

  // Log calls through this handle's Loggers that answered a failure: on
  // the direct road the appender's error as a warning, on the worker's road
  // the warning of a failure the worker met, given to the next call.
  std::uint64_t FailedCalls() const noexcept {
    return shared_ ? shared_->failedCalls.load(std::memory_order_relaxed) : 0;
  }
  Result LastFailure() const noexcept {
    return shared_ ? Result(shared_->lastFailure.load(std::memory_order_relaxed)) : Result();
  }

  // Stops the worker if this handle started it and gives up the handle's
  // share of the log object. Closing twice does nothing more.
  void Close() noexcept {
    if (!shared_) return;
    if (workerStarted_.load()) StopWorker();
    std::exchange(shared_, nullptr)->Release();
    status_ = ZYR_E_NOT_INITIALIZED;
  }

  // The contract's interface beneath, for what the front door does not
  // offer (the private channel, product folders); valid while the handle is.
  IZyrLog* Raw() const noexcept { return shared_ ? shared_->log : nullptr; }

 private:
  template <class Call>
  Result WithText(std::string_view text, Call call) noexcept {
    if (!shared_) return status_;
    impl::Utf16 wide(text);
    if (ZyrFailed(wide.Status())) return wide.Status();
    return call(shared_->log, wide.Text());
  }

  impl::Shared* shared_ = nullptr;
  ZyrResult status_ = ZYR_E_NOT_INITIALIZED;
  std::atomic<bool> workerStarted_{false};
};

// Reads every configuration file loaded in the process again, at once
// (say, on SIGHUP); changed files are otherwise taken up by themselves.
inline Result ReloadConfig() noexcept { return ZyrLogLibraryReloadConfig(); }

namespace impl {

struct LoggerAccess {
  static ZyrLogger* Raw(const Logger& logger) noexcept { return logger.raw_; }
  static void Failed(const Logger& logger, ZyrResult r) noexcept {
    if (logger.shared_) logger.shared_->CountFailure(r);
  }
};

// The call behind the macros, above the threshold: the slots on the stack,
// the format from static storage, one call of the logger.
template <class L, class... V>
inline void Emit(const Logger& target, ZyrLogSeverity severity, const char16_t* file,
                 std::uint32_t line, const V&... values) {
  using T = Translation<L, std::decay_t<V>...>;
  Refuse<T::kPlan.error, T::kPlan.placeholder, T::kPlan.argument>();
  if constexpr (T::kOk) {
    ZyrLogger* raw = LoggerAccess::Raw(target);
    if (!raw) [[unlikely]]
      return LoggerAccess::Failed(target, ZYR_E_NOT_INITIALIZED);
    ZyrResult r;
    if constexpr (sizeof...(V) == 0) {
      r = raw->Log(severity, T::kText.data(), file, line, 0, 0, 0, 0, nullptr);
    } else {
      std::uint64_t slots[T::kSlots];
      T::Pack(slots, values...);
      r = raw->Log(severity, T::kText.data(), file, line, 0, 0, 0, 0, slots);
    }
    if (ZyrFailed(r)) [[unlikely]]
      LoggerAccess::Failed(target, r);
  }
}

// Arguments are turned into what they log as in the argument list of Emit,
// so that values a Loggable makes live until the call has returned.
template <class L, class... A>
inline void Write(const Logger& target, ZyrLogSeverity severity, L, const char16_t* file,
                  std::uint32_t line, A&&... args) {
  Emit<L>(target, severity, file, line, ValueOf<std::remove_cvref_t<A>>(args)...);
}

}  // namespace impl
}  // namespace zyrlog

// ---------------------------------------------------------------------------
// The logging macros. The format must be a UTF-8 literal; the arguments are
// evaluated only when the severity passes the logger's threshold.

#ifndef ZYRLOG_FILE
#define ZYRLOG_FILE (u"" __FILE__)
#endif

#define ZYRLOG_LOG(logger, severity, format, ...)                                             \
  do {                                                                                        \
    const ::zyrlog::Logger& zyrlogTarget_ = (logger);                                         \
    const ::ZyrLogSeverity zyrlogSeverity_ = ::zyrlog::impl::SeverityValue(severity);         \
    if (zyrlogTarget_.Enabled(zyrlogSeverity_))                                               \
      ::zyrlog::impl::Write(                                                                  \
          zyrlogTarget_, zyrlogSeverity_, [] { return ::zyrlog::impl::Literal(format); },     \
          ZYRLOG_FILE, __LINE__ __VA_OPT__(, ) __VA_ARGS__);                                  \
  } while (0)

#define ZYRLOG_DEBUG(logger, ...) ZYRLOG_LOG(logger, ZYR_SEVERITY_DEBUG, __VA_ARGS__)
#define ZYRLOG_DETAIL(logger, ...) ZYRLOG_LOG(logger, ZYR_SEVERITY_DETAIL, __VA_ARGS__)
#define ZYRLOG_INFO(logger, ...) ZYRLOG_LOG(logger, ZYR_SEVERITY_INFO, __VA_ARGS__)
#define ZYRLOG_WARN(logger, ...) ZYRLOG_LOG(logger, ZYR_SEVERITY_WARN, __VA_ARGS__)
#define ZYRLOG_ERROR(logger, ...) ZYRLOG_LOG(logger, ZYR_SEVERITY_ERROR, __VA_ARGS__)
#define ZYRLOG_FATAL(logger, ...) ZYRLOG_LOG(logger, ZYR_SEVERITY_FATAL, __VA_ARGS__)

#endif
