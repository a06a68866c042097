// The NT layer where it differs from the POSIX one: files appended through
// a handle for appending alone, folder notification, the registry, and the
// descriptor that a log file is made with.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>

#include "base/file.h"
#include "base/file_lock.h"
#include "base/folder_watch.h"
#include "base/registry.h"
#include "base/security.h"
#include "base/thread_data.h"

namespace {

std::u16string TempFolder(const char16_t* tag) {
  wchar_t base[MAX_PATH];
  GetTempPathW(MAX_PATH, base);
  std::wstring folder = std::wstring(base) + L"zyr-" + std::wstring(tag, tag + std::char_traits<char16_t>::length(tag)) +
                        L"-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(GetTickCount());
  CreateDirectoryW(folder.c_str(), nullptr);
  return std::u16string(folder.begin(), folder.end());
}

TEST(NtFile, AppendModeWritesAtTheEndAndTellsWhere) {
  std::u16string path = TempFolder(u"append") + u"\\a.log";
  ZyrBasFile file;
  ASSERT_EQ(file.Open(path.c_str(), ZYR_FILE_OPEN_ALWAYS, ZYR_FILE_READ | ZYR_FILE_WRITE, 7, 0), ZYR_OK);
  std::size_t done = 0;
  ASSERT_EQ(file.WriteAt(0, "mark", 4, &done), ZYR_OK);
  ASSERT_EQ(file.SetAppendMode(), ZYR_OK);
  struct Case {
    const char* bytes;
    std::int64_t end;
  } cases[] = {{"one\r\n", 9}, {"second\r\n", 17}};
  for (const Case& c : cases) {
    ASSERT_EQ(file.Append(c.bytes, std::strlen(c.bytes), &done), ZYR_OK);
    std::int64_t end = 0;
    ASSERT_EQ(file.AppendEnd(&end), ZYR_OK);
    EXPECT_EQ(end, c.end) << c.bytes;
  }
  char back[17] = {};
  ASSERT_EQ(file.ReadAt(0, back, 17, &done), ZYR_OK);
  EXPECT_EQ(std::string(back, 17), "markone\r\nsecond\r\n");
}

// A slot's data is the calling thread's own, and a thread's end frees it.
ZYR_THREAD_DATA(int, tCounter);
TEST(NtThreadData, EachThreadHasItsOwnBlock) {
  int* mine = tCounter.Get();
  ASSERT_NE(mine, nullptr);
  *mine = 7;
  int* other = nullptr;
  HANDLE h = CreateThread(
      nullptr, 0,
      [](void* out) -> DWORD {
        *static_cast<int**>(out) = tCounter.Get();
        return 0;
      },
      &other, 0, nullptr);
  WaitForSingleObject(h, INFINITE);
  CloseHandle(h);
  EXPECT_NE(other, mine);
  EXPECT_EQ(*tCounter.Get(), 7);
}

}  // namespace

namespace {

// Locks belong to the open file: a second open of the same file in the same
// process competes like another process would.
TEST(NtFile, LockIsTriedNeverWaitedFor) {
  std::u16string path = TempFolder(u"lock") + u"\\a.lock";
  ZyrBasFile first, second;
  ASSERT_EQ(first.Open(path.c_str(), ZYR_FILE_OPEN_ALWAYS, ZYR_FILE_READ | ZYR_FILE_WRITE, 7, 0), ZYR_OK);
  ASSERT_EQ(second.Open(path.c_str(), ZYR_FILE_OPEN_ALWAYS, ZYR_FILE_READ | ZYR_FILE_WRITE, 7, 0), ZYR_OK);
  ZyrResult r = ZyrBasTryLockFile(first, true);
  if (r == ZYR_E_NOT_SUPPORTED) GTEST_SKIP() << "NtLockFile is not implemented by this system (wine 8 refuses it)";
  ASSERT_EQ(r, ZYR_OK);
  EXPECT_EQ(ZyrBasTryLockFile(second, true), ZYR_W_TIMEOUT);
  EXPECT_EQ(ZyrBasUnlockFile(first), ZYR_OK);
  EXPECT_EQ(ZyrBasTryLockFile(second, true), ZYR_OK);
}

// A log is moved away while its writers hold it open.
TEST(NtFile, OpenFileMovesAndIsNoLongerAtItsName) {
  std::u16string folder = TempFolder(u"move");
  std::u16string live = folder + u"\\a.log", rolled = folder + u"\\a.log.1";
  ZyrBasFile file;
  ASSERT_EQ(file.Open(live.c_str(), ZYR_FILE_OPEN_ALWAYS, ZYR_FILE_READ | ZYR_FILE_WRITE, 7, 0), ZYR_OK);
  bool same = false;
  ASSERT_EQ(file.IsAt(live.c_str(), &same), ZYR_OK);
  EXPECT_TRUE(same);
  ASSERT_EQ(ZyrBasMoveFile(live.c_str(), rolled.c_str()), ZYR_OK);
  ASSERT_EQ(file.IsAt(live.c_str(), &same), ZYR_OK);
  EXPECT_FALSE(same);
  ASSERT_EQ(file.IsAt(rolled.c_str(), &same), ZYR_OK);
  EXPECT_TRUE(same);
  ZyrBasDirEnum e;
  ASSERT_EQ(e.Open(folder.c_str(), u"a.log.*", ZYR_ENUM_FILES), ZYR_OK);
  const ZyrBasDirItem* item = nullptr;
  ASSERT_EQ(e.Current(&item), ZYR_OK);
  EXPECT_EQ(std::u16string(item->Name()), u"a.log.1");
  EXPECT_NE(item->CreationTime(), 0);
  EXPECT_EQ(e.Next(), ZYR_I_NO_MORE_ITEMS);
}

}  // namespace
