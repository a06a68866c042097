#include "engine/logger.h"

#include "base/memory.h"
#include "engine/manager.h"

namespace {
constexpr char16_t kDot = u'.';
}

bool ZyrLogIsRootName(const char16_t* name, std::size_t length) {
  if (!name) return true;
  if (length == ZYR_TERMINATED) length = ZyrBasStrLen(name);
  return length == 0 || ZyrBasCompareNoCaseAscii(name, length, u"root", 4) == 0;
}

ZyrLoggerNode::~ZyrLoggerNode() {
  for (auto& child : children_) child.value->Destroy(1);
  appenders_.Free();
  children_.Free();
  lock_.Delete();
}

void ZyrLoggerNode::Destroy(std::uint32_t flags) {
  this->~ZyrLoggerNode();
  if (flags & 1) ZyrBasFree(this);
}

const char16_t* ZyrLoggerNode::GetName() { return name_.Text(); }

ZyrResult ZyrLoggerNode::Initialise(const char16_t* name, std::size_t length,
                                    ZyrLogHierarchy* hierarchy) {
  if (length == ZYR_TERMINATED) length = ZyrBasStrLen(name);
  for (std::size_t i = 0; i < length; ++i)
    if (name[i] == u' ') return ZYR_E_BAD_LOGGER_NAME;
  ZyrResult r = name_.Assign(name, length);
  if (ZyrSucceeded(r) && !lock_.Exists()) r = lock_.Create();
  if (ZyrFailed(r)) return r;
  threshold.store(ZYR_SEVERITY_INFO);
  hierarchy_ = hierarchy;
  additive_.store(1);
  return ZYR_OK;
}

ZyrLoggerNode* ZyrLoggerNode::FindDeepest(ZyrLoggerNode* start, const char16_t* name,
                                          std::size_t length, std::size_t* position) {
  *position = 0;
  if (ZyrLogIsRootName(name, length)) return start;
  ZyrLoggerNode* current = start;
  std::size_t pos = 0;
  while (pos < length) {
    std::size_t end = pos;
    while (end < length && name[end] != kDot) ++end;
    ZyrLoggerNode** child = current->children_.Find(name + pos, end - pos);
    if (!child) break;
    current = *child;
    pos = end < length ? end + 1 : end;
  }
  *position = pos;
  return current;
}

void ZyrLoggerNode::AddFlags(std::uint32_t mask) {
  std::uint32_t old = flags.load();
  while ((old & mask) != mask && !flags.compare_exchange_weak(old, old | mask)) {
  }
}

ZyrResult ZyrLoggerNode::AddAppender(ZyrLogAppender* appender) {
  ZyrBasLockGuard guard(lock_);
  return appenders_.Append(appender);
}

void ZyrLoggerNode::ClearAppenders() {
  ZyrBasLockGuard guard(lock_);
  appenders_.Clear();
}

void ZyrLoggerNode::SetThreshold(ZyrLogSeverity severity) {
  threshold.store(severity);
  for (auto& child : children_)
    if (child.value->IsAdditive()) child.value->SetThreshold(severity);
}

void ZyrLoggerNode::CloseTree(ZyrLoggerNode* logger) {
  (void)logger->CloseAppenders();
  for (auto& child : logger->children_) CloseTree(child.value);
}

void ZyrLoggerNode::ResetTree(ZyrLoggerNode* logger) {
  ZyrLoggerNode* parent = logger->Parent();
  logger->threshold.store(parent ? parent->ReadThreshold() : ZYR_SEVERITY_INFO);
  logger->additive_.store(1);
  logger->ClearAppenders();
  for (auto& child : logger->children_) ResetTree(child.value);
}

// ---------------------------------------------------------------------------

ZyrResult ZyrLogHierarchy::FindOrCreate(ZyrLoggerNode** logger, const char16_t* name,
                                        std::uint32_t mask) {
  std::size_t length = name ? ZyrBasStrLen(name) : 0;
  std::size_t pos;
  ZyrLoggerNode* current = ZyrLoggerNode::FindDeepest(root, name, length, &pos);
  if (ZyrLogIsRootName(name, length)) pos = length;
  while (pos < length) {
    std::size_t end = pos;
    while (end < length && name[end] != kDot) ++end;
    if (end == pos) {  // empty component: "a..b" is "a.b", ".a" is "a"
      ++pos;
      continue;
    }
    ZyrLoggerNode* child = ZyrNew<ZyrLoggerNode>();
    if (!child) return ZYR_E_OUT_OF_MEMORY;
    ZyrResult r = child->Initialise(name, end, this);
    if (ZyrSucceeded(r)) {
      ZyrLoggerNode* entry = child;
      r = current->children_.Insert(name + pos, end - pos, static_cast<ZyrLoggerNode*&&>(entry));
      // A second logger with the same key ("a..b" after "a.b") is the
      // first one: the tree keeps one entry for a key.
      if (r == ZYR_E_ALREADY_EXISTS) {
        child->Destroy(1);
        child = *current->children_.Find(name + pos, end - pos);
        r = ZYR_OK;
      } else if (ZyrSucceeded(r)) {
        child->parent_.store(current);
        child->threshold.store(current->ReadThreshold());
      }
    }
    if (ZyrFailed(r)) {
      child->Destroy(1);
      return r;
    }
    current = child;
    pos = end < length ? end + 1 : end;
  }
  *logger = current;
  current->AddFlags(mask);
  return ZYR_OK;
}
