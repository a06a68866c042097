// zyrlog client contract: result codes.
//
// A ZyrResult is laid out as an NT status: bits 31-30 severity (0 success,
// 1 informational, 2 warning, 3 error), bit 29 set for the library's own
// family, bits 28-16 facility (1 own family, 7 a raw Win32 number), bits
// 15-0 the code. Negative means failure, so warnings test as failures.
#ifndef ZYRLOG_RESULT_H
#define ZYRLOG_RESULT_H

#include <cstdint>

typedef std::int32_t ZyrResult;

#define ZYR_RESULT(v) (static_cast<ZyrResult>(static_cast<std::uint32_t>(v)))

inline constexpr bool ZyrFailed(ZyrResult r) { return r < 0; }
inline constexpr bool ZyrSucceeded(ZyrResult r) { return r >= 0; }

inline constexpr ZyrResult ZYR_OK = 0;

// Informational: success with a remark.
inline constexpr ZyrResult ZYR_I_WAIT_ABANDONED = ZYR_RESULT(0x60010003);
inline constexpr ZyrResult ZYR_I_ALREADY_IN_SET = ZYR_RESULT(0x60010005);
inline constexpr ZyrResult ZYR_I_WAIT_SET_OVERFULL = ZYR_RESULT(0x60010007);
inline constexpr ZyrResult ZYR_I_NO_MORE_ITEMS = ZYR_RESULT(0x6001000e);
inline constexpr ZyrResult ZYR_I_REPLACED = ZYR_RESULT(0x60010021);
inline constexpr ZyrResult ZYR_I_NOT_FOUND = ZYR_RESULT(0x6001004c);
inline constexpr ZyrResult ZYR_I_NOT_SUPPORTED = ZYR_RESULT(0x60010054);
inline constexpr ZyrResult ZYR_I_TIME_OUT_OF_RANGE = ZYR_RESULT(0x60010064);
inline constexpr ZyrResult ZYR_I_VARIABLE_EMPTY = ZYR_RESULT(0x6001006a);
inline constexpr ZyrResult ZYR_I_TARGET_RECREATED = ZYR_RESULT(0x60010075);
inline constexpr ZyrResult ZYR_I_SECURITY_NOT_COPIED = ZYR_RESULT(0x60010080);
inline constexpr ZyrResult ZYR_I_BOM_MISMATCH = ZYR_RESULT(0x60010188);
inline constexpr ZyrResult ZYR_I_SHORT_READ = ZYR_RESULT(0x6001018b);

// Warnings: test as failures.
inline constexpr ZyrResult ZYR_W_TIMEOUT = ZYR_RESULT(0xa0010004);
inline constexpr ZyrResult ZYR_W_WAIT_SET_EMPTY = ZYR_RESULT(0xa0010008);

// Errors.
inline constexpr ZyrResult ZYR_E_OUT_OF_MEMORY = ZYR_RESULT(0xe0010001);
inline constexpr ZyrResult ZYR_E_INVALID_ARGUMENT = ZYR_RESULT(0xe0010002);
inline constexpr ZyrResult ZYR_E_TOO_MANY_WAIT_HANDLES = ZYR_RESULT(0xe0010007);
inline constexpr ZyrResult ZYR_E_SIZE_TOO_LARGE = ZYR_RESULT(0xe001000b);
inline constexpr ZyrResult ZYR_E_NO_MORE_ITEMS = ZYR_RESULT(0xe001000e);
inline constexpr ZyrResult ZYR_E_KEY_NOT_FOUND = ZYR_RESULT(0xe0010013);
inline constexpr ZyrResult ZYR_E_BAD_VALUE_TYPE = ZYR_RESULT(0xe0010014);
inline constexpr ZyrResult ZYR_E_CFG_NOT_FOUND = ZYR_RESULT(0xe0010015);
inline constexpr ZyrResult ZYR_E_CFG_SECTION_NOT_CLOSED = ZYR_RESULT(0xe0010016);
inline constexpr ZyrResult ZYR_E_CFG_DUPLICATE_SECTION = ZYR_RESULT(0xe0010017);
inline constexpr ZyrResult ZYR_E_CFG_VALUE_OUTSIDE_SECTION = ZYR_RESULT(0xe0010018);
inline constexpr ZyrResult ZYR_E_CFG_BAD_VALUE_LINE = ZYR_RESULT(0xe0010019);
inline constexpr ZyrResult ZYR_E_CFG_DUPLICATE_VALUE = ZYR_RESULT(0xe001001a);
inline constexpr ZyrResult ZYR_E_APPENDER_NOT_FOUND = ZYR_RESULT(0xe001001b);
inline constexpr ZyrResult ZYR_E_LAYOUT_NOT_FOUND = ZYR_RESULT(0xe001001d);
inline constexpr ZyrResult ZYR_E_LAYOUT_NAME_MISSING = ZYR_RESULT(0xe001001e);
inline constexpr ZyrResult ZYR_E_UNEXPECTED_SYSTEM_RESULT = ZYR_RESULT(0xe0010020);
inline constexpr ZyrResult ZYR_E_BAD_LOGGER_NAME = ZYR_RESULT(0xe0010024);
inline constexpr ZyrResult ZYR_E_VALUE_EXISTS = ZYR_RESULT(0xe0010036);
inline constexpr ZyrResult ZYR_E_SECTION_EXISTS = ZYR_RESULT(0xe0010037);
inline constexpr ZyrResult ZYR_E_BAD_ROOT_KEY = ZYR_RESULT(0xe0010039);
inline constexpr ZyrResult ZYR_E_NO_WOW64_VIEW = ZYR_RESULT(0xe001003a);
inline constexpr ZyrResult ZYR_E_NOT_IMPLEMENTED = ZYR_RESULT(0xe001003c);
inline constexpr ZyrResult ZYR_E_FILE_NOT_FOUND = ZYR_RESULT(0xe001003d);
inline constexpr ZyrResult ZYR_E_PATH_NOT_FOUND = ZYR_RESULT(0xe001003e);
inline constexpr ZyrResult ZYR_E_INVALID_HANDLE = ZYR_RESULT(0xe001003f);
inline constexpr ZyrResult ZYR_E_EMPTY = ZYR_RESULT(0xe0010040);
inline constexpr ZyrResult ZYR_E_NOT_EMPTY = ZYR_RESULT(0xe0010041);
inline constexpr ZyrResult ZYR_E_READ_FAULT = ZYR_RESULT(0xe0010042);
inline constexpr ZyrResult ZYR_E_WRITE_FAULT = ZYR_RESULT(0xe0010043);
inline constexpr ZyrResult ZYR_E_BUFFER_TOO_SMALL = ZYR_RESULT(0xe0010044);
inline constexpr ZyrResult ZYR_E_INVALID_DATA = ZYR_RESULT(0xe0010045);
inline constexpr ZyrResult ZYR_E_NO_MORE_FILES = ZYR_RESULT(0xe0010046);
inline constexpr ZyrResult ZYR_E_DUPLICATE_NAME = ZYR_RESULT(0xe0010047);
inline constexpr ZyrResult ZYR_E_UNSUPPORTED_TYPE = ZYR_RESULT(0xe0010048);
inline constexpr ZyrResult ZYR_E_BAD_LENGTH = ZYR_RESULT(0xe0010049);
inline constexpr ZyrResult ZYR_E_CORRUPT_STREAM = ZYR_RESULT(0xe001004a);
inline constexpr ZyrResult ZYR_E_INVALID_NAME = ZYR_RESULT(0xe001004b);
inline constexpr ZyrResult ZYR_E_OBJECT_NOT_FOUND = ZYR_RESULT(0xe001004c);
inline constexpr ZyrResult ZYR_E_INVALID_ADDRESS = ZYR_RESULT(0xe001004d);
inline constexpr ZyrResult ZYR_E_INVALID_ACCESS = ZYR_RESULT(0xe001004e);
inline constexpr ZyrResult ZYR_E_ALREADY_EXISTS = ZYR_RESULT(0xe001004f);
inline constexpr ZyrResult ZYR_E_NEGATIVE_SEEK = ZYR_RESULT(0xe0010051);
inline constexpr ZyrResult ZYR_E_NO_ACCESS = ZYR_RESULT(0xe0010052);
inline constexpr ZyrResult ZYR_E_SHARING_VIOLATION = ZYR_RESULT(0xe0010053);
inline constexpr ZyrResult ZYR_E_NOT_SUPPORTED = ZYR_RESULT(0xe0010054);
inline constexpr ZyrResult ZYR_E_INVALID_OPERATION = ZYR_RESULT(0xe0010055);
inline constexpr ZyrResult ZYR_E_INVALID_FUNCTION = ZYR_RESULT(0xe0010056);
inline constexpr ZyrResult ZYR_E_OPERATION_ABORTED = ZYR_RESULT(0xe0010057);
inline constexpr ZyrResult ZYR_E_ACCESS_DENIED = ZYR_RESULT(0xe0010058);
inline constexpr ZyrResult ZYR_E_WRONG_APPENDER_TYPE = ZYR_RESULT(0xe0010062);
inline constexpr ZyrResult ZYR_E_WRONG_LAYOUT_TYPE = ZYR_RESULT(0xe0010063);
inline constexpr ZyrResult ZYR_E_TIME_OUT_OF_RANGE = ZYR_RESULT(0xe0010064);
inline constexpr ZyrResult ZYR_E_NO_FREE_SLOT = ZYR_RESULT(0xe0010076);
inline constexpr ZyrResult ZYR_E_NOT_INITIALIZED = ZYR_RESULT(0xe0010078);
inline constexpr ZyrResult ZYR_E_TIMEOUT = ZYR_RESULT(0xe001008c);
inline constexpr ZyrResult ZYR_E_DISK_FULL = ZYR_RESULT(0xe0010097);
inline constexpr ZyrResult ZYR_E_STRING_BUFFER_FULL = ZYR_RESULT(0xe0010101);
inline constexpr ZyrResult ZYR_E_END_OF_DATA = ZYR_RESULT(0xe001018b);
inline constexpr ZyrResult ZYR_E_CONNECTION_REFUSED = ZYR_RESULT(0xe0010190);

#endif
