// zyrlog client contract: exports, interface identifiers, IZyrLog, the public
// shape of ZyrLogger, severities and typed argument tags.
//
// Every interface here is a plain abstract class: no virtual destructor and
// nothing virtual beyond the listed operations, so that a client compiled
// separately finds operation N in slot N of the table. Text on the interface
// is NUL-terminated UTF-16 (char16_t). A length or capacity of all ones
// means terminated text.
#ifndef ZYRLOG_ZYRLOG_H
#define ZYRLOG_ZYRLOG_H

#include <atomic>
#include <cstdint>

#include "zyrlog/result.h"

// ---------------------------------------------------------------------------
// Interface identifiers: 16 bytes in the GUID layout, compared exactly.
struct ZyrIid {
  std::uint32_t data1;
  std::uint16_t data2;
  std::uint16_t data3;
  std::uint8_t data4[8];
};

inline bool ZyrIidEquals(const ZyrIid& a, const ZyrIid& b) {
  return a.data1 == b.data1 && a.data2 == b.data2 && a.data3 == b.data3 &&
         a.data4[0] == b.data4[0] && a.data4[1] == b.data4[1] && a.data4[2] == b.data4[2] &&
         a.data4[3] == b.data4[3] && a.data4[4] == b.data4[4] && a.data4[5] == b.data4[5] &&
         a.data4[6] == b.data4[6] && a.data4[7] == b.data4[7];
}

// {22A2C034-69F4-2743-9F8B-019BC5637061}
inline constexpr ZyrIid IID_IZyrLog = {0x22A2C034, 0x69F4, 0x2743, {0x9F, 0x8B, 0x01, 0x9B, 0xC5, 0x63, 0x70, 0x61}};
// {C88B451E-888C-2A40-8040-C901A08718F0}
inline constexpr ZyrIid IID_IZyrLogLevel1 = {0xC88B451E, 0x888C, 0x2A40, {0x80, 0x40, 0xC9, 0x01, 0xA0, 0x87, 0x18, 0xF0}};
// {5C0F74B7-3325-A83B-A120-EFAEEF55A9A1}
inline constexpr ZyrIid IID_IZyrLogLevel2 = {0x5C0F74B7, 0x3325, 0xA83B, {0xA1, 0x20, 0xEF, 0xAE, 0xEF, 0x55, 0xA9, 0xA1}};
// {5D0F74B7-3325-A83B-A120-EFAEEF55A9A1}
inline constexpr ZyrIid IID_IZyrLogLevel3 = {0x5D0F74B7, 0x3325, 0xA83B, {0xA1, 0x20, 0xEF, 0xAE, 0xEF, 0x55, 0xA9, 0xA1}};
// {716AA4A5-07BF-FA4E-9A9C-B71C159C9F60}
inline constexpr ZyrIid IID_IZyrLogAccess = {0x716AA4A5, 0x07BF, 0xFA4E, {0x9A, 0x9C, 0xB7, 0x1C, 0x15, 0x9C, 0x9F, 0x60}};
// {716AA4A5-08BF-FA4E-9A9C-B71C159C9F60}
inline constexpr ZyrIid IID_IZyrObject = {0x716AA4A5, 0x08BF, 0xFA4E, {0x9A, 0x9C, 0xB7, 0x1C, 0x15, 0x9C, 0x9F, 0x60}};

// ---------------------------------------------------------------------------
// Severities: signed 32-bit; a message passes a filter when severity >= filter.
typedef std::int32_t ZyrLogSeverity;

inline constexpr ZyrLogSeverity ZYR_SEVERITY_ALL = INT32_MIN;
inline constexpr ZyrLogSeverity ZYR_SEVERITY_DEBUG = 100000;
inline constexpr ZyrLogSeverity ZYR_SEVERITY_DETAIL = 150000;
inline constexpr ZyrLogSeverity ZYR_SEVERITY_INFO = 200000;
inline constexpr ZyrLogSeverity ZYR_SEVERITY_WARN = 300000;
inline constexpr ZyrLogSeverity ZYR_SEVERITY_ERROR = 400000;
inline constexpr ZyrLogSeverity ZYR_SEVERITY_FATAL = 500000;
inline constexpr ZyrLogSeverity ZYR_SEVERITY_OFF = INT32_MAX;

// Logger flags (ZyrLogger::flags).
inline constexpr std::uint32_t ZYR_LOGGER_PUBLIC = 1;         // typed lists; line breaks removed
inline constexpr std::uint32_t ZYR_LOGGER_PRIVATE = 2;        // format text only
inline constexpr std::uint32_t ZYR_LOGGER_BOTH_CHANNELS = 8;  // set by both channels
inline constexpr std::uint32_t ZYR_LOGGER_REVISION_TEXT = 16; // callers pass the revision as text

// Tags of the typed argument list: each item is a slot with the tag in its
// low 32 bits, followed by its value slot (two for ZYR_TAG_COUNTED_STR).
enum ZyrLogTag : std::uint32_t {
  ZYR_TAG_ERRORCODE = 0,
  ZYR_TAG_SIZE = 1,
  ZYR_TAG_UNASSIGNED = 2,
  ZYR_TAG_INT8 = 3,
  ZYR_TAG_BYTE = 4,
  ZYR_TAG_INT16 = 5,
  ZYR_TAG_WORD = 6,
  ZYR_TAG_INT32 = 7,
  ZYR_TAG_DWORD = 8,
  ZYR_TAG_INT64 = 9,
  ZYR_TAG_QWORD = 10,
  ZYR_TAG_BOOL = 11,
  ZYR_TAG_DOUBLE = 12,
  ZYR_TAG_CHAR = 13,
  ZYR_TAG_STR = 14,
  ZYR_TAG_TIME = 15,
  ZYR_TAG_COUNTED_STR = 16,
  ZYR_TAG_END = 17,
  ZYR_TAG_FILESIZE = 18,
};

// ---------------------------------------------------------------------------
class ZyrCfgSection;

// A named node of the logger tree. Clients read `threshold` and `flags`
// directly, without a call: they stand right behind the table pointer
// (offsets 8 and 12 on x86-64).
class ZyrLogger {
 public:
  virtual const char16_t* GetName() = 0;
  virtual ZyrResult Log(ZyrLogSeverity severity, const char16_t* format, const char16_t* fileName,
                        std::uint32_t line, std::uint32_t buildNr, std::uint32_t svnRev,
                        std::uint32_t product, std::uint32_t scrambleMode,
                        const std::uint64_t* arguments) = 0;
  virtual ZyrResult LogShort(ZyrLogSeverity severity, const char16_t* format,
                             const char16_t* fileName, std::uint32_t line, std::uint32_t buildNr,
                             std::uint32_t svnRev, std::uint32_t scrambleMode,
                             const std::uint64_t* arguments) = 0;
  virtual ZyrResult LogNumber(ZyrLogSeverity severity, const char16_t* format,
                              const char16_t* fileName, std::uint32_t line, std::uint32_t buildNr,
                              std::uint32_t svnRev, std::uint32_t product,
                              std::uint32_t scrambleMode, const std::uint64_t* arguments) = 0;
  virtual ZyrResult Configure(ZyrCfgSection& section) = 0;
  virtual ZyrResult Save(ZyrCfgSection& section) = 0;
  virtual ZyrResult LogRevision(ZyrLogSeverity severity, const char16_t* format,
                                const char16_t* fileName, std::uint32_t line,
                                std::uint32_t buildNr, const char16_t* revisionText,
                                std::uint32_t product, std::uint32_t scrambleMode,
                                const std::uint64_t* arguments) = 0;
  virtual ZyrResult LogText(ZyrLogSeverity severity, const char16_t* format,
                            const char16_t* fileName, std::uint32_t line, std::uint32_t buildNr,
                            const char16_t* revisionText, std::uint32_t product,
                            std::uint32_t scrambleMode, const std::uint64_t* arguments) = 0;
  virtual void Destroy(std::uint32_t flags) = 0;

  std::atomic<ZyrLogSeverity> threshold{ZYR_SEVERITY_INFO};
  std::atomic<std::uint32_t> flags{0};

 protected:
  ZyrLogger() = default;
  ~ZyrLogger() = default;
};

// ---------------------------------------------------------------------------
// The log interface: 39 operations in table order. Operations 0 to 11 act on
// the public channel, 12 to 23 on the private channel.
class IZyrLog {
 public:
  // Public channel.
  virtual ZyrResult GetLogger(ZyrLogger** logger, const char16_t* name) = 0;          // 0
  virtual ZyrResult FindLogger(ZyrLogger** logger, const char16_t* name) = 0;         // 1
  virtual std::uint8_t IsConfigured() = 0;                                            // 2
  virtual ZyrResult SetConfigFolder(const char16_t* folder, void* reserved1,
                                    std::uint8_t reserved2) = 0;                      // 3
  virtual ZyrResult GetConfigFolder(char16_t* buffer, std::uint64_t capacity,
                                    std::uint64_t* needed) = 0;                       // 4
  virtual std::uint8_t IsSupported() = 0;                                             // 5
  virtual ZyrResult LoadConfigFile(const char16_t* fileName) = 0;                     // 6
  virtual ZyrResult LoadConfigText(const char16_t* text) = 0;                         // 7
  virtual ZyrResult SaveConfigFile(const char16_t* path, std::uint8_t protect) = 0;   // 8
  virtual ZyrResult GetConfigText(char16_t* buffer, std::uint64_t capacity,
                                  std::uint64_t* needed) = 0;                         // 9
  virtual ZyrResult ResetConfig() = 0;                                                // 10
  virtual ZyrResult Reserved11() = 0;                                                 // 11
  // Private channel: the same operations.
  virtual ZyrResult GetPrivateLogger(ZyrLogger** logger, const char16_t* name) = 0;   // 12
  virtual ZyrResult FindPrivateLogger(ZyrLogger** logger, const char16_t* name) = 0;  // 13
  virtual std::uint8_t IsPrivateConfigured() = 0;                                     // 14
  virtual ZyrResult SetPrivateConfigFolder(const char16_t* folder, void* reserved1,
                                           std::uint8_t reserved2) = 0;               // 15
  virtual ZyrResult GetPrivateConfigFolder(char16_t* buffer, std::uint64_t capacity,
                                           std::uint64_t* needed) = 0;                // 16
  virtual std::uint8_t IsPrivateSupported() = 0;                                      // 17
  virtual ZyrResult LoadPrivateConfigFile(const char16_t* fileName) = 0;              // 18
  virtual ZyrResult LoadPrivateConfigText(const char16_t* text) = 0;                  // 19
  virtual ZyrResult SavePrivateConfigFile(const char16_t* path, std::uint8_t protect) = 0;  // 20
  virtual ZyrResult GetPrivateConfigText(char16_t* buffer, std::uint64_t capacity,
                                         std::uint64_t* needed) = 0;                  // 21
  virtual ZyrResult ResetPrivateConfig() = 0;                                         // 22
  virtual ZyrResult Reserved23() = 0;                                                 // 23
  // Entries of the reconfiguration exports and the null-tolerant text loads.
  virtual ZyrResult ReconfigureLoadConfigFile(const char16_t* fileName) = 0;          // 24
  virtual ZyrResult LoadConfigTextOrNothing(const char16_t* text) = 0;                // 25
  virtual ZyrResult ReconfigureLoadPrivateConfigFile(const char16_t* fileName) = 0;   // 26
  virtual ZyrResult LoadPrivateConfigTextOrNothing(const char16_t* text) = 0;         // 27
  virtual void Forbidden28() = 0;                                                     // 28
  virtual ZyrResult Flush() = 0;                                                      // 29
  virtual ZyrResult FlushPrivate() = 0;                                               // 30
  virtual ZyrResult UseProductFolder() = 0;                                           // 31
  virtual ZyrResult UsePrivateProductFolder() = 0;                                    // 32
  virtual ZyrResult Reserved33() = 0;                                                 // 33
  virtual ZyrResult Reserved34() = 0;                                                 // 34
  virtual ZyrResult SetFolders(const char16_t* configFolder, const char16_t* logFolder,
                               std::uint8_t reserved2) = 0;                           // 35
  virtual ZyrResult SetPrivateFolders(const char16_t* configFolder, const char16_t* logFolder,
                                      std::uint8_t reserved2) = 0;                    // 36
  virtual ZyrResult StartDispatcher() = 0;                                            // 37
  virtual void StopDispatcher() = 0;                                                  // 38

 protected:
  ~IZyrLog() = default;
};

class IZyrLogAccess;

// The object handed out by GetZyrObject for IID_IZyrObject.
class IZyrObject {
 public:
  typedef std::int32_t (*GuardedRelease)(IZyrObject* object);
  virtual void Destroy(std::uint32_t flags) = 0;
  virtual std::int32_t AddRef() = 0;
  virtual std::int32_t Release() = 0;
  virtual IZyrLogAccess* GetLogAccess() = 0;
  virtual GuardedRelease GetGuardedRelease() = 0;

 protected:
  ~IZyrObject() = default;
};

// The object handed out by GetZyrObject for IID_IZyrLogAccess.
class IZyrLogAccess {
 public:
  virtual void Destroy(std::uint32_t flags) = 0;
  virtual std::int32_t AddRef() = 0;
  virtual std::int32_t Release() = 0;
  virtual IZyrLog* GetLog() = 0;

 protected:
  ~IZyrLogAccess() = default;
};

// ---------------------------------------------------------------------------
// The nine exports.
#define ZYR_EXPORT extern "C" __attribute__((visibility("default")))

ZYR_EXPORT ZyrResult ZyrModuleInit();
ZYR_EXPORT ZyrResult ZyrModuleFinish();
ZYR_EXPORT ZyrResult GetZyrObject(const ZyrIid* iid, void** object);
ZYR_EXPORT ZyrResult ZyrGetLogObject(const ZyrIid* iid, IZyrLog** log);
ZYR_EXPORT ZyrResult ZyrReleaseLogObject(const ZyrIid* iid, IZyrLog* log);
ZYR_EXPORT ZyrResult ZyrLogLibraryReconfigure(const char16_t* fileName, std::uint32_t mode);
ZYR_EXPORT ZyrResult ZyrLogLibraryReloadConfig();
// Thread start routines: they end the calling thread with the result as its
// exit value (pthread_exit), and so do not return.
ZYR_EXPORT void* ZyrLogLibraryRemoteReconfigure(void* blob);
ZYR_EXPORT void* ZyrLogLibraryRemoteReloadConfig(void* ignored);

#endif
