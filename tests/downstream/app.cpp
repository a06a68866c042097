// A client as a user of the installed library writes it: one line to the
// console through a configuration given as text.
#include <zyrlog/log.h>

#include <cstdio>

int main() {
  IZyrLog* log = nullptr;
  ZyrResult r = ZyrGetLogObject(&IID_IZyrLog, &log);
  if (ZyrFailed(r)) {
    std::fprintf(stderr, "ZyrGetLogObject: 0x%08x\n", static_cast<unsigned>(r));
    return 1;
  }
  r = log->LoadConfigText(u"[root]\nSeverity = INFO\nAddAppenders = out\n"
                          u"[out]\nType = Appender\nAppenderType = Console\n"
                          u"Layout = line\n"
                          u"[line]\nType = Layout\nLayoutType = Custom\nFormat = %severity %msg\n");
  ZyrLogger* logger = nullptr;
  if (ZyrSucceeded(r)) r = log->GetLogger(&logger, u"downstream");
  if (ZyrFailed(r)) {
    std::fprintf(stderr, "configuration: 0x%08x\n", static_cast<unsigned>(r));
    return 1;
  }
  ZYR_INFO(logger, u"downstream build works: %d", 42);
  ZyrReleaseLogObject(&IID_IZyrLog, log);
  return 0;
}
