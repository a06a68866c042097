#include "engine/manager.h"

#include <new>

#include "base/file.h"
#include "base/memory.h"
#include "base/path.h"
#include "engine/builder.h"
#include "config/reader.h"
#include "engine/dispatcher.h"

namespace {
ZyrBasLazyHolder g_managerHolder;
std::atomic<std::uint64_t> g_created{0};
std::atomic<std::uint64_t> g_destroyed{0};

// The life lock: held while a manager is made or taken down, and by a fork
// from before to after, outermost of all the library's locks. Made at the
// first need, never destroyed.
ZyrBasSpinLock g_lifeLockStart;
alignas(ZyrBasCriticalSection) unsigned char g_lifeLockStorage[sizeof(ZyrBasCriticalSection)];
std::atomic<ZyrBasCriticalSection*> g_lifeLock{nullptr};
// Every manager that lives; usually one, two while a new one comes up as
// the last reference to the old goes. Under the life lock.
ZyrLogManager* g_live = nullptr;

ZyrBasCriticalSection* LifeLock() {
  ZyrBasCriticalSection* cs = g_lifeLock.load(std::memory_order_acquire);
  if (cs) return cs;
  ZyrBasSpinGuard guard(g_lifeLockStart);
  cs = g_lifeLock.load(std::memory_order_relaxed);
  if (cs) return cs;
  cs = new (g_lifeLockStorage) ZyrBasCriticalSection();
  if (ZyrFailed(cs->Create())) return nullptr;
  g_lifeLock.store(cs, std::memory_order_release);
  return cs;
}

// A guard on the life lock that tolerates a lock that could not be made.
class LifeGuard {
 public:
  LifeGuard() : cs_(LifeLock()) {
    if (cs_) cs_->Enter();
  }
  ~LifeGuard() {
    if (cs_) cs_->Leave();
  }
  LifeGuard(const LifeGuard&) = delete;
  LifeGuard& operator=(const LifeGuard&) = delete;
  bool Held() const { return cs_ != nullptr; }

 private:
  ZyrBasCriticalSection* cs_;
};
}  // namespace

// ---------------------------------------------------------------------------
// Hierarchy: the engine entry of every event.

ZyrResult ZyrLogHierarchy::Dispatch(ZyrLoggerNode* logger, const ZyrLogEventSource& source) {
  return dispatcher->Dispatch(logger, source);
}

// Never waits: the request is handed over and collected at a later tick.
ZyrResult ZyrLogHierarchy::ReportRolledFile(const char16_t* path) {
  return dispatcher->Housekeeper().CompressRolled(path);
}

ZyrResult ZyrLogHierarchy::WatchFolder(const char16_t* folder) {
  return dispatcher->WatchFolder(folder);
}

// ---------------------------------------------------------------------------
// Life cycle

ZyrResult ZyrLogManager::Acquire(ZyrLogManager** manager) {
  void* object = nullptr;
  ZyrResult r = g_managerHolder.Acquire(&ZyrLogManager::Start, &ZyrLogManager::DestroyObject, &object);
  if (ZyrSucceeded(r)) *manager = static_cast<ZyrLogManager*>(object);
  return r;
}

void ZyrLogManager::Release() { g_managerHolder.Release(this, &ZyrLogManager::DestroyObject); }

void ZyrLogManager::DestroyObject(void* object) { static_cast<ZyrLogManager*>(object)->Destroy(1); }

void ZyrLogManager::Destroy(std::uint32_t flags) {
  this->~ZyrLogManager();
  if (flags & 1) ZyrBasFree(this);
}

ZyrResult ZyrLogManager::Start(void** object) {
  LifeGuard life;
  if (!life.Held()) return ZYR_E_OUT_OF_MEMORY;
  ZyrLogManager* m = ZyrNew<ZyrLogManager>();
  if (!m) return ZYR_E_OUT_OF_MEMORY;
  ZyrResult r = m->lock_.Create();
  if (ZyrSucceeded(r)) {
    ZyrLoggerNode* root = ZyrNew<ZyrLoggerNode>();
    if (!root) r = ZYR_E_OUT_OF_MEMORY;
    if (ZyrSucceeded(r)) {
      m->hierarchy_.root = root;
      r = root->Initialise(u"root", 4, &m->hierarchy_);
    }
  }
  ZyrLoggerNode* notice = nullptr;
  if (ZyrSucceeded(r)) r = m->hierarchy_.FindOrCreate(&notice, u"ASYNCHANDLER", ZYR_LOGGER_PUBLIC);
  if (ZyrSucceeded(r)) {
    m->hierarchy_.dispatcher = ZyrNew<ZyrLogDispatcher>(&ZyrLogManager::ChangeCallback, m, notice);
    if (!m->hierarchy_.dispatcher) r = ZYR_E_OUT_OF_MEMORY;
    else r = m->hierarchy_.dispatcher->Init();
  }
  if (ZyrSucceeded(r)) {
    m->hierarchy_.ready = 1;
    m->started_ = 1;
    r = m->ApplyDefaults();
  }
  if (ZyrFailed(r)) {
    m->Destroy(1);
    return r;
  }
  g_created.fetch_add(1);
  m->nextLive_ = g_live;
  g_live = m;
  *object = m;
  return ZYR_OK;
}

ZyrLogManager::~ZyrLogManager() {
  LifeGuard life;
  for (ZyrLogManager** p = &g_live; *p; p = &(*p)->nextLive_)
    if (*p == this) {
      *p = nextLive_;
      break;
    }
  if (started_) {
    // The worker must have been stopped; a build that finds it running
    // stops it here rather than lose what is queued.
    hierarchy_.dispatcher->Stop();
    hierarchy_.dispatcher->Drain();
    ZyrLoggerNode::CloseTree(hierarchy_.root);
  }
  // The loggers outlive the manager as empty shells: a client that goes on
  // logging through a pointer after its release (from an exit handler, say)
  // is told ZYR_E_NOT_INITIALIZED instead of reading freed memory.
  if (hierarchy_.root) ZyrLoggerNode::RetireTree(hierarchy_.root);
  hierarchy_.root = nullptr;
  appenders_.CloseAndDestroyAll();
  layouts_.DestroyAll();
  ZyrDelete(hierarchy_.dispatcher);
  hierarchy_.dispatcher = nullptr;
  if (started_) g_destroyed.fetch_add(1);
  lock_.Delete();
}

// The defaults, at the start and at the end of ResetConfig: the layout
// "defaultLayout", then the built-in text applied with the default log
// folder. A manager never comes up without a configuration.
//
// Nor does it fail to come up for want of a log folder: a service account
// whose home is missing, or a folder it may not make, must still be able
// to log where its configuration says. The built-in text is then applied
// with the folder that could not be made (empty when no home could be
// found, so that a relative name is read as in any configuration without
// a log folder), and its appender answers each line with its open's
// failure, as any unwritable FileName does.
ZyrResult ZyrLogManager::ApplyDefaults() {
  ZyrLogLayout* layout = nullptr;
  if (layouts_.Find(u"defaultLayout", &layout) == ZYR_E_LAYOUT_NOT_FOUND) {
    ZyrLogStandardLayoutCreator creator;
    ZyrResult r = creator.Create(&layout, u"defaultLayout");
    if (ZyrSucceeded(r)) {
      r = layouts_.Add(layout);
      if (ZyrFailed(r)) layout->Destroy(1);
    }
    if (ZyrFailed(r)) return r;
  }
  ZyrBasString logFolder;
  ZyrResult r = ZyrDefaultLogFolder(logFolder);
  if (r == ZYR_E_OUT_OF_MEMORY) return r;
  ZyrStringReader reader(kZyrBuiltInConfig);
  return LoadConfigReader(reader, logFolder);
}

std::uint64_t ZyrLogManager::TestCreatedCount() { return g_created.load(); }
std::uint64_t ZyrLogManager::TestDestroyedCount() { return g_destroyed.load(); }

// ---------------------------------------------------------------------------
// Loggers

ZyrResult ZyrLogManager::GetLogger(ZyrLogger** logger, const char16_t* name, std::uint32_t mask) {
  ZyrBasLockGuard guard(lock_);
  ZyrLoggerNode* node = nullptr;
  ZyrResult r = hierarchy_.FindOrCreate(&node, name, mask);
  if (ZyrSucceeded(r)) *logger = node;
  return r;
}

ZyrResult ZyrLogManager::FindLogger(ZyrLogger** logger, const char16_t* name, std::uint32_t mask) {
  ZyrBasLockGuard guard(lock_);
  std::size_t length = name ? ZyrBasStrLen(name) : 0;
  std::size_t position;
  ZyrLoggerNode* node = ZyrLoggerNode::FindDeepest(hierarchy_.root, name, length, &position);
  if (ZyrLogIsRootName(name, length) || position == length) {
    node->AddFlags(mask);
    *logger = node;
  }
  return ZYR_OK;
}

ZyrResult ZyrLogManager::Flush() {
  ZyrBasLockGuard guard(lock_);
  hierarchy_.dispatcher->Drain();
  ZyrLoggerNode::CloseTree(hierarchy_.root);
  return ZYR_OK;
}

// ---------------------------------------------------------------------------
// Configuration and dispatcher operations: built with the configuration
// reader, the builder and the dispatcher.

// Root first, then depth first over the children in key order; each logger
// remembers that this pass holds its lock, so that a logger made during the
// pass (unlocked) is passed by on the way back.
void ZyrLogManager::LockTree(ZyrLoggerNode* logger) {
  hierarchy_.treeWanted.store(1, std::memory_order_relaxed);
  ZyrLoggerNode::Walk(
      logger,
      [](ZyrLoggerNode* node) {
        node->Lock().Enter();
        node->SetTreeLocked(true);
        return true;
      },
      [](ZyrLoggerNode*) {});
  hierarchy_.treeWanted.store(0, std::memory_order_relaxed);
}

void ZyrLogManager::UnlockTree(ZyrLoggerNode* logger) {
  ZyrLoggerNode::Walk(
      logger, [](ZyrLoggerNode*) { return true; },
      [](ZyrLoggerNode* node) {
        if (node->TreeLocked()) {
          node->PublishAppenderCount();  // the lists are final now
          node->SetTreeLocked(false);
          node->Lock().Leave();
        }
      });
}

ZyrResult ZyrLogManager::ApplyDocument(const ZyrCfgDocument& document, const ZyrBasString& logFolder) {
  ZyrBasLockGuard guard(lock_);
  LockTree(hierarchy_.root);
  // No rollback: what was built before a failure stays in effect.
  ZyrResult r = ZyrCfgBuild(*this, document_, document, logFolder);
  UnlockTree(hierarchy_.root);
  return r;
}

ZyrResult ZyrLogManager::LoadConfigReader(ZyrTextStream& reader, const ZyrBasString& logFolder) {
  ZyrCfgDocument document;
  ZyrResult r = document.Load(reader);
  if (ZyrFailed(r)) return r;
  return ApplyDocument(document, logFolder);
}

ZyrResult ZyrLogManager::ResetConfig() {
  ZyrBasLockGuard guard(lock_);
  hierarchy_.dispatcher->Drain();
  ZyrLoggerNode::CloseTree(hierarchy_.root);
  ZyrLoggerNode::ResetTree(hierarchy_.root);
  document_.sections.Clear();
  appenders_.CloseAndDestroyAll();
  layouts_.DestroyAll();
  return ApplyDefaults();
}

ZyrResult ZyrLogManager::LoadFromFile(const char16_t* fileName, const ZyrBasString& configFolder,
                                      const ZyrBasString& logFolder) {
  ZyrCfgSource source;
  ZyrResult r = ZyrCfgResolveFileName(source.fullPath, fileName, configFolder);
  if (ZyrFailed(r)) return r;
  // Opened before anything is remembered: a file that exists but cannot be
  // opened, or is not trusted, fails the load and leaves no entry among the
  // sources.
  ZyrBasFile file;
  r = ZyrCfgDocument::OpenFile(file, source.fullPath.Text());
  if (ZyrFailed(r)) return r;
  ZyrBasDirEntry info;
  r = file.Query(&info);
  if (ZyrFailed(r)) return r;
  source.lastWrite = static_cast<std::uint64_t>(info.lastWriteTime);
  // The rest works on its own copy of the path: once the lock is released,
  // a load on another thread may move or free the entry in `sources_`.
  ZyrBasString fullPath;
  r = fullPath.Assign(source.fullPath);
  if (ZyrSucceeded(r)) r = source.fileName.Assign(fileName);
  if (ZyrSucceeded(r)) r = source.logFolder.Assign(logFolder);
  if (ZyrFailed(r)) return r;
  {
    // The entry stands before the file is parsed, so that a file that turns
    // out useless is still re-read when it changes.
    ZyrBasLockGuard guard(lock_);
    (void)sources_.Remove(fileName);
    r = sources_.Insert(fileName, ZYR_TERMINATED, static_cast<ZyrCfgSource&&>(source));
    if (ZyrFailed(r)) return r;
  }
  ZyrCfgDocument document;
  r = document.LoadOpened(file);
  file.Close();
  if (ZyrFailed(r)) return r;
  r = ApplyDocument(document, logFolder);
  if (ZyrFailed(r)) return r;
  ZyrBasString folder;
  if (ZyrSucceeded(ZyrBasPathDirectory(folder, fullPath.Text(), fullPath.Length())))
    (void)hierarchy_.WatchFolder(folder.Text());
  return ZYR_OK;
}

ZyrResult ZyrLogManager::LoadConfigFile(const char16_t* fileName, const ZyrBasString& configFolder,
                                        const ZyrBasString& logFolder) {
  {
    ZyrBasLockGuard guard(lock_);
    if (!privateConfigLoaded_) {
      // A missing private file is the normal case; nothing of this attempt
      // reaches the caller, and it is made once per manager.
      privateConfigLoaded_ = 1;
      ZyrBasString defaultFolder, privateFolder;
      if (ZyrSucceeded(ZyrDefaultLogFolder(defaultFolder)) &&
          ZyrSucceeded(ZyrPrivateConfigFolder(privateFolder)))
        (void)LoadFromFile(kZyrPrivateConfigName, privateFolder, defaultFolder);
    }
  }
  return LoadFromFile(fileName, configFolder, logFolder);
}

ZyrResult ZyrLogManager::ReloadConfig() {
  ZyrBasNameMap<ZyrCfgSource> copy;
  {
    ZyrBasLockGuard guard(lock_);
    for (auto& e : sources_) {
      ZyrCfgSource s;
      s.lastWrite = e.value.lastWrite;
      ZyrResult r = s.fileName.Assign(e.value.fileName);
      if (ZyrSucceeded(r)) r = s.fullPath.Assign(e.value.fullPath);
      if (ZyrSucceeded(r)) r = s.logFolder.Assign(e.value.logFolder);
      if (ZyrSucceeded(r)) r = copy.Insert(e.name, static_cast<ZyrCfgSource&&>(s));
      if (ZyrFailed(r)) return r;
    }
  }
  // A file that cannot be read or built leaves the others untouched.
  for (auto& e : copy) {
    ZyrCfgDocument document;
    if (ZyrSucceeded(document.LoadFile(e.value.fullPath.Text(), ZYR_CFG_READ_CHANGED)))
      (void)ApplyDocument(document, e.value.logFolder);
  }
  return ZYR_OK;
}

// ---------------------------------------------------------------------------
// Saving: what the living objects hold, collected under the manager's lock
// into a document of its own, then printed without any lock.

namespace {

// A fresh section filled by `fill`, added to the document; a name that is
// taken already gives ZYR_E_SECTION_EXISTS.
template <class Fill>
ZyrResult CollectSection(ZyrCfgDocument& document, Fill fill) {
  ZyrCfgSectionRef section;
  ZyrResult r = ZyrCfgSectionRef::Make(&section);
  if (ZyrSucceeded(r)) r = fill(*section);
  if (ZyrSucceeded(r)) r = document.AddSection(section);
  return r;
}

// The logger, then its children in name order, depth first.
ZyrResult CollectLoggers(ZyrCfgDocument& document, ZyrLoggerNode* logger) {
  ZyrResult r = CollectSection(document, [logger](ZyrCfgSection& s) { return logger->Save(s); });
  for (auto& child : logger->Children()) {
    if (ZyrFailed(r)) break;
    r = CollectLoggers(document, child.value);
  }
  return r;
}

}  // namespace

ZyrResult ZyrLogManager::Collect(ZyrCfgDocument& document) {
  ZyrBasLockGuard guard(lock_);
  ZyrResult r = ZYR_OK;
  for (std::size_t i = 0; i < layouts_.Count() && ZyrSucceeded(r); ++i) {
    ZyrLogLayout* layout = layouts_.At(i);
    r = CollectSection(document, [layout](ZyrCfgSection& s) { return layout->Save(s); });
  }
  for (auto& entry : appenders_.Map()) {
    if (ZyrFailed(r)) break;
    ZyrLogAppender* appender = entry.value;
    r = CollectSection(document, [appender](ZyrCfgSection& s) {
      ZyrBasLockGuard appenderGuard(appender->Lock());
      return appender->WriteConfig(s);
    });
  }
  if (ZyrSucceeded(r)) r = CollectLoggers(document, hierarchy_.root);
  return r;
}

ZyrResult ZyrLogManager::SaveConfigFile(const char16_t* path, bool protect) {
  ZyrCfgDocument document;
  ZyrResult r = Collect(document);
  if (ZyrFailed(r)) return r;
  return document.SaveFile(path, protect);
}

ZyrResult ZyrLogManager::GetConfigText(ZyrBasString& text) {
  ZyrCfgDocument document;
  ZyrResult r = Collect(document);
  if (ZyrFailed(r)) return r;
  ZyrBasString built;
  ZyrStringWriter writer(&built);
  r = document.WriteTo(writer);
  if (ZyrSucceeded(r)) text.Swap(built);
  return r;
}

ZyrResult ZyrLogManager::StartDispatcher() {
  // A worker started now would hold lines that nobody writes once the
  // process ends.
  if (exiting_.load()) return ZYR_E_NOT_INITIALIZED;
  return hierarchy_.dispatcher->Start();
}

void ZyrLogManager::StopDispatcher() { hierarchy_.dispatcher->Stop(); }

void ZyrLogManager::FinishAtExit() {
  exiting_.store(true);
  hierarchy_.dispatcher->Stop();
  (void)Flush();
}

// ---------------------------------------------------------------------------
// Fork

void ZyrLogManager::ForkPrepareOuter() {
  if (ZyrBasCriticalSection* cs = LifeLock()) cs->Enter();
}

void ZyrLogManager::ForkParentOuter() {
  if (ZyrBasCriticalSection* cs = g_lifeLock.load()) cs->Leave();
}

void ZyrLogManager::ForkChildOuter() {
  if (ZyrBasCriticalSection* cs = g_lifeLock.load()) cs->RenewAfterFork();
}

void ZyrLogManager::ForkPrepareInner() {
  for (ZyrLogManager* m = g_live; m; m = m->nextLive_) m->ForkPrepare();
}

void ZyrLogManager::ForkParentInner() {
  for (ZyrLogManager* m = g_live; m; m = m->nextLive_) m->ForkParent();
}

void ZyrLogManager::ForkChildInner() {
  for (ZyrLogManager* m = g_live; m; m = m->nextLive_) m->ForkChild();
}

void ZyrLogManager::ForkPrepare() {
  ZyrLogDispatcher* d = hierarchy_.dispatcher;
  d->ForkPrepareControl();
  lock_.Enter();
  d->ForkPrepareQueue();
  // The walk reads the children lists, which the manager's lock guards.
  ZyrLoggerNode::Walk(
      hierarchy_.root,
      [](ZyrLoggerNode* logger) {
        logger->Lock().Enter();
        return true;
      },
      [](ZyrLoggerNode*) {});
  for (auto& entry : appenders_.Map()) entry.value->Lock().Enter();
  d->Housekeeper().ForkPrepare();
}

void ZyrLogManager::ForkParent() {
  ZyrLogDispatcher* d = hierarchy_.dispatcher;
  d->Housekeeper().ForkParent();
  for (auto& entry : appenders_.Map()) entry.value->Lock().Leave();
  ZyrLoggerNode::Walk(
      hierarchy_.root, [](ZyrLoggerNode*) { return true; },
      [](ZyrLoggerNode* logger) { logger->Lock().Leave(); });
  lock_.Leave();
  d->ForkParent();  // the queue lock, then the control lock
}

void ZyrLogManager::ForkChild() {
  ZyrLogDispatcher* d = hierarchy_.dispatcher;
  d->Housekeeper().ForkChild();
  for (auto& entry : appenders_.Map()) entry.value->Lock().RenewAfterFork();
  ZyrLoggerNode::Walk(
      hierarchy_.root,
      [](ZyrLoggerNode* logger) {
        logger->Lock().RenewAfterFork();
        return true;
      },
      [](ZyrLoggerNode*) {});
  lock_.RenewAfterFork();
  d->ForkChild();  // no worker, the parent's queue dropped, fresh events and locks
}
