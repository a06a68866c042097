// Text that cannot become UTF-8 never costs a line: through every appender
// type and both layouts, each bad byte or lone surrogate is written spelt
// out and the call succeeds.
#include <gtest/gtest.h>
#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "log_object_fixture.h"
#include "zyrlog/zyrlog.h"

namespace {

using zyrtest::U16;

class BadTextTest : public zyrtest::LogObjectTest {
 protected:
  BadTextTest() : LogObjectTest("badtext") {}
};

// Everything the folder's files hold, in name order.
std::string FolderText(const std::string& dir) {
  std::vector<std::string> names;
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* e = readdir(d))
      if (e->d_name[0] != '.' && std::string(e->d_name).find(".lock") == std::string::npos) names.push_back(e->d_name);
    closedir(d);
  }
  std::string all;
  for (const std::string& name : names) all += zyrtest::ReadFile(dir + "/" + name);
  return all;
}

std::uint64_t P(const void* p) { return reinterpret_cast<std::uintptr_t>(p); }

TEST_F(BadTextTest, EveryAppenderAndLayoutWritesTheLineWithItsEscapes) {
  const char16_t lone = 0xd800, lowLone = 0xdfff;
  const std::u16string badFormat = std::u16string(u"format ") + lone + u" %d";
  const std::u16string badWide = std::u16string(u"wide ") + lowLone;
  const std::u16string badTyped = std::u16string(u"typed ") + lone;
  const char* badNarrow = "narrow \xff\xc3(";
  const char* counted = "counted \xe2\x82";
  // Each call and what its message must read in the file.
  struct Call {
    const char16_t* format;
    std::vector<std::uint64_t> slots;
    const char* expected;
  };
  std::vector<std::uint64_t> typed = {ZYR_TAG_STR, P(badTyped.c_str()), ZYR_TAG_END};
  const std::vector<Call> calls = {
      {badFormat.c_str(), {7}, "format \\uD800 7"},
      {u"%s|%hs", {P(badWide.c_str()), P(badNarrow)}, "wide \\uDFFF|narrow \\xFF\\xC3("},
      {u"%Z", {10, P(counted)}, "counted \\xE2\\x82"},
      {nullptr, typed, "'STR:typed \\uD800'"},
  };
  const std::pair<const char*, const char*> layouts[] = {
      {"Standard", ""}, {"Custom", "Format = %logger %msg\n"}};
  const char* types[] = {"File", "RollingFile", "RollingDateFile", "Console"};
  int round = 0;
  for (const auto& [layoutType, layoutKeys] : layouts) {
    for (const char* type : types) {
      SCOPED_TRACE(std::string(type) + " " + layoutType);
      std::string dir = dir_ + "/r" + std::to_string(round);
      std::string name = "t" + std::to_string(round++);
      std::string config = "[" + name + "]\nAdditive = false\nAddAppenders = out" + name + "\n[out" + name +
                           "]\nType = Appender\nAppenderType = " + type + "\nFileName = " + dir +
                           "/x.log\nLayout = lay" + name + "\n[lay" + name + "]\nType = Layout\nLayoutType = " +
                           layoutType + "\n" + layoutKeys;
      ASSERT_EQ(log_->LoadConfigText(U16(config).c_str()), ZYR_OK);
      ZyrLogger* logger = Get(U16(name).c_str());
      // The console's lines go to a file for the test.
      std::string consoleFile = dir_ + "/console" + std::to_string(round);
      int saved = -1;
      if (std::string(type) == "Console") {
        std::fflush(stdout);
        saved = dup(1);
        FILE* f = std::fopen(consoleFile.c_str(), "w");
        dup2(fileno(f), 1);
        std::fclose(f);
      }
      for (const Call& c : calls)
        EXPECT_EQ(logger->Log(ZYR_SEVERITY_ERROR, c.format, u"src.cpp", 1, 0, 0, 0, 0, c.slots.data()), ZYR_OK);
      if (saved >= 0) {
        dup2(saved, 1);
        close(saved);
      }
      ASSERT_EQ(log_->Flush(), ZYR_OK);
      std::string text = saved >= 0 ? zyrtest::ReadFile(consoleFile) : FolderText(dir);
      for (const Call& c : calls) EXPECT_NE(text.find(c.expected), std::string::npos) << c.expected << "\n" << text;
    }
  }
}

}  // namespace
