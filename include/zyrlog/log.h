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
// Compile-time check of a literal format against the argument types.

// The names of these functions are the compiler's message: a mismatched
// call reaches one of them while the format is checked, and a function that
// is not constexpr cannot be called there.
namespace format_error {
void too_few_arguments_for_the_format();
void more_arguments_than_the_format_uses();
void s_needs_utf16_text_char16_t_pointer__a_narrow_char_pointer_needs_hs();
void hs_needs_narrow_char_pointer();
void integer_conversion_needs_an_integer_or_enum__pointers_take_p();
void a_64_bit_integer_needs_lld_I64d_or_zd__d_and_ld_read_32_bits();
void floating_conversion_needs_float_or_double();
void c_needs_a_character_or_integer();
void p_needs_a_pointer_or_integer();
void Z_and_wZ_need_zyrlog_CountedText();
void star_width_or_precision_needs_an_int();
void typed_items_belong_in_ZYR_LOG_TYPED_not_in_a_format_call();
void argument_type_unknown__pass_integers_floating_point_pointers_or_CountedText();
}  // namespace format_error

// A format that is known only at run time; the call is not checked.
struct RuntimeFormat {
  const char16_t* text;
  constexpr explicit RuntimeFormat(const char16_t* format) noexcept : text(format) {}
};

namespace detail {

enum class ArgKind {
  kInt32, kInt64, kFloat, kWideText, kNarrowText, kNull, kPointer, kCounted, kTyped, kOther
};

template <class T>
consteval ArgKind KindOf() {
  if constexpr (std::is_same_v<T, CountedText>) {
    return ArgKind::kCounted;
  } else if constexpr (std::is_same_v<T, TypedItem> || std::is_same_v<T, CountedItem>) {
    return ArgKind::kTyped;
  } else if constexpr (std::is_enum_v<T>) {
    return sizeof(T) > 4 ? ArgKind::kInt64 : ArgKind::kInt32;
  } else if constexpr (std::is_integral_v<T>) {
    return sizeof(T) > 4 ? ArgKind::kInt64 : ArgKind::kInt32;
  } else if constexpr (std::is_floating_point_v<T>) {
    return ArgKind::kFloat;
  } else if constexpr (std::is_null_pointer_v<T>) {
    return ArgKind::kNull;
  } else if constexpr (std::is_pointer_v<T>) {
    using Pointee = std::remove_cv_t<std::remove_pointer_t<T>>;
    if constexpr (std::is_same_v<Pointee, char16_t>) return ArgKind::kWideText;
    else if constexpr (std::is_same_v<Pointee, char> || std::is_same_v<Pointee, char8_t>)
      return ArgKind::kNarrowText;
    else return ArgKind::kPointer;
  } else {
    return ArgKind::kOther;
  }
}

constexpr bool IsInteger(ArgKind k) { return k == ArgKind::kInt32 || k == ArgKind::kInt64; }

// Walks the format as the library's printing does: flags, width, precision,
// size prefix, conversion. Conversions the printing copies as text ("%S",
// "%ws", "%wd", an unknown letter) take no argument.
consteval void CheckFormat(const char16_t* f, std::size_t n, const ArgKind* kinds,
                           std::size_t count) {
  for (std::size_t k = 0; k < count; ++k) {
    if (kinds[k] == ArgKind::kTyped) format_error::typed_items_belong_in_ZYR_LOG_TYPED_not_in_a_format_call();
    if (kinds[k] == ArgKind::kOther)
      format_error::argument_type_unknown__pass_integers_floating_point_pointers_or_CountedText();
  }
  std::size_t next = 0;
  auto take = [&]() -> ArgKind {
    if (next == count) format_error::too_few_arguments_for_the_format();
    return kinds[next++];
  };
  std::size_t i = 0;
  while (i < n) {
    if (f[i++] != u'%') continue;
    std::size_t start = i;
    while (i < n && (f[i] == u' ' || f[i] == u'#' || f[i] == u'+' || f[i] == u'-' || f[i] == u'0'))
      ++i;
    bool star = false, precisionStar = false;
    if (i < n && f[i] == u'*') {
      star = true;
      ++i;
    } else {
      while (i < n && f[i] >= u'0' && f[i] <= u'9') ++i;
    }
    if (i < n && f[i] == u'.') {
      ++i;
      if (i < n && f[i] == u'*') {
        precisionStar = true;
        ++i;
      } else {
        while (i < n && f[i] >= u'0' && f[i] <= u'9') ++i;
      }
    }
    // Size prefixes in the printing's order: I32 I64 ll hh l h w I z.
    int size = 0;
    auto at = [&](const char16_t* p) {
      std::size_t k = 0;
      while (p[k] && i + k < n && f[i + k] == p[k]) ++k;
      return p[k] == 0;
    };
    if (at(u"I32")) size = 6, i += 3;
    else if (at(u"I64")) size = 7, i += 3;
    else if (at(u"ll")) size = 8, i += 2;
    else if (at(u"hh")) size = 2, i += 2;
    else if (at(u"l")) size = 4, i += 1;
    else if (at(u"h")) size = 3, i += 1;
    else if (at(u"w")) size = 1, i += 1;
    else if (at(u"I")) size = 5, i += 1;
    else if (at(u"z")) size = 5, i += 1;
    if (i >= n || f[i] < 32 || f[i] > 127) {
      i = start;  // not a conversion: the "%" is copied and scanning goes on
      continue;
    }
    char16_t c = f[i++];
    // The width and precision arguments come first, as the printing takes
    // them; a conversion that turns out to be none takes them all the same.
    if (star && !IsInteger(take())) format_error::star_width_or_precision_needs_an_int();
    if (precisionStar && !IsInteger(take())) format_error::star_width_or_precision_needs_an_int();
    switch (c) {
      case u'd': case u'i': case u'u': case u'o': case u'x': case u'X': {
        if (size == 1) break;  // "%wd" prints nothing and takes nothing
        ArgKind k = take();
        if (!IsInteger(k)) format_error::integer_conversion_needs_an_integer_or_enum__pointers_take_p();
        if (k == ArgKind::kInt64 && (size == 0 || size == 4 || size == 6))
          format_error::a_64_bit_integer_needs_lld_I64d_or_zd__d_and_ld_read_32_bits();
        break;
      }
      case u'c':
        if (!IsInteger(take())) format_error::c_needs_a_character_or_integer();
        break;
      case u'p': {
        ArgKind k = take();
        if (!IsInteger(k) && k != ArgKind::kPointer && k != ArgKind::kWideText &&
            k != ArgKind::kNarrowText && k != ArgKind::kNull)
          format_error::p_needs_a_pointer_or_integer();
        break;
      }
      case u's': {
        if (size == 0 || size == 4) {
          ArgKind k = take();
          if (k != ArgKind::kWideText && k != ArgKind::kNull)
            format_error::s_needs_utf16_text_char16_t_pointer__a_narrow_char_pointer_needs_hs();
        } else if (size == 3) {
          ArgKind k = take();
          if (k != ArgKind::kNarrowText && k != ArgKind::kNull) format_error::hs_needs_narrow_char_pointer();
        }
        break;
      }
      case u'Z':
        if ((size == 0 || size == 1) && take() != ArgKind::kCounted)
          format_error::Z_and_wZ_need_zyrlog_CountedText();
        break;
      case u'e': case u'E': case u'f': case u'g': case u'G':
        if (take() != ArgKind::kFloat) format_error::floating_conversion_needs_float_or_double();
        break;
      default:
        break;  // "%%" and what the printing copies as it stands
    }
  }
  if (next != count) format_error::more_arguments_than_the_format_uses();
}

}  // namespace detail

// The format parameter of the logging calls. A literal is checked against
// Args while the call compiles; a pointer or RuntimeFormat passes unchecked.
template <class... Args>
struct FormatText {
  const char16_t* text;

  template <std::size_t N>
  consteval FormatText(const char16_t (&format)[N]) : text(format) {
    if constexpr (sizeof...(Args) > 0) {
      constexpr detail::ArgKind kinds[] = {detail::KindOf<std::decay_t<Args>>()...};
      detail::CheckFormat(format, N - 1, kinds, sizeof...(Args));
    }
  }
  template <class P>
    requires std::is_convertible_v<P, const char16_t*> && (!std::is_array_v<std::remove_reference_t<P>>)
  constexpr FormatText(P format) noexcept : text(format) {}
  constexpr FormatText(RuntimeFormat format) noexcept : text(format.text) {}
};

template <class... Args>
using CheckedFormat = FormatText<std::type_identity_t<Args>...>;

// ---------------------------------------------------------------------------
// The calls behind the macros. They do not test the threshold: call them
// after Enabled, as the logger's own operations expect.

// A format message through Log. Without arguments the list is null, so the
// logger takes the format as plain text.
template <class... Args>
inline ZyrResult LogFormat(ZyrLogger* logger, ZyrLogSeverity severity,
                           CheckedFormat<Args...> checked, const char16_t* fileName,
                           std::uint32_t line, Args&&... args) noexcept {
  const char16_t* format = checked.text;
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
