#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "base/memory.h"
#include "base/path.h"
#include "base/os/native_path.h"

namespace {

// Wide test texts are ASCII here; narrowing them keeps failure output legible.
std::string A(const char16_t* p, std::size_t n = ZYR_TERMINATED) {
  if (n == ZYR_TERMINATED) n = ZyrBasStrLen(p);
  std::string s;
  for (std::size_t i = 0; i < n; ++i) s += p[i] < 128 ? static_cast<char>(p[i]) : '#';
  return s;
}
std::string A(const ZyrBasString& s) { return A(s.Text(), s.Length()); }

// Input, expected output, and for the last argument of a join or a full
// path, the tail or the current directory.
struct Case {
  const char16_t* in;
  const char* out;
  const char16_t* with = nullptr;
};

// Runs `call` on each case; it gives the output text and checks the result.
template <class Call>
void Check(std::initializer_list<Case> cases, Call call) {
  for (const Case& c : cases) {
    SCOPED_TRACE(A(c.in) + (c.with ? " | " + A(c.with) : ""));
    ZyrBasString out;
    call(out, c);
    EXPECT_EQ(A(out), c.out);
  }
}

using Op = ZyrResult (*)(ZyrBasString&, const char16_t*, std::size_t);
void Check(Op op, std::initializer_list<Case> cases) {
  Check(cases, [op](ZyrBasString& out, const Case& c) { EXPECT_EQ(op(out, c.in, ZYR_TERMINATED), ZYR_OK); });
}

// The expected texts of some tables are written with "/", the separator
// that the algebra writes in the POSIX layer.
#define ZYR_SKIP_UNLESS_SLASH_WRITTEN()                                                     \
  if (kZyrBasPathSeparator != u'/')                                                         \
  GTEST_SKIP() << "the expected paths are written with \"/\", the separator of the POSIX " \
                  "layer; this build writes \"\\\""

}  // namespace

TEST(PathForms, AbsoluteAndRootLength) {
  for (auto [path, absolute] : {std::pair{u"C:", true}, {u"/\\server", true}, {u"C:x", false},
                                {u"/var/log/a.log", false} /* rooted, not absolute */, {u"", false}})
    EXPECT_EQ(ZyrBasPathIsAbsolute(path), absolute) << A(path);
  for (auto [path, length] : {std::pair<const char16_t*, std::size_t>{u"C:", 2}, {u"C:\\x", 3}, {u"\\\\", 2},
                              {u"\\\\s\\share", 9}, {u"\\\\s\\", 4}, {u"\\\\server", 8}, {u"/x", 1}, {u"x\\y", 0}})
    EXPECT_EQ(ZyrBasPathRootLength(path), length) << A(path);
  Check(ZyrBasPathRoot, {{u"//s/share/x", "//s/share"}});
}

TEST(PathParts, DirectoryDriveRootFileNameStemAndExtension) {
  ZYR_SKIP_UNLESS_SLASH_WRITTEN();
  Check(ZyrBasPathDirectory, {{u"C:", "C:/"} /* a written separator is "/" */, {u"C:\\x\\", "C:\\"},
                              {u"C:\\x\\y", "C:\\x"}, {u"C:\\x\\\\y", "C:\\x"}, {u"\\", "/"}, {u"x", ""},
                              {u"/var/log/a.log", "/var/log"}});
  // The target may be the input itself.
  ZyrBasString s;
  ASSERT_EQ(s.Assign(u"C:\\logs\\common.log"), ZYR_OK);
  ASSERT_EQ(ZyrBasPathDirectory(s, s.Text(), s.Length()), ZYR_OK);
  EXPECT_EQ(A(s), "C:\\logs");

  Check(ZyrBasPathDriveRoot, {{u"C:\\x\\y", "C:/"}, {u"dev:x", "dev:/"}});
  ASSERT_EQ(s.Assign(u"stale"), ZYR_OK);
  EXPECT_EQ(ZyrBasPathDriveRoot(s, u"\\\\s\\h"), ZYR_E_INVALID_DATA);
  EXPECT_TRUE(s.Empty());

  // "1:" has no drive letter; after a drive letter ":" is no separator.
  Check(ZyrBasPathFileName, {{u"d/a.log", "a.log"}, {u"C:", ""}, {u"1:", "1:"}, {u"C:x", "C:x"}, {u"a\\", ""}});
  Check(ZyrBasPathExtension,
        {{u"a.b\\c", ""}, {u"a.tar.gz", ".gz"}, {u"a.", ""}, {u"C:.x", ".x"}, {u"a.b:c", ""}});
  // The dot before the name does not count.
  Check(ZyrBasPathStem, {{u"C:\\d\\a.tar.gz", "a.tar"}, {u"a.b\\c", "c"}, {u"C:a.log", "a"}});
}

TEST(PathParts, ChangeExtension) {
  Check({{u"a\\", "a\\", u"log"}, {u"C:", "C:", u"log"}, {u"a", "a.log", u"log"}, {u"a.b", "a.c", u".c"},
         {u"d.x\\a", "d.x\\a.c", u"c"}},
        [](ZyrBasString& out, const Case& c) {
          EXPECT_EQ(ZyrBasPathChangeExtension(out, c.in, ZYR_TERMINATED, c.with), ZYR_OK);
        });
  ZyrBasString out;
  EXPECT_EQ(ZyrBasPathChangeExtension(out, u"a", ZYR_TERMINATED, u""), ZYR_E_INVALID_ARGUMENT);
}

TEST(PathJoin, Rules) {
  ZYR_SKIP_UNLESS_SLASH_WRITTEN();
  Check({{u"C:\\dir", "C:\\x", u"\\x"}, {u"\\\\s\\h\\d", "\\x", u"\\x"}, {u"a", "a/b", u"b"},
         {u"a\\", "a\\b", u"b"}, {u"a/", "a/b", u"b"}, {u"anything", "D:\\x", u"D:\\x"},
         {u"anything", "\\\\s\\h", u"\\\\s\\h"}, {u"base", "base", u""},
         // A POSIX absolute name is rooted: it stays itself after any base but a drive.
         {u"/home/u/logs", "/var/log/a.log", u"/var/log/a.log"},
         {u"C:x", "\\y", u"\\y"}},  // a drive-relative base is not absolute
        [](ZyrBasString& out, const Case& c) {
          EXPECT_EQ(ZyrBasPathJoin(out, c.in, ZYR_TERMINATED, c.with), ZYR_OK);
        });
  // The simple join: what stands is kept, what is added is "/".
  Check({{u"C:\\dir", "\\x", u"\\x"}, {u"C:\\dir", "C:\\dir/x", u"x"}}, [](ZyrBasString& out, const Case& c) {
    EXPECT_EQ(ZyrBasPathJoinSimple(out, c.in, ZYR_TERMINATED, c.with), ZYR_OK);
  });
}

TEST(PathFull, NormalisesByText) {
  ZYR_SKIP_UNLESS_SLASH_WRITTEN();
  Check({{u"a\\..\\b\\.\\c", "/home/u/b/c", u"\\home\\u"}, {u"../../../x", "/x", u"\\home\\u"},
         {u"/var//log/./a.log", "/var/log/a.log", u"\\home\\u"}, {u"logs\\", "/home/u/logs/", u"\\home\\u"},
         {u"C:\\a\\..\\..\\b", "C:/b", u"\\home"}, {u"C:x", "C:/x", u"\\home"},
         {u"\\x\\y", "D:/x/y", u"D:\\work"},  // rooted takes the drive of the current directory
         {u"//s/share/a/../../b", "//s/share/b", u"\\home"}, {u"\\\\s\\share\\..", "//s/share", u"\\home"},
         {u"name.", "/d/name.", u"\\d"},  // trailing dots are part of a name here
         // A name that starts with ":" at the root is no drive: normalising
         // twice gives the same path (Linux allows "/:x").
         {u"/:x/y", "/:x/y", u"\\home"}, {u":x", "/:x", u"\\"}, {u"\\y", "/y", u"\\:x"},
         {u"", "", u"\\home"}, {u"x", "", u"relative"}},
        [](ZyrBasString& out, const Case& c) {
          EXPECT_EQ(ZyrBasFullPathFrom(out, c.in, ZYR_TERMINATED, c.with),
                    *c.out ? ZYR_OK : ZYR_E_UNEXPECTED_SYSTEM_RESULT);
        });
  EXPECT_EQ(ZyrBasPathRootLength(u"\\:x"), 1u);
  EXPECT_FALSE(ZyrBasPathIsAbsolute(u"/:"));
}

TEST(PathFull, UsesTheProcessCurrentDirectory) {
  ZYR_SKIP_UNLESS_SLASH_WRITTEN();
  ZyrBasString cwd, full;
  ASSERT_EQ(ZyrBasCurrentDirectory(cwd), ZYR_OK);
  ASSERT_GT(cwd.Length(), 0u);
  EXPECT_EQ(cwd[0], u'/');
  ASSERT_EQ(ZyrBasFullPath(full, u"sub\\..\\f.log"), ZYR_OK);
  EXPECT_EQ(A(full), A(cwd) + (A(cwd) == "/" ? "" : "/") + "f.log");
}

TEST(PathFull, OutOfMemoryLeavesTargetAlone) {
  ZyrBasString out;
  ASSERT_EQ(out.Assign(u"kept"), ZYR_OK);
  const char16_t* longPath = u"C:\\a-rather-long-folder-name\\another-long-one\\file.log";
  ZyrBasTestFailAllocationsAfter(0);
  ZyrResult r = ZyrBasFullPathFrom(out, longPath, ZYR_TERMINATED, u"\\");
  ZyrBasTestFailAllocationsAfter(-1);
  EXPECT_EQ(r, ZYR_E_OUT_OF_MEMORY);
  EXPECT_EQ(A(out), "kept");
}

TEST(PathNative, SeparatorsEncodingAndInvalidBytes) {
  if (kZyrBasPathSeparator != u'/') GTEST_SKIP() << "native names of the POSIX layer: UTF-8 with escaped bytes";
  ZyrBasNarrowText n;
  auto native = [&n] { return std::string(n.Data(), n.Length()); };
  ASSERT_EQ(ZyrBasNativePath(u"\\var\\log/a.log", ZYR_TERMINATED, n), ZYR_OK);
  EXPECT_EQ(native(), "/var/log/a.log");
  // U+00E9, U+20AC and U+1F600 (a surrogate pair).
  const char16_t wide[] = {u'\u00e9', u'\u20ac', 0xd83d, 0xde00, 0};
  ASSERT_EQ(ZyrBasNativePath(wide, ZYR_TERMINATED, n), ZYR_OK);
  EXPECT_EQ(native(), "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80");

  // No partial names: NUL inside, a lone high surrogate, nothing at all.
  const char16_t withNul[] = {u'a', 0, u'b'};
  EXPECT_EQ(ZyrBasNativePath(withNul, 3, n), ZYR_E_PATH_NOT_FOUND);
  const char16_t lone[] = {u'a', 0xd800, u'b', 0};
  EXPECT_EQ(ZyrBasNativePath(lone, ZYR_TERMINATED, n), ZYR_E_PATH_NOT_FOUND);
  EXPECT_EQ(ZyrBasNativePath(u"", ZYR_TERMINATED, n), ZYR_E_PATH_NOT_FOUND);

  // An overlong "/", a stray continuation byte and a cut sequence survive
  // the way through wide text and back.
  const std::string raw = "a\xc0\xaf" "b\x80" "c\xe2\x82";
  ZyrBasString escaped;
  ASSERT_EQ(ZyrBasWideFromNative(raw.data(), raw.size(), escaped), ZYR_OK);
  EXPECT_EQ(escaped.Length(), 8u);
  EXPECT_EQ(escaped[1], 0xdcc0);
  ASSERT_EQ(ZyrBasNativePath(escaped.Text(), escaped.Length(), n), ZYR_OK);
  EXPECT_EQ(native(), raw);
}

namespace {

// NT names to the names of drives and shares; an empty expected text is a
// failure with `error`.
struct NtCase {
  const char16_t* in;
  const char* out;
  ZyrResult error = ZYR_OK;
};

void CheckNt(const ZyrBasDriveMap* map, std::initializer_list<NtCase> cases) {
  for (const NtCase& c : cases) {
    ZyrBasString out;
    EXPECT_EQ(ZyrBasNtToDosPath(map, out, c.in), c.error) << A(c.in);
    if (c.error == ZYR_OK) {
      EXPECT_EQ(A(out), c.out) << A(c.in);
    }
  }
}

}  // namespace

TEST(PathNtNames, ClassificationAndRedirectors) {
  const ZyrResult kInvalid = ZYR_E_INVALID_ARGUMENT;
  CheckNt(nullptr, {{u"C:\\x", "C:\\x"}, {u"C:x", "", kInvalid}, {u"relative", "", kInvalid},
                    {u"\\??\\C:\\x", "C:\\x"}, {u"\\\\?\\D:", "D:"}, {u"\\??\\C:x", "", kInvalid},
                    {u"\\\\?\\unc\\server\\share\\f", "\\\\server\\share\\f"},
                    {u"\\\\?\\Volume{1}\\x", "", kInvalid}, {u"\\\\.\\COM1", "", ZYR_E_UNSUPPORTED_TYPE},
                    {u"\\\\server\\share", "\\\\server\\share"}, {u"\\??\\UNC\\s\\h\\f", "\\\\s\\h\\f"},
                    // "\??\" alone is no NT object name; what is left is no device either.
                    {u"\\??\\", "", kInvalid},
                    {u"\\Device\\abc", "", kInvalid},  // fewer than 5 behind the prefix
                    {u"\\SystemRoot\\System32\\x", "", ZYR_E_PATH_NOT_FOUND}});
  CheckNt(nullptr, {{u"\\Device\\Mup\\;LanmanRedirector\\;Z:000\\server\\share\\f", "\\\\server\\share\\f"},
                    {u"\\Device\\LanmanRedirector\\;Z:000\\server\\share\\f", "\\\\server\\share\\f"},
                    {u"\\Device\\WinDfs\\Root\\s\\h", "\\\\s\\h"}, {u"\\Device\\HGFS\\s\\h", "\\\\s\\h"}});
}

TEST(PathNtNames, DriveMap) {
  ZyrBasDriveMap map;
  ZyrBasDriveMapClear(map);
  ZyrBasString out;
  EXPECT_EQ(ZyrBasDeviceToDrive(map, out, u"\\Device\\HarddiskVolume1"), ZYR_E_NOT_INITIALIZED);

  ASSERT_EQ(ZyrBasDriveMapAdd(map, u'A', u"\\Device\\Floppy0"), ZYR_OK);
  ASSERT_EQ(ZyrBasDriveMapAdd(map, u'C', u"\\Device\\HarddiskVolume1"), ZYR_OK);
  ASSERT_EQ(ZyrBasDriveMapAdd(map, u'Z', u"\\Device\\LanmanRedirector\\;Z:0000000000012345\\server\\share"),
            ZYR_OK);
  ZyrBasDriveMapFinish(map);
  ASSERT_TRUE(map.loaded);
  EXPECT_EQ(map.entries[0].letter, u'C');
  EXPECT_EQ(map.entries[1].letter, u'A');
  EXPECT_EQ(A(map.entries[2].target, map.entries[2].targetLength), "\\Device\\LanmanRedirector\\server\\share");

  ASSERT_EQ(ZyrBasDeviceToDrive(map, out, u"\\Device\\HarddiskVolume1"), ZYR_OK);
  EXPECT_EQ(A(out), "C:");
  EXPECT_EQ(ZyrBasDeviceToDrive(map, out, u"\\Device\\HarddiskVolume1\\x"), ZYR_E_PATH_NOT_FOUND);
  CheckNt(&map, {{u"\\Device\\HarddiskVolume1\\logs\\a.log", "C:\\logs\\a.log"},
                 {u"\\Device\\HarddiskVolume2\\x", "", ZYR_E_PATH_NOT_FOUND}});
}
