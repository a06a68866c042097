// quill, the reference for an asynchronous caller, as a contender only: its
// callers copy the arguments into a per-thread queue and its backend thread
// formats and writes. Used through its public headers, with its own
// defaults (unbounded per-thread queues, one backend thread), the same
// message and a line of the same shape as the other rows.
#include "contenders.h"

#ifdef ZYR_COMPARE_QUILL

#include <unistd.h>

#include "quill/Backend.h"
#include "quill/Frontend.h"
#include "quill/LogMacros.h"
#include "quill/Logger.h"
#include "quill/sinks/RotatingFileSink.h"

namespace {

class QuillContender final : public Contender {
 public:
  ~QuillContender() override { Close(); }

  bool Setup(const RunConfig& config, std::string* why) override {
    paced_ = config.paced;
    try {
      quill::BackendOptions options;
      // Its notes of queue growth would go into the table's output.
      options.error_notifier = [](const std::string&) {};
      quill::Backend::start(options);
      started_ = true;
      quill::RotatingFileSinkConfig sinkConfig;
      sinkConfig.set_open_mode('w');
      sinkConfig.set_rotation_max_file_size(kRollSize);
      sinkConfig.set_max_backup_files(kRollFiles);
      auto sink = quill::Frontend::create_or_get_sink<quill::RotatingFileSink>(
          config.folder + "/quill.log", sinkConfig);
      logger_ = quill::Frontend::create_or_get_logger(
          "bench", std::move(sink),
          quill::PatternFormatterOptions{
              "[%(logger)] %(log_level) %(time) " + config.host +
                  " PID:%(process_id) THID:%(thread_id) ID:%(file_name):%(line_number).0.0.0 "
                  "MSG:%(message)",
              "%Y-%m-%d %H:%M:%S,%Qms", quill::Timezone::GmtTime});
      logger_->set_log_level(quill::LogLevel::Info);
    } catch (const std::exception& e) {
      *why = std::string("quill: ") + e.what();
      return false;
    }
    return true;
  }

  void WarmUp(std::uint32_t worker, std::uint32_t count) override {
    for (std::uint32_t i = 0; i < count; ++i)
      LOG_INFO(logger_, "request {} from warm-up {} for {}", i, worker, "client-7");
  }

  void Write(std::uint32_t worker, std::uint32_t count, std::uint32_t* latencies) override {
    quill::Logger* logger = logger_;
    Loop(count, latencies, paced_, [&](std::uint32_t s) {
      LOG_INFO(logger, "request {} from worker {} for {}", s, worker, "client-7");
    });
  }

  // Returns when the backend has written and flushed every line so far.
  void Complete() override {
    if (logger_) logger_->flush_log();
  }

  void Close() override {
    if (started_) quill::Backend::stop();
    started_ = false;
    logger_ = nullptr;
  }

 private:
  bool paced_ = false;
  bool started_ = false;
  quill::Logger* logger_ = nullptr;
};

}  // namespace

std::unique_ptr<Contender> MakeQuillContender() { return std::make_unique<QuillContender>(); }

#else

namespace {

class Unavailable final : public Contender {
 public:
  bool Setup(const RunConfig&, std::string* why) override {
    *why = "the quill headers were not found beside the repository (../shared/peers/quill)";
    return false;
  }
  void WarmUp(std::uint32_t, std::uint32_t) override {}
  void Write(std::uint32_t, std::uint32_t, std::uint32_t*) override {}
  void Complete() override {}
  void Close() override {}
};

}  // namespace

std::unique_ptr<Contender> MakeQuillContender() { return std::make_unique<Unavailable>(); }

#endif
