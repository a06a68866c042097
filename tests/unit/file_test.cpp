#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

#include <cerrno>
#include <algorithm>
#include <cstring>
#include <ctime>
#include <set>
#include <string>
#include <utility>

#include "base/file.h"
#include "base/memory.h"
#include "base/random.h"
#include "base/result.h"
#include "test_support.h"

namespace {

using zyrtest::Exists;
using zyrtest::ReadFile;
using zyrtest::WriteFile;

std::string N(const char16_t* p, std::size_t n) {
  std::string s;
  for (std::size_t i = 0; i < n; ++i) s += static_cast<char>(p[i]);
  return s;
}

class FileTest : public zyrtest::TempDirTest {
 protected:
  // Opens an existing file for reading only.
  ZyrResult OpenRead(ZyrBasFile& f, const std::string& name, std::uint32_t options = 0) {
    return f.Open(WP(name).c_str(), ZYR_FILE_OPEN_EXISTING, ZYR_FILE_READ, ZYR_FILE_SHARE_READ, options);
  }
  std::uint32_t Mode(const std::string& name) const {
    struct stat st;
    return stat(P(name).c_str(), &st) == 0 ? st.st_mode & 07777 : ~0u;
  }
};

std::string Hundred() {
  std::string s;
  for (int i = 0; i < 100; ++i) s += static_cast<char>('A' + i % 26);
  return s;
}

}  // namespace

TEST_F(FileTest, SeekRulesAndShortReads) {
  WriteFile(P("f"), Hundred());
  ZyrBasFile f;
  ASSERT_EQ(OpenRead(f, "f"), ZYR_OK);
  std::int64_t pos = -7;
  ASSERT_EQ(f.Seek(5, 0), ZYR_OK);
  EXPECT_EQ(f.Seek(-1, 0), ZYR_E_NEGATIVE_SEEK);
  EXPECT_EQ(f.Seek(-6, 1), ZYR_E_NEGATIVE_SEEK);
  EXPECT_EQ(f.Seek(1, 7), ZYR_E_INVALID_ARGUMENT);
  ASSERT_EQ(f.Tell(&pos), ZYR_OK);
  EXPECT_EQ(pos, 5);  // a refused seek leaves the position
  ASSERT_EQ(f.Seek(50, 2), ZYR_OK);  // past the end is allowed
  f.Tell(&pos);
  EXPECT_EQ(pos, 150);

  char buf[100];
  std::size_t done = 77;
  EXPECT_EQ(f.ReadAt(90, buf, 100, &done), ZYR_I_SHORT_READ);
  EXPECT_EQ(done, 10u);
  EXPECT_EQ(std::string(buf, 10), Hundred().substr(90));
  EXPECT_EQ(f.ReadAt(90, buf, 100, nullptr), ZYR_E_END_OF_DATA);
  EXPECT_EQ(f.ReadAt(100, buf, 10, &done), ZYR_E_END_OF_DATA);
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(f.ReadAt(-1, buf, 10, &done), ZYR_E_INVALID_ARGUMENT);
  // Through the position: a short read moves by what was read, a failed
  // one not at all.
  ASSERT_EQ(f.Seek(90, 0), ZYR_OK);
  EXPECT_EQ(f.Read(buf, 100, &done), ZYR_I_SHORT_READ);
  EXPECT_EQ(f.Read(buf, 10, &done), ZYR_E_END_OF_DATA);
  f.Tell(&pos);
  EXPECT_EQ(pos, 100);
}

TEST_F(FileTest, OpenModes) {
  ZyrBasFile f;
  EXPECT_EQ(f.Open(WP("missing").c_str(), ZYR_FILE_OPEN_EXISTING, ZYR_FILE_READ, 0, 0), ZYR_E_FILE_NOT_FOUND);
  EXPECT_EQ(f.Open(WP("missing").c_str(), ZYR_FILE_TRUNCATE_EXISTING, ZYR_FILE_WRITE, 0, 0), ZYR_E_FILE_NOT_FOUND);
  EXPECT_EQ(f.Open(WP("no\\such\\dir\\f").c_str(), ZYR_FILE_OPEN_ALWAYS, ZYR_FILE_WRITE, 0, 0),
            ZYR_E_FILE_NOT_FOUND);
  EXPECT_FALSE(f.IsOpen());

  WriteFile(P("f"), "content");
  EXPECT_EQ(f.Open(WP("f").c_str(), ZYR_FILE_CREATE_NEW, ZYR_FILE_WRITE, 0, 0), ZYR_E_ALREADY_EXISTS);
  std::uint64_t size = 0;
  ASSERT_EQ(f.Open(WP("f").c_str(), ZYR_FILE_TRUNCATE_EXISTING, ZYR_FILE_WRITE, 0, 0), ZYR_OK);
  ASSERT_EQ(f.GetSize(&size), ZYR_OK);
  EXPECT_EQ(size, 0u);
  EXPECT_FALSE(f.CanRead());

  WriteFile(P("g"), "old");
  ASSERT_EQ(f.Open(WP("g").c_str(), ZYR_FILE_CREATE_ALWAYS, ZYR_FILE_WRITE, 0, 0), ZYR_OK);
  ASSERT_EQ(f.Write("new!", 4, nullptr), ZYR_OK);
  ASSERT_EQ(f.Close(), ZYR_OK);
  EXPECT_EQ(ReadFile(P("g")), "new!");
  EXPECT_EQ(f.Open(WP("h").c_str(), 6, ZYR_FILE_WRITE, 0, 0), ZYR_E_INVALID_ARGUMENT);
  EXPECT_FALSE(Exists(P("h")));

  ASSERT_EQ(f.Open(WP("t").c_str(), ZYR_FILE_CREATE_NEW, 3, 7, ZYR_FILE_DELETE_ON_CLOSE), ZYR_OK);
  EXPECT_TRUE(Exists(P("t")));
  EXPECT_EQ(f.Close(), ZYR_OK);
  EXPECT_FALSE(Exists(P("t")));
}

TEST_F(FileTest, AppendModeWritesAtTheEndWhateverTheOffset) {
  ZyrBasFile f, g;
  ASSERT_EQ(f.Open(WP("log").c_str(), ZYR_FILE_APPEND, ZYR_FILE_WRITE, 3, 0), ZYR_OK);
  std::size_t done = 0;
  ASSERT_EQ(f.WriteAt(0, "abc", 3, &done), ZYR_OK);
  ASSERT_EQ(f.WriteAt(0, "xyz", 3, &done), ZYR_OK);
  // A second writer in append mode interleaves, never overwrites.
  ASSERT_EQ(g.Open(WP("log").c_str(), ZYR_FILE_APPEND, ZYR_FILE_WRITE, 3, 0), ZYR_OK);
  ASSERT_EQ(g.Write("12", 2, nullptr), ZYR_OK);
  ASSERT_EQ(f.Append("!", 1, &done), ZYR_OK);
  EXPECT_EQ(done, 1u);
  EXPECT_EQ(ReadFile(P("log")), "abcxyz12!");

  // On a positioned file Append goes to the end, WriteAt stays positioned.
  ASSERT_EQ(f.Open(WP("f").c_str(), ZYR_FILE_OPEN_ALWAYS, ZYR_FILE_READ | ZYR_FILE_WRITE, 3, 0), ZYR_OK);
  ASSERT_EQ(f.WriteAt(0, "hello", 5, nullptr), ZYR_OK);
  ASSERT_EQ(f.Append(" world", 6, nullptr), ZYR_OK);
  ASSERT_EQ(f.WriteAt(0, "J", 1, nullptr), ZYR_OK);
  EXPECT_EQ(ReadFile(P("f")), "Jello world");
}

TEST_F(FileTest, SharedByAllMakesNewFilesWorldWritable) {
  mode_t old = umask(022);
  ZyrBasFile f;
  ASSERT_EQ(f.Open(WP("shared").c_str(), ZYR_FILE_OPEN_ALWAYS, 3, 3, ZYR_FILE_SHARED_BY_ALL), ZYR_OK);
  ASSERT_EQ(f.Open(WP("private").c_str(), ZYR_FILE_OPEN_ALWAYS, 3, 3, 0), ZYR_OK);
  WriteFile(P("mine"), "x");
  chmod(P("mine").c_str(), 0600);
  ASSERT_EQ(f.Open(WP("mine").c_str(), ZYR_FILE_APPEND, 2, 3, ZYR_FILE_SHARED_BY_ALL), ZYR_OK);
  f.Close();
  umask(old);
  EXPECT_EQ(Mode("shared"), 0666u);
  EXPECT_EQ(Mode("private"), 0644u);
  EXPECT_EQ(Mode("mine"), 0600u);  // an existing file keeps its mode
}

TEST_F(FileTest, MapViewsAndTheirLimit) {
  std::string data;
  for (int i = 0; i < 10000; ++i) data += static_cast<char>('a' + i % 23);
  WriteFile(P("m"), data);
  ZyrBasFile f;
  ASSERT_EQ(OpenRead(f, "m"), ZYR_OK);
  ZyrBasFileView* v = nullptr;
  ASSERT_EQ(f.Map(5000, 100, &v), ZYR_OK);
  EXPECT_EQ(std::string(static_cast<char*>(v->Address()), 100), data.substr(5000, 100));
  EXPECT_EQ(v->AlignedOffset() % 4096, 0u);
  EXPECT_FALSE(v->ReachesEnd());
  ZyrDelete(v);
  EXPECT_EQ(f.Map(10000, 0, &v), ZYR_E_END_OF_DATA);
  EXPECT_EQ(v, nullptr);
  ASSERT_EQ(f.Map(9999, 50, &v), ZYR_OK);
  EXPECT_EQ(v->Size(), 1u);  // no more than the file holds behind the offset
  EXPECT_TRUE(v->ReachesEnd());
  f.Close();
  // A view outlives the close of its file.
  EXPECT_EQ(static_cast<char*>(v->Address())[0], data[9999]);
  ZyrDelete(v);

  // A huge file is mapped no further than the limit.
  ASSERT_EQ(f.Open(WP("big").c_str(), ZYR_FILE_CREATE_NEW, 3, 0, 0), ZYR_OK);
  ASSERT_EQ(f.SetSize(1ull << 30), ZYR_OK);  // sparse: costs no disk
  ASSERT_EQ(f.Map(0, 0, &v), ZYR_OK);
  EXPECT_EQ(v->Size(), kZyrBasMaxView);
  EXPECT_FALSE(v->ReachesEnd());
  ZyrDelete(v);
  ASSERT_EQ(f.Map(4096 + 10, 1ull << 29, &v), ZYR_OK);  // larger than the limit counts as the limit
  EXPECT_EQ(v->AlignedSize(), kZyrBasMaxView);
  EXPECT_EQ(v->Size(), kZyrBasMaxView - 10);
  ZyrDelete(v);
}

TEST_F(FileTest, CreateDirectoryTreeAndItsUndo) {
  mkdir(P("a").c_str(), 0777);
  ASSERT_EQ(ZyrBasCreateDirectoryTree((WP("a") + u"\\b\\c\\").c_str()), ZYR_OK);
  EXPECT_EQ(ZyrBasDirectoryExists((WP("a") + u"\\b\\c").c_str()), ZYR_OK);
  EXPECT_EQ(ZyrBasCreateDirectoryTree((WP("a") + u"/b/c").c_str()), ZYR_E_ALREADY_EXISTS);

  // The last level cannot be made (its name is too long): the level made
  // before it goes again, the one that was there stays.
  std::u16string tooLong(300, u'x');
  EXPECT_TRUE(ZyrFailed(ZyrBasCreateDirectoryTree((WP("a") + u"\\x\\y\\" + tooLong).c_str())));
  EXPECT_FALSE(Exists(P("a/x")));
  EXPECT_TRUE(Exists(P("a")));

  // A level in the way that is a file fails the tree.
  WriteFile(P("a/file"), "x");
  EXPECT_EQ(ZyrBasCreateDirectoryTree((WP("a") + u"\\file\\sub").c_str()), ZYR_E_ALREADY_EXISTS);
}

TEST_F(FileTest, AttributesAndExistence) {
  mkdir(P("d").c_str(), 0777);
  WriteFile(P("f"), "x");
  WriteFile(P("ro"), "x");
  chmod(P("ro").c_str(), 0444);
  ASSERT_EQ(symlink(P("d").c_str(), P("ld").c_str()), 0);
  const std::uint32_t kDirOrLink = ZYR_ATTR_DIRECTORY | ZYR_ATTR_REPARSE_POINT;
  std::uint32_t a = 0;
  ASSERT_EQ(ZyrBasFileAttributes(&a, WP("d").c_str()), ZYR_OK);
  EXPECT_EQ(a & kDirOrLink, ZYR_ATTR_DIRECTORY);
  ASSERT_EQ(ZyrBasFileAttributes(&a, WP("f").c_str()), ZYR_OK);
  EXPECT_EQ(a, ZYR_ATTR_NORMAL);
  ASSERT_EQ(ZyrBasFileAttributes(&a, WP("ro").c_str()), ZYR_OK);
  EXPECT_EQ(a, ZYR_ATTR_READONLY);
  ASSERT_EQ(ZyrBasFileAttributes(&a, WP("ld").c_str()), ZYR_OK);
  EXPECT_EQ(a & kDirOrLink, kDirOrLink);
  EXPECT_EQ(ZyrBasFileAttributes(&a, WP("none").c_str()), ZYR_E_FILE_NOT_FOUND);
  EXPECT_EQ(ZyrBasFileAttributes(&a, nullptr), ZYR_E_INVALID_ARGUMENT);

  EXPECT_EQ(ZyrBasDirectoryExists(WP("d").c_str()), ZYR_OK);
  EXPECT_EQ(ZyrBasDirectoryExists(WP("f").c_str()), ZYR_E_PATH_NOT_FOUND);
  EXPECT_EQ(ZyrBasDirectoryExists(WP("none").c_str()), ZYR_E_PATH_NOT_FOUND);

  EXPECT_EQ(ZyrBasDeleteFile(WP("d").c_str(), 0), ZYR_E_ACCESS_DENIED);  // never a directory
  EXPECT_EQ(ZyrBasDeleteFile(WP("ro").c_str(), 0), ZYR_OK);
  EXPECT_EQ(ZyrBasRemoveDirectory(WP("ld").c_str()), ZYR_OK);  // the link goes, its target stays
  EXPECT_TRUE(Exists(P("d")));
}

TEST_F(FileTest, CreationTimeIsNotLaterThanTheFirstWrite) {
  std::int64_t before = (static_cast<std::int64_t>(std::time(nullptr)) - 2) * 10000000ll + 116444736000000000ll;
  ZyrBasFile f;
  ASSERT_EQ(f.Open(WP("c").c_str(), ZYR_FILE_CREATE_NEW, 3, 3, 0), ZYR_OK);
  ASSERT_EQ(f.Write("x", 1, nullptr), ZYR_OK);
  std::int64_t created = 0;
  ZyrBasDirEntry e;
  ASSERT_EQ(f.GetCreationTime(&created), ZYR_OK);
  ASSERT_EQ(f.Query(&e), ZYR_OK);
  EXPECT_GE(created, before);
  EXPECT_LE(created, e.lastWriteTime);
  EXPECT_EQ(e.sizeLow, 1u);
}

TEST_F(FileTest, DeleteMatching) {
  mkdir(P("d").c_str(), 0777);
  EXPECT_EQ(ZyrBasDeleteMatching(WP("d").c_str(), u"zyr-*.tmp", 0), ZYR_OK);
  EXPECT_EQ(ZyrBasDeleteMatching(WP("none").c_str(), u"zyr-*.tmp", 0), ZYR_E_PATH_NOT_FOUND);
  for (const char* name : {"zyr-1.tmp", "zyr-2.tmp", "common.log"})
    WriteFile(P("d/") + name, "");
  mkdir(P("d/zyr-dir.tmp").c_str(), 0777);
  EXPECT_EQ(ZyrBasDeleteMatching(WP("d").c_str(), u"zyr-*.tmp", 0), ZYR_OK);
  // Files by the pattern go; a folder by the pattern stays.
  for (auto [name, kept] :
       {std::pair{"zyr-1.tmp", false}, {"zyr-2.tmp", false}, {"common.log", true}, {"zyr-dir.tmp", true}})
    EXPECT_EQ(Exists(P("d/") + name), kept) << name;
}

namespace {

std::set<std::string> Names(const std::u16string& dir, const char16_t* pattern, std::uint32_t flags) {
  std::set<std::string> names;
  ZyrBasDirEnum e;
  ZyrResult r = e.Open(dir.c_str(), pattern, flags);
  while (r == ZYR_OK) {
    const ZyrBasDirItem* item;
    EXPECT_EQ(e.Current(&item), ZYR_OK);
    names.insert(N(item->Name(), item->NameLength()));
    r = e.Next();
  }
  EXPECT_EQ(r, ZYR_I_NO_MORE_ITEMS);
  EXPECT_EQ(e.Next(), ZYR_E_NO_MORE_ITEMS);
  return names;
}

}  // namespace

TEST_F(FileTest, EnumerationFlagsAndPatterns) {
  WriteFile(P("a.log"), "12345");
  WriteFile(P("b.txt"), "");
  mkdir(P("d").c_str(), 0777);
  ASSERT_EQ(symlink(P("d").c_str(), P("ld").c_str()), 0);
  ASSERT_EQ(symlink(P("a.log").c_str(), P("lf").c_str()), 0);
  std::u16string dir = WP("");
  dir.pop_back();  // no trailing separator

  using S = std::set<std::string>;
  EXPECT_EQ(Names(dir, u"*", ZYR_ENUM_FILES), (S{"a.log", "b.txt"}));
  EXPECT_EQ(Names(dir, u"", ZYR_ENUM_DIRECTORIES), (S{"d"}));
  EXPECT_EQ(Names(dir, u"*.*", ZYR_ENUM_DIRECTORIES | ZYR_ENUM_LINKS), (S{"d", "ld", "lf"}));
  EXPECT_EQ(Names(dir, u"*", ZYR_ENUM_DOT), (S{"."}));

  ZyrBasDirEnum e;
  ASSERT_EQ(e.Open(dir.c_str(), u"a.*", ZYR_ENUM_FILES), ZYR_OK);
  const ZyrBasDirItem* item;
  ASSERT_EQ(e.Current(&item), ZYR_OK);
  EXPECT_EQ(item->Size(), 5u);
  ZyrBasString full;
  ASSERT_EQ(item->FullPath(full), ZYR_OK);
  EXPECT_EQ(N(full.Text(), full.Length()), N(dir.data(), dir.size()) + "/a.log");
  EXPECT_EQ(e.Next(), ZYR_I_NO_MORE_ITEMS);
  EXPECT_EQ(e.Current(&item), ZYR_E_NO_MORE_ITEMS);
  ASSERT_EQ(e.Rewind(), ZYR_OK);
  ASSERT_EQ(e.Current(&item), ZYR_OK);

  ZyrBasDirEnum empty;
  EXPECT_EQ(empty.Open((dir + u"\\d").c_str(), u"*", ZYR_ENUM_FILES), ZYR_I_NO_MORE_ITEMS);
  EXPECT_EQ(empty.Open((dir + u"\\none").c_str(), u"*", ZYR_ENUM_FILES), ZYR_E_FILE_NOT_FOUND);
}

TEST_F(FileTest, DeleteTreeRemovesLinksNotTheirTargets) {
  mkdir(P("outside").c_str(), 0777);
  WriteFile(P("outside/keep"), "x");
  mkdir(P("t").c_str(), 0777);
  mkdir(P("t/sub").c_str(), 0777);
  WriteFile(P("t/sub/f"), "x");
  ASSERT_EQ(symlink(P("outside").c_str(), P("t/sub/link").c_str()), 0);
  EXPECT_EQ(ZyrBasDeleteTree(WP("t").c_str(), false, 0), ZyrResultFromErrno(ENOTEMPTY));
  EXPECT_EQ(ZyrBasDeleteTree(WP("t").c_str(), true, 0), ZYR_OK);
  EXPECT_FALSE(Exists(P("t")));
  EXPECT_TRUE(Exists(P("outside/keep")));
}

TEST_F(FileTest, MoveReplacesAndCopies) {
  WriteFile(P("a"), "first");
  WriteFile(P("b"), "second");
  ASSERT_EQ(ZyrBasMoveFile(WP("a").c_str(), WP("b").c_str()), ZYR_OK);
  EXPECT_FALSE(Exists(P("a")));
  EXPECT_EQ(ReadFile(P("b")), "first");
  EXPECT_EQ(ZyrBasMoveFile(WP("a").c_str(), WP("c").c_str()), ZYR_E_FILE_NOT_FOUND);

  WriteFile(P("x"), "x");
  EXPECT_EQ(ZyrBasMoveFileNoReplace(WP("x").c_str(), WP("b").c_str()), ZYR_E_ALREADY_EXISTS);
  EXPECT_EQ(ReadFile(P("b")), "first");
  ASSERT_EQ(ZyrBasMoveFileNoReplace(WP("x").c_str(), WP("y").c_str()), ZYR_OK);
  EXPECT_EQ(ReadFile(P("y")), "x");

  chmod(P("b").c_str(), 0640);
  ASSERT_EQ(ZyrBasCopyFile(WP("b").c_str(), WP("c").c_str()), ZYR_OK);
  EXPECT_EQ(ReadFile(P("c")), "first");
  struct stat sb, sc;
  ASSERT_EQ(stat(P("b").c_str(), &sb), 0);
  ASSERT_EQ(stat(P("c").c_str(), &sc), 0);
  EXPECT_EQ(sc.st_mode & 07777, 0640u);
  EXPECT_EQ(sc.st_mtim.tv_sec, sb.st_mtim.tv_sec);
  mkdir(P("d").c_str(), 0777);
  EXPECT_TRUE(ZyrFailed(ZyrBasCopyFile(WP("d").c_str(), WP("e").c_str())));
  EXPECT_FALSE(Exists(P("e")));
}

TEST_F(FileTest, MoveAcrossFileSystemsReplaces) {
  struct stat here, shm;
  if (stat(dir_.c_str(), &here) != 0 || stat("/dev/shm", &shm) != 0 || here.st_dev == shm.st_dev)
    GTEST_SKIP() << "no second file system at /dev/shm";
  std::string target = "/dev/shm/zyrfile-move-" + std::to_string(getpid());
  std::string payload(200000, 'q');
  WriteFile(P("src"), payload);
  WriteFile(target, "older");
  ASSERT_EQ(ZyrBasMoveFile(WP("src").c_str(), zyrtest::U16(target).c_str()), ZYR_OK);
  EXPECT_FALSE(Exists(P("src")));
  EXPECT_EQ(ReadFile(target), payload);
  unlink(target.c_str());
}

TEST(FileNames, Patterns) {
  struct { const char16_t *pattern, *name; bool match; } cases[] = {
      {u"zyr-*.tmp", u"zyr-.tmp", true},      {u"zyr-*.tmp", u"zyr-abc.tmpx", false},
      {u"zyr-*.tmp", u"xzyr-a.tmp", false},   {u"*", u"", true},
      {u"?", u"", false},                     {u"a?c", u"abc", true},
      {u"*a*b", u"xaxab", true},              {u"a", u"A", false},
  };
  for (const auto& c : cases)
    EXPECT_EQ(ZyrBasMatchPattern(c.pattern, ZyrBasStrLen(c.pattern), c.name, ZyrBasStrLen(c.name)), c.match)
        << N(c.pattern, ZyrBasStrLen(c.pattern)) << " " << N(c.name, ZyrBasStrLen(c.name));
}

TEST(FileNames, TemporaryNamesDifferAndHaveTheirShape) {
  ZyrBasString a, b, stem;
  ASSERT_EQ(ZyrBasMakeTempName(a), ZYR_OK);
  ASSERT_EQ(ZyrBasMakeTempName(b), ZYR_OK);
  ASSERT_EQ(ZyrBasMakeTempStem(stem), ZYR_OK);
  EXPECT_FALSE(a.Equals(b));
  EXPECT_EQ(stem.Length(), 40u);
  std::string t = N(a.Text(), a.Length());
  ASSERT_EQ(t.size(), 44u) << t;
  EXPECT_EQ(t.substr(0, 4), "zyr-");
  EXPECT_EQ(t.substr(40), ".tmp");
  EXPECT_EQ(t[18], '4');
  EXPECT_NE(std::string("89ab").find(t[23]), std::string::npos) << t;
  for (int i = 4; i < 40; ++i) {
    bool dash = i == 12 || i == 17 || i == 22 || i == 27;
    EXPECT_NE(std::string(dash ? "-" : "0123456789abcdef").find(t[i]), std::string::npos) << t;
  }
}

TEST(FileNames, GeneratorSteps) {
  std::uint64_t s = kZyrBasRandomStart;
  EXPECT_EQ(ZyrBasRandomStepState(s), 0x0aa84949u);
  EXPECT_EQ(s, 0xaa849495101ull);

  // Six bytes: the two odd ones from the top of one step, then four from
  // the next, lowest first.
  s = kZyrBasRandomStart;
  unsigned char b[6];
  ZyrBasRandomFillState(s, b, sizeof b);
  const unsigned char expected[6] = {0xa8, 0x0a, 0xea, 0x9d, 0x59, 0x74};
  EXPECT_EQ(std::memcmp(b, expected, 6), 0);

  // Stirring a zero byte is one step; another byte shifts the state by it.
  std::uint64_t x = kZyrBasRandomStart, y = kZyrBasRandomStart;
  const unsigned char zero = 0, seven = 7;
  ZyrBasRandomStirState(x, &zero, 1);
  ZyrBasRandomStirState(y, &seven, 1);
  EXPECT_EQ(x, 0xaa849495101ull);
  EXPECT_EQ(y, x + 7);
}

namespace {

// A byte stream in memory, and handle passing by duplicated descriptors.
class MemoryStream : public ZyrBasStream {
 public:
  bool IsOpen() const override { return true; }
  bool IsAsynchronous() const override { return false; }
  ZyrResult Read(void* buffer, std::size_t count, std::size_t* done, std::uint32_t) override {
    std::size_t n = std::min(count, bytes.size() - at);
    std::memcpy(buffer, bytes.data() + at, n);
    at += n;
    if (done) *done = n;
    return n == count ? ZYR_OK : ZYR_E_END_OF_DATA;
  }
  ZyrResult Write(const void* buffer, std::size_t count, std::size_t* done, std::uint32_t) override {
    bytes.append(static_cast<const char*>(buffer), count);
    if (done) *done = count;
    return ZYR_OK;
  }
  std::string bytes;
  std::size_t at = 0;
};

struct DupPassing : ZyrBasHandleExporter, ZyrBasHandleImporter {
  ZyrResult Export(ZyrBasStream& target, int handle) override {
    int copy = dup(handle);
    return target.Write(&copy, sizeof copy, nullptr);
  }
  ZyrResult Import(ZyrBasStream& source, int* handle) override {
    return source.Read(handle, sizeof *handle, nullptr);
  }
};

}  // namespace

TEST_F(FileTest, SerialFormCarriesTheOpenFile) {
  WriteFile(P("s"), "serial");
  ZyrBasFile f, g, sharing;
  DupPassing passing;
  ASSERT_EQ(OpenRead(f, "s", ZYR_FILE_ASYNCHRONOUS), ZYR_OK);
  ASSERT_EQ(sharing.Open(WP("s").c_str(), ZYR_FILE_OPEN_EXISTING, ZYR_FILE_READ, 3, 0), ZYR_OK);
  EXPECT_FALSE(sharing.IsStable());
  std::uint64_t size = 0;
  ASSERT_EQ(f.GetSize(&size), ZYR_OK);  // cached: the file is stable
  MemoryStream m;
  ASSERT_EQ(f.Serialize(m, passing, 0), ZYR_OK);
  EXPECT_EQ(m.bytes.size(), 2u + 1 + 4 + 1 + 1 + 8 + 8 + 1 + 1 + 8 + 1);
  f.Close();

  ASSERT_EQ(g.Deserialize(m, passing, 0), ZYR_OK);
  EXPECT_TRUE(g.CanRead());
  EXPECT_FALSE(g.CanWrite());
  EXPECT_TRUE(g.IsStable());
  EXPECT_TRUE(g.IsAsynchronous());
  char buf[6];
  ASSERT_EQ(g.ReadAt(0, buf, 6, nullptr), ZYR_OK);
  EXPECT_EQ(std::string(buf, 6), "serial");
  // Sharing cannot be enforced here; a writer that ignores it changes the
  // file, and only the holder that admitted writers sees the change.
  WriteFile(P("s"), "longer now");
  ASSERT_EQ(g.GetSize(&size), ZYR_OK);
  EXPECT_EQ(size, 6u);  // the cached size came along
  ASSERT_EQ(sharing.GetSize(&size), ZYR_OK);
  EXPECT_EQ(size, 10u);

  // A flag byte of 2, and a stream cut short, are corrupt.
  MemoryStream bad, cut;
  ASSERT_EQ(g.Serialize(bad, passing, 0), ZYR_OK);
  bad.bytes[2 + 1 + 4 + 1 + 1 + 8 + 8] = 2;  // the stable byte
  ZyrBasFile h;
  EXPECT_EQ(h.Deserialize(bad, passing, 0), ZYR_E_CORRUPT_STREAM);
  EXPECT_FALSE(h.IsOpen());
  ASSERT_EQ(g.Serialize(cut, passing, 0), ZYR_OK);
  cut.bytes.resize(cut.bytes.size() - 3);
  EXPECT_EQ(h.Deserialize(cut, passing, 0), ZYR_E_CORRUPT_STREAM);
  EXPECT_FALSE(h.IsOpen());
}

// Writers of one shared log all make its folder at start: processes that
// make the same tree at the same moment all succeed.
TEST_F(FileTest, DirectoryTreeMadeByRacingProcesses) {
  for (int round = 0; round < 5; ++round) {
    std::u16string deep = WP("race" + std::to_string(round) + "/a/b/c/d/e");
    std::vector<pid_t> children;
    for (int i = 0; i < 6; ++i) {
      pid_t child = fork();
      if (child == 0) {
        // The deepest level may be made by another: "already exists" is what
        // such a caller hears, and the folder must stand when it returns.
        ZyrResult r = ZyrBasCreateDirectoryTree(deep.c_str());
        bool ok = (r == ZYR_OK || r == ZYR_E_ALREADY_EXISTS) && ZyrBasDirectoryExists(deep.c_str()) == ZYR_OK;
        _exit(ok ? 0 : 1);
      }
      children.push_back(child);
    }
    int failures = 0;
    for (pid_t child : children) {
      int status = 0;
      waitpid(child, &status, 0);
      if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) ++failures;
    }
    EXPECT_EQ(failures, 0) << "round " << round;
  }
}
