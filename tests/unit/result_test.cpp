#include <gtest/gtest.h>

#include <cerrno>

#include "base/result.h"

TEST(ResultMapping, NtStatusRowsAndRawFamilies) {
  const std::pair<std::uint32_t, ZyrResult> rows[] = {
      {0, ZYR_OK}, {0x80000005u, ZYR_E_BUFFER_TOO_SMALL},
      {0x80000006u, ZYR_RESULT(0xa0010046)},  // no more files, a warning
      {0xc0000034u, ZYR_E_FILE_NOT_FOUND}, {0xc0000022u, ZYR_E_ACCESS_DENIED},
      {0xc000003au, ZYR_E_PATH_NOT_FOUND}, {0xc000007fu, ZYR_E_DISK_FULL},
      {0xc000000du, ZYR_E_INVALID_ARGUMENT},
      {0x103, ZYR_RESULT(0x400703e5)},         // pending: ERROR_IO_PENDING 997, no row, informational
      {0xc0000055u, ZYR_RESULT(0xc0070021)},   // lock not granted: Win32 33 has no row
      {0xc0ffee00u, ZYR_RESULT(0xc007013d)}};  // unknown: the system's "no message" number
  for (auto [status, result] : rows) EXPECT_EQ(ZyrResultFromNtStatus(status), result) << std::hex << status;
  EXPECT_TRUE(ZyrSucceeded(ZyrResultFromNtStatus(0x103)));
}

TEST(ResultMapping, Win32AndErrnoNumbers) {
  const std::pair<std::uint32_t, ZyrResult> win32[] = {
      {0, ZYR_OK}, {5, ZYR_E_ACCESS_DENIED}, {161, ZYR_RESULT(0xc00700a1)},
      {126, ZYR_E_PATH_NOT_FOUND},  // a module not found
      {80, ZYR_E_ALREADY_EXISTS}, {183, ZYR_E_ALREADY_EXISTS}, {14, ZYR_E_OUT_OF_MEMORY},
      {0x12345, ZYR_RESULT(0xc0072345)}};  // low 16 bits kept
  for (auto [code, result] : win32) EXPECT_EQ(ZyrResultFromWin32Error(code), result) << code;
  const std::pair<int, ZyrResult> errnos[] = {
      {0, ZYR_OK}, {ENOENT, ZYR_E_FILE_NOT_FOUND}, {ENOTDIR, ZYR_E_PATH_NOT_FOUND},
      {EACCES, ZYR_E_ACCESS_DENIED}, {EPERM, ZYR_E_ACCESS_DENIED}, {ENOSPC, ZYR_E_DISK_FULL},
      {EFBIG, ZYR_E_DISK_FULL}, {EEXIST, ZYR_E_ALREADY_EXISTS}, {EINVAL, ZYR_E_INVALID_ARGUMENT},
      {ENOMEM, ZYR_E_OUT_OF_MEMORY}, {EBUSY, ZYR_E_SHARING_VIOLATION}, {ENAMETOOLONG, ZYR_E_INVALID_NAME}};
  for (auto [code, result] : errnos) EXPECT_EQ(ZyrResultFromErrno(code), result) << code;
}

TEST(ResultMapping, WarningsTestAsFailures) {
  EXPECT_TRUE(ZyrFailed(ZYR_W_TIMEOUT));
  EXPECT_TRUE(ZyrSucceeded(ZYR_I_NO_MORE_ITEMS));
  EXPECT_EQ(ZyrResultAsWarning(ZYR_RESULT(0xe0010002)), ZYR_RESULT(0xa0010002));
}
