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

// The text of a name from which loggers were made: every logger made on its
// path holds a prefix of it, so a name of n levels stores its text once and
// not n times. Counted by the loggers that hold it; they change only under
// the manager's lock.
struct ZyrLogNameBlock {
  std::size_t refs;
  std::size_t length;
  char16_t text[1];  // `length` characters and a terminator
};

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
  // Empties the list but not its published count, see appenderCount_.
  void ClearAppenders();
  // Publishes the count of the list; under the lock.
  void PublishAppenderCount();
  ZyrResult CloseAppenders();
  // Stores the threshold and hands it down to the additive children.
  // Under the manager's lock, which guards the children lists.
  void SetThreshold(ZyrLogSeverity severity);
  // Full-barrier reads, as the library reads these fields.
  ZyrLogSeverity ReadThreshold() const { return threshold.load(std::memory_order_seq_cst); }
  bool IsAdditive() const { return additive_.load(std::memory_order_seq_cst) != 0; }
  void SetAdditive(bool value) { additive_.store(value ? 1 : 0); }
  ZyrLoggerNode* Parent() const { return parent_.load(); }
  // The full name: NameData() holds NameLength() characters, not
  // terminated; NameText() is the terminated text, made at the first need
  // for a logger whose name is a shorter prefix of its block (null only
  // without memory for it).
  const char16_t* NameData() const { return nameBlock_ ? nameBlock_->text : u""; }
  std::size_t NameLength() const { return nameLength_; }
  const char16_t* NameText() {
    const char16_t* text = nameText_.load(std::memory_order_acquire);
    return text ? text : MakeNameText();
  }
  ZyrBasNameMap<ZyrLoggerNode*>& Children() { return children_; }
  ZyrBasArray<ZyrLogAppender*>& Appenders() { return appenders_; }
  ZyrBasCriticalSection& Lock() { return lock_; }
  void SetTreeLocked(bool locked) { treeLocked_ = locked ? 1 : 0; }
  bool TreeLocked() const { return treeLocked_ != 0; }
  void AddFlags(std::uint32_t mask);

  // Visits `top` and every logger below it, children in key order:
  // `enter(logger)` before the logger's children (false passes them by,
  // and `leave` too), `leave(logger)` after them; `leave` may destroy the
  // logger it is given. The walk uses no machine stack however deep the
  // tree: the way down is kept in each logger (its place among its
  // children), the way up is the parent pointer. So walks run one at a
  // time, under the manager's lock, and the children maps do not change
  // during one.
  template <class Enter, class Leave>
  static void Walk(ZyrLoggerNode* top, Enter enter, Leave leave);

  // Tree walks from a logger.
  static void CloseTree(ZyrLoggerNode* logger);
  // When the manager goes: every logger below `top`, and `top`, becomes an
  // empty shell that stays in memory, reachable from static storage, until
  // the module goes (FreeRetired). A shell's threshold is OFF, so that a caller's
  // test drops a message before any call, and a call that comes anyway
  // answers ZYR_E_NOT_INITIALIZED: a client that logs through a pointer
  // after its release (a caller's error) must not take the process down.
  // What a shell held (name, children, appender list) is freed; about 200
  // bytes a logger stay.
  static void RetireTree(ZyrLoggerNode* top);
  // Frees the shells, when the module goes: after the exit handlers at the
  // process's end, or at its unloading, after which nothing can call a
  // logger any more.
  static void FreeRetired();
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

  // Shares `block`: the name is its first `length` characters.
  ZyrResult InitialiseShared(ZyrLogNameBlock* block, std::size_t length, ZyrLogHierarchy* hierarchy);
  const char16_t* MakeNameText();

  ZyrLogNameBlock* nameBlock_ = nullptr;  // counted
  std::size_t nameLength_ = 0;
  std::atomic<const char16_t*> nameText_{nullptr};  // the block's text, or an own copy
  std::size_t walkNext_ = 0;  // a walk's place among the children
  ZyrBasCriticalSection lock_;
  std::uint8_t treeLocked_ = 0;
  std::atomic<std::uint32_t> additive_{1};
  std::atomic<ZyrLoggerNode*> parent_{nullptr};
  ZyrBasNameMap<ZyrLoggerNode*> children_;
  ZyrLogHierarchy* hierarchy_ = nullptr;
  ZyrBasArray<ZyrLogAppender*> appenders_;
  // The count of appenders_, readable without the lock: the climb passes a
  // logger that has none without taking its lock. Emptying the list leaves
  // it as it was: a reload empties a list and fills it again under the lock,
  // and a writer that comes in between must wait for the new list, not pass
  // one that is empty only for the moment. The reload publishes the final
  // count as it lets go of the lock (PublishAppenderCount).
  std::atomic<std::uint32_t> appenderCount_{0};

  friend class ZyrLogHierarchy;
};

template <class Enter, class Leave>
void ZyrLoggerNode::Walk(ZyrLoggerNode* top, Enter enter, Leave leave) {
  if (!enter(top)) return;
  top->walkNext_ = 0;
  ZyrLoggerNode* node = top;
  for (;;) {
    if (node->walkNext_ < node->children_.Count()) {
      ZyrLoggerNode* child = node->children_.At(node->walkNext_++).value;
      if (!enter(child)) continue;
      child->walkNext_ = 0;
      node = child;
      continue;
    }
    ZyrLoggerNode* up = node == top ? nullptr : node->Parent();
    leave(node);
    if (!up) return;
    node = up;
  }
}

// True for a null or empty name and for "root" in any ASCII case.
bool ZyrLogIsRootName(const char16_t* name, std::size_t length);

#endif
