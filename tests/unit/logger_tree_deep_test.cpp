// A logger tree of a very deep name: every walk over the tree (lock, unlock,
// thresholds, close, reset, destruction) and the climb of a message run
// without recursion, and the names of the levels share one text.
#include <gtest/gtest.h>
#include <malloc.h>

#include <string>

#include "config/reader.h"
#include "engine_support.h"
#include "records/severity.h"

namespace {

using zyrtest::EngineFixture;

std::u16string DeepName(std::size_t levels) {
  std::u16string name;
  name.reserve(levels * 2);
  for (std::size_t i = 0; i < levels; ++i) name += i ? u".a" : u"a";
  return name;
}

TEST(LoggerTreeDeep, HundredThousandLevelsAreWalkedWithoutRecursion) {
#if defined(__SANITIZE_THREAD__)
  // A reload holds every logger's lock at once; the sanitizer's lock-order
  // check stops the process past 64 locks held by one thread.
  GTEST_SKIP() << "the thread sanitizer follows at most 64 locks held by one thread";
#endif
  const std::u16string name = DeepName(100000);
  {
    EngineFixture f;
    ZyrLoggerNode* deep = f.Logger(name.c_str());
    ASSERT_NE(deep, nullptr);
    EXPECT_EQ(std::u16string(deep->GetName()), name);
    EXPECT_EQ(std::u16string(deep->Parent()->GetName()), name.substr(0, name.size() - 2));

    // Tree lock and unlock, and a root threshold handed down all the way.
    ZyrBasString folder;
    ZyrStringReader text(u"[root]\nSeverity = ERROR\n");
    ASSERT_EQ(f.manager->LoadConfigReader(text, folder), ZYR_OK);
    EXPECT_EQ(deep->threshold.load(), ZYR_SEVERITY_ERROR);

    // The climb from the deepest level reaches the root's appender.
    zyrtest::RecordingAppender* top = f.Attach(f.Logger(u"root"), u"top");
    ASSERT_EQ(deep->LogShort(ZYR_SEVERITY_ERROR, u"from below", u"t.cpp", 1, 0, 0, 0, nullptr),
              ZYR_OK);
    ASSERT_EQ(top->Lines().size(), 1u);
    EXPECT_EQ(zyrtest::MessageOf(top->Lines()[0]), u"from below");

    ASSERT_EQ(f.manager->Flush(), ZYR_OK);                         // close walk
    ZyrLoggerNode::ResetTree(f.Logger(u"root"));                   // reset walk
    EXPECT_EQ(deep->threshold.load(), ZYR_SEVERITY_INFO);
  }  // and the destruction walk
}

// Each level's name is a prefix of one shared text: memory follows the
// length of the name, not its square (30000 levels stored every prefix in
// some 1.8 GB).
TEST(LoggerTreeDeep, DeepNameCostsLinearMemory) {
  const std::u16string name = DeepName(30000);
  EngineFixture f;
  std::size_t before = mallinfo2().uordblks;
  ASSERT_NE(f.Logger(name.c_str()), nullptr);
  std::size_t after = mallinfo2().uordblks;
  if (before == 0 && after == 0) GTEST_SKIP() << "the allocator reports no figures (sanitizer build)";
  EXPECT_LT(after - before, 64u << 20) << "bytes for 30000 levels";
}

}  // namespace
