// ZyrLoggerNode: the node of the logger tree behind the public ZyrLogger.
// Dotted names are paths in the tree; "root" is its top. The node lives as
// long as the manager, so the pointers that clients hold stay valid across
// reconfigurations.
#ifndef ZYR_ENGINE_LOGGER_H
#define ZYR_ENGINE_LOGGER_H

#include <atomic>
#include <cstdint>

#include "base/array.h"
#include "base/lock.h"
#include "base/string.h"
#include "zyrlog/zyrlog.h"

class ZyrLogHierarchy;
class ZyrLogAppender;
struct ZyrLogEvent;

class ZyrLoggerNode final : public ZyrLogger {
 public:
  ZyrLoggerNode() = default;

  // The nine operations of the client contract.
  const char16_t* GetName() override;
  ZyrResult Log(ZyrLogSeverity severity, const char16_t* format, const char16_t* fileName,
                std::uint32_t line, std::uint32_t buildNr, std::uint32_t svnRev,
                std::uint32_t product, std::uint32_t scrambleMode,
                const std::uint64_t* arguments) override;
  ZyrResult LogShort(ZyrLogSeverity severity, const char16_t* format, const char16_t* fileName,
                     std::uint32_t line, std::uint32_t buildNr, std::uint32_t svnRev,
                     std::uint32_t scrambleMode, const std::uint64_t* arguments) override;
  ZyrResult LogNumber(ZyrLogSeverity severity, const char16_t* format, const char16_t* fileName,
                      std::uint32_t line, std::uint32_t buildNr, std::uint32_t svnRev,
                      std::uint32_t product, std::uint32_t scrambleMode,
                      const std::uint64_t* arguments) override;
  ZyrResult Configure(ZyrCfgSection& section) override;
  ZyrResult Save(ZyrCfgSection& section) override;
  ZyrResult LogRevision(ZyrLogSeverity severity, const char16_t* format, const char16_t* fileName,
                        std::uint32_t line, std::uint32_t buildNr, const char16_t* revisionText,
                        std::uint32_t product, std::uint32_t scrambleMode,
                        const std::uint64_t* arguments) override;
  ZyrResult LogText(ZyrLogSeverity severity, const char16_t* format, const char16_t* fileName,
                    std::uint32_t line, std::uint32_t buildNr, const char16_t* revisionText,
                    std::uint32_t product, std::uint32_t scrambleMode,
                    const std::uint64_t* arguments) override;
  void Destroy(std::uint32_t flags) override;

  // Engine operations.
  ZyrResult Initialise(const char16_t* name, std::size_t length, ZyrLogHierarchy* hierarchy);
  // The climb of an event: own appenders under the lock, then the parent
  // with no logger lock held, while additive and no appender failed.
  ZyrResult Append(ZyrLogEvent& event);
  ZyrResult AddAppender(ZyrLogAppender* appender);
  void ClearAppenders();
  ZyrResult CloseAppenders();
  // Stores the threshold and hands it down to the additive children.
  void SetThreshold(ZyrLogSeverity severity);
  // Full-barrier reads, as the library reads these fields.
  ZyrLogSeverity ReadThreshold() const { return threshold.load(std::memory_order_seq_cst); }
  bool IsAdditive() const { return additive_.load(std::memory_order_seq_cst) != 0; }
  void SetAdditive(bool value) { additive_.store(value ? 1 : 0); }
  ZyrLoggerNode* Parent() const { return parent_.load(); }
  const ZyrBasString& Name() const { return name_; }
  ZyrBasNameMap<ZyrLoggerNode*>& Children() { return children_; }
  ZyrBasArray<ZyrLogAppender*>& Appenders() { return appenders_; }
  ZyrBasCriticalSection& Lock() { return lock_; }
  void SetTreeLocked(bool locked) { treeLocked_ = locked ? 1 : 0; }
  bool TreeLocked() const { return treeLocked_ != 0; }
  void AddFlags(std::uint32_t mask);

  // Tree walks from a logger.
  static void CloseTree(ZyrLoggerNode* logger);
  static void ResetTree(ZyrLoggerNode* logger);
  // The deepest logger on the path of `name` below `start`; `position`
  // ends at the start of the first component not found (or at the end).
  static ZyrLoggerNode* FindDeepest(ZyrLoggerNode* start, const char16_t* name,
                                    std::size_t length, std::size_t* position);

 private:
  ~ZyrLoggerNode();
  ZyrResult Write(ZyrLogSeverity severity, const char16_t* format, const char16_t* fileName,
                  std::uint32_t line, std::uint32_t buildNr, std::uint32_t svnRev,
                  const char16_t* revisionText, std::uint32_t product,
                  std::uint32_t scrambleMode, const std::uint64_t* arguments);

  ZyrBasString name_;
  ZyrBasCriticalSection lock_;
  std::uint8_t treeLocked_ = 0;
  std::atomic<std::uint32_t> additive_{1};
  std::atomic<ZyrLoggerNode*> parent_{nullptr};
  ZyrBasNameMap<ZyrLoggerNode*> children_;
  ZyrLogHierarchy* hierarchy_ = nullptr;
  ZyrBasArray<ZyrLogAppender*> appenders_;

  friend class ZyrLogHierarchy;
};

// True for a null or empty name and for "root" in any ASCII case.
bool ZyrLogIsRootName(const char16_t* name, std::size_t length);

#endif
