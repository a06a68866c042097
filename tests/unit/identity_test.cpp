#include <gtest/gtest.h>

#include <gnu/libc-version.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "base/identity.h"
#include "test_support.h"

namespace {

using zyrtest::ScopedEnv;
using zyrtest::Str;

const char16_t kVar[] = u"ZYR_IDENTITY_TEST_VAR";

std::u16string ComputerName() {
  ZyrBasString s;
  ZyrBasStringRef ref(s);
  EXPECT_EQ(ZyrBasComputerName(ref), ZYR_OK);
  return Str(s);
}

std::u16string OwnImage() {
  char path[4096];
  ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  EXPECT_GT(n, 0);
  return zyrtest::U16(std::string(path, n > 0 ? n : 0));  // the build tree has an ASCII path
}

TEST(IdentityComputerName, SourcesInOrderAndEmptyCountsAsNone) {
  ScopedEnv cluster("_CLUSTER_NETWORK_NAME_", "CLUSTERNODE");
  ScopedEnv computer("COMPUTERNAME", "WORKSTATION");
  EXPECT_EQ(ComputerName(), u"CLUSTERNODE");
  cluster.Set("");
  EXPECT_EQ(ComputerName(), u"WORKSTATION");
  cluster.Set(nullptr);
  computer.Set("");
  char host[256] = {};
  bool named = gethostname(host, sizeof host - 1) == 0 && host[0];
  EXPECT_EQ(ComputerName(), named ? zyrtest::U16(host) : u"localhost");  // host names are ASCII
}

TEST(IdentityEnv, UnsetAndEmptyEmptyTheTarget) {
  ScopedEnv v("ZYR_IDENTITY_TEST_VAR", nullptr);
  ZyrBasString out;
  for (const char* value : {static_cast<const char*>(nullptr), ""}) {
    v.Set(value);
    ASSERT_EQ(out.AssignAscii("stale"), ZYR_OK);
    EXPECT_EQ(ZyrBasGetEnv(kVar, out), ZYR_I_VARIABLE_EMPTY);
    EXPECT_TRUE(out.Empty());
  }
  // A name with "=" is no name: it must not match the variable's prefix.
  v.Set("x");
  EXPECT_EQ(ZyrBasGetEnv(u"ZYR_IDENTITY_TEST_VAR=", out), ZYR_I_VARIABLE_EMPTY);
  EXPECT_EQ(ZyrBasGetEnv(u"", out), ZYR_I_VARIABLE_EMPTY);
}

TEST(IdentityEnv, ValueIsDecodedFromUtf8) {
  ScopedEnv v("ZYR_IDENTITY_TEST_VAR", "Z\xc3\xbcrich \xe2\x82\xac \xf0\x9d\x84\x9e");
  ZyrBasString out;
  ASSERT_EQ(ZyrBasGetEnv(kVar, out), ZYR_OK);
  EXPECT_EQ(Str(out), u"Z\u00fcrich \u20ac \U0001d11e");
  // A stray byte and a cut-off sequence are kept, escaped, as file names
  // keep them, so that a path in the environment reaches the same file.
  v.Set("a\xff" "b\xe2\x82");
  ASSERT_EQ(ZyrBasGetEnv(kVar, out), ZYR_OK);
  EXPECT_EQ(Str(out), u"a\xdcff" u"b\xdce2\xdc82");
}

TEST(IdentityEnv, RawFormReportsTheSizeNeeded) {
  ScopedEnv v("ZYR_IDENTITY_TEST_VAR", "abcdef");
  char16_t small[4] = {u'q', 0, 0, 0};
  ZyrBasCountedBuffer buffer = {1, 4, small};
  std::size_t needed = 0;
  EXPECT_EQ(ZyrBasGetEnvRaw(kVar, buffer, &needed), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(needed, 7u);
  EXPECT_EQ(small[0], u'q');  // left as it was
  char16_t big[7];
  ZyrBasCountedBuffer fits = {0, 7, big};
  EXPECT_EQ(ZyrBasGetEnvRaw(kVar, fits, &needed), ZYR_OK);
  EXPECT_EQ(std::u16string(big), u"abcdef");
  EXPECT_EQ(fits.length, 6u);
}

TEST(IdentityProcess, ImagesOfThisProcessAChildAndOneGone) {
  ZyrBasString name;
  ASSERT_EQ(ZyrBasProcessName(ZyrBasCurrentProcessId(), name), ZYR_OK);
  EXPECT_EQ(Str(name), OwnImage());
  char16_t tiny[2];
  ZyrBasCountedBuffer buffer = {0, 2, tiny};
  std::size_t needed = 0;
  EXPECT_EQ(ZyrBasProcessImagePath(ZyrBasCurrentProcessId(), buffer, &needed), ZYR_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(needed, OwnImage().size() + 1);

  // A child of ours, which we may always look at, running the same image.
  pid_t child = fork();
  if (child == 0) {
    pause();
    _exit(0);
  }
  ASSERT_GT(child, 0);
  EXPECT_EQ(ZyrBasProcessName(static_cast<std::uint32_t>(child), name), ZYR_OK);
  EXPECT_EQ(Str(name), OwnImage());
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  // The reaped child is gone: no such process.
  EXPECT_EQ(ZyrBasProcessName(static_cast<std::uint32_t>(child), name), ZYR_E_INVALID_ARGUMENT);
  // Process 2 is the kernel's thread starter: it exists and has no image.
  if (access("/proc/2", F_OK) == 0) {
    EXPECT_EQ(ZyrBasProcessName(2, name), ZYR_OK);
    EXPECT_EQ(Str(name), u"System");
  }
}

TEST(IdentityProcess, ThreadIdsAreDistinctAndFollowAFork) {
  std::uint32_t mine = ZyrBasCurrentThreadId();
  EXPECT_EQ(mine, static_cast<std::uint32_t>(gettid()));
  std::uint32_t other = 0;
  std::thread([&] { other = ZyrBasCurrentThreadId(); }).join();
  EXPECT_NE(other, 0u);
  EXPECT_NE(other, mine);
  // In a child the forking thread is the first thread of a new process: a
  // kept id of the parent would be wrong there.
  EXPECT_EQ(zyrtest::RunInChild([] {
              std::uint32_t self = static_cast<std::uint32_t>(getpid());
              return ZyrBasCurrentThreadId() == self && ZyrBasCurrentProcessId() == self ? 0 : 1;
            }),
            0);
}

void AFunctionOfTheProgram() {}

TEST(IdentityModule, AddressInTheProgramInALibraryAndNowhere) {
  ZyrBasModuleInfo info;
  const void* address = reinterpret_cast<const void*>(&AFunctionOfTheProgram);
  ASSERT_EQ(ZyrBasModuleAt(info, ZYR_MODULE_BASE | ZYR_MODULE_SIZE | ZYR_MODULE_PATH | ZYR_MODULE_NAME, address),
            ZYR_OK);
  EXPECT_EQ(Str(info.path), OwnImage());
  EXPECT_EQ(Str(info.name), u"zyr_unit_tests");
  EXPECT_LE(info.base, address);
  EXPECT_LT(address, static_cast<const char*>(info.base) + info.size);
  // The unit tests link the library's objects into the program itself.
  ZyrBasString directory;
  ASSERT_EQ(ZyrBasOwnModuleDirectory(directory), ZYR_OK);
  EXPECT_EQ(Str(directory), OwnImage().substr(0, OwnImage().rfind(u'/')));

  ZyrBasModuleInfo libc;
  const void* inLibc = reinterpret_cast<const void*>(&gnu_get_libc_version);
  ASSERT_EQ(ZyrBasModuleAt(libc, ZYR_MODULE_NAME | ZYR_MODULE_PATH, inLibc), ZYR_OK);
  EXPECT_EQ(Str(libc.name).rfind(u"libc", 0), 0u) << "name does not start with libc";
  EXPECT_EQ(libc.filled, static_cast<std::uint32_t>(ZYR_MODULE_NAME | ZYR_MODULE_PATH));

  int onTheStack = 0;
  ZyrBasModuleInfo none;
  EXPECT_EQ(ZyrBasModuleAt(none, ZYR_MODULE_PATH, &onTheStack), ZYR_E_INVALID_DATA);
  EXPECT_EQ(ZyrBasModuleAt(none, ZYR_MODULE_PATH, nullptr), ZYR_E_INVALID_DATA);
}

}  // namespace
