// zyrlog demo: a client gets a log object, names its folders, reads them
// back, asks for a logger and releases the object.
#include <cstdio>
#include <string>

#include "zyrlog/zyrlog.h"

namespace {
std::string Narrow(const char16_t* text) {
  std::string out;
  for (; *text; ++text) out.push_back(*text < 0x80 ? static_cast<char>(*text) : '?');
  return out;
}
}  // namespace

int main() {
  IZyrLog* log = nullptr;
  ZyrResult r = ZyrGetLogObject(&IID_IZyrLogLevel3, &log);
  if (ZyrFailed(r)) {
    std::fprintf(stderr, "ZyrGetLogObject failed: 0x%08x\n", static_cast<unsigned>(r));
    return 1;
  }
  // No log folder given: the channel takes the default one and creates it.
  r = log->SetFolders(u"/etc/zyr-demo", nullptr, 0);
  std::printf("SetFolders: 0x%08x\n", static_cast<unsigned>(r));

  char16_t folder[512];
  std::uint64_t needed = 0;
  r = log->GetConfigFolder(folder, 511, &needed);
  std::printf("configuration folder: %s (0x%08x, %llu characters with terminator)\n",
              ZyrSucceeded(r) ? Narrow(folder).c_str() : "?", static_cast<unsigned>(r),
              static_cast<unsigned long long>(needed));
  std::printf("configured: public %d, private %d\n", log->IsConfigured(), log->IsPrivateConfigured());

  ZyrLogger* logger = nullptr;
  r = log->GetLogger(&logger, u"demo.main");
  if (ZyrSucceeded(r))
    std::printf("logger %s: threshold %d, flags 0x%x\n", Narrow(logger->GetName()).c_str(),
                logger->threshold.load(), logger->flags.load());

  ZyrReleaseLogObject(&IID_IZyrLog, log);
  std::printf("released\n");
  return 0;
}
