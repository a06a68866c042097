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

// Every result code of the library, in one list: name, value and a one-line
// meaning. The constants below are made from it, and so is the table of the
// zyrlog-errors tool; the library itself never turns a code into text.
// Informational codes (0x6001....) test as success, warnings (0xa001....)
// and errors (0xe001....) as failure.
#define ZYR_RESULT_CODES(X) \
  X(ZYR_I_WAIT_ABANDONED, 0x60010003, "a wait ended because the awaited lock was abandoned by its owner") \
  X(ZYR_I_ALREADY_IN_SET, 0x60010005, "the handle is in the wait set already; nothing changed") \
  X(ZYR_I_WAIT_SET_OVERFULL, 0x60010007, "the handle was added, but the wait set now holds more than 64 handles") \
  X(ZYR_I_NO_MORE_ITEMS, 0x6001000e, "an enumeration ended normally") \
  X(ZYR_I_REPLACED, 0x60010021, "a keyed insertion replaced the value that was stored under the key") \
  X(ZYR_I_NOT_FOUND, 0x6001004c, "what was searched for is absent, and that is no failure") \
  X(ZYR_I_NOT_SUPPORTED, 0x60010054, "the file system keeps no access rules, so setting them was skipped") \
  X(ZYR_I_TIME_OUT_OF_RANGE, 0x60010064, "a time lies before the earliest representable instant; a sentinel stands in") \
  X(ZYR_I_VARIABLE_EMPTY, 0x6001006a, "the environment variable is not set or empty") \
  X(ZYR_I_TARGET_RECREATED, 0x60010075, "file copy: the target had to be created a second time, then the copy went through") \
  X(ZYR_I_SECURITY_NOT_COPIED, 0x60010080, "file copy succeeded, but the source's access rules were not carried over") \
  X(ZYR_I_BOM_MISMATCH, 0x60010188, "a text decoder met a byte order mark that differs from the encoding fixed earlier") \
  X(ZYR_I_SHORT_READ, 0x6001018b, "a read returned fewer bytes than asked for") \
  X(ZYR_W_TIMEOUT, 0xa0010004, "a wait timed out, or a file lock was not granted at once (another process holds it)") \
  X(ZYR_W_WAIT_SET_EMPTY, 0xa0010008, "a wait was asked on an empty wait set") \
  X(ZYR_E_OUT_OF_MEMORY, 0xe0010001, "an allocation failed") \
  X(ZYR_E_INVALID_ARGUMENT, 0xe0010002, "an argument or number is out of its domain (a negative count, FilesCount and DaysCount both set, ...)") \
  X(ZYR_E_TOO_MANY_WAIT_HANDLES, 0xe0010007, "a wait set holds more than 64 handles") \
  X(ZYR_E_SIZE_TOO_LARGE, 0xe001000b, "a size above its limit: a configuration file of more than 4 MiB, a remote file name of more than 32767 units, a length beyond a serial form's 32-bit count") \
  X(ZYR_E_NO_MORE_ITEMS, 0xe001000e, "an enumeration is exhausted") \
  X(ZYR_E_KEY_NOT_FOUND, 0xe0010013, "a key of the key store, or a folder entry, does not exist") \
  X(ZYR_E_BAD_VALUE_TYPE, 0xe0010014, "a value of the key store has the wrong type or malformed data") \
  X(ZYR_E_CFG_NOT_FOUND, 0xe0010015, "configuration: a required key (AppenderType, LayoutType, FileName, Format) or section is missing") \
  X(ZYR_E_CFG_SECTION_NOT_CLOSED, 0xe0010016, "configuration text: a section header has no closing \"]\" (or is empty)") \
  X(ZYR_E_CFG_DUPLICATE_SECTION, 0xe0010017, "configuration text: the section name stands twice; the first one wins") \
  X(ZYR_E_CFG_VALUE_OUTSIDE_SECTION, 0xe0010018, "configuration text: a value line stands before any section header") \
  X(ZYR_E_CFG_BAD_VALUE_LINE, 0xe0010019, "configuration text: a line has no \"=\", an empty key, or malformed quotes") \
  X(ZYR_E_CFG_DUPLICATE_VALUE, 0xe001001a, "configuration text: the key stands twice in one section; the first one wins") \
  X(ZYR_E_APPENDER_NOT_FOUND, 0xe001001b, "no appender of that name (AddAppenders), or an unknown AppenderType") \
  X(ZYR_E_LAYOUT_NOT_FOUND, 0xe001001d, "no layout of that name (Layout), or an unknown LayoutType") \
  X(ZYR_E_LAYOUT_NAME_MISSING, 0xe001001e, "a layout was asked for with no name at all") \
  X(ZYR_E_UNEXPECTED_SYSTEM_RESULT, 0xe0010020, "the system answered with something that cannot be") \
  X(ZYR_E_BAD_LOGGER_NAME, 0xe0010024, "a logger name holds a blank") \
  X(ZYR_E_VALUE_EXISTS, 0xe0010036, "a value of that name exists in the section already") \
  X(ZYR_E_SECTION_EXISTS, 0xe0010037, "a section of that name exists in the document already") \
  X(ZYR_E_BAD_ROOT_KEY, 0xe0010039, "the key store view flags name a root key without such a view") \
  X(ZYR_E_NO_WOW64_VIEW, 0xe001003a, "a 32-bit or 64-bit key store view was asked for where none exists") \
  X(ZYR_E_NOT_IMPLEMENTED, 0xe001003c, "the operation has no implementation here") \
  X(ZYR_E_FILE_NOT_FOUND, 0xe001003d, "the file does not exist (ENOENT)") \
  X(ZYR_E_PATH_NOT_FOUND, 0xe001003e, "a folder of the path does not exist or is no folder (ENOTDIR), or a module was not found") \
  X(ZYR_E_INVALID_HANDLE, 0xe001003f, "the handle or descriptor is not valid (EBADF)") \
  X(ZYR_E_EMPTY, 0xe0010040, "a list to be taken from is empty") \
  X(ZYR_E_NOT_EMPTY, 0xe0010041, "the object is not empty") \
  X(ZYR_E_READ_FAULT, 0xe0010042, "the device could not be read (EIO)") \
  X(ZYR_E_WRITE_FAULT, 0xe0010043, "the device could not be written") \
  X(ZYR_E_BUFFER_TOO_SMALL, 0xe0010044, "the caller's buffer is too small") \
  X(ZYR_E_INVALID_DATA, 0xe0010045, "malformed data: an unknown ${variable}, text that is no valid UTF-8/UTF-16, a malformed record") \
  X(ZYR_E_NO_MORE_FILES, 0xe0010046, "no more files") \
  X(ZYR_E_DUPLICATE_NAME, 0xe0010047, "a duplicate name") \
  X(ZYR_E_UNSUPPORTED_TYPE, 0xe0010048, "a path form or entry that is not served: a FIFO, socket or device where a configuration, log or lock file is wanted") \
  X(ZYR_E_BAD_LENGTH, 0xe0010049, "a length is wrong for what holds it") \
  X(ZYR_E_CORRUPT_STREAM, 0xe001004a, "a serial form is corrupt") \
  X(ZYR_E_INVALID_NAME, 0xe001004b, "the name is not valid, or too long (ENAMETOOLONG)") \
  X(ZYR_E_OBJECT_NOT_FOUND, 0xe001004c, "the object was not found") \
  X(ZYR_E_INVALID_ADDRESS, 0xe001004d, "an address is not valid") \
  X(ZYR_E_INVALID_ACCESS, 0xe001004e, "the access asked for is not valid") \
  X(ZYR_E_ALREADY_EXISTS, 0xe001004f, "the object exists already (EEXIST), or a queue runs already") \
  X(ZYR_E_NEGATIVE_SEEK, 0xe0010051, "a seek ended before the start") \
  X(ZYR_E_NO_ACCESS, 0xe0010052, "invalid access to memory") \
  X(ZYR_E_SHARING_VIOLATION, 0xe0010053, "the file is in use (EBUSY, ETXTBSY)") \
  X(ZYR_E_NOT_SUPPORTED, 0xe0010054, "not supported here (ENOTSUP): unknown interface, a missing system feature, no file locks") \
  X(ZYR_E_INVALID_OPERATION, 0xe0010055, "the operation is not valid in this state") \
  X(ZYR_E_INVALID_FUNCTION, 0xe0010056, "the function is not valid for this object") \
  X(ZYR_E_OPERATION_ABORTED, 0xe0010057, "the operation was cancelled") \
  X(ZYR_E_ACCESS_DENIED, 0xe0010058, "permission denied (EACCES, EPERM): a folder or file that this user cannot write") \
  X(ZYR_E_WRONG_APPENDER_TYPE, 0xe0010062, "AppenderType does not fit the appender of that name (SharedFile, Syslog, or a changed type)") \
  X(ZYR_E_WRONG_LAYOUT_TYPE, 0xe0010063, "LayoutType does not fit the layout of that name (defaultLayout is Standard)") \
  X(ZYR_E_TIME_OUT_OF_RANGE, 0xe0010064, "a time cannot be represented (before 1970)") \
  X(ZYR_E_NO_FREE_SLOT, 0xe0010076, "no thread-local slot is free") \
  X(ZYR_E_NOT_INITIALIZED, 0xe0010078, "the object is not open or not initialised") \
  X(ZYR_E_TIMEOUT, 0xe001008c, "a wait that must not time out did (the stop of the worker)") \
  X(ZYR_E_DISK_FULL, 0xe0010097, "no space left on the device (ENOSPC, EDQUOT)") \
  X(ZYR_E_STRING_BUFFER_FULL, 0xe0010101, "a fixed text buffer is full") \
  X(ZYR_E_END_OF_DATA, 0xe001018b, "end of file or of a serial form") \
  X(ZYR_E_CONNECTION_REFUSED, 0xe0010190, "the connection was refused") \
  X(ZYR_E_UNTRUSTED_FILE, 0xe0010201, "a configuration file, or its folder, is owned by another account than root and this process's own, or may be written by group or others; it is not read")

#define ZYR_RESULT_DEFINE_(name, value, meaning) inline constexpr ZyrResult name = ZYR_RESULT(value);
ZYR_RESULT_CODES(ZYR_RESULT_DEFINE_)
#undef ZYR_RESULT_DEFINE_

#endif
