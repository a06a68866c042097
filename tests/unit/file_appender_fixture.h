// A test that makes file appenders through the creator table, with the
// test's private folder as log folder, and writes lines through them.
#ifndef ZYR_TESTS_FILE_APPENDER_FIXTURE_H
#define ZYR_TESTS_FILE_APPENDER_FIXTURE_H

#include <string>
#include <utility>
#include <vector>

#include "appender/appender.h"
#include "base/memory.h"
#include "config/document.h"
#include "records/event.h"
#include "test_support.h"

namespace zyrtest {

class FileAppenderTest : public zyrtest::TempDirTest {
 protected:
  void TearDown() override {
    for (ZyrLogAppender* a : made_) {
      a->Release();
      ZyrDelete(a);
    }
    TempDirTest::TearDown();
  }

  // An appender of `type` made by the creator table with the test folder as
  // log folder, configured from key/value pairs.
  template <class T>
  T* Make(const char16_t* type, std::vector<std::pair<const char16_t*, std::u16string>> keys,
          ZyrResult expected = ZYR_OK, ZyrLogAppenderOwner* owner = nullptr) {
    ZyrBasString typeText, folder;
    typeText.Assign(type);
    folder.Assign(zyrtest::U16(dir_).c_str());
    ZyrLogAppender* made = nullptr;
    EXPECT_EQ(ZyrLogMakeAppender(typeText, folder, owner, u"a", &made), ZYR_OK);
    if (!made) return nullptr;
    made_.push_back(made);
    ZyrCfgSection section;
    section.SetName(u"a");
    section.SetValue(u"AppenderType", type);
    for (auto& [key, value] : keys) section.SetValue(key, value.c_str());
    EXPECT_EQ(made->Reconfigure(section), expected);
    return static_cast<T*>(made);
  }

  static ZyrResult Write(ZyrLogAppender* a, const std::u16string& text) {
    ZyrLogEvent event;
    return a->AppendFormatted(event, text.data(), text.size());
  }

  std::string Path(const std::string& name) const { return P(name); }

  std::vector<ZyrLogAppender*> made_;
};

}  // namespace zyrtest

#endif
