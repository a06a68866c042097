// The reconfiguration exports: a named file through every object, and the
// thread-start forms whose exit value carries the result.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "test_support.h"
#include "zyrlog/zyrlog.h"

namespace {

std::int32_t RunThread(void* (*entry)(void*), void* argument) {
  pthread_t thread;
  EXPECT_EQ(pthread_create(&thread, nullptr, entry, argument), 0);
  void* status = nullptr;
  pthread_join(thread, &status);
  return static_cast<std::int32_t>(reinterpret_cast<std::intptr_t>(status));
}

std::vector<unsigned char> Blob(const std::u16string& name, std::uint32_t mode) {
  std::vector<unsigned char> blob(12 + 2 * name.size());
  std::uint64_t length = name.size();
  std::memcpy(blob.data(), &length, 8);
  std::memcpy(blob.data() + 8, name.data(), 2 * name.size());
  std::memcpy(blob.data() + 8 + 2 * name.size(), &mode, 4);
  return blob;
}

}  // namespace

TEST(Reconfigure, RemoteBlobLoadsThroughThePrivateChannelOfEachObject) {
  std::string dir = zyrtest::UsePrivateLocalAppData("reconf");
  std::ofstream(dir + "/abc") << "[reconf.x]\nAdditive = no\nSeverity = FATAL\n";
  IZyrLog* a = nullptr;
  ASSERT_EQ(ZyrGetLogObject(&IID_IZyrLog, &a), ZYR_OK);
  ASSERT_EQ(a->SetPrivateFolders(zyrtest::U16(dir).c_str(), nullptr, 0), ZYR_OK);
  ZyrLogger* x = nullptr;
  ASSERT_EQ(a->GetLogger(&x, u"reconf.x"), ZYR_OK);

  std::vector<unsigned char> ignored = Blob(u"abc", 2);
  EXPECT_EQ(ignored.size(), 18u);
  EXPECT_EQ(RunThread(&ZyrLogLibraryRemoteReconfigure, ignored.data()), ZYR_OK);
  EXPECT_EQ(x->threshold.load(), ZYR_SEVERITY_INFO);  // mode 2: nothing touched

  std::vector<unsigned char> blob = Blob(u"abc", 1);
  EXPECT_EQ(RunThread(&ZyrLogLibraryRemoteReconfigure, blob.data()), ZYR_OK);
  EXPECT_EQ(x->threshold.load(), ZYR_SEVERITY_FATAL);

  std::ofstream(dir + "/abc") << "[reconf.x]\nAdditive = no\nSeverity = ERROR\n";
  EXPECT_EQ(RunThread(&ZyrLogLibraryRemoteReloadConfig, nullptr), ZYR_OK);
  EXPECT_EQ(x->threshold.load(), ZYR_SEVERITY_ERROR);
  ZyrReleaseLogObject(&IID_IZyrLog, a);
  EXPECT_EQ(ZyrLogLibraryReconfigure(u"abc", 0), ZYR_OK);  // no object: nothing to do
  zyrtest::RemoveTree(dir);
}
