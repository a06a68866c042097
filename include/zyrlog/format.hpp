// zyrlog front door: "{}" formats, checked and translated while the call
// compiles.
//
// A format is a UTF-8 literal with the placeholders of std::format. For
// each call site the compiler checks it against the argument types, turns
// it into the printf format of the log interface (UTF-16, static storage)
// and knows at which slot each argument goes. At run time a call packs its
// arguments into 64-bit slots on the stack, exactly as the contract's
// ZYR_LOG macros do, and calls the logger: no allocation, nothing parsed.
//
// Placeholders: {} takes the next argument, {0} {1} ... name one (used as
// often as wanted; the two styles do not mix), {{ and }} are braces. What
// follows a ":" reads [[ ]<|>][+|-| ][#][0][width][.precision][type]:
//
//   argument                         type letters      written as
//   signed and unsigned integers,    d (default) x X o  by their real width: an int8_t of -1
//   enums (their underlying type)                        is "ff" in {:x}, an int64_t is whole
//   float, double                    g f e E G          {} is %g with 7 (float) or 15 (double)
//                                                        significant digits, trailing zeros cut
//   bool                             s (default) d x    true / false
//   char, char8_t, char16_t          c (default) d x    the character; a lone byte >= 0x80 is
//                                                        not UTF-8 and is treated as bad text
//   const char*, char8_t* (UTF-8),   s                  text; the counted forms need no NUL
//   std::string, std::string_view,                       (.precision cuts UTF-16 units)
//   std::u8string(_view), char16_t*,
//   std::u16string(_view), FixedText
//   pointers, nullptr                p                  0x7ffd5c3e1a40; null is 0
//
// In a width, numbers are right-aligned and text left-aligned unless the
// placeholder says otherwise, as std::format does. What has no
// counterpart in the log interface is refused at compile time with a
// message that says why: centred alignment, fills other than blank,
// binary, {:a}, named or dynamic arguments, wchar_t and char32_t text,
// long double and 128-bit integers.
//
// Other types: specialise zyrlog::Loggable<T> with a static Value(const T&)
// that returns any type above, a FixedText<N> included:
//
//   template <> struct zyrlog::Loggable<Money> {
//     static std::int64_t Value(const Money& m) noexcept { return m.cents; }
//   };
#ifndef ZYRLOG_FORMAT_HPP
#define ZYRLOG_FORMAT_HPP

#include <array>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

namespace zyrlog {

// The customisation point: a specialisation with
//   static R Value(const T&);
// makes T loggable as R. R may be a reference (to a member of the value)
// or a value that lives until the call returns; a std::string allocates,
// a FixedText does not.
template <class T>
struct Loggable {};

// A short UTF-8 text built on the stack, for Loggable::Value of types that
// log as several fields. What does not fit is cut at a character boundary
// and the text ends in "...", so a cut is visible in the line.
template <std::size_t N>
class FixedText {
  static_assert(N >= 4, "a FixedText needs room for the mark of a cut");

 public:
  FixedText& Append(std::string_view text) noexcept {
    if (cut_) return *this;
    if (text.size() <= N - size_) {
      for (char c : text) data_[size_++] = c;
      return *this;
    }
    cut_ = true;
    std::size_t keep = 0;
    if (N - size_ >= 3) {
      keep = N - size_ - 3;
      while (keep > 0 && IsContinuation(text[keep])) --keep;
    } else {  // the mark takes the end of what is there
      size_ = N - 3;
      while (size_ > 0 && IsContinuation(data_[size_])) --size_;
    }
    for (std::size_t i = 0; i < keep; ++i) data_[size_++] = text[i];
    for (int i = 0; i < 3; ++i) data_[size_++] = '.';
    return *this;
  }
  FixedText& Append(const char* text) noexcept { return Append(std::string_view(text)); }
  FixedText& Append(char c) noexcept { return Append(std::string_view(&c, 1)); }
  FixedText& Append(bool value) noexcept { return Append(std::string_view(value ? "true" : "false")); }
  template <class I>
    requires std::is_integral_v<I> && (!std::is_same_v<I, bool>) && (!std::is_same_v<I, char>)
  FixedText& Append(I value) noexcept {
    char digits[24];
    auto done = std::to_chars(digits, digits + sizeof digits, value);
    return Append(std::string_view(digits, static_cast<std::size_t>(done.ptr - digits)));
  }
  // The shortest text that reads back as the same double.
  FixedText& Append(double value) noexcept {
    char digits[32];
    auto done = std::to_chars(digits, digits + sizeof digits, value);
    return Append(std::string_view(digits, static_cast<std::size_t>(done.ptr - digits)));
  }

  const char* data() const noexcept { return data_; }
  std::size_t size() const noexcept { return size_; }
  std::string_view View() const noexcept { return {data_, size_}; }

 private:
  static bool IsContinuation(char c) noexcept { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; }

  char data_[N];
  std::size_t size_ = 0;
  bool cut_ = false;
};

namespace impl {

// ---------------------------------------------------------------------------
// UTF-8, at compile time for formats and at run time for names and paths.

// Decodes the sequence at text[i] and moves i behind it. Malformed input
// (a stray continuation byte, a short or overlong sequence, a surrogate,
// anything above U+10FFFF) gives -1 and leaves i alone.
template <class C>
constexpr std::int32_t DecodeUtf8(const C* text, std::size_t n, std::size_t& i) noexcept {
  auto byte = [&](std::size_t k) { return static_cast<std::uint32_t>(static_cast<unsigned char>(text[k])); };
  std::uint32_t lead = byte(i);
  if (lead < 0x80) return ++i, static_cast<std::int32_t>(lead);
  std::size_t more = 0;
  std::uint32_t code = 0, least = 0;
  if ((lead & 0xe0) == 0xc0) more = 1, code = lead & 0x1f, least = 0x80;
  else if ((lead & 0xf0) == 0xe0) more = 2, code = lead & 0x0f, least = 0x800;
  else if ((lead & 0xf8) == 0xf0) more = 3, code = lead & 0x07, least = 0x10000;
  else return -1;
  if (n - i <= more) return -1;
  for (std::size_t k = 1; k <= more; ++k) {
    std::uint32_t b = byte(i + k);
    if ((b & 0xc0) != 0x80) return -1;
    code = code << 6 | (b & 0x3f);
  }
  if (code < least || code > 0x10ffff || (code >= 0xd800 && code <= 0xdfff)) return -1;
  i += more + 1;
  return static_cast<std::int32_t>(code);
}

// ---------------------------------------------------------------------------
// What an argument is to the log interface.

enum class Kind : std::uint8_t {
  kSigned, kUnsigned, kBool, kChar8, kChar16, kFloat, kDouble,
  kText8, kText16, kCounted8, kCounted16, kPointer,
  kWide,      // wchar_t and char32_t, as characters or text
  kTooWide,   // long double, 128-bit integers
  kUnknown,
};

struct TypeInfo {
  Kind kind = Kind::kUnknown;
  std::uint8_t size = 0;  // bytes of an integer
  bool isSigned = false;  // of a character read as a number
};

template <class T> struct StringChar { using type = void; };
template <class C, class Tr, class A> struct StringChar<std::basic_string<C, Tr, A>> { using type = C; };
template <class C, class Tr> struct StringChar<std::basic_string_view<C, Tr>> { using type = C; };
template <std::size_t N> struct StringChar<FixedText<N>> { using type = char; };

template <class T>
using IntegerOf = typename std::conditional_t<std::is_enum_v<T>, std::underlying_type<T>,
                                              std::type_identity<T>>::type;

template <class T, class... Of>
inline constexpr bool kOneOf = (std::is_same_v<T, Of> || ...);

template <class T>
consteval TypeInfo Classify() {
  using U = std::remove_cv_t<T>;
  using S = typename StringChar<U>::type;
  if constexpr (std::is_same_v<U, bool>) {
    return {Kind::kBool, 1, false};
  } else if constexpr (kOneOf<U, char, char8_t>) {
    return {Kind::kChar8, 1, std::is_signed_v<U>};
  } else if constexpr (std::is_same_v<U, char16_t>) {
    return {Kind::kChar16, 2, false};
  } else if constexpr (kOneOf<U, wchar_t, char32_t>) {
    return {Kind::kWide};
  } else if constexpr (std::is_integral_v<U> || std::is_enum_v<U>) {
    using I = IntegerOf<U>;
    if constexpr (sizeof(I) > 8) return {Kind::kTooWide};
    else return {std::is_signed_v<I> ? Kind::kSigned : Kind::kUnsigned, sizeof(I), std::is_signed_v<I>};
  } else if constexpr (std::is_same_v<U, float>) {
    return {Kind::kFloat};
  } else if constexpr (std::is_same_v<U, double>) {
    return {Kind::kDouble};
  } else if constexpr (std::is_floating_point_v<U>) {
    return {Kind::kTooWide};
  } else if constexpr (std::is_pointer_v<U>) {
    using P = std::remove_cv_t<std::remove_pointer_t<U>>;
    if constexpr (kOneOf<P, char, char8_t>) return {Kind::kText8};
    else if constexpr (std::is_same_v<P, char16_t>) return {Kind::kText16};
    else if constexpr (kOneOf<P, wchar_t, char32_t>) return {Kind::kWide};
    else return {Kind::kPointer};
  } else if constexpr (std::is_null_pointer_v<U>) {
    return {Kind::kPointer};
  } else if constexpr (kOneOf<S, char, char8_t>) {
    return {Kind::kCounted8};
  } else if constexpr (std::is_same_v<S, char16_t>) {
    return {Kind::kCounted16};
  } else if constexpr (kOneOf<S, wchar_t, char32_t>) {
    return {Kind::kWide};
  } else {
    return {Kind::kUnknown};
  }
}

template <class T>
concept HasLoggable = requires(const T& value) { Loggable<T>::Value(value); };

// What an argument logs as: itself, or what its Loggable makes of it.
template <class T>
constexpr decltype(auto) ValueOf(const T& value) {
  if constexpr (HasLoggable<T>) return Loggable<T>::Value(value);
  else return (value);
}

// ---------------------------------------------------------------------------
// The translation of one format.

enum class Error : std::uint8_t {
  kNone, kNotUtf8, kNul, kUnmatchedOpen, kUnmatchedClose, kNamedArgument, kMixedIndexing,
  kNoSuchArgument, kTooFewArguments, kUnusedArgument, kTooManyPlaceholders, kDynamicSpec,
  kFill, kCenter, kBadSpec, kSignNeedsNumber, kZeroNeedsNumber, kAlternateNeedsNumber,
  kPrecisionNotAllowed, kIntegerType, kFloatType, kTextType, kBoolType, kCharType,
  kPointerType, kWide, kTooWide, kNotLoggable,
  kNotLiteral,  // reported by Literal itself
};

// How a placeholder's argument fills its slots.
enum class Mode : std::uint8_t {
  kInteger,    // sign- or zero-extended as its type
  kDouble,     // the bit pattern of a double
  kAddress,    // a pointer, text included
  kCounted8,   // two slots: bytes, then the pointer ("%Z")
  kCounted16,  // two slots: bytes, then the pointer ("%wZ")
  kBoolText,   // the address of u"true" or u"false"
  kChar8,      // a counted text of one byte: the argument itself
  kChar16,     // a counted text of one unit
};

inline constexpr std::size_t kMaxPlaceholders = 64;

struct Item {
  std::uint8_t arg = 0;
  Mode mode = Mode::kInteger;
};

struct Plan {
  Error error = Error::kNone;
  int placeholder = 0;  // 1-based number of the placeholder at fault, else 0
  int argument = 0;     // 1-based number of the argument at fault, else 0
  std::size_t length = 0;  // UTF-16 units of the translated format
  std::size_t count = 0;   // placeholders
  std::size_t slots = 0;
  Item items[kMaxPlaceholders] = {};
};

template <class C>
struct LiteralText {
  const C* text;
  std::size_t size;
  bool valid = true;
};

template <std::size_t N>
consteval LiteralText<char> Literal(const char (&text)[N]) { return {text, N - 1}; }
template <std::size_t N>
consteval LiteralText<char8_t> Literal(const char8_t (&text)[N]) { return {text, N - 1}; }
template <class T>
consteval LiteralText<char> Literal(const T&) {
  static_assert(sizeof(T) == 0,
                "zyrlog: the format must be a UTF-8 string literal (\"...\" or u8\"...\"); "
                "u\"...\" formats belong to the contract's ZYR_ macros");
  return {"", 0, false};
}

struct Spec {
  char align = 0;  // '<' or '>'
  char sign = 0;   // '+' or ' ' ('-' is the default)
  bool alternate = false;
  bool zero = false;
  int width = 0;
  int precision = -1;
  char type = 0;
};

constexpr bool IsDigit(std::uint32_t c) { return c >= '0' && c <= '9'; }

template <class C>
class Translator {
 public:
  constexpr Translator(const C* text, std::size_t n, const TypeInfo* types, std::size_t args,
                       char16_t* out)
      : f_(text), n_(n), types_(types), args_(args), out_(out) {}

  constexpr Plan Run() {
    for (std::size_t a = 0; a < args_; ++a) {
      Kind k = types_[a].kind;
      if (k == Kind::kWide) return Fail(Error::kWide, 0, a);
      if (k == Kind::kTooWide) return Fail(Error::kTooWide, 0, a);
      if (k == Kind::kUnknown) return Fail(Error::kNotLoggable, 0, a);
    }
    if (args_ > kMaxPlaceholders) return Fail(Error::kTooManyPlaceholders, 0);
    // Without arguments the contract takes the format as plain text, so a
    // "%" stays itself; with arguments it is written "%%".
    bool formatted = args_ > 0;
    while (i_ < n_ && plan_.error == Error::kNone) {
      auto c = static_cast<std::uint32_t>(static_cast<unsigned char>(f_[i_]));
      if (c == '{' && i_ + 1 < n_ && f_[i_ + 1] == '{') {
        Put(u'{'), i_ += 2;
      } else if (c == '{') {
        ++i_;
        Placeholder();
      } else if (c == '}') {
        if (i_ + 1 < n_ && f_[i_ + 1] == '}') Put(u'}'), i_ += 2;
        else return Fail(Error::kUnmatchedClose, static_cast<int>(plan_.count) + 1);
      } else if (c == '%' && formatted) {
        Put(u'%'), Put(u'%'), ++i_;
      } else if (c == 0) {
        return Fail(Error::kNul, 0);
      } else {
        std::int32_t code = DecodeUtf8(f_, n_, i_);
        if (code < 0) return Fail(Error::kNotUtf8, 0);
        PutCode(static_cast<std::uint32_t>(code));
      }
    }
    if (plan_.error != Error::kNone) return plan_;
    for (std::size_t a = 0; a < args_; ++a)
      if (!used_[a]) return Fail(Error::kUnusedArgument, 0, a);
    return plan_;
  }

 private:
  static constexpr std::size_t kNoArgument = ~std::size_t{0};

  // The first fault is the one reported.
  constexpr Plan Fail(Error e, int placeholder, std::size_t argument = kNoArgument) {
    if (plan_.error == Error::kNone) {
      plan_.error = e;
      plan_.placeholder = placeholder;
      plan_.argument = argument == kNoArgument ? 0 : static_cast<int>(argument) + 1;
    }
    return plan_;
  }

  constexpr void Put(char16_t u) {
    if (out_) out_[plan_.length] = u;
    ++plan_.length;
  }
  constexpr void PutCode(std::uint32_t code) {
    if (code < 0x10000) return Put(static_cast<char16_t>(code));
    code -= 0x10000;
    Put(static_cast<char16_t>(0xd800 + (code >> 10)));
    Put(static_cast<char16_t>(0xdc00 + (code & 0x3ff)));
  }
  constexpr void PutNumber(int value) {
    char digits[12] = {};
    int k = 0;
    do digits[k++] = static_cast<char>('0' + value % 10), value /= 10;
    while (value > 0);
    while (k > 0) Put(static_cast<char16_t>(digits[--k]));
  }
  constexpr void PutAscii(const char* text) {
    while (*text) Put(static_cast<char16_t>(*text++));
  }

  constexpr std::uint32_t At(std::size_t k) const {
    return k < n_ ? static_cast<std::uint32_t>(static_cast<unsigned char>(f_[k])) : 0;
  }
  constexpr bool ReadNumber(int& value) {
    if (!IsDigit(At(i_))) return false;
    value = 0;
    while (IsDigit(At(i_))) {
      value = value * 10 + static_cast<int>(At(i_) - '0');
      if (value > 9999) return false;
      ++i_;
    }
    return true;
  }

  constexpr void Placeholder() {
    int number = static_cast<int>(plan_.count) + 1;
    if (plan_.count == kMaxPlaceholders) return (void)Fail(Error::kTooManyPlaceholders, number);
    std::size_t arg = 0;
    int index = 0;
    if (ReadNumber(index)) {
      if (indexing_ == 1) return (void)Fail(Error::kMixedIndexing, number);
      indexing_ = 2;
      arg = static_cast<std::size_t>(index);
      if (arg >= args_) return (void)Fail(Error::kNoSuchArgument, number);
    } else if (At(i_) == ':' || At(i_) == '}') {
      if (indexing_ == 2) return (void)Fail(Error::kMixedIndexing, number);
      indexing_ = 1;
      arg = next_++;
      if (arg >= args_) return (void)Fail(Error::kTooFewArguments, number);
    } else if (At(i_) == '_' || (At(i_) | 0x20) - 'a' < 26) {
      return (void)Fail(Error::kNamedArgument, number);
    } else if (i_ >= n_) {
      return (void)Fail(Error::kUnmatchedOpen, number);
    } else {
      return (void)Fail(Error::kBadSpec, number);
    }
    Spec spec;
    if (At(i_) == ':') {
      ++i_;
      if (!ParseSpec(spec, number)) return;
    }
    if (i_ >= n_) return (void)Fail(Error::kUnmatchedOpen, number);
    if (At(i_) != '}') return (void)Fail(Error::kBadSpec, number);
    ++i_;
    used_[arg] = true;
    Convert(spec, arg, number);
  }

  constexpr bool ParseSpec(Spec& spec, int number) {
    auto isAlign = [](std::uint32_t c) { return c == '<' || c == '>' || c == '^'; };
    std::uint32_t c = At(i_);
    if (c >= 0x80) {  // a fill of another character than the blank
      std::size_t k = i_;
      if (DecodeUtf8(f_, n_, k) >= 0 && isAlign(At(k))) return Fail(Error::kFill, number), false;
    } else if (c != '{' && c != '}' && isAlign(At(i_ + 1))) {
      if (c != ' ') return Fail(Error::kFill, number), false;
      spec.align = static_cast<char>(At(i_ + 1));
      i_ += 2;
    } else if (isAlign(c)) {
      spec.align = static_cast<char>(c);
      ++i_;
    }
    if (spec.align == '^') return Fail(Error::kCenter, number), false;
    if (At(i_) == '+' || At(i_) == '-' || At(i_) == ' ') {
      spec.sign = At(i_) == '-' ? 0 : static_cast<char>(At(i_));
      ++i_;
    }
    if (At(i_) == '#') spec.alternate = true, ++i_;
    if (At(i_) == '0') spec.zero = true, ++i_;
    if (At(i_) == '{') return Fail(Error::kDynamicSpec, number), false;
    if (IsDigit(At(i_)) && !ReadNumber(spec.width)) return Fail(Error::kBadSpec, number), false;
    if (At(i_) == '.') {
      ++i_;
      if (At(i_) == '{') return Fail(Error::kDynamicSpec, number), false;
      if (!ReadNumber(spec.precision)) return Fail(Error::kBadSpec, number), false;
    }
    if (At(i_) == '{') return Fail(Error::kDynamicSpec, number), false;
    std::uint32_t t = At(i_);
    if ((t | 0x20) - 'a' < 26 || t == '%') spec.type = static_cast<char>(t), ++i_;
    return true;
  }

  // The conversion of the log interface for one placeholder.
  constexpr void Convert(const Spec& spec, std::size_t arg, int number) {
    enum Class { kInteger, kFloat, kText, kPointer } cls = kText;
    const TypeInfo& type = types_[arg];
    char conversion = 's';
    const char* size = "";
    int precision = spec.precision;
    Mode mode = Mode::kAddress;
    auto integerSize = [](int bytes) { return bytes == 1 ? "hh" : bytes == 2 ? "h" : bytes == 8 ? "ll" : ""; };
    auto asInteger = [&](bool isSigned, int bytes) {
      cls = kInteger;
      mode = Mode::kInteger;
      conversion = spec.type == 0 || spec.type == 'd' ? (isSigned ? 'd' : 'u') : spec.type;
      size = integerSize(bytes);
    };
    bool integerType = spec.type == 'd' || spec.type == 'x' || spec.type == 'X' || spec.type == 'o';
    switch (type.kind) {
      case Kind::kSigned:
      case Kind::kUnsigned:
        if (spec.type != 0 && !integerType) return (void)Fail(Error::kIntegerType, number, arg);
        asInteger(type.kind == Kind::kSigned, type.size);
        break;
      case Kind::kBool:
        if (integerType) asInteger(false, 1);
        else if (spec.type == 0 || spec.type == 's') mode = Mode::kBoolText;
        else return (void)Fail(Error::kBoolType, number, arg);
        break;
      case Kind::kChar8:
      case Kind::kChar16:
        if (integerType) {
          asInteger(type.isSigned, type.size);
        } else if (spec.type == 0 || spec.type == 'c') {
          conversion = 'Z';
          size = type.kind == Kind::kChar16 ? "w" : "";
          mode = type.kind == Kind::kChar16 ? Mode::kChar16 : Mode::kChar8;
        } else {
          return (void)Fail(Error::kCharType, number, arg);
        }
        break;
      case Kind::kFloat:
      case Kind::kDouble:
        cls = kFloat;
        mode = Mode::kDouble;
        if (spec.type == 0) {
          conversion = 'g';
          if (precision < 0) precision = type.kind == Kind::kFloat ? 7 : 15;
        } else if (spec.type == 'f' || spec.type == 'e' || spec.type == 'E' || spec.type == 'g' ||
                   spec.type == 'G') {
          conversion = spec.type;
        } else {
          return (void)Fail(Error::kFloatType, number, arg);
        }
        break;
      case Kind::kText8:
      case Kind::kText16:
      case Kind::kCounted8:
      case Kind::kCounted16:
        if (spec.type != 0 && spec.type != 's') return (void)Fail(Error::kTextType, number, arg);
        conversion = type.kind == Kind::kText8 || type.kind == Kind::kText16 ? 's' : 'Z';
        size = type.kind == Kind::kText8 ? "h" : type.kind == Kind::kCounted16 ? "w" : "";
        mode = type.kind == Kind::kCounted8    ? Mode::kCounted8
               : type.kind == Kind::kCounted16 ? Mode::kCounted16
                                               : Mode::kAddress;
        break;
      case Kind::kPointer:
        if (spec.type != 0 && spec.type != 'p') return (void)Fail(Error::kPointerType, number, arg);
        cls = kPointer;
        conversion = 'p';
        break;
      default:
        return (void)Fail(Error::kNotLoggable, number, arg);
    }
    bool numeric = cls == kInteger || cls == kFloat;
    if (spec.sign && !numeric) return (void)Fail(Error::kSignNeedsNumber, number, arg);
    if (spec.zero && !numeric) return (void)Fail(Error::kZeroNeedsNumber, number, arg);
    if (spec.alternate && !numeric) return (void)Fail(Error::kAlternateNeedsNumber, number, arg);
    if (spec.precision >= 0 && (cls == kInteger || cls == kPointer))
      return (void)Fail(Error::kPrecisionNotAllowed, number, arg);

    Put(u'%');
    if (spec.align == '<' || (spec.align == 0 && spec.width > 0 && cls == kText)) Put(u'-');
    if (spec.sign) Put(static_cast<char16_t>(spec.sign));
    if (spec.alternate || cls == kPointer) Put(u'#');
    if (spec.zero && spec.align == 0) Put(u'0');  // an explicit alignment wins over zeros
    if (spec.width > 0) PutNumber(spec.width);
    if (precision >= 0) Put(u'.'), PutNumber(precision);
    PutAscii(size);
    Put(static_cast<char16_t>(conversion));

    plan_.items[plan_.count++] = Item{static_cast<std::uint8_t>(arg), mode};
    bool counted = mode == Mode::kCounted8 || mode == Mode::kCounted16 || mode == Mode::kChar8 ||
                   mode == Mode::kChar16;
    plan_.slots += counted ? 2 : 1;
  }

  const C* f_;
  std::size_t n_;
  const TypeInfo* types_;
  std::size_t args_;
  char16_t* out_;
  std::size_t i_ = 0;
  std::size_t next_ = 0;
  int indexing_ = 0;  // 1 automatic, 2 numbered
  bool used_[kMaxPlaceholders] = {};
  Plan plan_;
};

template <class C>
consteval Plan MakePlan(LiteralText<C> literal, const TypeInfo* types, std::size_t args) {
  if (!literal.valid) return Plan{Error::kNotLiteral};
  return Translator<C>(literal.text, literal.size, types, args, nullptr).Run();
}

template <std::size_t N, class C>
consteval std::array<char16_t, N> Render(LiteralText<C> literal, const TypeInfo* types,
                                         std::size_t args) {
  std::array<char16_t, N> out{};
  if (N > 1) Translator<C>(literal.text, literal.size, types, args, out.data()).Run();
  return out;
}

// The readable end of a refused call: each message names one fault; the
// compiler's note "In instantiation of ... Refuse<...> [with ...
// placeholder = P; argument = A]" says where (both count from 1, 0 for
// none).
template <Error e, int placeholder, int argument>
constexpr void Refuse() {
  static_assert(e != Error::kNotUtf8, "zyrlog: the format is not valid UTF-8");
  static_assert(e != Error::kNul, "zyrlog: the format holds a NUL character");
  static_assert(e != Error::kUnmatchedOpen, "zyrlog: a '{' without its '}' (a brace is written '{{')");
  static_assert(e != Error::kUnmatchedClose, "zyrlog: a '}' without its '{' (a brace is written '}}')");
  static_assert(e != Error::kNamedArgument, "zyrlog: named placeholders ({name}) have no counterpart; use {} or {0}");
  static_assert(e != Error::kMixedIndexing, "zyrlog: {} and numbered {0} placeholders cannot be mixed in one format");
  static_assert(e != Error::kNoSuchArgument, "zyrlog: a numbered placeholder names an argument that is not passed");
  static_assert(e != Error::kTooFewArguments, "zyrlog: the format has more placeholders than arguments");
  static_assert(e != Error::kUnusedArgument, "zyrlog: more arguments than the format uses");
  static_assert(e != Error::kTooManyPlaceholders, "zyrlog: more than 64 placeholders or arguments in one call");
  static_assert(e != Error::kDynamicSpec, "zyrlog: a width or precision taken from an argument ({:{}}) has no counterpart; write the number");
  static_assert(e != Error::kFill, "zyrlog: only a blank can fill; {:*>8} has no counterpart (write {:>8} or {:08})");
  static_assert(e != Error::kCenter, "zyrlog: centred alignment ({:^}) has no counterpart; use < or >");
  static_assert(e != Error::kBadSpec, "zyrlog: a placeholder is not understood; behind its ':' it reads [[ ]<|>][+|-| ][#][0][width][.precision][type]");
  static_assert(e != Error::kSignNeedsNumber, "zyrlog: a sign (+, -, blank) applies to numbers only");
  static_assert(e != Error::kZeroNeedsNumber, "zyrlog: padding with zeros applies to numbers only");
  static_assert(e != Error::kAlternateNeedsNumber, "zyrlog: '#' applies to numbers only");
  static_assert(e != Error::kPrecisionNotAllowed, "zyrlog: a precision (.N) applies to floating point and text only");
  static_assert(e != Error::kIntegerType, "zyrlog: an integer takes {}, {:d}, {:x}, {:X} or {:o}; {:b} and {:c} have no counterpart");
  static_assert(e != Error::kFloatType, "zyrlog: a float or double takes {}, {:g}, {:f}, {:e}, {:E} or {:G}; {:a}, {:F} and {:%} have no counterpart");
  static_assert(e != Error::kTextType, "zyrlog: text takes {} or {:s}");
  static_assert(e != Error::kBoolType, "zyrlog: a bool takes {}, {:s}, {:d}, {:x}, {:X} or {:o}");
  static_assert(e != Error::kCharType, "zyrlog: a character takes {}, {:c}, {:d}, {:x}, {:X} or {:o}");
  static_assert(e != Error::kPointerType, "zyrlog: a pointer takes {} or {:p}");
  static_assert(e != Error::kWide, "zyrlog: wchar_t and char32_t have no counterpart (wchar_t is UTF-32 here); pass UTF-8 or char16_t text");
  static_assert(e != Error::kTooWide, "zyrlog: long double and 128-bit integers do not fit a 64-bit slot; cast to double or a 64-bit integer");
  static_assert(e != Error::kNotLoggable, "zyrlog: an argument type that cannot be logged; specialise zyrlog::Loggable<T> for it (docs/api.md)");
}

// ---------------------------------------------------------------------------
// Packing.

inline std::uint64_t Address(const volatile void* pointer) noexcept {
  return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(pointer));
}

template <class T>
constexpr std::uint64_t IntegerSlot(T value) noexcept {
  if constexpr (std::is_enum_v<T>) return IntegerSlot(static_cast<std::underlying_type_t<T>>(value));
  else if constexpr (std::is_same_v<T, bool>) return value ? 1u : 0u;
  else if constexpr (std::is_signed_v<T>) return static_cast<std::uint64_t>(static_cast<std::int64_t>(value));
  else return static_cast<std::uint64_t>(value);
}

template <Mode M, class T>
inline void PutSlots(std::uint64_t* out, const T& value) noexcept {
  if constexpr (M == Mode::kInteger) {
    *out = IntegerSlot(value);
  } else if constexpr (M == Mode::kDouble) {
    *out = std::bit_cast<std::uint64_t>(static_cast<double>(value));
  } else if constexpr (M == Mode::kAddress) {
    if constexpr (std::is_null_pointer_v<T>) *out = 0;
    else if constexpr (std::is_function_v<T>) *out = reinterpret_cast<std::uintptr_t>(&value);
    else if constexpr (std::is_pointer_v<T> && std::is_function_v<std::remove_pointer_t<T>>)
      *out = reinterpret_cast<std::uintptr_t>(value);
    else *out = Address(value);
  } else if constexpr (M == Mode::kCounted8 || M == Mode::kCounted16) {
    // A default string_view has no data: an empty text, not "(null)".
    out[0] = value.size() * sizeof(typename StringChar<T>::type);
    out[1] = value.data() ? Address(value.data()) : Address(u"");
  } else if constexpr (M == Mode::kBoolText) {
    *out = Address(value ? u"true" : u"false");
  } else {  // kChar8, kChar16: the argument is its own one-character text
    out[0] = sizeof(T);
    out[1] = Address(&value);
  }
}

template <class L, class... V>
struct Translation {
  static constexpr auto kLiteral = L{}();
  static constexpr TypeInfo kTypes[sizeof...(V) + 1] = {Classify<V>()..., TypeInfo{}};
  static constexpr Plan kPlan = MakePlan(kLiteral, kTypes, sizeof...(V));
  static constexpr bool kOk = kPlan.error == Error::kNone;
  static constexpr auto kText = Render<kOk ? kPlan.length + 1 : 1>(kLiteral, kTypes, sizeof...(V));
  static constexpr std::size_t kSlots = kPlan.slots > 0 ? kPlan.slots : 1;

  static constexpr std::array<std::size_t, kMaxPlaceholders> Offsets() {
    std::array<std::size_t, kMaxPlaceholders> at{};
    std::size_t next = 0;
    for (std::size_t k = 0; k < kPlan.count; ++k) {
      at[k] = next;
      Mode m = kPlan.items[k].mode;
      next += m == Mode::kCounted8 || m == Mode::kCounted16 || m == Mode::kChar8 || m == Mode::kChar16 ? 2 : 1;
    }
    return at;
  }
  static constexpr auto kOffsets = Offsets();

  template <class... A, std::size_t... K>
  static void PackAll(std::uint64_t* slots, std::index_sequence<K...>, const A&... values) noexcept {
    const std::tuple<const A&...> refs(values...);
    (PutSlots<kPlan.items[K].mode>(slots + kOffsets[K], std::get<kPlan.items[K].arg>(refs)), ...);
  }
  template <class... A>
  static void Pack(std::uint64_t* slots, const A&... values) noexcept {
    PackAll(slots, std::make_index_sequence<kPlan.count>(), values...);
  }
};

}  // namespace impl
}  // namespace zyrlog

#endif
