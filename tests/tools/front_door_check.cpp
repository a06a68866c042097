// Calls of the front door's logging macros that must, or must not,
// compile. CASE 0 holds calls that must compile; every other CASE is one
// refusal, whose message must hold the text of the comment behind its call
// (compile_check.cmake).
#include <cstdint>
#include <string>

#include "zyrlog/zyrlog.hpp"

struct Unknown {
  int x;
};

void Calls(const zyrlog::Logger& lg) {
  std::string text = "t";
#if CASE == 0
  ZYRLOG_INFO(lg, "{} {:x} {:08.3f} {:>10} {:<4} {:+d} {:#o} {:.2} {:s} {:c} {:p}", 1, 2u, 3.0, text,
              std::int8_t{4}, 5, 6ll, 7.0f, "s", 'c', static_cast<void*>(nullptr));
  ZYRLOG_WARN(lg, u8"{1} {0} {{}} 100%", true, u"w");
  ZYRLOG_DEBUG(lg, "no argument: 100% {{}}");
#elif CASE == 1
  ZYRLOG_INFO(lg, "{} and {}", 1);  // the format has more placeholders than arguments
#elif CASE == 2
  ZYRLOG_INFO(lg, "{}", 1, 2);  // more arguments than the format uses
#elif CASE == 3
  ZYRLOG_INFO(lg, "{:x}", text);  // text takes {} or {:s}
#elif CASE == 4
  ZYRLOG_INFO(lg, "{:d}", 1.5);  // a float or double takes {}
#elif CASE == 5
  ZYRLOG_INFO(lg, "{}", Unknown{1});  // specialise zyrlog::Loggable<T> for it
#elif CASE == 6
  ZYRLOG_INFO(lg, "{}", L"wide");  // wchar_t and char32_t have no counterpart
#elif CASE == 7
  ZYRLOG_INFO(lg, "{}", 1.0L);  // do not fit a 64-bit slot
#elif CASE == 8
  ZYRLOG_INFO(lg, "{:^10}", 1);  // centred alignment ({:^}) has no counterpart
#elif CASE == 9
  ZYRLOG_INFO(lg, "{:b}", 1);  // {:b} and {:c} have no counterpart
#elif CASE == 10
  ZYRLOG_INFO(lg, "{:*>8}", 1);  // only a blank can fill
#elif CASE == 11
  ZYRLOG_INFO(lg, "{:.3}", 1);  // a precision (.N) applies to floating point and text only
#elif CASE == 12
  ZYRLOG_INFO(lg, "{:{}}", 1, 2);  // a width or precision taken from an argument
#elif CASE == 13
  ZYRLOG_INFO(lg, "{name}", 1);  // named placeholders ({name}) have no counterpart
#elif CASE == 14
  ZYRLOG_INFO(lg, "{} {0}", 1);  // cannot be mixed in one format
#elif CASE == 15
  ZYRLOG_INFO(lg, "{", 1);  // a '{' without its '}'
#elif CASE == 16
  ZYRLOG_INFO(lg, u"{}", 1);  // the format must be a UTF-8 string literal
#elif CASE == 17
  ZYRLOG_INFO(lg, "{:+}", text);  // a sign (+, -, blank) applies to numbers only
#elif CASE == 18
  ZYRLOG_INFO(lg, "\xff{}", 1);  // the format is not valid UTF-8
#endif
}
