#include <gtest/gtest.h>

#include <string>

#include "records/severity.h"

TEST(Severity, NamesParseWithoutCaseOverTheWholeTextAndPrintBack) {
  const std::pair<const char16_t*, std::int32_t> rows[] = {
      {u"ALL", ZYR_SEVERITY_ALL}, {u"all", ZYR_SEVERITY_ALL}, {u"Off", ZYR_SEVERITY_OFF},
      {u"Info", ZYR_SEVERITY_INFO}, {u"detail", ZYR_SEVERITY_DETAIL}, {u"", 12345}, {u"NOPE", 12345},
      {u"INF", 12345}, {u"INFOS", 12345}, {u" INFO", 12345}};  // the reader trims; nothing here does
  for (std::size_t i = 0; i < std::size(rows); ++i)
    EXPECT_EQ(ZyrLogSeverityFromName(rows[i].first, 12345), rows[i].second) << "row " << i;
  for (const char16_t* name : {u"ALL", u"DEBUG", u"DETAIL", u"INFO", u"WARN", u"ERROR", u"FATAL", u"OFF"})
    EXPECT_EQ(std::u16string(ZyrLogSeverityName(ZyrLogSeverityFromName(name, 0))), name);
  // Values between the names print as the name below them.
  for (std::int32_t value : {150001, 0, 299999}) EXPECT_EQ(std::u16string(ZyrLogSeverityName(value)), u"INFO") << value;
  EXPECT_EQ(std::u16string(ZyrLogSeverityName(INT32_MIN)), u"ALL");
}

TEST(Severity, FilterIsSigned) {
  EXPECT_TRUE(ZyrLogSeverityPasses(ZYR_SEVERITY_ALL, ZYR_SEVERITY_ALL));
  EXPECT_FALSE(ZyrLogSeverityPasses(ZYR_SEVERITY_FATAL, ZYR_SEVERITY_OFF));
  EXPECT_TRUE(ZyrLogSeverityPasses(ZYR_SEVERITY_OFF, ZYR_SEVERITY_OFF));
  EXPECT_TRUE(ZyrLogSeverityPasses(ZYR_SEVERITY_DEBUG, ZYR_SEVERITY_ALL));  // unsigned would put ALL above
  EXPECT_FALSE(ZyrLogSeverityPasses(ZYR_SEVERITY_DEBUG, ZYR_SEVERITY_DETAIL));
  EXPECT_TRUE(ZyrLogSeverityPasses(ZYR_SEVERITY_INFO, ZYR_SEVERITY_DETAIL));
  EXPECT_TRUE(ZyrLogSeverityPasses(299999, ZYR_SEVERITY_INFO));
  EXPECT_FALSE(ZyrLogSeverityPasses(299999, ZYR_SEVERITY_WARN));
}
