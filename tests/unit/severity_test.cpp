#include <gtest/gtest.h>

#include <string>

#include "records/severity.h"

TEST(Severity, NamesParseWithoutCaseOverTheWholeText) {
  EXPECT_EQ(ZyrLogSeverityFromName(u"ALL", 1), ZYR_SEVERITY_ALL);
  EXPECT_EQ(ZyrLogSeverityFromName(u"all", 1), ZYR_SEVERITY_ALL);
  EXPECT_EQ(ZyrLogSeverityFromName(u"Off", 1), ZYR_SEVERITY_OFF);
  EXPECT_EQ(ZyrLogSeverityFromName(u"Info", 1), ZYR_SEVERITY_INFO);
  EXPECT_EQ(ZyrLogSeverityFromName(u"detail", 1), ZYR_SEVERITY_DETAIL);
  EXPECT_EQ(ZyrLogSeverityFromName(u"", 200000), 200000);
  EXPECT_EQ(ZyrLogSeverityFromName(u"NOPE", 12345), 12345);
  EXPECT_EQ(ZyrLogSeverityFromName(u"INF", 7), 7);
  EXPECT_EQ(ZyrLogSeverityFromName(u"INFOS", 7), 7);
  EXPECT_EQ(ZyrLogSeverityFromName(u" INFO", 7), 7);  // the reader trims; nothing here does
}

TEST(Severity, PrintingIsTheInverseForTheEightNames) {
  for (const char16_t* name : {u"ALL", u"DEBUG", u"DETAIL", u"INFO", u"WARN", u"ERROR", u"FATAL", u"OFF"})
    EXPECT_EQ(std::u16string(ZyrLogSeverityName(ZyrLogSeverityFromName(name, 0))), name);
  EXPECT_EQ(std::u16string(ZyrLogSeverityName(150001)), u"INFO");
  EXPECT_EQ(std::u16string(ZyrLogSeverityName(0)), u"INFO");
  EXPECT_EQ(std::u16string(ZyrLogSeverityName(299999)), u"INFO");
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
