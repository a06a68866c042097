#include "client/framework_client.h"

#include "base/folders.h"
#include "base/memory.h"
#include "base/path.h"

namespace {

constexpr char16_t kModule[] = u"zyrloga";

// ---------------------------------------------------------------------------
// The log that writes nothing.

class NullLogger final : public ZyrLogger {
 public:
  NullLogger() { threshold.store(ZYR_SEVERITY_OFF, std::memory_order_relaxed); }
  const char16_t* GetName() override { return u""; }
  ZyrResult Log(ZyrLogSeverity, const char16_t*, const char16_t*, std::uint32_t, std::uint32_t, std::uint32_t,
                std::uint32_t, std::uint32_t, const std::uint64_t*) override {
    return ZYR_OK;
  }
  ZyrResult LogShort(ZyrLogSeverity, const char16_t*, const char16_t*, std::uint32_t, std::uint32_t, std::uint32_t,
                     std::uint32_t, const std::uint64_t*) override {
    return ZYR_OK;
  }
  ZyrResult LogNumber(ZyrLogSeverity, const char16_t*, const char16_t*, std::uint32_t, std::uint32_t, std::uint32_t,
                      std::uint32_t, std::uint32_t, const std::uint64_t*) override {
    return ZYR_OK;
  }
  ZyrResult Configure(ZyrCfgSection&) override { return ZYR_E_NOT_SUPPORTED; }
  ZyrResult Save(ZyrCfgSection&) override { return ZYR_E_NOT_SUPPORTED; }
  ZyrResult LogRevision(ZyrLogSeverity, const char16_t*, const char16_t*, std::uint32_t, std::uint32_t,
                        const char16_t*, std::uint32_t, std::uint32_t, const std::uint64_t*) override {
    return ZYR_OK;
  }
  ZyrResult LogText(ZyrLogSeverity, const char16_t*, const char16_t*, std::uint32_t, std::uint32_t, const char16_t*,
                    std::uint32_t, std::uint32_t, const std::uint64_t*) override {
    return ZYR_OK;
  }
  void Destroy(std::uint32_t) override {}
};

NullLogger g_nullLogger;

// Loggers are the one null logger; configuration is taken and kept
// nowhere; questions that want data have none to give.
class NullLog final : public IZyrLog {
 public:
  ZyrResult GetLogger(ZyrLogger** logger, const char16_t*) override { return Give(logger); }
  ZyrResult FindLogger(ZyrLogger** logger, const char16_t*) override { return Give(logger); }
  std::uint8_t IsConfigured() override { return 0; }
  ZyrResult SetConfigFolder(const char16_t*, void*, std::uint8_t) override { return ZYR_OK; }
  ZyrResult GetConfigFolder(char16_t*, std::uint64_t, std::uint64_t*) override { return ZYR_E_NOT_SUPPORTED; }
  std::uint8_t IsSupported() override { return 0; }
  ZyrResult LoadConfigFile(const char16_t*) override { return ZYR_OK; }
  ZyrResult LoadConfigText(const char16_t*) override { return ZYR_OK; }
  ZyrResult SaveConfigFile(const char16_t*, std::uint8_t) override { return ZYR_E_NOT_SUPPORTED; }
  ZyrResult GetConfigText(char16_t*, std::uint64_t, std::uint64_t*) override { return ZYR_E_NOT_SUPPORTED; }
  ZyrResult ResetConfig() override { return ZYR_OK; }
  ZyrResult Reserved11() override { return ZYR_E_NOT_SUPPORTED; }
  ZyrResult GetPrivateLogger(ZyrLogger** logger, const char16_t*) override { return Give(logger); }
  ZyrResult FindPrivateLogger(ZyrLogger** logger, const char16_t*) override { return Give(logger); }
  std::uint8_t IsPrivateConfigured() override { return 0; }
  ZyrResult SetPrivateConfigFolder(const char16_t*, void*, std::uint8_t) override { return ZYR_OK; }
  ZyrResult GetPrivateConfigFolder(char16_t*, std::uint64_t, std::uint64_t*) override { return ZYR_E_NOT_SUPPORTED; }
  std::uint8_t IsPrivateSupported() override { return 0; }
  ZyrResult LoadPrivateConfigFile(const char16_t*) override { return ZYR_OK; }
  ZyrResult LoadPrivateConfigText(const char16_t*) override { return ZYR_OK; }
  ZyrResult SavePrivateConfigFile(const char16_t*, std::uint8_t) override { return ZYR_E_NOT_SUPPORTED; }
  ZyrResult GetPrivateConfigText(char16_t*, std::uint64_t, std::uint64_t*) override { return ZYR_E_NOT_SUPPORTED; }
  ZyrResult ResetPrivateConfig() override { return ZYR_OK; }
  ZyrResult Reserved23() override { return ZYR_E_NOT_SUPPORTED; }
  ZyrResult ReconfigureLoadConfigFile(const char16_t*) override { return ZYR_OK; }
  ZyrResult LoadConfigTextOrNothing(const char16_t*) override { return ZYR_OK; }
  ZyrResult ReconfigureLoadPrivateConfigFile(const char16_t*) override { return ZYR_OK; }
  ZyrResult LoadPrivateConfigTextOrNothing(const char16_t*) override { return ZYR_OK; }
  void Forbidden28() override {}
  ZyrResult Flush() override { return ZYR_OK; }
  ZyrResult FlushPrivate() override { return ZYR_OK; }
  ZyrResult UseProductFolder() override { return ZYR_OK; }
  ZyrResult UsePrivateProductFolder() override { return ZYR_OK; }
  ZyrResult Reserved33() override { return ZYR_E_NOT_SUPPORTED; }
  ZyrResult Reserved34() override { return ZYR_E_NOT_SUPPORTED; }
  ZyrResult SetFolders(const char16_t*, const char16_t*, std::uint8_t) override { return ZYR_OK; }
  ZyrResult SetPrivateFolders(const char16_t*, const char16_t*, std::uint8_t) override { return ZYR_OK; }
  ZyrResult StartDispatcher() override { return ZYR_OK; }
  void StopDispatcher() override {}

 private:
  static ZyrResult Give(ZyrLogger** logger) {
    if (!logger) return ZYR_E_INVALID_ARGUMENT;
    *logger = &g_nullLogger;
    return ZYR_OK;
  }
};

NullLog g_nullLog;

}  // namespace

IZyrLog* ZyrLogNullLog() { return &g_nullLog; }

// ---------------------------------------------------------------------------

ZyrResult ZyrLogFrameworkClient::SetFolder(const char16_t* folder, bool folderOnly) {
  if (bound_.load(std::memory_order_acquire)) return ZYR_E_INVALID_OPERATION;
  ZyrResult r = folder ? folder_.Assign(folder) : ZYR_OK;
  if (!folder) folder_.Clear();
  if (ZyrSucceeded(r)) folderOnly_ = folderOnly ? 1 : 0;
  return r;
}

ZyrResult ZyrLogFrameworkClient::Bind() {
  if (bound_.load(std::memory_order_acquire) == 0) {
    ZyrBasLightGuard guard(lock_);
    if (bound_.load(std::memory_order_relaxed) == 0) {
      bindResult_ = Attempt();
      bound_.store(1, std::memory_order_release);
    }
  }
  return bindResult_;
}

IZyrLog* ZyrLogFrameworkClient::Log() {
  (void)Bind();
  return log_ ? log_ : ZyrLogNullLog();
}

// The file "zyrloga.so" from the folder given; without one, from the
// install directory of the 2014 product, then from ".".
ZyrResult ZyrLogFrameworkClient::LoadFile() {
  auto loadFrom = [this](const char16_t* folder, std::size_t length) {
    ZyrBasString path;
    ZyrResult r = ZyrBasPathJoin(path, folder, length, kModule);
    if (ZyrSucceeded(r)) r = path.Append(kZyrBasModuleSuffix);
    if (ZyrSucceeded(r)) r = library_.Load(path.Text());
    return r;
  };
  if (folderOnly_) return loadFrom(folder_.Text(), folder_.Length());
  if (folder_.Empty()) {
    ZyrResult r = ZyrBasProductDirectory(ZYR_DIR_INSTALL, folder_, nullptr, u"2014");
    if (r == ZYR_E_OUT_OF_MEMORY) return r;
    if (ZyrFailed(r)) {
      folder_.Clear();
      return loadFrom(u".", 1);
    }
  }
  ZyrResult r = loadFrom(folder_.Text(), folder_.Length());
  if (ZyrFailed(r) && r != ZYR_E_OUT_OF_MEMORY) r = loadFrom(u".", 1);
  return r;
}

ZyrResult ZyrLogFrameworkClient::Attempt() {
  if (!folderOnly_) {
    ZyrResult r = framework_.Create();
    if (ZyrFailed(r)) return r;
    ZyrBasObjectRequest request{u"Framework", u"0", kModule, &IID_IZyrObject};
    void* found = nullptr;
    if (ZyrSucceeded(framework_.GetObject(request, &found))) {
      auto* object = static_cast<IZyrObject*>(found);
      access_ = object->GetLogAccess();
      accessObject_ = object;
      guardedRelease_ = object->GetGuardedRelease();
      log_ = access_->GetLog();
      level_ = 3;
      object->Release();  // the access keeps its own reference
      return ZYR_OK;
    }
    // Any failure of the broker means the framework is not there.
  }
  ZyrResult r = LoadFile();
  if (ZyrFailed(r)) return r;
  if (ZyrFailed(library_.LoadResult())) return library_.LoadResult();
  void* getEntry = nullptr;
  void* releaseEntry = nullptr;
  r = library_.Find("ZyrGetLogObject", &getEntry);
  if (ZyrSucceeded(r)) r = library_.Find("ZyrReleaseLogObject", &releaseEntry);
  if (ZyrFailed(r)) return r;
  auto getLogObject = reinterpret_cast<ZyrResult (*)(const ZyrIid*, IZyrLog**)>(getEntry);
  releaseLogObject_ = reinterpret_cast<ZyrResult (*)(const ZyrIid*, IZyrLog*)>(releaseEntry);
  // The highest level the library grants.
  static const ZyrIid* const kLevels[] = {&IID_IZyrLogLevel3, &IID_IZyrLogLevel2, &IID_IZyrLogLevel1};
  IZyrLog* log = nullptr;
  for (int i = 0; i < 3; ++i) {
    r = getLogObject(kLevels[i], &log);
    if (r == ZYR_E_NOT_SUPPORTED && i < 2) continue;
    if (ZyrFailed(r)) return r;
    log_ = log;
    level_ = static_cast<std::uint32_t>(3 - i);
    return ZYR_OK;
  }
  return r;
}

ZyrLogFrameworkClient::~ZyrLogFrameworkClient() {
  IZyrLog* log = log_;
  log_ = nullptr;
  if (releaseLogObject_) {
    if (log) releaseLogObject_(&IID_IZyrLog, log);
    library_.Unload();
    releaseLogObject_ = nullptr;
  }
  if (access_) {
    guardedRelease_(accessObject_);
    access_ = nullptr;
    accessObject_ = nullptr;
    guardedRelease_ = nullptr;
  }
  folder_.Clear();
  library_.Unload();
  // framework_ goes with the object, after everything it delivered.
}

void ZyrLogFrameworkClient::Destroy(std::uint32_t flags) {
  if (flags & 1) ZyrDelete(this);
  else this->~ZyrLogFrameworkClient();
}
