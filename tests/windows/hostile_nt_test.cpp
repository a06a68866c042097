// The NT answers to hostile neighbours: what is no file on a disk is not
// opened as a configuration, log or lock file, and the remote blob's bytes
// are read by the system, which answers an unreadable byte with a failure.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstring>
#include <string>

#include "base/file.h"
#include "base/memory.h"
#include "base/trust.h"

namespace {

TEST(NtHostile, OnlyFilesOnADiskAreOpenedWhenAFileIsWanted) {
  wchar_t base[MAX_PATH];
  GetTempPathW(MAX_PATH, base);
  std::wstring folder = std::wstring(base) + L"zyr-hostile-" + std::to_wstring(GetCurrentProcessId());
  CreateDirectoryW(folder.c_str(), nullptr);
  std::wstring pipeName = L"\\\\.\\pipe\\zyr-hostile-" + std::to_wstring(GetCurrentProcessId());
  HANDLE pipe = CreateNamedPipeW(pipeName.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 512, 512, 0, nullptr);
  ASSERT_NE(pipe, INVALID_HANDLE_VALUE);
  struct Case {
    std::wstring path;
    bool fails;
  } cases[] = {
      {folder + L"\\a.log", false},  // made by the open
      {folder, true},                // a folder
      {pipeName, true},              // a pipe with a server waiting
      {L"NUL", true},
  };
  for (const Case& c : cases) {
    std::u16string path(c.path.begin(), c.path.end());
    ZyrBasFile file;
    ZyrResult r = file.Open(path.c_str(), ZYR_FILE_OPEN_ALWAYS, ZYR_FILE_READ | ZYR_FILE_WRITE, 7, ZYR_FILE_REGULAR_ONLY);
    if (c.fails)
      EXPECT_TRUE(ZyrFailed(r)) << std::string(c.path.begin(), c.path.end());
    else
      EXPECT_EQ(r, ZYR_OK);
  }
  CloseHandle(pipe);
  // The file this process made, in a folder it made, is its own.
  std::u16string made(folder.begin(), folder.end());
  made += u"\\a.log";
  ZyrBasFile file;
  ASSERT_EQ(file.Open(made.c_str(), ZYR_FILE_OPEN_EXISTING, ZYR_FILE_READ, 7, ZYR_FILE_REGULAR_ONLY), ZYR_OK);
  EXPECT_EQ(ZyrBasCheckTrusted(file, made.c_str()), ZYR_OK);
}

// A blob that ends at a page end is the POSIX tests' case: wine reads for
// the system through the host, which reads reserved pages as zeros.
TEST(NtHostile, ForeignBytesThatCannotBeReadAreAFailure) {
  char source[16];
  std::memset(source, 'x', sizeof source);
  char out[16] = {};
  struct Case {
    const void* source;
    std::size_t count;
    ZyrResult expected;
  } cases[] = {
      {source, 16, ZYR_OK},
      {reinterpret_cast<const void*>(0xffff800000000000ull), 16, ZYR_E_INVALID_ADDRESS},  // the kernel's half
      {nullptr, 4, ZYR_E_INVALID_ADDRESS},
  };
  for (const Case& c : cases) EXPECT_EQ(ZyrBasCopyForeign(out, c.source, c.count), c.expected) << c.source;
  EXPECT_EQ(std::string(out, 16), std::string(16, 'x'));
}

}  // namespace
