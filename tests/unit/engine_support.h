// Test helpers for the engine: a manager held for the test, and an appender
// that records its lines (and can be told to fail).
#ifndef ZYR_TESTS_ENGINE_SUPPORT_H
#define ZYR_TESTS_ENGINE_SUPPORT_H

#include <mutex>
#include <string>
#include <vector>

#include "appender/appender.h"
#include "base/memory.h"
#include "engine/dispatcher.h"
#include "engine/manager.h"
#include "layout/layout.h"
#include "test_support.h"

namespace zyrtest {

class RecordingAppender final : public ZyrLogAppender {
 public:
  ZyrResult WriteText(const char16_t* text, std::size_t length) override {
    std::lock_guard<std::mutex> guard(mutex);
    if (failWith) return failWith;
    lines.emplace_back(text, length);
    return ZYR_OK;
  }
  std::vector<std::u16string> Lines() {
    std::lock_guard<std::mutex> guard(mutex);
    return lines;
  }
  std::mutex mutex;
  std::vector<std::u16string> lines;
  ZyrResult failWith = ZYR_OK;
};

// Holds a manager for the life of a test, with a helper to hang recording
// appenders (bound to "defaultLayout") on loggers.
class EngineFixture {
 public:
  EngineFixture() {
    dir = UsePrivateLocalAppData("engine");
    ZyrLogManager::Acquire(&manager);
  }
  ~EngineFixture() {
    if (manager) {
      manager->StopDispatcher();
      manager->Release();
    }
    RemoveTree(dir);
  }

  ZyrLoggerNode* Logger(const char16_t* name, std::uint32_t mask = 0x19) {
    ZyrLogger* logger = nullptr;
    manager->GetLogger(&logger, name, mask);
    return static_cast<ZyrLoggerNode*>(logger);
  }

  RecordingAppender* Attach(ZyrLoggerNode* logger, const char16_t* name) {
    ZyrLogAppender* found = nullptr;
    RecordingAppender* appender = nullptr;
    if (ZyrSucceeded(manager->Appenders().Find(name, ZyrBasStrLen(name), &found))) {
      appender = static_cast<RecordingAppender*>(found);
    } else {
      appender = ZyrNew<RecordingAppender>();
      appender->Init(name, &manager->Hierarchy());
      ZyrLogLayout* layout = nullptr;
      manager->Layouts().Find(u"defaultLayout", &layout);
      appender->SetLayout(layout);
      manager->Appenders().Insert(appender);
    }
    logger->AddAppender(appender);
    return appender;
  }

  ZyrLogDispatcher& Dispatcher() { return *manager->Hierarchy().dispatcher; }

  ZyrLogManager* manager = nullptr;
  std::string dir;
};

// The message part of a Standard line.
inline std::u16string MessageOf(const std::u16string& line) {
  std::size_t at = line.find(u" MSG:");
  return at == std::u16string::npos ? line : line.substr(at + 5);
}

// Recorded lines apart from the notices of a cut, and the lines that the
// notices say were cut ('QWORD:0x...' is their one argument).
struct LineTally {
  std::size_t lines = 0;
  std::size_t notices = 0;
  std::uint64_t told = 0;
};

inline LineTally TallyLines(const std::vector<std::u16string>& lines) {
  LineTally tally;
  for (const std::u16string& line : lines) {
    std::size_t at = line.find(u"ID:{610B64A8-D676-4CD6-866D-5BE2C66FE3D2}:");
    std::size_t count = line.find(u"'QWORD:0x");
    if (at == std::u16string::npos || count == std::u16string::npos) {
      ++tally.lines;
      continue;
    }
    ++tally.notices;
    tally.told += std::stoull(Narrow(line.substr(count + 9, 16)), nullptr, 16);
  }
  return tally;
}

}  // namespace zyrtest

#endif
