// The text pool: a kept text is found only while the caller's units are the
// same, and the comparison never reads into a page the text does not touch.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "records/text_pool.h"

namespace {

// Texts that end right before an inaccessible page, at every alignment, are
// compared with kept texts that are equal, longer, shorter, or differ in
// one unit anywhere.
TEST(TextPool, SameTextAtThePagesEndInEveryForm) {
  long page = sysconf(_SC_PAGESIZE);
  auto* area = static_cast<char*>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE,
                                       MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(area, MAP_FAILED);
  ASSERT_EQ(mprotect(area + page, page, PROT_NONE), 0);
  ZyrLogTextPool pool;
  for (std::size_t length = 0; length <= 20; ++length) {
    std::u16string units;
    for (std::size_t i = 0; i < length; ++i) units += static_cast<char16_t>(u'a' + i);
    // The text with its terminator ends at the page's end.
    auto* text = reinterpret_cast<char16_t*>(area + page) - (length + 1);
    units.copy(text, length);
    text[length] = 0;
    const ZyrLogKeptText* kept = pool.Keep(text, length, nullptr);
    ASSERT_NE(kept, nullptr);
    EXPECT_TRUE(ZyrLogSameText(text, kept->Text(), length)) << length;
    EXPECT_EQ(pool.Find(text), kept);
    const ZyrLogKeptText* longer = pool.Keep((units + u"z").c_str(), length + 1, nullptr);
    EXPECT_FALSE(ZyrLogSameText(text, longer->Text(), length + 1)) << length;
    if (length > 0) {
      const ZyrLogKeptText* shorter = pool.Keep(units.substr(0, length - 1).c_str(), length - 1, nullptr);
      EXPECT_FALSE(ZyrLogSameText(text, shorter->Text(), length - 1)) << length;
      for (std::size_t at = 0; at < length; ++at) {
        char16_t was = text[at];
        text[at] = u'#';
        EXPECT_FALSE(ZyrLogSameText(text, kept->Text(), length)) << length << " at " << at;
        EXPECT_EQ(pool.Find(text), nullptr);
        text[at] = was;
      }
    }
    // A text shifted by one unit inside the page, with one more unit before it.
    if (length > 0) {
      char16_t* shifted = text - 1;
      units.copy(shifted, length);
      shifted[length] = 0;
      EXPECT_TRUE(ZyrLogSameText(shifted, kept->Text(), length)) << length;
    }
  }
  munmap(area, 2 * page);
}

}  // namespace
