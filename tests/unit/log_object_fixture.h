// A test that holds one log object, with the default log folder moved into
// a private folder for the test.
#ifndef ZYR_TESTS_LOG_OBJECT_FIXTURE_H
#define ZYR_TESTS_LOG_OBJECT_FIXTURE_H

#include <gtest/gtest.h>

#include <string>

#include "test_support.h"
#include "zyrlog/zyrlog.h"

namespace zyrtest {

class LogObjectTest : public ::testing::Test {
 protected:
  explicit LogObjectTest(const char* tag) : tag_(tag) {}
  void SetUp() override {
    dir_ = UsePrivateLocalAppData(tag_);
    ASSERT_EQ(ZyrGetLogObject(&IID_IZyrLog, &log_), ZYR_OK);
  }
  void TearDown() override {
    if (log_) ZyrReleaseLogObject(&IID_IZyrLog, log_);
    RemoveTree(dir_);
  }
  ZyrLogger* Get(const char16_t* name) {
    ZyrLogger* logger = nullptr;
    EXPECT_EQ(log_->GetLogger(&logger, name), ZYR_OK);
    return logger;
  }

  IZyrLog* log_ = nullptr;
  std::string dir_;

 private:
  const char* tag_;
};

}  // namespace zyrtest

#endif
