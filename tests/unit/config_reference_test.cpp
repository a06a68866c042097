// docs/configuration.md against the library: every key of the key table is
// described under the heading of its kind of section with its default, the
// reference names no key the table lacks, and its tokens and variables are
// the ones the library reads.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>
#include <string>

#include "config/keys.h"
#include "config/variables.h"
#include "layout/custom_layout.h"
#include "test_support.h"

namespace {

std::string Reference() {
  return zyrtest::ReadFile(ZYR_SOURCE_DIR "/docs/configuration.md");
}

std::string Cell(const std::string& row, int index) {
  std::size_t start = 0;
  for (int i = 0; i <= index; ++i) start = row.find('|', start) + 1;
  std::size_t end = row.find('|', start);
  std::string cell = row.substr(start, end - start);
  return cell.substr(cell.find_first_not_of(' '), cell.find_last_not_of(' ') - cell.find_first_not_of(' ') + 1);
}

// "Heading/first column title" -> rows of that table, by their first cell
// without backticks: "Loggers/Key", "Variables/Variable".
std::map<std::string, std::map<std::string, std::string>> Tables(const std::string& text) {
  std::map<std::string, std::map<std::string, std::string>> out;
  std::istringstream in(text);
  std::string line, heading, title;
  while (std::getline(in, line)) {
    if (line.rfind("### ", 0) == 0) heading = line.substr(4);
    if (line.rfind("## ", 0) == 0) heading = line.substr(3);
    if (line.rfind("| ", 0) == 0 && line.rfind("| `", 0) != 0 && line.rfind("| ---", 0) != 0)
      title = Cell(line, 0);
    if (line.rfind("| `", 0) != 0) continue;
    std::string first = Cell(line, 0);
    out[heading + "/" + title][first.substr(1, first.size() - 2)] = line;
  }
  return out;
}

std::string Heading(const ZyrCfgKey& key) {
  std::string type = key.type ? zyrtest::Narrow(key.type) : "";
  switch (key.scope) {
    case ZyrCfgScope::kAnySection: return "Every section";
    case ZyrCfgScope::kLogger: return "Loggers";
    case ZyrCfgScope::kRoot: return "The root logger";
    case ZyrCfgScope::kAppender: return "Every appender";
    case ZyrCfgScope::kAppenderOf: return "Appender type `" + type + "`";
    case ZyrCfgScope::kLayout: return "Every layout";
    case ZyrCfgScope::kLayoutOf: return "Layout type `" + type + "`";
  }
  return "";
}

TEST(ConfigReference, DescribesEveryKeyOfTheTableWithItsDefaultAndNoOther) {
  auto tables = Tables(Reference());
  std::set<std::pair<std::string, std::string>> inTable;
  for (std::size_t i = 0; i < kZyrCfgKeyCount; ++i) {
    const ZyrCfgKey& key = kZyrCfgKeys[i];
    std::string heading = Heading(key) + "/Key", name = zyrtest::Narrow(key.key);
    inTable.insert({heading, name});
    auto row = tables[heading].find(name);
    ASSERT_NE(row, tables[heading].end()) << name << " is not described under " << heading;
    std::string expected = key.required ? "required" : zyrtest::Narrow(key.fallback);
    EXPECT_EQ(Cell(row->second, 2), expected) << "default of " << name << " under " << heading;
  }
  for (const auto& [heading, rows] : tables) {
    if (heading.size() < 4 || heading.substr(heading.size() - 4) != "/Key") continue;
    for (const auto& [name, row] : rows)
      EXPECT_TRUE(inTable.count({heading, name})) << heading << " describes " << name
                                                  << ", which the key table does not have";
  }
  for (std::size_t i = 0; i < kZyrCfgAppenderTypeCount; ++i)
    EXPECT_NE(Reference().find("### Appender type `" + zyrtest::Narrow(kZyrCfgAppenderTypes[i]) + "`"),
              std::string::npos);
}

TEST(ConfigReference, TokensAndVariablesAreTheLibrarys) {
  auto tables = Tables(Reference());
  const auto& tokens = tables["Layout type `Custom`/Token"];
  std::size_t tokenRows = 0;
  for (const auto& [text, row] : tokens) {
    ++tokenRows;
    ZyrLogLayout* made = nullptr;
    ASSERT_EQ(ZyrLogCustomLayoutCreator().Create(&made, u"reference"), ZYR_OK);
    auto* layout = static_cast<ZyrLogCustomLayout*>(made);
    std::u16string format = zyrtest::U16(text);
    ASSERT_EQ(layout->Compile(format.c_str(), format.size()), ZYR_OK);
    ASSERT_EQ(layout->Tokens().Count(), 1u) << text;
    EXPECT_NE(layout->Tokens()[0], 0u) << text << " is no token of the library";
    made->Destroy(1);
  }
  EXPECT_EQ(tokenRows, static_cast<std::size_t>(ZyrLogCustomLayout::kTid));

  std::size_t variables = 0;
  for (const auto& [text, row] : tables["Variables/Variable"]) {
    std::u16string name = zyrtest::U16(text.substr(2, text.size() - 3));
    ZyrBasString value;
    bool known = false;
    (void)ZyrCfgResolveVariable(name.c_str(), name.size(), value, &known);
    EXPECT_TRUE(known) << text;
    ++variables;
  }
  EXPECT_GE(variables, 6u);
}

}  // namespace
