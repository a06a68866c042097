#include <gtest/gtest.h>

#include "base/string.h"

TEST(StringSmoke, Builds) {
  ZyrBasString s;
  EXPECT_EQ(s.Text()[0], 0);
}
