// The configuration as it stands, printed: GetConfigText, SaveConfigFile,
// and the writer under them.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "base/file.h"
#include "config/document.h"
#include "config/reader.h"
#include "log_object_fixture.h"
#include "test_support.h"

namespace {

using zyrtest::ReadFile;
using zyrtest::U16;

class ConfigSaveTest : public zyrtest::LogObjectTest {
 protected:
  ConfigSaveTest() : LogObjectTest("cfgsave") {}

  std::u16string Text(bool privateChannel = false) {
    std::uint64_t needed = 0;
    ZyrResult r = privateChannel ? log_->GetPrivateConfigText(nullptr, 0, &needed)
                                 : log_->GetConfigText(nullptr, 0, &needed);
    EXPECT_EQ(r, ZYR_E_BUFFER_TOO_SMALL);
    std::u16string text(needed, u'\0');
    r = privateChannel ? log_->GetPrivateConfigText(text.data(), needed, &needed)
                       : log_->GetConfigText(text.data(), needed, &needed);
    EXPECT_EQ(r, ZYR_OK);
    text.resize(needed ? needed - 1 : 0);
    return text;
  }
};

std::string Utf16Le(const std::u16string& text) {
  std::string bytes;
  for (char16_t c : text) {
    bytes.push_back(static_cast<char>(c & 0xff));
    bytes.push_back(static_cast<char>(c >> 8));
  }
  return bytes;
}

}  // namespace

TEST_F(ConfigSaveTest, BuiltInDefaultGivesTheSampleAndItsFileLoadsBackUnchanged) {
  if (!zyrtest::LocalAppDataFollowsEnvironment())
    GTEST_SKIP() << "the key store names the local data folder, and the store comes before LOCALAPPDATA";
  const std::u16string expected =
      u"[ASYNCHANDLER]\r\nType = Logger\r\n\r\n"
      u"[defaultFileAppender]\r\nAppenderType = RollingFile\r\nBreakSeverity = ALL\r\n"
      u"FileName = " + U16(dir_) + u"/Zyr/OPH2015/log/common.log\r\n"
      u"FilesCount = 10\r\nImmediateWrite = false\r\nSize = 1024000\r\nType = Appender\r\n\r\n"
      u"[defaultLayout]\r\nLayoutType = Standard\r\nType = Layout\r\n\r\n"
      u"[root]\r\nAddAppenders = defaultFileAppender\r\nAdditive = false\r\nSeverity = INFO\r\n"
      u"Type = Logger\r\n";
  ASSERT_EQ(Text(), expected);
  EXPECT_EQ(Text(true), expected);  // one manager behind both channels

  // Saved: UTF-16 little-endian with its mark; an existing file is replaced.
  std::string path = dir_ + "/saved.cfg";
  zyrtest::WriteFile(path, std::string(10000, 'x'));
  ASSERT_EQ(log_->SaveConfigFile(U16(path).c_str(), 0), ZYR_OK);
  EXPECT_EQ(ReadFile(path), "\xFF\xFE" + Utf16Le(expected));
  // Protected: a new file that every account may read and rewrite.
  std::string shared = dir_ + "/shared.cfg";
  ASSERT_EQ(log_->SavePrivateConfigFile(U16(shared).c_str(), 1), ZYR_OK);
  EXPECT_EQ(ReadFile(shared), "\xFF\xFE" + Utf16Le(expected));
  struct stat st;
  ASSERT_EQ(stat(shared.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0666u);
  ASSERT_EQ(log_->LoadConfigFile(U16(path).c_str()), ZYR_OK);
  EXPECT_EQ(Text(), expected);

  EXPECT_TRUE(ZyrFailed(log_->SaveConfigFile(U16(dir_ + "/no/such/folder/x.cfg").c_str(), 0)));
}

// Every appender and layout type with every key it saves: configure, save,
// reset, load the saved text, save again.
TEST_F(ConfigSaveTest, RoundTripOfEveryTypeAndKey) {
  const std::u16string config =
      u"; a comment that the saved text does not keep\n"
      u"[root]\nSeverity = DEBUG\nAddAppenders = file, roll,con\n"
      u"[quiet]\nAdditive = no\nSeverity = error\nAddAppenders = nul\n"
      u"[quiet.child]\nUnknownKey = dropped\n"
      u"[file]\nType = Appender\nAppenderType = File\nFileName = \"" + U16(dir_) +
      u"/with blank/f.log\"\nImmediateWrite = yes\nBreakSeverity = WARN\nLayout = lines\n"
      u"[roll]\nType = Appender\nAppenderType = RollingFile\nFileName = r.log\nSize = 4096\n"
      u"FilesCount = 3\n"
      u"[con]\nType = Appender\nAppenderType = Console\nTarget = System.err\nBreakSeverity = ERROR\n"
      u"[nul]\nType = Appender\nAppenderType = Null\n"
      u"[lines]\nType = Layout\nLayoutType = Custom\n"
      u"Format = \"%date %time [%logger] %severity: %msg; 100%% done\\n\"\n"
      u"Header = \"start; \\\"quoted\\\"\"\nFooter = the end\n"
      u"[plain]\nType = Layout\nLayoutType = Standard\n"
      u"[json]\nType = Layout\nLayoutType = Json\nFields = time:@timestamp,msg: message , args\n";
  ASSERT_EQ(log_->LoadConfigText(config.c_str()), ZYR_OK);
  const std::u16string first = Text();
  for (const char16_t* line :
       {u"\r\nFormat = \"%date %time [%logger] %severity: %msg; 100%% done\\n\"\r\n",
        u"\r\nHeader = \"start; \\\"quoted\\\"\"\r\n", u"\r\nFooter = the end\r\n",
        u"\r\nAddAppenders = file,roll,con\r\n", u"\r\nTarget = System.err\r\n",
        u"\r\nFilesCount = 3\r\n", u"\r\nSize = 4096\r\n", u"\r\nImmediateWrite = true\r\n",
        u"/with blank/f.log\"\r\n", u"[quiet.child]\r\nType = Logger\r\n",
        u"\r\nFields = time:@timestamp, msg:message, args\r\nLayoutType = Json\r\n"})
    EXPECT_NE(first.find(line), std::u16string::npos) << zyrtest::Narrow(line) << "\n" << zyrtest::Narrow(first);
  EXPECT_EQ(first.find(u"comment"), std::u16string::npos);
  EXPECT_EQ(first.find(u"UnknownKey"), std::u16string::npos);

  ASSERT_EQ(log_->ResetConfig(), ZYR_OK);
  ASSERT_NE(Text(), first);
  ASSERT_EQ(log_->LoadConfigText(first.c_str()), ZYR_OK);
  EXPECT_EQ(Text(), first);
}

TEST_F(ConfigSaveTest, OneNameForALoggerAndAnAppenderCannotBeSaved) {
  ASSERT_EQ(log_->LoadConfigText(u"[twice]\nType = Appender\nAppenderType = Null\n"), ZYR_OK);
  ASSERT_EQ(log_->LoadConfigText(u"[twice]\nAdditive = no\nSeverity = WARN\n"), ZYR_OK);
  std::uint64_t needed = 0;
  EXPECT_EQ(log_->GetConfigText(nullptr, 0, &needed), ZYR_E_SECTION_EXISTS);
  std::string path = dir_ + "/never.cfg";
  EXPECT_EQ(log_->SaveConfigFile(U16(path).c_str(), 0), ZYR_E_SECTION_EXISTS);
  EXPECT_FALSE(zyrtest::Exists(path));
}

// The writer on its own: comment blocks, empty values and line comments,
// a value that would break its line, and a document with nothing in it.
TEST(CfgWriter, CommentsEmptyValuesAndNothing) {
  ZyrCfgDocument doc;
  ZyrStringReader reader(u"; one\n;\n; two\n[b]\nk =  ; behind\n; lead\nlist = x  y\n[a]\nv = 1\n");
  ASSERT_EQ(doc.Load(reader), ZYR_OK);
  ZyrBasString text;
  ZyrStringWriter writer(&text);
  ASSERT_EQ(doc.WriteTo(writer), ZYR_OK);
  EXPECT_EQ(zyrtest::Str(text),
            u"[a]\r\nv = 1\r\n\r\n; one\r\n\r\n; two\r\n[b]\r\nk =  ; behind\r\n; lead\r\nlist = x  y\r\n");

  ZyrCfgSectionRef section = doc.FindSection(u"a");
  ZyrCfgValueRef value;
  ASSERT_EQ(section->FindValue(u"v", &value), ZYR_OK);
  ASSERT_EQ(value->SetText(u"two\nlines"), ZYR_OK);
  text.Clear();
  EXPECT_EQ(doc.WriteTo(writer), ZYR_E_CFG_BAD_VALUE_LINE);

  ZyrCfgDocument empty;
  text.Clear();
  ASSERT_EQ(empty.WriteTo(writer), ZYR_OK);
  EXPECT_TRUE(text.Empty());
  std::string dir = zyrtest::MakeTempDir("writer");
  ASSERT_EQ(empty.SaveFile(U16(dir + "/empty.cfg").c_str(), false), ZYR_OK);
  EXPECT_EQ(ReadFile(dir + "/empty.cfg"), "\xFF\xFE");
  zyrtest::RemoveTree(dir);
}
