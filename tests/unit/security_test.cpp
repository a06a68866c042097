// Security descriptors: the SID table, the order of rules, the bytes of the
// descriptors the library builds, and what they become for files here.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "base/file.h"
#include "base/security.h"
#include "log_object_fixture.h"
#include "mount_support.h"
#include "test_support.h"
#include "zyrlog/log.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

// Pairs of hex digits; blanks between them are only for the eye.
Bytes Hex(const std::string& text) {
  std::string digits;
  for (char c : text)
    if (c != ' ') digits.push_back(c);
  Bytes out;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
    out.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  return out;
}

Bytes Built(ZyrBasSecurity& s) {
  EXPECT_EQ(s.Build(), ZYR_OK);
  return Bytes(s.Descriptor(), s.Descriptor() + s.DescriptorSize());
}

ZyrBasSid Sid(std::uint32_t id) {
  ZyrBasSid sid;
  EXPECT_EQ(ZyrBasWellKnownSid(sid, id), ZYR_OK);
  return sid;
}

std::u16string Text(const ZyrBasSid& sid) {
  ZyrBasString text;
  EXPECT_EQ(ZyrBasSidText(sid, text), ZYR_OK);
  return zyrtest::Str(text);
}

ZyrBasAccessRule Rule(std::uint32_t kind, const ZyrBasSid& sid, std::uint32_t mask = 0x1) {
  ZyrBasAccessRule rule;
  rule.kind = kind;
  rule.accessMask = mask;
  rule.sid = sid;
  EXPECT_EQ(ZyrBasSidId(&rule.sidId, sid), ZYR_OK);
  return rule;
}

// The DACL of a descriptor object as "A:text" / "D:text" items.
std::vector<std::u16string> Order(const ZyrBasSecurity& s) {
  std::vector<std::u16string> out;
  for (const ZyrBasAccessRule& r : s.Dacl()) out.push_back((r.kind ? u"D:" : u"A:") + Text(r.sid));
  return out;
}

const char* kLogFileDescriptor =
    "01 00 14 80  00 00 00 00  00 00 00 00  14 00 00 00  30 00 00 00"  // header: SACL, DACL
    "02 00 1c 00 01 00 00 00"                                          // SACL: the label
    "  11 00 14 00 04 00 00 00  01 01 00 00 00 00 00 10 00 10 00 00"   // S-1-16-4096, mask 4
    "02 00 5c 00 04 00 00 00"                                          // DACL: four rules
    "  00 03 14 00 ff 01 13 00  01 01 00 00 00 00 00 01 00 00 00 00"   // world
    "  00 03 14 00 ff 01 13 00  01 01 00 00 00 00 00 05 0c 00 00 00"   // restricted code
    "  00 03 14 00 ff 01 1f 00  01 01 00 00 00 00 00 05 12 00 00 00"   // Local System
    "  00 03 18 00 ff 01 1f 00  01 02 00 00 00 00 00 05 20 00 00 00 20 02 00 00";  // Administrators

}  // namespace

TEST(SecuritySid, TableTextAndIds) {
  ZyrBasSid admins = Sid(ZYR_SID_ADMINISTRATORS);
  EXPECT_EQ(Bytes(admins.bytes, admins.bytes + ZyrBasSidLength(admins)),
            Hex("01 02 00 00 00 00 00 05 20 00 00 00 20 02 00 00"));
  EXPECT_EQ(Text(admins), u"S-1-5-32-544");
  std::uint32_t id = 0;
  ASSERT_EQ(ZyrBasSidId(&id, admins), ZYR_OK);
  EXPECT_EQ(id, 26u);
  // Rows at the edges of each range, and the one without sub-authority.
  const std::pair<std::uint32_t, const char16_t*> rows[] = {
      {0, u"S-1-0-0"},        {1, u"S-1-1-0"},        {6, u"S-1-3-3"},          {7, u"S-1-5"},
      {11, u"S-1-5-4"},       {12, u"S-1-5-6"},       {18, u"S-1-5-12"},        {20, u"S-1-5-14"},
      {22, u"S-1-5-18"},      {24, u"S-1-5-20"},      {25, u"S-1-5-32"},        {34, u"S-1-5-32-552"},
      {35, u"S-1-5-32-554"},  {37, u"S-1-5-32-556"},  {38, u"S-1-5-32-500"},    {41, u"S-1-5-32-512"},
      {49, u"S-1-5-32-520"}};
  for (auto [row, text] : rows) {
    ZyrBasSid sid = Sid(row);
    EXPECT_EQ(Text(sid), text) << row;
    ASSERT_EQ(ZyrBasSidId(&id, sid), ZYR_OK);
    EXPECT_EQ(id, row);
  }
  ZyrBasSid sid;
  for (std::uint32_t none : {21u, 50u, 60u, 65u, 1000u}) EXPECT_EQ(ZyrBasWellKnownSid(sid, none), ZYR_E_NOT_IMPLEMENTED);

  // The process user is this account, as S-1-22-1-uid, and is known as 62.
  ZyrBasString user;
  ASSERT_EQ(ZyrBasProcessUserText(user), ZYR_OK);
  EXPECT_EQ(zyrtest::Str(user), zyrtest::U16("S-1-22-1-" + std::to_string(geteuid())));
  ASSERT_EQ(ZyrBasSidId(&id, Sid(ZYR_SID_PROCESS_USER_ALT)), ZYR_OK);
  EXPECT_EQ(id, 62u);
  EXPECT_EQ(Text(Sid(ZYR_SID_THREAD_USER)), zyrtest::Str(user));

  // Any other SID is 61 and keeps its bytes.
  ZyrBasAccessRule other = Rule(0, Sid(1));
  ZyrBasUnixSid(other.sid, false, 4000000000u);
  ASSERT_EQ(ZyrBasSidId(&id, other.sid), ZYR_OK);
  EXPECT_EQ(id, 61u);
  EXPECT_EQ(Text(other.sid), u"S-1-22-1-4000000000");

  // 11 characters a sub-authority plus 15.
  char16_t small[36];
  std::size_t size = 0;
  EXPECT_EQ(ZyrBasSidText(admins, small, 36, &size), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(size, 37u);
  EXPECT_EQ(ZyrBasSidText(admins, small, 37, &size), ZYR_OK);
  EXPECT_EQ(size, 12u);
}

TEST(SecurityRules, KeepTheOrderThatChecksNeedAndMergeBySid) {
  ZyrBasSecurity s;
  ASSERT_EQ(s.AddAllowRule(ZYR_SID_WORLD, 1, 0), ZYR_OK);
  ASSERT_EQ(s.AddAllowRule(ZYR_SID_ADMINISTRATORS, 1, 0), ZYR_OK);
  ASSERT_EQ(s.AddDaclRule(Rule(1, Sid(ZYR_SID_RESTRICTED))), ZYR_OK);  // a deny rule goes first
  EXPECT_EQ(Order(s), (std::vector<std::u16string>{u"D:S-1-5-12", u"A:S-1-1-0", u"A:S-1-5-32-544"}));

  ZyrBasSid other1, other2;
  ZyrBasUnixSid(other1, true, 7);
  ZyrBasUnixSid(other2, true, 8);
  ASSERT_EQ(s.AddDaclRule(Rule(0, other1)), ZYR_OK);  // special allow: behind the denies
  ASSERT_EQ(s.AddDaclRule(Rule(0, other2)), ZYR_OK);  // the newest special allow first
  ASSERT_EQ(s.AddDaclRule(Rule(1, Sid(ZYR_SID_LOCAL_SYSTEM))), ZYR_OK);  // ordinary deny: behind the deny
  ASSERT_EQ(s.AddDaclRule(Rule(1, other1)), ZYR_OK);  // special deny: first of all
  EXPECT_EQ(Order(s), (std::vector<std::u16string>{u"D:S-1-22-2-7", u"D:S-1-5-12", u"D:S-1-5-18",
                                                   u"A:S-1-22-2-8", u"A:S-1-22-2-7", u"A:S-1-1-0",
                                                   u"A:S-1-5-32-544"}));

  // A merge replaces the rules of the same SID and keeps the others.
  ZyrBasSecurity present, mine, merged;
  ASSERT_EQ(present.AddAllowRule(ZYR_SID_WORLD, 0x1, 0), ZYR_OK);
  ASSERT_EQ(present.AddAllowRule(ZYR_SID_ADMINISTRATORS, 0x1f01ff, 0), ZYR_OK);
  ASSERT_EQ(mine.AddAllowRule(ZYR_SID_WORLD, 0x1301ff, 3), ZYR_OK);
  ASSERT_EQ(mine.MergeOver(present, merged), ZYR_OK);
  ASSERT_EQ(merged.Dacl().Count(), 2u);
  EXPECT_EQ(merged.Dacl()[0].accessMask, 0x1301ffu);
  EXPECT_EQ(merged.Dacl()[1].sidId, 26u);
}

TEST(SecurityDescriptor, FormsBuildTheirBytes) {
  ZyrBasSecurity s;
  ASSERT_EQ(ZyrBasSecurityForForm(s, ZYR_SECURITY_LOG_FILE), ZYR_OK);
  EXPECT_EQ(Built(s), Hex(kLogFileDescriptor));

  ASSERT_EQ(ZyrBasSecurityForForm(s, ZYR_SECURITY_PROTECTED_CONFIG), ZYR_OK);
  EXPECT_EQ(Built(s), Hex("01 00 14 80  00 00 00 00  00 00 00 00  14 00 00 00  30 00 00 00"
                          "02 00 1c 00 01 00 00 00  11 00 14 00 04 00 00 00  01 01 00 00 00 00 00 10 00 10 00 00"
                          "02 00 30 00 02 00 00 00"
                          "  00 03 14 00 bf 01 13 00  01 01 00 00 00 00 00 01 00 00 00 00"
                          "  00 03 14 00 bf 01 13 00  01 01 00 00 00 00 00 05 0c 00 00 00"));

  ASSERT_EQ(ZyrBasSecurityForForm(s, ZYR_SECURITY_FOLDER_RESTRICTED), ZYR_OK);
  EXPECT_EQ(Built(s), Hex("01 00 04 80  00 00 00 00  00 00 00 00  00 00 00 00  14 00 00 00"
                          "02 00 1c 00 01 00 00 00  00 03 14 00 bf 01 13 00  01 01 00 00 00 00 00 05 0c 00 00 00"));
  ASSERT_EQ(ZyrBasSecurityForForm(s, ZYR_SECURITY_FOLDER_LOW_LABEL), ZYR_OK);
  EXPECT_EQ(Built(s), Hex("01 00 10 80  00 00 00 00  00 00 00 00  14 00 00 00  00 00 00 00"
                          "02 00 1c 00 01 00 00 00  11 03 14 00 04 00 00 00  01 01 00 00 00 00 00 10 00 10 00 00"));

  // Without rules: owner and group only, no DACL.
  s.Clear();
  ASSERT_EQ(s.SetOwner(Sid(ZYR_SID_LOCAL_SYSTEM)), ZYR_OK);
  ASSERT_EQ(s.SetGroup(Sid(ZYR_SID_ADMINISTRATORS)), ZYR_OK);
  EXPECT_EQ(Built(s), Hex("01 00 00 80  14 00 00 00  20 00 00 00  00 00 00 00  00 00 00 00"
                          "01 01 00 00 00 00 00 05 12 00 00 00  01 02 00 00 00 00 00 05 20 00 00 00 20 02 00 00"));
  // A rule added afterwards makes the built form stale.
  ASSERT_EQ(s.AddAllowRule(ZYR_SID_WORLD, 1, 0), ZYR_OK);
  EXPECT_FALSE(s.Built());
  EXPECT_EQ(Built(s).size(), 20u + 12 + 16 + 8 + 20);
}

TEST(SecurityDescriptor, LoadsWhatItBuildsAndRefusesBrokenBytes) {
  Bytes bytes = Hex(kLogFileDescriptor);
  ZyrBasSecurity s;
  ASSERT_EQ(s.LoadDescriptor(bytes.data(), bytes.size(), 31), ZYR_OK);
  EXPECT_EQ(s.LabelLevel(), ZYR_LABEL_LOW);
  EXPECT_EQ(Order(s), (std::vector<std::u16string>{u"A:S-1-1-0", u"A:S-1-5-12", u"A:S-1-5-18", u"A:S-1-5-32-544"}));
  EXPECT_EQ(s.Dacl()[3].sidId, 26u);
  EXPECT_EQ(Built(s), bytes);
  // Only the selected parts.
  ZyrBasSecurity daclOnly;
  ASSERT_EQ(daclOnly.LoadDescriptor(bytes.data(), bytes.size(), ZYR_SECURITY_DACL), ZYR_OK);
  EXPECT_EQ(daclOnly.Flags(), ZYR_SECURITY_DACL);

  // Through the serialized form: the flag word, then the descriptor.
  ZyrBasSecurity fresh, copy;
  std::uint8_t buffer[512];
  std::size_t size = 0;
  EXPECT_EQ(fresh.Serialize(buffer, sizeof buffer, &size), ZYR_E_NOT_INITIALIZED);
  EXPECT_EQ(s.Serialize(buffer, 10, &size), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(size, 4 + bytes.size());
  ASSERT_EQ(s.Serialize(buffer, sizeof buffer, &size), ZYR_OK);
  EXPECT_EQ(buffer[0], 0x14);  // DACL and label
  ASSERT_EQ(copy.Deserialize(buffer, size), ZYR_OK);
  EXPECT_EQ(Built(copy), bytes);
  ZyrBasSecurity* clone = nullptr;
  ASSERT_EQ(s.Clone(&clone), ZYR_OK);
  EXPECT_EQ(Built(*clone), bytes);
  clone->Destroy();

  // Broken: cut short; an ACE that runs over its list; a label of no
  // known level; a header that is not self-relative. The object stays.
  Bytes cut(bytes.begin(), bytes.end() - 1);
  Bytes overrun = bytes;
  overrun[48 + 8 + 2] = 0x60;  // first DACL ACE claims 96 bytes
  Bytes level = bytes;
  level[20 + 8 + 8 + 9] = 0x11;  // S-1-16-4352
  Bytes absolute = bytes;
  absolute[3] = 0;
  for (const Bytes* broken : {&cut, &overrun, &level, &absolute}) {
    EXPECT_EQ(s.LoadDescriptor(broken->data(), broken->size(), 31), ZYR_E_INVALID_ARGUMENT);
    EXPECT_EQ(s.Dacl().Count(), 4u);
  }
  ZyrBasSid notLabel = Sid(ZYR_SID_WORLD);
  EXPECT_EQ(s.SetLabel(notLabel, 0), ZYR_E_INVALID_ARGUMENT);
}

// ---------------------------------------------------------------------------
// What rules become for files here

class SecurityFileTest : public zyrtest::TempDirTest {};

TEST_F(SecurityFileTest, FormsGiveEveryAccountReadAndWrite) {
  std::uint32_t mode = 0;
  ZyrBasSecurity s;
  for (std::uint32_t form : {ZYR_SECURITY_LOG_FILE, ZYR_SECURITY_PROTECTED_CONFIG}) {
    ASSERT_EQ(ZyrBasSecurityForForm(s, form), ZYR_OK);
    ASSERT_EQ(s.FileMode(false, &mode), ZYR_OK);
    EXPECT_EQ(mode, 0666u);  // execute is no right of a file
    ASSERT_EQ(s.FileMode(true, &mode), ZYR_OK);
    EXPECT_EQ(mode, 0777u);
  }
  // Restricted code and the label have no meaning here.
  for (std::uint32_t form : {ZYR_SECURITY_FOLDER_RESTRICTED, ZYR_SECURITY_FOLDER_LOW_LABEL}) {
    ASSERT_EQ(ZyrBasSecurityForForm(s, form), ZYR_OK);
    EXPECT_EQ(s.FileMode(true, &mode), ZYR_I_NOT_FOUND);
  }
  // A deny rule takes its bits away.
  ASSERT_EQ(ZyrBasSecurityForForm(s, ZYR_SECURITY_LOG_FILE), ZYR_OK);
  ASSERT_EQ(s.AddDaclRule(Rule(1, Sid(ZYR_SID_PROCESS_USER), 0x2)), ZYR_OK);
  ASSERT_EQ(s.FileMode(false, &mode), ZYR_OK);
  EXPECT_EQ(mode, 0466u);
}

TEST_F(SecurityFileTest, MergeOnAFileKeepsTheOwnersRulesAndOpensItToAll) {
  zyrtest::WriteFile(P("f"), "x");
  chmod(P("f").c_str(), 0640);
  std::u16string name = WP("f");
  ZyrBasSecurityTarget target{0, name.c_str()};
  ZyrBasSecurity s;
  std::uint32_t flags = 7;
  ASSERT_EQ(s.ReadFrom(target, &flags), ZYR_OK);
  EXPECT_EQ(flags, 7u);
  EXPECT_EQ(s.OwnerId(), 62u);
  ASSERT_EQ(s.Dacl().Count(), 2u);  // owner rw, group r
  ASSERT_EQ(ZyrBasSecurityForForm(s, ZYR_SECURITY_FOLDER_RESTRICTED), ZYR_OK);
  ASSERT_EQ(s.Merge(target), ZYR_OK);  // nothing with a meaning: the mode stays
  struct stat st;
  ASSERT_EQ(stat(P("f").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  ASSERT_EQ(s.AddAllowRule(ZYR_SID_WORLD, 0x1301bf, 3), ZYR_OK);
  ASSERT_EQ(s.Merge(target), ZYR_OK);
  ASSERT_EQ(stat(P("f").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0666u);
  ZyrBasSecurityTarget key{2, u"\\REGISTRY\\MACHINE"};
  EXPECT_EQ(s.WriteTo(key), ZYR_E_NOT_SUPPORTED);
  EXPECT_EQ(s.WriteTo(ZyrBasSecurityTarget{}), ZYR_E_NOT_SUPPORTED);
}

TEST(SecurityFile, WriteToAVolumeWithoutModesIsNotSupported) {
  if (geteuid() != 0) GTEST_SKIP() << "mounting a FAT image needs root";
  zyrtest::LoopMount fat;
  if (!fat.Mount("mkfs.vfat", 2)) GTEST_SKIP() << fat.Why();
  zyrtest::WriteFile(fat.Dir() + "/a.log", "x");
  std::u16string name = zyrtest::U16(fat.Dir() + "/a.log");
  ZyrBasSecurity s;
  ASSERT_EQ(ZyrBasSecurityForForm(s, ZYR_SECURITY_LOG_FILE), ZYR_OK);
  EXPECT_EQ(s.WriteTo(ZyrBasSecurityTarget{0, name.c_str()}), ZYR_I_NOT_SUPPORTED);
}

// Log files, their lock files and protected configuration files are made
// under the strictest umask and still reach every account.
class SecurityUmaskTest : public zyrtest::LogObjectTest {
 protected:
  SecurityUmaskTest() : LogObjectTest("umask") {}
};

TEST_F(SecurityUmaskTest, SharedFilesIgnoreARestrictiveUmask) {
  mode_t old = umask(077);
  std::u16string text = u"[root]\nAddAppenders = r\n[r]\nType = Appender\nAppenderType = RollingFile\nFileName = " +
                        zyrtest::U16(dir_ + "/r.log") + u"\n";
  ASSERT_EQ(log_->LoadConfigText(text.c_str()), ZYR_OK);
  ZyrLogger* root = Get(u"app");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(zyrlog::LogFormat(root, ZYR_SEVERITY_ERROR, u"line", u"f", 1), ZYR_OK);
  ZyrBasFile config;
  std::u16string cfg = zyrtest::U16(dir_ + "/saved.cfg");
  ASSERT_EQ(config.Open(cfg.c_str(), ZYR_FILE_CREATE_ALWAYS, 3, 0, ZYR_FILE_SHARED_BY_ALL), ZYR_OK);
  config.Close();
  umask(old);
  for (const char* name : {"/r.log", "/r.log.lock", "/saved.cfg"}) {
    struct stat st;
    ASSERT_EQ(stat((dir_ + name).c_str(), &st), 0) << name;
    EXPECT_EQ(st.st_mode & 0777, 0666u) << name;
  }
}
