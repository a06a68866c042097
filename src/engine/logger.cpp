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

namespace {

ZyrLogNameBlock* MakeNameBlock(const char16_t* text, std::size_t length) {
  std::size_t bytes;
  if (__builtin_mul_overflow(length, sizeof(char16_t), &bytes) ||
      __builtin_add_overflow(bytes, sizeof(ZyrLogNameBlock), &bytes))
    return nullptr;
  auto* block = static_cast<ZyrLogNameBlock*>(ZyrBasAlloc(bytes));
  if (!block) return nullptr;
  block->refs = 0;
  block->length = length;
  for (std::size_t i = 0; i < length; ++i) block->text[i] = text[i];
  block->text[length] = 0;
  return block;
}

void DropNameBlock(ZyrLogNameBlock* block) {
  if (block && --block->refs == 0) ZyrBasFree(block);
}

}  // namespace

// The children are gone by now: Destroy takes the whole subtree down by a
// walk, deepest first.
ZyrLoggerNode::~ZyrLoggerNode() {
  const char16_t* text = nameText_.load();
  if (text && (!nameBlock_ || text != nameBlock_->text)) ZyrBasFree(const_cast<char16_t*>(text));
  DropNameBlock(nameBlock_);
  appenders_.Free();
  children_.Free();
  lock_.Delete();
}

void ZyrLoggerNode::Destroy(std::uint32_t flags) {
  Walk(
      this, [](ZyrLoggerNode*) { return true; },
      [this](ZyrLoggerNode* logger) {
        if (logger == this) return;
        logger->~ZyrLoggerNode();
        ZyrBasFree(logger);  // children are always made by FindOrCreate
      });
  this->~ZyrLoggerNode();
  if (flags & 1) ZyrBasFree(this);
}

// Without memory for the terminated copy a client gets an empty name, since
// this operation has no way to fail; the writing road reports the failure.
const char16_t* ZyrLoggerNode::GetName() {
  const char16_t* text = NameText();
  return text ? text : u"";
}

const char16_t* ZyrLoggerNode::MakeNameText() {
  if (!nameBlock_) return u"";
  auto* copy = static_cast<char16_t*>(ZyrBasAlloc((nameLength_ + 1) * sizeof(char16_t)));
  if (!copy) return nullptr;
  for (std::size_t i = 0; i < nameLength_; ++i) copy[i] = nameBlock_->text[i];
  copy[nameLength_] = 0;
  // Two threads may ask at once; the first copy stays.
  const char16_t* expected = nullptr;
  if (nameText_.compare_exchange_strong(expected, copy, std::memory_order_acq_rel)) return copy;
  ZyrBasFree(copy);
  return expected;
}

ZyrResult ZyrLoggerNode::Initialise(const char16_t* name, std::size_t length,
                                    ZyrLogHierarchy* hierarchy) {
  if (length == ZYR_TERMINATED) length = ZyrBasStrLen(name);
  for (std::size_t i = 0; i < length; ++i)
    if (name[i] == u' ') return ZYR_E_BAD_LOGGER_NAME;
  ZyrLogNameBlock* block = MakeNameBlock(name, length);
  if (!block) return ZYR_E_OUT_OF_MEMORY;
  return InitialiseShared(block, length, hierarchy);
}

// The caller has checked the name for blanks: FindOrCreate checks each new
// component once, so a deep name costs its length, not its length squared.
ZyrResult ZyrLoggerNode::InitialiseShared(ZyrLogNameBlock* block, std::size_t length,
                                          ZyrLogHierarchy* hierarchy) {
  if (!lock_.Exists()) {
    ZyrResult r = lock_.Create();
    if (ZyrFailed(r)) {
      if (block->refs == 0) ZyrBasFree(block);
      return r;
    }
  }
  ++block->refs;
  DropNameBlock(nameBlock_);
  nameBlock_ = block;
  nameLength_ = length;
  nameText_.store(length == block->length ? block->text : nullptr);
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
  ZyrResult r = appenders_.Append(appender);
  if (ZyrSucceeded(r)) PublishAppenderCount();
  return r;
}

void ZyrLoggerNode::ClearAppenders() {
  ZyrBasLockGuard guard(lock_);
  appenders_.Clear();
}

void ZyrLoggerNode::PublishAppenderCount() {
  appenderCount_.store(static_cast<std::uint32_t>(appenders_.Count()), std::memory_order_relaxed);
}

void ZyrLoggerNode::SetThreshold(ZyrLogSeverity severity) {
  Walk(
      this,
      [this, severity](ZyrLoggerNode* logger) {
        // The walk does not go past a child that is not additive.
        if (logger != this && !logger->IsAdditive()) return false;
        logger->threshold.store(severity);
        return true;
      },
      [](ZyrLoggerNode*) {});
}

void ZyrLoggerNode::CloseTree(ZyrLoggerNode* logger) {
  Walk(
      logger,
      [](ZyrLoggerNode* node) {
        (void)node->CloseAppenders();
        return true;
      },
      [](ZyrLoggerNode*) {});
}

void ZyrLoggerNode::ResetTree(ZyrLoggerNode* logger) {
  Walk(
      logger,
      [](ZyrLoggerNode* node) {
        ZyrLoggerNode* parent = node->Parent();
        node->threshold.store(parent ? parent->ReadThreshold() : ZYR_SEVERITY_INFO);
        node->additive_.store(1);
        node->ClearAppenders();
        return true;
      },
      [](ZyrLoggerNode*) {});
}

namespace {
// The shells of retired loggers, chained through their parent pointers:
// nothing follows a shell's parent, for a shell has no hierarchy to write to.
std::atomic<ZyrLoggerNode*> g_retired{nullptr};
}  // namespace

void ZyrLoggerNode::RetireTree(ZyrLoggerNode* top) {
  ZyrLoggerNode* first = nullptr;
  ZyrLoggerNode* last = nullptr;
  Walk(
      top, [](ZyrLoggerNode*) { return true; },
      [&](ZyrLoggerNode* node) {
        node->threshold.store(ZYR_SEVERITY_OFF);
        node->hierarchy_ = nullptr;
        node->appenderCount_.store(0);
        node->appenders_.Free();
        node->children_.Free();  // the walk is past this node's children
        const char16_t* text = node->nameText_.load();
        if (text && (!node->nameBlock_ || text != node->nameBlock_->text))
          ZyrBasFree(const_cast<char16_t*>(text));
        DropNameBlock(node->nameBlock_);
        node->nameBlock_ = nullptr;
        node->nameLength_ = 0;
        node->nameText_.store(u"");
        // The lock stays: a mutex is freed by nothing but the process's end.
        node->parent_.store(first);
        if (!first) last = node;
        first = node;
      });
  if (!first) return;
  ZyrLoggerNode* head = g_retired.load();
  do last->parent_.store(head);
  while (!g_retired.compare_exchange_weak(head, first));
}

void ZyrLoggerNode::FreeRetired() {
  for (ZyrLoggerNode* node = g_retired.exchange(nullptr); node;) {
    ZyrLoggerNode* next = node->parent_.load();
    node->nameText_.store(nullptr);  // the shell's empty name is no allocation
    node->~ZyrLoggerNode();
    ZyrBasFree(node);
    node = next;
  }
}

// ---------------------------------------------------------------------------

ZyrResult ZyrLogHierarchy::FindOrCreate(ZyrLoggerNode** logger, const char16_t* name,
                                        std::uint32_t mask) {
  std::size_t length = name ? ZyrBasStrLen(name) : 0;
  std::size_t pos;
  ZyrLoggerNode* current = ZyrLoggerNode::FindDeepest(root, name, length, &pos);
  ZyrLogNameBlock* block = nullptr;
  if (ZyrLogIsRootName(name, length)) pos = length;
  while (pos < length) {
    std::size_t end = pos;
    while (end < length && name[end] != kDot) ++end;
    if (end == pos) {  // empty component: "a..b" is "a.b", ".a" is "a"
      ++pos;
      continue;
    }
    for (std::size_t i = pos; i < end; ++i) {
      if (name[i] == u' ') {
        DropNameBlock(block);
        return ZYR_E_BAD_LOGGER_NAME;
      }
    }
    if (!block) {
      // One text for every logger that this call makes.
      block = MakeNameBlock(name, length);
      if (!block) return ZYR_E_OUT_OF_MEMORY;
      ++block->refs;  // held by this call until its end
    }
    ZyrLoggerNode* child = ZyrNew<ZyrLoggerNode>();
    if (!child) {
      DropNameBlock(block);
      return ZYR_E_OUT_OF_MEMORY;
    }
    ZyrResult r = child->InitialiseShared(block, end, this);
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
      DropNameBlock(block);
      return r;
    }
    current = child;
    pos = end < length ? end + 1 : end;
  }
  DropNameBlock(block);
  *logger = current;
  current->AddFlags(mask);
  return ZYR_OK;
}
