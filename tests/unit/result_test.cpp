#include <gtest/gtest.h>

#include <cerrno>

#include "base/result.h"

TEST(ResultMapping, NtStatusRows) {
  EXPECT_EQ(ZyrResultFromNtStatus(0), ZYR_OK);
  EXPECT_EQ(ZyrResultFromNtStatus(0x80000005u), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(ZyrResultFromNtStatus(0x80000006u), ZYR_RESULT(0xa0010046));  // no more files, a warning
  EXPECT_EQ(ZyrResultFromNtStatus(0xc0000034u), ZYR_E_FILE_NOT_FOUND);
  EXPECT_EQ(ZyrResultFromNtStatus(0xc0000022u), ZYR_E_ACCESS_DENIED);
  EXPECT_EQ(ZyrResultFromNtStatus(0xc000003au), ZYR_E_PATH_NOT_FOUND);
  EXPECT_EQ(ZyrResultFromNtStatus(0xc000007fu), ZYR_E_DISK_FULL);
  EXPECT_EQ(ZyrResultFromNtStatus(0xc000000du), ZYR_E_INVALID_ARGUMENT);
}

TEST(ResultMapping, PositiveStatusIsInformational) {
  ZyrResult r = ZyrResultFromNtStatus(0x103);  // pending: ERROR_IO_PENDING 997, no row
  EXPECT_EQ(r, ZYR_RESULT(0x400703e5));
  EXPECT_TRUE(ZyrSucceeded(r));
}

TEST(ResultMapping, UnmappedErrorKeepsTheRawFamily) {
  // Lock not granted: Win32 33 has no row.
  EXPECT_EQ(ZyrResultFromNtStatus(0xc0000055u), ZYR_RESULT(0xc0070021));
  // An unknown status: the system's "no message" number, low 16 bits kept.
  EXPECT_EQ(ZyrResultFromNtStatus(0xc0ffee00u), ZYR_RESULT(0xc007013d));
}

TEST(ResultMapping, Win32Numbers) {
  EXPECT_EQ(ZyrResultFromWin32Error(0), ZYR_OK);
  EXPECT_EQ(ZyrResultFromWin32Error(5), ZYR_E_ACCESS_DENIED);
  EXPECT_EQ(ZyrResultFromWin32Error(161), ZYR_RESULT(0xc00700a1));
  EXPECT_EQ(ZyrResultFromWin32Error(126), ZYR_E_PATH_NOT_FOUND);  // a module not found
  EXPECT_EQ(ZyrResultFromWin32Error(80), ZYR_E_ALREADY_EXISTS);
  EXPECT_EQ(ZyrResultFromWin32Error(183), ZYR_E_ALREADY_EXISTS);
  EXPECT_EQ(ZyrResultFromWin32Error(14), ZYR_E_OUT_OF_MEMORY);
  EXPECT_EQ(ZyrResultFromWin32Error(0x12345), ZYR_RESULT(0xc0072345));
}

TEST(ResultMapping, ErrnoValues) {
  EXPECT_EQ(ZyrResultFromErrno(0), ZYR_OK);
  EXPECT_EQ(ZyrResultFromErrno(ENOENT), ZYR_E_FILE_NOT_FOUND);
  EXPECT_EQ(ZyrResultFromErrno(ENOTDIR), ZYR_E_PATH_NOT_FOUND);
  EXPECT_EQ(ZyrResultFromErrno(EACCES), ZYR_E_ACCESS_DENIED);
  EXPECT_EQ(ZyrResultFromErrno(EPERM), ZYR_E_ACCESS_DENIED);
  EXPECT_EQ(ZyrResultFromErrno(ENOSPC), ZYR_E_DISK_FULL);
  EXPECT_EQ(ZyrResultFromErrno(EFBIG), ZYR_E_DISK_FULL);
  EXPECT_EQ(ZyrResultFromErrno(EEXIST), ZYR_E_ALREADY_EXISTS);
  EXPECT_EQ(ZyrResultFromErrno(EINVAL), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(ZyrResultFromErrno(ENOMEM), ZYR_E_OUT_OF_MEMORY);
  EXPECT_EQ(ZyrResultFromErrno(EBUSY), ZYR_E_SHARING_VIOLATION);
  EXPECT_EQ(ZyrResultFromErrno(ENAMETOOLONG), ZYR_E_INVALID_NAME);
}

TEST(ResultMapping, WarningsTestAsFailures) {
  EXPECT_TRUE(ZyrFailed(ZYR_W_TIMEOUT));
  EXPECT_TRUE(ZyrSucceeded(ZYR_I_NO_MORE_ITEMS));
  EXPECT_EQ(ZyrResultAsWarning(ZYR_RESULT(0xe0010002)), ZYR_RESULT(0xa0010002));
}
