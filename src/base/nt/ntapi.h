// The NT native interface as this layer uses it: the structures, constants
// and exports of ntdll.dll, declared here rather than taken from a system
// header, so that the layer depends on nothing but ntdll and the layouts it
// relies on stand in one place. x86-64 only.
#ifndef ZYR_BASE_NT_NTAPI_H
#define ZYR_BASE_NT_NTAPI_H

#include <cstddef>
#include <cstdint>

typedef std::int32_t NTSTATUS;
typedef void* HANDLE;
typedef unsigned long ULONG;  // 32 bits on this platform
typedef unsigned short USHORT;
typedef unsigned char BOOLEAN;
typedef std::uint32_t ACCESS_MASK;

inline constexpr NTSTATUS STATUS_SUCCESS = 0;
inline constexpr NTSTATUS STATUS_TIMEOUT = 0x102;
inline constexpr NTSTATUS STATUS_PENDING = 0x103;
inline constexpr NTSTATUS STATUS_ABANDONED_WAIT_0 = 0x80;
inline constexpr NTSTATUS STATUS_NO_MORE_FILES = static_cast<NTSTATUS>(0x80000006u);
inline constexpr NTSTATUS STATUS_BUFFER_OVERFLOW = static_cast<NTSTATUS>(0x80000005u);
inline constexpr NTSTATUS STATUS_NOT_IMPLEMENTED = static_cast<NTSTATUS>(0xC0000002u);
inline constexpr NTSTATUS STATUS_INVALID_PARAMETER = static_cast<NTSTATUS>(0xC000000Du);
inline constexpr NTSTATUS STATUS_NO_SUCH_FILE = static_cast<NTSTATUS>(0xC000000Fu);
inline constexpr NTSTATUS STATUS_END_OF_FILE = static_cast<NTSTATUS>(0xC0000011u);
inline constexpr NTSTATUS STATUS_ACCESS_VIOLATION = static_cast<NTSTATUS>(0xC0000005u);
inline constexpr NTSTATUS STATUS_INVALID_HANDLE = static_cast<NTSTATUS>(0xC0000008u);
inline constexpr NTSTATUS STATUS_NO_MEMORY = static_cast<NTSTATUS>(0xC0000017u);
inline constexpr NTSTATUS STATUS_ACCESS_DENIED = static_cast<NTSTATUS>(0xC0000022u);
inline constexpr NTSTATUS STATUS_BUFFER_TOO_SMALL = static_cast<NTSTATUS>(0xC0000023u);
inline constexpr NTSTATUS STATUS_OBJECT_NAME_NOT_FOUND = static_cast<NTSTATUS>(0xC0000034u);
inline constexpr NTSTATUS STATUS_OBJECT_NAME_COLLISION = static_cast<NTSTATUS>(0xC0000035u);
inline constexpr NTSTATUS STATUS_OBJECT_PATH_NOT_FOUND = static_cast<NTSTATUS>(0xC000003Au);
inline constexpr NTSTATUS STATUS_LOCK_NOT_GRANTED = static_cast<NTSTATUS>(0xC0000055u);
inline constexpr NTSTATUS STATUS_NOT_SUPPORTED = static_cast<NTSTATUS>(0xC00000BBu);
inline constexpr NTSTATUS STATUS_NOT_SAME_DEVICE = static_cast<NTSTATUS>(0xC00000D4u);
inline constexpr NTSTATUS STATUS_INVALID_DEVICE_REQUEST = static_cast<NTSTATUS>(0xC0000010u);
inline constexpr NTSTATUS STATUS_NOT_A_DIRECTORY = static_cast<NTSTATUS>(0xC0000103u);
inline constexpr NTSTATUS STATUS_FILE_IS_A_DIRECTORY = static_cast<NTSTATUS>(0xC00000BAu);
inline constexpr NTSTATUS STATUS_DIRECTORY_NOT_EMPTY = static_cast<NTSTATUS>(0xC0000101u);
inline constexpr NTSTATUS STATUS_DLL_NOT_FOUND = static_cast<NTSTATUS>(0xC0000135u);
inline constexpr NTSTATUS STATUS_VARIABLE_NOT_FOUND = static_cast<NTSTATUS>(0xC0000100u);
inline constexpr NTSTATUS STATUS_NOTIFY_ENUM_DIR = 0x10C;

inline bool NtSucceeded(NTSTATUS s) { return s >= 0; }

struct UNICODE_STRING {
  USHORT Length;         // bytes, without terminator
  USHORT MaximumLength;  // bytes
  char16_t* Buffer;
};

struct ANSI_STRING {
  USHORT Length;
  USHORT MaximumLength;
  char* Buffer;
};

inline constexpr ULONG OBJ_CASE_INSENSITIVE = 0x40;

struct OBJECT_ATTRIBUTES {
  ULONG Length;
  HANDLE RootDirectory;
  UNICODE_STRING* ObjectName;
  ULONG Attributes;
  void* SecurityDescriptor;
  void* SecurityQualityOfService;
};

inline OBJECT_ATTRIBUTES NtObjectAttributes(UNICODE_STRING* name, ULONG attributes = OBJ_CASE_INSENSITIVE,
                                            HANDLE root = nullptr, void* descriptor = nullptr) {
  return OBJECT_ATTRIBUTES{sizeof(OBJECT_ATTRIBUTES), root, name, attributes, descriptor, nullptr};
}

struct IO_STATUS_BLOCK {
  union {
    NTSTATUS Status;
    void* Pointer;
  };
  std::uintptr_t Information;
};

struct CLIENT_ID {
  HANDLE UniqueProcess;
  HANDLE UniqueThread;
};

struct RTL_BITMAP {
  ULONG SizeOfBitMap;
  ULONG* Buffer;
};

// The critical section of ntdll: 40 bytes on x86-64.
struct RTL_CRITICAL_SECTION {
  void* DebugInfo;
  std::int32_t LockCount;
  std::int32_t RecursionCount;
  HANDLE OwningThread;
  HANDLE LockSemaphore;
  std::uintptr_t SpinCount;
};

// Access masks, dispositions, options.
inline constexpr ACCESS_MASK DELETE = 0x00010000;
inline constexpr ACCESS_MASK READ_CONTROL = 0x00020000;
inline constexpr ACCESS_MASK WRITE_DAC = 0x00040000;
inline constexpr ACCESS_MASK WRITE_OWNER = 0x00080000;
inline constexpr ACCESS_MASK SYNCHRONIZE = 0x00100000;
inline constexpr ACCESS_MASK GENERIC_READ = 0x80000000u;
inline constexpr ACCESS_MASK GENERIC_WRITE = 0x40000000u;
inline constexpr ACCESS_MASK FILE_READ_DATA = 0x0001;
inline constexpr ACCESS_MASK FILE_LIST_DIRECTORY = 0x0001;
inline constexpr ACCESS_MASK FILE_WRITE_DATA = 0x0002;
inline constexpr ACCESS_MASK FILE_APPEND_DATA = 0x0004;
inline constexpr ACCESS_MASK FILE_READ_ATTRIBUTES = 0x0080;
inline constexpr ACCESS_MASK FILE_WRITE_ATTRIBUTES = 0x0100;
inline constexpr ACCESS_MASK FILE_READ_EA = 0x0008;
inline constexpr ACCESS_MASK FILE_WRITE_EA = 0x0010;
inline constexpr ACCESS_MASK FILE_GENERIC_READ = 0x00120089;
inline constexpr ACCESS_MASK FILE_GENERIC_WRITE = 0x00120116;
inline constexpr ACCESS_MASK KEY_QUERY_VALUE = 0x0001;
inline constexpr ACCESS_MASK KEY_ENUMERATE_SUB_KEYS = 0x0008;
inline constexpr ACCESS_MASK KEY_READ = 0x20019;
inline constexpr ACCESS_MASK KEY_WOW64_64KEY = 0x0100;
inline constexpr ACCESS_MASK KEY_WOW64_32KEY = 0x0200;
inline constexpr ACCESS_MASK EVENT_ALL_ACCESS = 0x1F0003;
inline constexpr ACCESS_MASK TOKEN_QUERY = 0x0008;

inline constexpr ULONG FILE_SHARE_READ = 1;
inline constexpr ULONG FILE_SHARE_WRITE = 2;
inline constexpr ULONG FILE_SHARE_DELETE = 4;

inline constexpr ULONG FILE_SUPERSEDE = 0;
inline constexpr ULONG FILE_OPEN = 1;
inline constexpr ULONG FILE_CREATE = 2;
inline constexpr ULONG FILE_OPEN_IF = 3;
inline constexpr ULONG FILE_OVERWRITE = 4;
inline constexpr ULONG FILE_OVERWRITE_IF = 5;

inline constexpr ULONG FILE_CREATED = 2;

inline constexpr ULONG FILE_DIRECTORY_FILE = 0x00000001;
inline constexpr ULONG FILE_WRITE_THROUGH = 0x00000002;
inline constexpr ULONG FILE_SEQUENTIAL_ONLY = 0x00000004;
inline constexpr ULONG FILE_SYNCHRONOUS_IO_NONALERT = 0x00000020;
inline constexpr ULONG FILE_NON_DIRECTORY_FILE = 0x00000040;
inline constexpr ULONG FILE_RANDOM_ACCESS = 0x00000800;
inline constexpr ULONG FILE_DELETE_ON_CLOSE = 0x00001000;
inline constexpr ULONG FILE_OPEN_FOR_BACKUP_INTENT = 0x00004000;
inline constexpr ULONG FILE_OPEN_REPARSE_POINT = 0x00200000;

inline constexpr ULONG FILE_ATTRIBUTE_READONLY = 0x1;
inline constexpr ULONG FILE_ATTRIBUTE_DIRECTORY = 0x10;
inline constexpr ULONG FILE_ATTRIBUTE_NORMAL = 0x80;
inline constexpr ULONG FILE_ATTRIBUTE_REPARSE_POINT = 0x400;
inline constexpr ULONG FILE_ATTRIBUTE_COMPRESSED = 0x800;

// Information classes of files.
inline constexpr ULONG FileDirectoryInformation = 1;
inline constexpr ULONG FileBasicInformation = 4;
inline constexpr ULONG FileStandardInformation = 5;
inline constexpr ULONG FileInternalInformation = 6;
inline constexpr ULONG FileRenameInformation = 10;
inline constexpr ULONG FileDispositionInformation = 13;
inline constexpr ULONG FilePositionInformation = 14;
inline constexpr ULONG FileAllocationInformation = 19;
inline constexpr ULONG FileEndOfFileInformation = 20;
inline constexpr ULONG FileNetworkOpenInformation = 34;

struct FILE_BASIC_INFORMATION {
  std::int64_t CreationTime;
  std::int64_t LastAccessTime;
  std::int64_t LastWriteTime;
  std::int64_t ChangeTime;
  ULONG FileAttributes;
};

struct FILE_STANDARD_INFORMATION {
  std::int64_t AllocationSize;
  std::int64_t EndOfFile;
  ULONG NumberOfLinks;
  BOOLEAN DeletePending;
  BOOLEAN Directory;
};

struct FILE_NETWORK_OPEN_INFORMATION {
  std::int64_t CreationTime;
  std::int64_t LastAccessTime;
  std::int64_t LastWriteTime;
  std::int64_t ChangeTime;
  std::int64_t AllocationSize;
  std::int64_t EndOfFile;
  ULONG FileAttributes;
};

struct FILE_DIRECTORY_INFORMATION {
  ULONG NextEntryOffset;
  ULONG FileIndex;
  std::int64_t CreationTime;
  std::int64_t LastAccessTime;
  std::int64_t LastWriteTime;
  std::int64_t ChangeTime;
  std::int64_t EndOfFile;
  std::int64_t AllocationSize;
  ULONG FileAttributes;
  ULONG FileNameLength;  // bytes
  char16_t FileName[1];
};

struct FILE_RENAME_INFORMATION {
  BOOLEAN ReplaceIfExists;
  HANDLE RootDirectory;
  ULONG FileNameLength;
  char16_t FileName[1];
};

struct FILE_DISPOSITION_INFORMATION {
  BOOLEAN DeleteFile;
};

struct FILE_INTERNAL_INFORMATION {
  std::int64_t IndexNumber;
};

// Change notification filters.
inline constexpr ULONG FILE_NOTIFY_CHANGE_FILE_NAME = 0x001;
inline constexpr ULONG FILE_NOTIFY_CHANGE_DIR_NAME = 0x002;
inline constexpr ULONG FILE_NOTIFY_CHANGE_SIZE = 0x008;
inline constexpr ULONG FILE_NOTIFY_CHANGE_LAST_WRITE = 0x010;
inline constexpr ULONG FILE_NOTIFY_CHANGE_CREATION = 0x040;

inline constexpr ULONG FSCTL_SET_COMPRESSION = 0x9C040;
inline constexpr USHORT COMPRESSION_FORMAT_DEFAULT = 1;

// Registry.
inline constexpr ULONG KeyValuePartialInformation = 2;
inline constexpr ULONG KeyNameInformation = 3;
struct KEY_VALUE_PARTIAL_INFORMATION {
  ULONG TitleIndex;
  ULONG Type;
  ULONG DataLength;
  std::uint8_t Data[1];
};

// Sections.
inline constexpr ULONG SECTION_MAP_READ = 0x0004;
inline constexpr ULONG SECTION_MAP_WRITE = 0x0002;
inline constexpr ULONG SECTION_QUERY = 0x0001;
inline constexpr ULONG PAGE_READONLY = 0x02;
inline constexpr ULONG PAGE_READWRITE = 0x04;
inline constexpr ULONG SEC_COMMIT = 0x08000000;
inline constexpr ULONG ViewUnmap = 2;

typedef void(__stdcall* PIO_APC_ROUTINE)(void*, IO_STATUS_BLOCK*, ULONG);
typedef NTSTATUS(__stdcall* PUSER_THREAD_START_ROUTINE)(void*);

extern "C" {
NTSTATUS __stdcall NtClose(HANDLE);
NTSTATUS __stdcall NtCreateFile(HANDLE*, ACCESS_MASK, OBJECT_ATTRIBUTES*, IO_STATUS_BLOCK*, std::int64_t* allocationSize,
                                ULONG attributes, ULONG share, ULONG disposition, ULONG options, void* eaBuffer,
                                ULONG eaLength);
NTSTATUS __stdcall NtOpenFile(HANDLE*, ACCESS_MASK, OBJECT_ATTRIBUTES*, IO_STATUS_BLOCK*, ULONG share, ULONG options);
NTSTATUS __stdcall NtReadFile(HANDLE, HANDLE event, PIO_APC_ROUTINE, void*, IO_STATUS_BLOCK*, void* buffer, ULONG length,
                              std::int64_t* offset, ULONG* key);
NTSTATUS __stdcall NtWriteFile(HANDLE, HANDLE event, PIO_APC_ROUTINE, void*, IO_STATUS_BLOCK*, const void* buffer,
                               ULONG length, std::int64_t* offset, ULONG* key);
NTSTATUS __stdcall NtFlushBuffersFile(HANDLE, IO_STATUS_BLOCK*);
NTSTATUS __stdcall NtQueryInformationFile(HANDLE, IO_STATUS_BLOCK*, void*, ULONG, ULONG fileInformationClass);
NTSTATUS __stdcall NtSetInformationFile(HANDLE, IO_STATUS_BLOCK*, void*, ULONG, ULONG fileInformationClass);
NTSTATUS __stdcall NtQueryFullAttributesFile(OBJECT_ATTRIBUTES*, FILE_NETWORK_OPEN_INFORMATION*);
NTSTATUS __stdcall NtQueryDirectoryFile(HANDLE, HANDLE event, PIO_APC_ROUTINE, void*, IO_STATUS_BLOCK*, void* buffer,
                                        ULONG length, ULONG fileInformationClass, BOOLEAN single,
                                        UNICODE_STRING* mask, BOOLEAN restart);
NTSTATUS __stdcall NtNotifyChangeDirectoryFile(HANDLE, HANDLE event, PIO_APC_ROUTINE, void*, IO_STATUS_BLOCK*,
                                               void* buffer, ULONG length, ULONG filter, BOOLEAN watchTree);
NTSTATUS __stdcall NtCancelIoFile(HANDLE, IO_STATUS_BLOCK*);
NTSTATUS __stdcall NtLockFile(HANDLE, HANDLE event, PIO_APC_ROUTINE, void*, IO_STATUS_BLOCK*, std::int64_t* offset,
                              std::int64_t* length, ULONG* key, BOOLEAN failImmediately, BOOLEAN exclusive);
NTSTATUS __stdcall NtUnlockFile(HANDLE, IO_STATUS_BLOCK*, std::int64_t* offset, std::int64_t* length, ULONG* key);
NTSTATUS __stdcall NtFsControlFile(HANDLE, HANDLE event, PIO_APC_ROUTINE, void*, IO_STATUS_BLOCK*, ULONG code,
                                   void* in, ULONG inLength, void* out, ULONG outLength);
NTSTATUS __stdcall NtCreateSection(HANDLE*, ACCESS_MASK, OBJECT_ATTRIBUTES*, std::int64_t* maximumSize, ULONG protection,
                                   ULONG allocation, HANDLE file);
NTSTATUS __stdcall NtMapViewOfSection(HANDLE section, HANDLE process, void** base, std::uintptr_t zeroBits,
                                      std::size_t commitSize, std::int64_t* offset, std::size_t* viewSize,
                                      ULONG inherit, ULONG allocationType, ULONG protection);
NTSTATUS __stdcall NtUnmapViewOfSection(HANDLE process, void* base);
NTSTATUS __stdcall NtFlushVirtualMemory(HANDLE process, void** base, std::size_t* size, IO_STATUS_BLOCK*);
NTSTATUS __stdcall NtQuerySecurityObject(HANDLE, ULONG information, void* descriptor, ULONG length, ULONG* needed);
NTSTATUS __stdcall NtSetSecurityObject(HANDLE, ULONG information, void* descriptor);

NTSTATUS __stdcall NtCreateEvent(HANDLE*, ACCESS_MASK, OBJECT_ATTRIBUTES*, ULONG type, BOOLEAN initial);
NTSTATUS __stdcall NtSetEvent(HANDLE, std::int32_t* previous);
NTSTATUS __stdcall NtResetEvent(HANDLE, std::int32_t* previous);
NTSTATUS __stdcall NtWaitForSingleObject(HANDLE, BOOLEAN alertable, std::int64_t* timeout);
NTSTATUS __stdcall NtWaitForMultipleObjects(ULONG count, const HANDLE* handles, ULONG waitType, BOOLEAN alertable,
                                            std::int64_t* timeout);
NTSTATUS __stdcall NtDelayExecution(BOOLEAN alertable, std::int64_t* interval);
NTSTATUS __stdcall NtYieldExecution();
NTSTATUS __stdcall NtResumeThread(HANDLE, ULONG* previousCount);
NTSTATUS __stdcall NtTerminateThread(HANDLE, NTSTATUS);
NTSTATUS __stdcall NtTerminateProcess(HANDLE, NTSTATUS);
NTSTATUS __stdcall NtSetInformationThread(HANDLE, ULONG informationClass, void*, ULONG);
NTSTATUS __stdcall NtOpenProcessToken(HANDLE process, ACCESS_MASK, HANDLE* token);
NTSTATUS __stdcall NtOpenThreadToken(HANDLE thread, ACCESS_MASK, BOOLEAN openAsSelf, HANDLE* token);
NTSTATUS __stdcall NtQueryInformationToken(HANDLE token, ULONG informationClass, void*, ULONG, ULONG* needed);
NTSTATUS __stdcall NtQueryInformationProcess(HANDLE process, ULONG informationClass, void*, ULONG, ULONG* needed);
NTSTATUS __stdcall NtOpenProcess(HANDLE*, ACCESS_MASK, OBJECT_ATTRIBUTES*, CLIENT_ID*);
NTSTATUS __stdcall NtQuerySystemInformation(ULONG informationClass, void*, ULONG, ULONG* needed);

NTSTATUS __stdcall NtOpenKey(HANDLE*, ACCESS_MASK, OBJECT_ATTRIBUTES*);
NTSTATUS __stdcall NtQueryValueKey(HANDLE, UNICODE_STRING* name, ULONG informationClass, void*, ULONG, ULONG* needed);
NTSTATUS __stdcall NtQueryKey(HANDLE, ULONG informationClass, void*, ULONG, ULONG* needed);

NTSTATUS __stdcall RtlCreateUserThread(HANDLE process, void* descriptor, BOOLEAN suspended, ULONG zeroBits,
                                       std::size_t maximumStack, std::size_t committedStack,
                                       PUSER_THREAD_START_ROUTINE start, void* parameter, HANDLE* thread,
                                       CLIENT_ID* client);
[[noreturn]] void __stdcall RtlExitUserThread(NTSTATUS);
NTSTATUS __stdcall RtlInitializeCriticalSection(RTL_CRITICAL_SECTION*);
NTSTATUS __stdcall RtlDeleteCriticalSection(RTL_CRITICAL_SECTION*);
NTSTATUS __stdcall RtlEnterCriticalSection(RTL_CRITICAL_SECTION*);
NTSTATUS __stdcall RtlLeaveCriticalSection(RTL_CRITICAL_SECTION*);
void __stdcall RtlAcquirePebLock();
void __stdcall RtlReleasePebLock();
ULONG __stdcall RtlFindClearBitsAndSet(RTL_BITMAP*, ULONG count, ULONG hint);
BOOLEAN __stdcall RtlAreBitsSet(RTL_BITMAP*, ULONG start, ULONG count);
void __stdcall RtlClearBits(RTL_BITMAP*, ULONG start, ULONG count);
void* __stdcall RtlAllocateHeap(void* heap, ULONG flags, std::size_t size);
BOOLEAN __stdcall RtlFreeHeap(void* heap, ULONG flags, void* block);
ULONG __stdcall RtlNtStatusToDosError(NTSTATUS);
BOOLEAN __stdcall RtlDosPathNameToNtPathName_U(const char16_t* dosName, UNICODE_STRING* ntName, char16_t** filePart,
                                               void* relativeName);
void __stdcall RtlFreeUnicodeString(UNICODE_STRING*);
ULONG __stdcall RtlGetCurrentDirectory_U(ULONG length, char16_t* buffer);
NTSTATUS __stdcall RtlQueryEnvironmentVariable_U(void* environment, UNICODE_STRING* name, UNICODE_STRING* value);
NTSTATUS __stdcall RtlUTF8ToUnicodeN(char16_t* out, ULONG outBytes, ULONG* written, const char* in, ULONG inBytes);
NTSTATUS __stdcall RtlUnicodeToUTF8N(char* out, ULONG outBytes, ULONG* written, const char16_t* in, ULONG inBytes);
NTSTATUS __stdcall RtlGetVersion(void* versionInformation);
NTSTATUS __stdcall LdrLoadDll(const char16_t* searchPath, ULONG* flags, UNICODE_STRING* name, HANDLE* module);
NTSTATUS __stdcall LdrUnloadDll(HANDLE module);
NTSTATUS __stdcall LdrGetProcedureAddress(HANDLE module, ANSI_STRING* name, ULONG ordinal, void** address);
NTSTATUS __stdcall LdrGetDllHandle(const char16_t* path, ULONG* flags, UNICODE_STRING* name, HANDLE* module);
NTSTATUS __stdcall LdrLockLoaderLock(ULONG flags, ULONG* disposition, std::uintptr_t* cookie);
NTSTATUS __stdcall LdrUnlockLoaderLock(ULONG flags, std::uintptr_t cookie);
}

// The process's own pseudo-handles.
inline HANDLE NtCurrentProcess() { return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1)); }
inline HANDLE NtCurrentThread() { return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-2)); }

// ---------------------------------------------------------------------------
// The thread and process environment blocks, at the offsets of x86-64.

inline std::uint8_t* NtTeb() {
  std::uint8_t* teb;
  __asm__("movq %%gs:0x30, %0" : "=r"(teb));
  return teb;
}
inline std::uint8_t* NtPeb() { return *reinterpret_cast<std::uint8_t**>(NtTeb() + 0x60); }

template <class T>
inline T& NtField(std::uint8_t* block, std::size_t offset) {
  return *reinterpret_cast<T*>(block + offset);
}

// TEB
inline constexpr std::size_t kTebClientId = 0x40;
inline constexpr std::size_t kTebTlsSlots = 0x1480;  // 64 pointers
inline constexpr std::size_t kTebTlsExpansionSlots = 0x1780;
// PEB
inline constexpr std::size_t kPebImageBase = 0x10;
inline constexpr std::size_t kPebLdr = 0x18;
inline constexpr std::size_t kPebProcessParameters = 0x20;
inline constexpr std::size_t kPebProcessHeap = 0x30;
inline constexpr std::size_t kPebTlsBitmap = 0x78;
inline constexpr std::size_t kPebNumberOfProcessors = 0xb8;
inline constexpr std::size_t kPebOsMajor = 0x118;
inline constexpr std::size_t kPebOsMinor = 0x11c;
inline constexpr std::size_t kPebOsBuild = 0x120;
inline constexpr std::size_t kPebTlsExpansionBitmap = 0x238;
// RTL_USER_PROCESS_PARAMETERS
inline constexpr std::size_t kParamsCurrentDirectory = 0x38;  // UNICODE_STRING, then the handle
inline constexpr std::size_t kParamsImagePathName = 0x60;
inline constexpr std::size_t kParamsEnvironment = 0x80;

inline void* NtProcessHeap() { return NtField<void*>(NtPeb(), kPebProcessHeap); }

// The loader's list of modules, in load order.
struct LDR_DATA_TABLE_ENTRY {
  void* InLoadOrderLinks[2];
  void* InMemoryOrderLinks[2];
  void* InInitializationOrderLinks[2];
  void* DllBase;
  void* EntryPoint;
  ULONG SizeOfImage;
  UNICODE_STRING FullDllName;
  UNICODE_STRING BaseDllName;
};
inline constexpr std::size_t kLdrInLoadOrderList = 0x10;  // in PEB_LDR_DATA

// The shared user data page, read directly.
inline constexpr std::uintptr_t kUserSharedData = 0x7ffe0000;
inline constexpr std::size_t kUsdTickCountMultiplier = 0x004;
inline constexpr std::size_t kUsdSystemTime = 0x014;  // KSYSTEM_TIME: low, high1, high2
inline constexpr std::size_t kUsdTickCount = 0x320;   // KSYSTEM_TIME

// ---------------------------------------------------------------------------
// Helpers of the layer.

// A counted view of wide text, for calls that take a UNICODE_STRING. The
// text must outlive the view; lengths beyond 32767 characters are cut.
inline UNICODE_STRING NtCountedString(const char16_t* text, std::size_t length) {
  if (length > 32767) length = 32767;
  USHORT bytes = static_cast<USHORT>(length * 2);
  return UNICODE_STRING{bytes, bytes, const_cast<char16_t*>(text)};
}

#endif
