#include <gtest/gtest.h>

#include <string>

#include "base/memory.h"
#include "base/path.h"
#include "base/posix/native_path.h"

namespace {

// Wide test texts are ASCII here; narrowing them keeps failure output legible.
std::string A(const char16_t* p, std::size_t n) {
  std::string s;
  for (std::size_t i = 0; i < n; ++i) s += p[i] < 128 ? static_cast<char>(p[i]) : '#';
  return s;
}
std::string A(const ZyrBasString& s) { return A(s.Text(), s.Length()); }

using Op = ZyrResult (*)(ZyrBasString&, const char16_t*, std::size_t);

std::string Apply(Op op, const char16_t* path, ZyrResult expected = ZYR_OK) {
  ZyrBasString out;
  EXPECT_EQ(op(out, path, ZYR_TERMINATED), expected) << A(path, ZyrBasStrLen(path));
  return A(out);
}

std::string Join(const char16_t* base, const char16_t* tail, bool simple = false) {
  ZyrBasString out;
  ZyrResult r = simple ? ZyrBasPathJoinSimple(out, base, ZYR_TERMINATED, tail)
                       : ZyrBasPathJoin(out, base, ZYR_TERMINATED, tail);
  EXPECT_EQ(r, ZYR_OK);
  return A(out);
}

std::string Full(const char16_t* path, const char16_t* cwd, ZyrResult expected = ZYR_OK) {
  ZyrBasString out;
  EXPECT_EQ(ZyrBasFullPathFrom(out, path, ZYR_TERMINATED, cwd), expected) << A(path, ZyrBasStrLen(path));
  return A(out);
}

}  // namespace

TEST(PathForms, AbsoluteAndRootLength) {
  EXPECT_TRUE(ZyrBasPathIsAbsolute(u"C:"));
  EXPECT_TRUE(ZyrBasPathIsAbsolute(u"/\\server"));
  EXPECT_FALSE(ZyrBasPathIsAbsolute(u"C:x"));
  EXPECT_FALSE(ZyrBasPathIsAbsolute(u"/var/log/a.log"));  // rooted, not absolute
  EXPECT_FALSE(ZyrBasPathIsAbsolute(u""));

  EXPECT_EQ(ZyrBasPathRootLength(u"C:"), 2u);
  EXPECT_EQ(ZyrBasPathRootLength(u"C:\\x"), 3u);
  EXPECT_EQ(ZyrBasPathRootLength(u"\\\\"), 2u);
  EXPECT_EQ(ZyrBasPathRootLength(u"\\\\s\\share"), 9u);
  EXPECT_EQ(ZyrBasPathRootLength(u"\\\\s\\"), 4u);
  EXPECT_EQ(ZyrBasPathRootLength(u"\\\\server"), 8u);
  EXPECT_EQ(ZyrBasPathRootLength(u"/x"), 1u);
  EXPECT_EQ(ZyrBasPathRootLength(u"x\\y"), 0u);
  EXPECT_EQ(Apply(ZyrBasPathRoot, u"//s/share/x"), "//s/share");
}

TEST(PathParts, Directory) {
  EXPECT_EQ(Apply(ZyrBasPathDirectory, u"C:"), "C:/");  // a written separator is "/"
  EXPECT_EQ(Apply(ZyrBasPathDirectory, u"C:\\x\\"), "C:\\");
  EXPECT_EQ(Apply(ZyrBasPathDirectory, u"C:\\x\\y"), "C:\\x");
  EXPECT_EQ(Apply(ZyrBasPathDirectory, u"C:\\x\\\\y"), "C:\\x");
  EXPECT_EQ(Apply(ZyrBasPathDirectory, u"\\"), "/");
  EXPECT_EQ(Apply(ZyrBasPathDirectory, u"x"), "");
  EXPECT_EQ(Apply(ZyrBasPathDirectory, u"/var/log/a.log"), "/var/log");

  // The target may be the input itself.
  ZyrBasString s;
  ASSERT_EQ(s.Assign(u"C:\\logs\\common.log"), ZYR_OK);
  ASSERT_EQ(ZyrBasPathDirectory(s, s.Text(), s.Length()), ZYR_OK);
  EXPECT_EQ(A(s), "C:\\logs");
}

TEST(PathParts, DriveRootAndFileName) {
  EXPECT_EQ(Apply(ZyrBasPathDriveRoot, u"C:\\x\\y"), "C:/");
  EXPECT_EQ(Apply(ZyrBasPathDriveRoot, u"dev:x"), "dev:/");
  ZyrBasString out;
  ASSERT_EQ(out.Assign(u"stale"), ZYR_OK);
  EXPECT_EQ(ZyrBasPathDriveRoot(out, u"\\\\s\\h"), ZYR_E_INVALID_DATA);
  EXPECT_TRUE(out.Empty());

  EXPECT_EQ(Apply(ZyrBasPathFileName, u"d/a.log"), "a.log");
  EXPECT_EQ(Apply(ZyrBasPathFileName, u"C:"), "");
  EXPECT_EQ(Apply(ZyrBasPathFileName, u"1:"), "1:");  // not a drive letter
  EXPECT_EQ(Apply(ZyrBasPathFileName, u"C:x"), "C:x");  // ":" is no separator here
  EXPECT_EQ(Apply(ZyrBasPathFileName, u"a\\"), "");
}

TEST(PathParts, StemAndExtension) {
  EXPECT_EQ(Apply(ZyrBasPathExtension, u"a.b\\c"), "");
  EXPECT_EQ(Apply(ZyrBasPathExtension, u"a.tar.gz"), ".gz");
  EXPECT_EQ(Apply(ZyrBasPathExtension, u"a."), "");
  EXPECT_EQ(Apply(ZyrBasPathExtension, u"C:.x"), ".x");
  EXPECT_EQ(Apply(ZyrBasPathExtension, u"a.b:c"), "");

  EXPECT_EQ(Apply(ZyrBasPathStem, u"C:\\d\\a.tar.gz"), "a.tar");
  EXPECT_EQ(Apply(ZyrBasPathStem, u"a.b\\c"), "c");  // the dot before the name does not count
  EXPECT_EQ(Apply(ZyrBasPathStem, u"C:a.log"), "a");
}

TEST(PathParts, ChangeExtension) {
  auto change = [](const char16_t* path, const char16_t* ext) {
    ZyrBasString out;
    EXPECT_EQ(ZyrBasPathChangeExtension(out, path, ZYR_TERMINATED, ext), ZYR_OK);
    return A(out);
  };
  EXPECT_EQ(change(u"a\\", u"log"), "a\\");
  EXPECT_EQ(change(u"C:", u"log"), "C:");
  EXPECT_EQ(change(u"a", u"log"), "a.log");
  EXPECT_EQ(change(u"a.b", u".c"), "a.c");
  EXPECT_EQ(change(u"d.x\\a", u"c"), "d.x\\a.c");
  ZyrBasString out;
  EXPECT_EQ(ZyrBasPathChangeExtension(out, u"a", ZYR_TERMINATED, u""), ZYR_E_INVALID_ARGUMENT);
}

TEST(PathJoin, Rules) {
  EXPECT_EQ(Join(u"C:\\dir", u"\\x"), "C:\\x");
  EXPECT_EQ(Join(u"\\\\s\\h\\d", u"\\x"), "\\x");
  EXPECT_EQ(Join(u"a", u"b"), "a/b");
  EXPECT_EQ(Join(u"a\\", u"b"), "a\\b");
  EXPECT_EQ(Join(u"a/", u"b"), "a/b");
  EXPECT_EQ(Join(u"anything", u"D:\\x"), "D:\\x");
  EXPECT_EQ(Join(u"anything", u"\\\\s\\h"), "\\\\s\\h");
  EXPECT_EQ(Join(u"base", u""), "base");
  // A POSIX absolute name is rooted: it stays itself after any base but a drive.
  EXPECT_EQ(Join(u"/home/u/logs", u"/var/log/a.log"), "/var/log/a.log");
  EXPECT_EQ(Join(u"C:x", u"\\y"), "\\y");  // a drive-relative base is not absolute

  EXPECT_EQ(Join(u"C:\\dir", u"\\x", true), "\\x");
  EXPECT_EQ(Join(u"C:\\dir", u"x", true), "C:\\dir/x");  // what stands is kept, what is added is "/"
}

TEST(PathFull, NormalisesByText) {
  EXPECT_EQ(Full(u"a\\..\\b\\.\\c", u"\\home\\u"), "/home/u/b/c");
  EXPECT_EQ(Full(u"../../../x", u"\\home\\u"), "/x");
  EXPECT_EQ(Full(u"/var//log/./a.log", u"\\home\\u"), "/var/log/a.log");
  EXPECT_EQ(Full(u"logs\\", u"\\home\\u"), "/home/u/logs/");
  EXPECT_EQ(Full(u"C:\\a\\..\\..\\b", u"\\home"), "C:/b");
  EXPECT_EQ(Full(u"C:x", u"\\home"), "C:/x");
  EXPECT_EQ(Full(u"\\x\\y", u"D:\\work"), "D:/x/y");  // rooted takes the drive of the current directory
  EXPECT_EQ(Full(u"//s/share/a/../../b", u"\\home"), "//s/share/b");
  EXPECT_EQ(Full(u"\\\\s\\share\\..", u"\\home"), "//s/share");
  EXPECT_EQ(Full(u"name.", u"\\d"), "/d/name.");  // trailing dots are part of a name here
  // A name that starts with ":" at the root is no drive: normalising twice
  // gives the same path (Linux allows "/:x").
  EXPECT_EQ(Full(u"/:x/y", u"\\home"), "/:x/y");
  EXPECT_EQ(Full(u":x", u"\\"), "/:x");
  EXPECT_EQ(Full(u"\\y", u"\\:x"), "/y");
  EXPECT_EQ(ZyrBasPathRootLength(u"\\:x"), 1u);
  EXPECT_FALSE(ZyrBasPathIsAbsolute(u"/:"));
  Full(u"", u"\\home", ZYR_E_UNEXPECTED_SYSTEM_RESULT);
  Full(u"x", u"relative", ZYR_E_UNEXPECTED_SYSTEM_RESULT);
}

TEST(PathFull, UsesTheProcessCurrentDirectory) {
  ZyrBasString cwd, full;
  ASSERT_EQ(ZyrBasCurrentDirectory(cwd), ZYR_OK);
  ASSERT_GT(cwd.Length(), 0u);
  EXPECT_EQ(cwd[0], u'/');
  ASSERT_EQ(ZyrBasFullPath(full, u"sub\\..\\f.log"), ZYR_OK);
  std::string expected = A(cwd);
  if (expected != "/") expected += "/";
  EXPECT_EQ(A(full), expected + "f.log");
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

TEST(PathNative, SeparatorsAndEncoding) {
  ZyrBasNarrowText n;
  ASSERT_EQ(ZyrBasNativePath(u"\\var\\log/a.log", ZYR_TERMINATED, n), ZYR_OK);
  EXPECT_EQ(std::string(n.Data(), n.Length()), "/var/log/a.log");
  // U+00E9, U+20AC and U+1F600 (a surrogate pair).
  const char16_t wide[] = {u'\u00e9', u'\u20ac', 0xd83d, 0xde00, 0};
  ASSERT_EQ(ZyrBasNativePath(wide, ZYR_TERMINATED, n), ZYR_OK);
  EXPECT_EQ(std::string(n.Data(), n.Length()), "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80");

  // No partial names: NUL inside, a lone high surrogate, nothing at all.
  const char16_t withNul[] = {u'a', 0, u'b'};
  EXPECT_EQ(ZyrBasNativePath(withNul, 3, n), ZYR_E_PATH_NOT_FOUND);
  const char16_t lone[] = {u'a', 0xd800, u'b', 0};
  EXPECT_EQ(ZyrBasNativePath(lone, ZYR_TERMINATED, n), ZYR_E_PATH_NOT_FOUND);
  EXPECT_EQ(ZyrBasNativePath(u"", ZYR_TERMINATED, n), ZYR_E_PATH_NOT_FOUND);
}

TEST(PathNative, InvalidBytesRoundTrip) {
  // An overlong "/", a stray continuation byte and a cut sequence.
  const char raw[] = "a\xc0\xaf" "b\x80" "c\xe2\x82";
  ZyrBasString wide;
  ASSERT_EQ(ZyrBasWideFromNative(raw, sizeof raw - 1, wide), ZYR_OK);
  EXPECT_EQ(wide.Length(), 8u);
  EXPECT_EQ(wide[1], 0xdcc0);
  ZyrBasNarrowText back;
  ASSERT_EQ(ZyrBasNativePath(wide.Text(), wide.Length(), back), ZYR_OK);
  EXPECT_EQ(std::string(back.Data(), back.Length()), std::string(raw, sizeof raw - 1));
}

namespace {

std::string NtToDos(const ZyrBasDriveMap* map, const char16_t* path, ZyrResult expected = ZYR_OK) {
  ZyrBasString out;
  EXPECT_EQ(ZyrBasNtToDosPath(map, out, path), expected) << A(path, ZyrBasStrLen(path));
  return A(out);
}

}  // namespace

TEST(PathNtNames, Classification) {
  EXPECT_EQ(NtToDos(nullptr, u"C:\\x"), "C:\\x");
  NtToDos(nullptr, u"C:x", ZYR_E_INVALID_ARGUMENT);
  NtToDos(nullptr, u"relative", ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(NtToDos(nullptr, u"\\??\\C:\\x"), "C:\\x");
  EXPECT_EQ(NtToDos(nullptr, u"\\\\?\\D:"), "D:");
  NtToDos(nullptr, u"\\??\\C:x", ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(NtToDos(nullptr, u"\\\\?\\unc\\server\\share\\f"), "\\\\server\\share\\f");
  NtToDos(nullptr, u"\\\\?\\Volume{1}\\x", ZYR_E_INVALID_ARGUMENT);
  NtToDos(nullptr, u"\\\\.\\COM1", ZYR_E_UNSUPPORTED_TYPE);
  EXPECT_EQ(NtToDos(nullptr, u"\\\\server\\share"), "\\\\server\\share");
  EXPECT_EQ(NtToDos(nullptr, u"\\??\\UNC\\s\\h\\f"), "\\\\s\\h\\f");
  // "\??\" alone is no NT object name; what is left is no device either.
  NtToDos(nullptr, u"\\??\\", ZYR_E_INVALID_ARGUMENT);
  NtToDos(nullptr, u"\\Device\\abc", ZYR_E_INVALID_ARGUMENT);  // fewer than 5 behind the prefix
  NtToDos(nullptr, u"\\SystemRoot\\System32\\x", ZYR_E_PATH_NOT_FOUND);
}

TEST(PathNtNames, Redirectors) {
  EXPECT_EQ(NtToDos(nullptr, u"\\Device\\Mup\\;LanmanRedirector\\;Z:000\\server\\share\\f"),
            "\\\\server\\share\\f");
  EXPECT_EQ(NtToDos(nullptr, u"\\Device\\LanmanRedirector\\;Z:000\\server\\share\\f"),
            "\\\\server\\share\\f");
  EXPECT_EQ(NtToDos(nullptr, u"\\Device\\WinDfs\\Root\\s\\h"), "\\\\s\\h");
  EXPECT_EQ(NtToDos(nullptr, u"\\Device\\HGFS\\s\\h"), "\\\\s\\h");
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

  EXPECT_EQ(NtToDos(&map, u"\\Device\\HarddiskVolume1\\logs\\a.log"), "C:\\logs\\a.log");
  NtToDos(&map, u"\\Device\\HarddiskVolume2\\x", ZYR_E_PATH_NOT_FOUND);

  ZyrBasDriveMap none;
  ASSERT_EQ(ZyrBasBuildDriveMap(none), ZYR_OK);
  EXPECT_TRUE(none.loaded);
  EXPECT_EQ(none.count, 0u);
}
