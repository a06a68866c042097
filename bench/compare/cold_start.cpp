// cold_start MODULE: in this fresh process, the time from loading the
// library to the return of the first line written through the built-in
// default configuration, which puts it into common.log of the log folder
// below LOCALAPPDATA. Prints the nanoseconds, or a reason and exit 1. The
// comparison starts it a few times, each in a new process and folder.
#include <dlfcn.h>
#include <stdlib.h>
#include <time.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "zyrlog/log.h"
#include "zyrlog/zyrlog.h"

namespace {

std::uint64_t Now() {
  timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<std::uint64_t>(t.tv_sec) * 1000000000u + t.tv_nsec;
}

int Fail(const char* what) {
  std::printf("failed: %s\n", what);
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  const char* appData = getenv("LOCALAPPDATA");
  if (argc < 2 || !appData) return Fail("usage: LOCALAPPDATA=DIR cold_start MODULE");
  const std::uint64_t start = Now();
  void* module = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (!module) return Fail(dlerror());
  using Get = ZyrResult (*)(const ZyrIid*, IZyrLog**);
  using Release = ZyrResult (*)(const ZyrIid*, IZyrLog*);
  auto get = reinterpret_cast<Get>(dlsym(module, "ZyrGetLogObject"));
  auto release = reinterpret_cast<Release>(dlsym(module, "ZyrReleaseLogObject"));
  if (!get || !release) return Fail("exports not found");
  IZyrLog* log = nullptr;
  ZyrLogger* logger = nullptr;
  if (ZyrFailed(get(&IID_IZyrLog, &log))) return Fail("ZyrGetLogObject");
  if (ZyrFailed(log->GetLogger(&logger, u"cold"))) return Fail("GetLogger");
  if (!zyrlog::Enabled(logger, ZYR_SEVERITY_FATAL)) return Fail("FATAL is filtered out");
  if (ZyrFailed(zyrlog::LogFormat(logger, ZYR_SEVERITY_FATAL, u"first line %d", u"cold.cpp", 1, 7)))
    return Fail("the first line");
  const std::uint64_t took = Now() - start;
  // The default configuration's file, where the line must stand by now.
  std::string path = std::string(appData) + "/Zyr/OPH2015/log/common.log";
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  if (text.str().find("MSG:first line 7") == std::string::npos) return Fail("no line in common.log");
  release(&IID_IZyrLog, log);
  std::printf("%llu\n", static_cast<unsigned long long>(took));
  return 0;
}
