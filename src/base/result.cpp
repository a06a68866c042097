#include "base/result.h"

namespace {

struct Row {
  std::uint32_t win32;
  std::uint16_t code;
};

// Search order matters only in that the first match wins; no number stands
// twice.
constexpr Row kRows[33] = {
    {2, 0x003d},    {3, 0x003e},   {6, 0x003f},    {4306, 0x0040}, {4307, 0x0041},
    {30, 0x0042},   {29, 0x0043},  {122, 0x0044},  {13, 0x0045},   {18, 0x0046},
    {52, 0x0047},   {1630, 0x0048}, {24, 0x0049},  {23, 0x004a},   {123, 0x004b},
    {4312, 0x004c}, {487, 0x004d}, {12, 0x004e},   {183, 0x004f},  {87, 0x0002},
    {131, 0x0051},  {998, 0x0052}, {14, 0x0001},   {32, 0x0053},   {50, 0x0054},
    {4317, 0x0055}, {1, 0x0056},   {995, 0x0057},  {5, 0x0058},    {10061, 0x0190},
    {126, 0x003e},  {80, 0x004f},  {112, 0x0097},
};

const Row* FindRow(std::uint32_t win32) {
  for (const Row& row : kRows)
    if (row.win32 == win32) return &row;
  return nullptr;
}

struct StatusRow {
  std::uint32_t status;
  std::uint32_t win32;
};

// The NT statuses that the library names, with the Win32 numbers that the
// system's own translation gives for them.
constexpr StatusRow kStatuses[] = {
    {0x00000102, 258},   // STATUS_TIMEOUT
    {0x00000103, 997},   // STATUS_PENDING
    {0x80000005, 234},   // STATUS_BUFFER_OVERFLOW
    {0x80000006, 18},    // STATUS_NO_MORE_FILES
    {0xc0000002, 1},     // STATUS_NOT_IMPLEMENTED
    {0xc0000004, 24},    // STATUS_INFO_LENGTH_MISMATCH
    {0xc0000005, 998},   // STATUS_ACCESS_VIOLATION
    {0xc0000008, 6},     // STATUS_INVALID_HANDLE
    {0xc000000d, 87},    // STATUS_INVALID_PARAMETER
    {0xc000000f, 2},     // STATUS_NO_SUCH_FILE
    {0xc0000010, 1},     // STATUS_INVALID_DEVICE_REQUEST
    {0xc0000011, 38},    // STATUS_END_OF_FILE
    {0xc0000017, 8},     // STATUS_NO_MEMORY
    {0xc0000018, 487},   // STATUS_CONFLICTING_ADDRESSES
    {0xc0000022, 5},     // STATUS_ACCESS_DENIED
    {0xc0000023, 122},   // STATUS_BUFFER_TOO_SMALL
    {0xc0000024, 6},     // STATUS_OBJECT_TYPE_MISMATCH
    {0xc0000033, 123},   // STATUS_OBJECT_NAME_INVALID
    {0xc0000034, 2},     // STATUS_OBJECT_NAME_NOT_FOUND
    {0xc0000035, 183},   // STATUS_OBJECT_NAME_COLLISION
    {0xc0000039, 161},   // STATUS_OBJECT_PATH_INVALID
    {0xc000003a, 3},     // STATUS_OBJECT_PATH_NOT_FOUND
    {0xc0000043, 32},    // STATUS_SHARING_VIOLATION
    {0xc0000055, 33},    // STATUS_LOCK_NOT_GRANTED
    {0xc0000061, 1314},  // STATUS_PRIVILEGE_NOT_HELD
    {0xc000007f, 112},   // STATUS_DISK_FULL
    {0xc0000088, 487},   // STATUS_NOT_MAPPED_DATA
    {0xc000009a, 1450},  // STATUS_INSUFFICIENT_RESOURCES
    {0xc000009c, 23},    // STATUS_DEVICE_DATA_ERROR
    {0xc00000ba, 5},     // STATUS_FILE_IS_A_DIRECTORY
    {0xc00000bb, 50},    // STATUS_NOT_SUPPORTED
    {0xc00000d4, 17},    // STATUS_NOT_SAME_DEVICE
    {0xc0000100, 203},   // STATUS_VARIABLE_NOT_FOUND
    {0xc0000101, 145},   // STATUS_DIRECTORY_NOT_EMPTY
    {0xc0000103, 267},   // STATUS_NOT_A_DIRECTORY
    {0xc0000120, 995},   // STATUS_CANCELLED
    {0xc0000185, 1117},  // STATUS_IO_DEVICE_ERROR
    {0xc0000279, 1920},  // STATUS_IO_REPARSE_TAG_NOT_HANDLED
};

}  // namespace

std::uint32_t ZyrNtStatusToDosError(std::uint32_t status) {
  for (const StatusRow& row : kStatuses)
    if (row.status == status) return row.win32;
  return 317;  // ERROR_MR_MID_NOT_FOUND: the system's answer for a status it does not know
}

ZyrResult ZyrResultFromNtStatus(std::uint32_t status) {
  if (status == 0) return ZYR_OK;
  if (status == 0x80000005u) return ZYR_E_BUFFER_TOO_SMALL;
  std::uint32_t severity = status >> 30;
  if (severity == 0) severity = 1;
  std::uint32_t win32 = ZyrNtStatusToDosError(status);
  if (const Row* row = FindRow(win32))
    return static_cast<ZyrResult>((severity << 30) | 0x20010000u | row->code);
  return static_cast<ZyrResult>((severity << 30) | 0x00070000u | (win32 & 0xffffu));
}

ZyrResult ZyrResultFromWin32Error(std::uint32_t error) {
  if (error == 0) return ZYR_OK;
  if (const Row* row = FindRow(error)) return static_cast<ZyrResult>(0xe0010000u | row->code);
  return static_cast<ZyrResult>(0xc0070000u | (error & 0xffffu));
}
