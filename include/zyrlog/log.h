// zyrlog client helper: the threshold test and argument packing at the call
// site. Header only; it needs nothing but the client contract.
//
// Usage, with a ZyrLogger* obtained from IZyrLog::GetLogger:
//
//   ZYR_LOG(logger, ZYR_SEVERITY_WARN, u"disk %s is %d%% full", path, percent);
//   ZYR_ERROR(logger, u"open failed: 0x%08x", result);
//   ZYR_INFO(logger, text);       // no arguments: the text is logged as it
//                                 // stands, "%" included, never read as a format
//
//   ZYR_LOG_TYPED(logger, ZYR_SEVERITY_ERROR, u"{4F1C...}", 120, build, rev, product,
//                 zyrlog::ErrorCode(result), zyrlog::Str(path), zyrlog::Bool(retry));
//   ZYR_LOG_TYPED_REV(logger, ZYR_SEVERITY_INFO, fileId, 44, build, u"9f3c...", product,
//                     zyrlog::Counted(name, nameLength));
//
// Every macro reads the logger's threshold once (relaxed) and compares it
// signed with the severity. Below it nothing else happens: the format, the
// arguments and the typed items are not evaluated, nothing is packed and no
// operation of the logger is called. The logger and severity expressions are
// evaluated exactly once; the logger must not be null.
//
// Format arguments are packed one 64-bit slot each into an array on the
// caller's stack: integers sign- or zero-extended as their type, enums as
// their underlying type, float and double as the bit pattern of a double,
// pointers (const char16_t* for "%s", const char* for "%hs") as their
// address. "%Z" and "%wZ" take zyrlog::CountedText, which packs two slots:
// the length in bytes, then the pointer. Any other argument type fails to
// compile.
//
// Typed items (public loggers, no format) pack as a tag slot and a value
// slot each, Counted as a tag and two slots (pointer, count); the list ends
// with ZYR_TAG_END. Signed values are sign-extended, the rest zero-extended.
//
// The file name of ZYR_LOG is ZYR_LOG_FILE, u"" __FILE__ unless the client
// defines it before including this header. ZYR_LOG passes build, revision,
// product and scramble mode as 0; a client that needs them calls the
// logger's operations itself, after zyrlog::Enabled.
#ifndef ZYRLOG_LOG_H
#define ZYRLOG_LOG_H

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "zyrlog/zyrlog.h"

namespace zyrlog {

// True when a message of `severity` passes the logger's threshold: one
// relaxed atomic read and a signed comparison, so ALL passes everything and
// OFF stops everything but OFF itself.
[[nodiscard]] inline bool Enabled(const ZyrLogger* logger, ZyrLogSeverity severity) noexcept {
  return severity >= logger->threshold.load(std::memory_order_relaxed);
}

// ---------------------------------------------------------------------------
// Format arguments.

// A counted string for "%Z" (narrow, length in bytes) and "%wZ" (wide,
// length in characters, passed on in bytes).
struct CountedText {
  std::uint64_t bytes;
  const void* data;

  CountedText(const char* text, std::uint64_t byteCount) noexcept : bytes(byteCount), data(text) {}
  CountedText(const char16_t* text, std::uint64_t charCount) noexcept
      : bytes(charCount * sizeof(char16_t)), data(text) {}
};

// ---------------------------------------------------------------------------
// Typed items.

// One item of a typed list: its tag and its one value slot.
struct TypedItem {
  std::uint32_t tag;
  std::uint64_t value;
};

// A string given by pointer and count of characters (ZYR_TAG_COUNTED_STR);
// it may hold NULs and need not be terminated.
struct CountedItem {
  const char16_t* text;
  std::uint64_t count;
};

namespace detail {

inline std::uint64_t Signed(std::int64_t value) noexcept { return static_cast<std::uint64_t>(value); }
inline std::uint64_t Address(const volatile void* pointer) noexcept {
  return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(pointer));
}

}  // namespace detail

inline TypedItem ErrorCode(ZyrResult code) noexcept {
  return {ZYR_TAG_ERRORCODE, static_cast<std::uint32_t>(code)};
}
inline TypedItem Size(std::uint64_t value) noexcept { return {ZYR_TAG_SIZE, value}; }
inline TypedItem Int8(std::int8_t value) noexcept { return {ZYR_TAG_INT8, detail::Signed(value)}; }
inline TypedItem Byte(std::uint8_t value) noexcept { return {ZYR_TAG_BYTE, value}; }
inline TypedItem Int16(std::int16_t value) noexcept { return {ZYR_TAG_INT16, detail::Signed(value)}; }
inline TypedItem Word(std::uint16_t value) noexcept { return {ZYR_TAG_WORD, value}; }
inline TypedItem Int32(std::int32_t value) noexcept { return {ZYR_TAG_INT32, detail::Signed(value)}; }
inline TypedItem Dword(std::uint32_t value) noexcept { return {ZYR_TAG_DWORD, value}; }
inline TypedItem Int64(std::int64_t value) noexcept { return {ZYR_TAG_INT64, detail::Signed(value)}; }
inline TypedItem Qword(std::uint64_t value) noexcept { return {ZYR_TAG_QWORD, value}; }
inline TypedItem Bool(bool value) noexcept { return {ZYR_TAG_BOOL, value ? 1u : 0u}; }
inline TypedItem Double(double value) noexcept {
  return {ZYR_TAG_DOUBLE, std::bit_cast<std::uint64_t>(value)};
}
inline TypedItem Char(char16_t value) noexcept { return {ZYR_TAG_CHAR, value}; }
inline TypedItem Str(const char16_t* text) noexcept { return {ZYR_TAG_STR, detail::Address(text)}; }
inline TypedItem Time(const char16_t* text) noexcept { return {ZYR_TAG_TIME, detail::Address(text)}; }
inline TypedItem FileSize(std::uint64_t value) noexcept { return {ZYR_TAG_FILESIZE, value}; }
inline CountedItem Counted(const char16_t* text, std::uint64_t count) noexcept {
  return {text, count};
}

// ---------------------------------------------------------------------------
// Packing. Slot counts are known at compile time, so the array lives on the
// caller's stack and nothing is allocated.
namespace detail {

template <class T>
inline constexpr bool kAlwaysFalse = false;

template <class T>
inline constexpr std::size_t kFormatSlots = std::is_same_v<T, CountedText> ? 2 : 1;

template <class T>
inline void PutFormat(std::uint64_t*& out, T value) noexcept {
  if constexpr (std::is_same_v<T, CountedText>) {
    *out++ = value.bytes;
    *out++ = Address(value.data);
  } else if constexpr (std::is_same_v<T, bool>) {
    *out++ = value ? 1u : 0u;
  } else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
    *out++ = Signed(value);
  } else if constexpr (std::is_integral_v<T>) {
    *out++ = static_cast<std::uint64_t>(value);
  } else if constexpr (std::is_enum_v<T>) {
    PutFormat<std::underlying_type_t<T>>(out, static_cast<std::underlying_type_t<T>>(value));
  } else if constexpr (std::is_floating_point_v<T>) {
    *out++ = std::bit_cast<std::uint64_t>(static_cast<double>(value));
  } else if constexpr (std::is_pointer_v<T> && std::is_function_v<std::remove_pointer_t<T>>) {
    *out++ = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(value));
  } else if constexpr (std::is_pointer_v<T>) {
    *out++ = Address(value);
  } else if constexpr (std::is_null_pointer_v<T>) {
    *out++ = 0;
  } else if constexpr (std::is_same_v<T, TypedItem> || std::is_same_v<T, CountedItem>) {
    static_assert(kAlwaysFalse<T>, "typed items belong in ZYR_LOG_TYPED, not in a format call");
  } else {
    static_assert(kAlwaysFalse<T>,
                  "format arguments are integers, enums, floating point, pointers or "
                  "zyrlog::CountedText");
  }
}

template <class T>
inline constexpr std::size_t TypedSlots() noexcept {
  if constexpr (std::is_same_v<T, TypedItem>) {
    return 2;
  } else if constexpr (std::is_same_v<T, CountedItem>) {
    return 3;
  } else {
    static_assert(kAlwaysFalse<T>,
                  "typed items are made by zyrlog::Str, zyrlog::Int32, zyrlog::Counted and "
                  "their like");
    return 0;
  }
}

inline void PutTyped(std::uint64_t*& out, const TypedItem& item) noexcept {
  *out++ = item.tag;
  *out++ = item.value;
}
inline void PutTyped(std::uint64_t*& out, const CountedItem& item) noexcept {
  *out++ = ZYR_TAG_COUNTED_STR;
  *out++ = Address(item.text);
  *out++ = item.count;
}

template <class... Items>
struct TypedList {
  std::uint64_t slots[(TypedSlots<Items>() + ... + 0) + 1];

  explicit TypedList(const Items&... items) noexcept {
    std::uint64_t* out = slots;
    (PutTyped(out, items), ...);
    *out = ZYR_TAG_END;
  }
};

}  // namespace detail

// ---------------------------------------------------------------------------
// The calls behind the macros. They do not test the threshold: call them
// after Enabled, as the logger's own operations expect.

// A format message through Log. Without arguments the list is null, so the
// logger takes the format as plain text.
template <class... Args>
inline ZyrResult LogFormat(ZyrLogger* logger, ZyrLogSeverity severity, const char16_t* format,
                           const char16_t* fileName, std::uint32_t line,
                           Args&&... args) noexcept {
  if constexpr (sizeof...(Args) == 0) {
    return logger->Log(severity, format, fileName, line, 0, 0, 0, 0, nullptr);
  } else {
    std::uint64_t slots[(detail::kFormatSlots<std::decay_t<Args>> + ...)];
    std::uint64_t* out = slots;
    (detail::PutFormat<std::decay_t<Args>>(out, args), ...);
    return logger->Log(severity, format, fileName, line, 0, 0, 0, 0, slots);
  }
}

// A typed list without format through Log, the revision as a number.
template <class... Items>
inline ZyrResult LogTyped(ZyrLogger* logger, ZyrLogSeverity severity, const char16_t* fileId,
                          std::uint32_t line, std::uint32_t buildNr, std::uint32_t svnRev,
                          std::uint32_t product, const Items&... items) noexcept {
  detail::TypedList<Items...> list(items...);
  return logger->Log(severity, nullptr, fileId, line, buildNr, svnRev, product, 0, list.slots);
}

// A typed list without format through LogRevision, the revision as text.
template <class... Items>
inline ZyrResult LogTypedRevision(ZyrLogger* logger, ZyrLogSeverity severity,
                                  const char16_t* fileId, std::uint32_t line,
                                  std::uint32_t buildNr, const char16_t* revisionText,
                                  std::uint32_t product, const Items&... items) noexcept {
  detail::TypedList<Items...> list(items...);
  return logger->LogRevision(severity, nullptr, fileId, line, buildNr, revisionText, product, 0,
                             list.slots);
}

}  // namespace zyrlog

// ---------------------------------------------------------------------------
// Macros: the argument expressions stand inside the threshold test.

#ifndef ZYR_LOG_FILE
#define ZYR_LOG_FILE (u"" __FILE__)
#endif

#define ZYR_LOG(logger, severity, format, ...)                                          \
  do {                                                                                  \
    ::ZyrLogger* const zyrLogTarget_ = (logger);                                        \
    const ::ZyrLogSeverity zyrLogSeverity_ = (severity);                                \
    if (::zyrlog::Enabled(zyrLogTarget_, zyrLogSeverity_))                              \
      (void)::zyrlog::LogFormat(zyrLogTarget_, zyrLogSeverity_, (format), ZYR_LOG_FILE, \
                                __LINE__ __VA_OPT__(, ) __VA_ARGS__);                   \
  } while (0)

#define ZYR_LOG_TYPED(logger, severity, fileId, line, buildNr, svnRev, product, ...)       \
  do {                                                                                     \
    ::ZyrLogger* const zyrLogTarget_ = (logger);                                           \
    const ::ZyrLogSeverity zyrLogSeverity_ = (severity);                                   \
    if (::zyrlog::Enabled(zyrLogTarget_, zyrLogSeverity_))                                 \
      (void)::zyrlog::LogTyped(zyrLogTarget_, zyrLogSeverity_, (fileId), (line), (buildNr), \
                               (svnRev), (product) __VA_OPT__(, ) __VA_ARGS__);            \
  } while (0)

#define ZYR_LOG_TYPED_REV(logger, severity, fileId, line, buildNr, revisionText, product, ...) \
  do {                                                                                         \
    ::ZyrLogger* const zyrLogTarget_ = (logger);                                               \
    const ::ZyrLogSeverity zyrLogSeverity_ = (severity);                                       \
    if (::zyrlog::Enabled(zyrLogTarget_, zyrLogSeverity_))                                     \
      (void)::zyrlog::LogTypedRevision(zyrLogTarget_, zyrLogSeverity_, (fileId), (line),       \
                                       (buildNr), (revisionText),                              \
                                       (product) __VA_OPT__(, ) __VA_ARGS__);                  \
  } while (0)

#define ZYR_DEBUG(logger, ...) ZYR_LOG(logger, ZYR_SEVERITY_DEBUG, __VA_ARGS__)
#define ZYR_DETAIL(logger, ...) ZYR_LOG(logger, ZYR_SEVERITY_DETAIL, __VA_ARGS__)
#define ZYR_INFO(logger, ...) ZYR_LOG(logger, ZYR_SEVERITY_INFO, __VA_ARGS__)
#define ZYR_WARN(logger, ...) ZYR_LOG(logger, ZYR_SEVERITY_WARN, __VA_ARGS__)
#define ZYR_ERROR(logger, ...) ZYR_LOG(logger, ZYR_SEVERITY_ERROR, __VA_ARGS__)
#define ZYR_FATAL(logger, ...) ZYR_LOG(logger, ZYR_SEVERITY_FATAL, __VA_ARGS__)

#endif
