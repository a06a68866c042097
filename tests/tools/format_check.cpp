// Calls of the logging macros that must, or must not, compile. CASE 0 holds
// every argument type the printing knows under a fitting conversion; every
// other CASE is one mismatch, which must fail with the name of its fault
// that the comment behind its call gives (compile_check.cmake).
#include <cstdint>

#include "zyrlog/log.h"

enum Colour : std::uint8_t { kRed = 1 };
enum class Big : std::int64_t { kFar = 1ll << 40 };
void Callback() {}

void Calls(ZyrLogger* lg, const char16_t* runtimeFormat) {
  const char16_t* wide = u"w";
  char16_t writable[] = u"w";
  const char* narrow = "n";
  const char8_t* utf8 = u8"u";
  long wide64 = 1;
  std::size_t size = 2;
  void* address = nullptr;
  (void)runtimeFormat; (void)wide; (void)writable; (void)narrow; (void)utf8; (void)wide64; (void)size; (void)address;
#if CASE == 0
  ZYR_INFO(lg, u"%d %i %u %x %X %o %hhd %hd %hu %I32d", std::int8_t{1}, std::int16_t{2},
           std::uint8_t{3}, std::uint16_t{4}, 5u, 6, 7, short{8}, 'c', true);
  ZYR_INFO(lg, u"%lld %llu %I64d %I64x %zd %zu %Id %lld %d %d", std::int64_t{1}, UINT64_MAX, wide64,
           size, size, size, size, 3, kRed, u'x');
  ZYR_INFO(lg, u"%lld", Big::kFar);
  ZYR_INFO(lg, u"%f %e %E %g %G %08.3f %.2e", 1.0, 2.0f, 3.0, 4.0, 5.0, -3.14, 1e10);
  ZYR_INFO(lg, u"%s %ls %s %s %-10s %.3s", wide, u"literal", writable, nullptr, wide, wide);
  ZYR_INFO(lg, u"%hs %hs %hs", narrow, utf8, nullptr);
  ZYR_INFO(lg, u"%c %c %c", u'a', 'b', 0x263a);
  ZYR_INFO(lg, u"%p %p %p %p", address, lg, &Callback, 0x1000u);
  ZYR_INFO(lg, u"%Z %wZ", zyrlog::CountedText(narrow, 1), zyrlog::CountedText(wide, 1));
  ZYR_INFO(lg, u"%*d %-*.*f %.*s", 5, 1, 8, 2, 1.5, 3, wide);
  // No argument: printed as it stands, so no check applies.
  ZYR_INFO(lg, u"100% of %s and %d");
  // Copied as text by the printing, taking no argument: "%S", "%ws", "%wd", "%n", "%%", "% ".
  ZYR_INFO(lg, u"%S %ws %wd %n %% %d%", 1);
  // Formats known only at run time pass unchecked.
  ZYR_INFO(lg, runtimeFormat, 1, 2.0, wide);
  ZYR_INFO(lg, zyrlog::RuntimeFormat(writable), 1);
  ZYR_LOG(lg, ZYR_SEVERITY_WARN, u"%s=%d", wide, 1);
#elif CASE == 1
  ZYR_INFO(lg, u"%s", 42);  // s_needs_utf16_text
#elif CASE == 2
  ZYR_INFO(lg, u"%d of %d", 1);  // too_few_arguments
#elif CASE == 3
  ZYR_INFO(lg, u"%d", 1, 2);  // more_arguments_than_the_format_uses
#elif CASE == 4
  ZYR_INFO(lg, u"%s", narrow);  // s_needs_utf16_text
#elif CASE == 5
  ZYR_INFO(lg, u"%hs", wide);  // hs_needs_narrow
#elif CASE == 6
  ZYR_INFO(lg, u"%x", address);  // integer_conversion_needs
#elif CASE == 7
  ZYR_INFO(lg, u"%d", 1.5);  // integer_conversion_needs
#elif CASE == 8
  ZYR_INFO(lg, u"%ld", wide64);  // a_64_bit_integer_needs
#elif CASE == 9
  ZYR_INFO(lg, u"%d", size);  // a_64_bit_integer_needs
#elif CASE == 10
  ZYR_INFO(lg, u"%f", 1);  // floating_conversion_needs
#elif CASE == 11
  ZYR_INFO(lg, u"%Z", narrow);  // Z_and_wZ_need
#elif CASE == 12
  ZYR_INFO(lg, u"%*d", 1.0, 2);  // star_width_or_precision
#elif CASE == 13
  ZYR_INFO(lg, u"%c", 1.0);  // c_needs_a_character
#elif CASE == 14
  ZYR_INFO(lg, u"%s", writable, zyrlog::Int32(1));  // typed_items_belong_in_ZYR_LOG_TYPED
#elif CASE == 15
  // "%S" is copied as text and takes no argument.
  ZYR_INFO(lg, u"%S %d", 1, 2);  // more_arguments_than_the_format_uses
#elif CASE == 16
  struct Point { int x, y; } point{1, 2};
  ZYR_INFO(lg, u"%d", point);  // argument_type_unknown
#endif
}
