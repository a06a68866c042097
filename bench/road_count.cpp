// road_count ROAD LINES [FOLDER]: writes LINES messages through one road and
// nothing else, for instruction counts under callgrind, which are stable on
// a shared machine where wall-clock figures are not:
//
//   valgrind --tool=callgrind --toggle-collect='*RoadMeasured*'
//     build-bench/bench/road_count rolling 20000    (one command line)
//
// ROAD: null, null-json (the Json line in place of the Standard line),
// file, rolling (direct road), or queue (rolling file, queue road, until
// StopDispatcher). The message is that of bench/compare. The
// first 1000 lines warm the road up (file opened, buffers grown) and are not
// in the measured function.
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "zyrlog/log.h"
#include "zyrlog/zyrlog.h"
// The file name that the contract's calls below pass, so that both doors
// write the same line.
#define ZYRLOG_FILE u"compare.cpp"
#include "zyrlog/zyrlog.hpp"

namespace {

std::u16string Widen(const std::string& ascii) { return std::u16string(ascii.begin(), ascii.end()); }

[[gnu::noinline]] int Lines(ZyrLogger* logger, std::uint32_t from, std::uint32_t count) {
  int failed = 0;
  for (std::uint32_t s = from; s < from + count; ++s) {
    if (!zyrlog::Enabled(logger, ZYR_SEVERITY_INFO)) continue;
    ZyrResult r = zyrlog::LogFormat(logger, ZYR_SEVERITY_INFO, u"request %d from worker %d for %s",
                                    u"compare.cpp", 10, static_cast<int>(s), 0, u"client-7");
    failed += ZyrFailed(r);
  }
  return failed;
}

// A ROAD that ends in "-front" (null-front, file-front, ...) writes the same
// message through the C++ front door (zyrlog/zyrlog.hpp) with its text in
// UTF-8; "-front16" with the text in UTF-16, as the contract's macro passes
// it.
enum class Door { kContract, kFront, kFront16 };

// The front door counts failed calls in its handle.
template <Door kDoor>
[[gnu::noinline]] void FrontLines(const zyrlog::Logger& logger, std::uint32_t from, std::uint32_t count) {
  for (std::uint32_t s = from; s < from + count; ++s) {
    if constexpr (kDoor == Door::kFront)
      ZYRLOG_INFO(logger, "request {} from worker {} for {}", static_cast<int>(s), 0, "client-7");
    else
      ZYRLOG_INFO(logger, "request {} from worker {} for {}", static_cast<int>(s), 0, u"client-7");
  }
}

int AnyLines(ZyrLogger* logger, const zyrlog::Logger& front, Door door, std::uint32_t from,
             std::uint32_t count) {
  if (door == Door::kFront) FrontLines<Door::kFront>(front, from, count);
  else if (door == Door::kFront16) FrontLines<Door::kFront16>(front, from, count);
  else return Lines(logger, from, count);
  return 0;
}

// The measured part, by name for --toggle-collect.
[[gnu::noinline]] int RoadMeasured(IZyrLog* log, ZyrLogger* logger, const zyrlog::Logger& front,
                                   Door door, std::uint32_t count, bool queue) {
  int failed = AnyLines(logger, front, door, 1000, count);
  if (queue) log->StopDispatcher();
  return failed;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: road_count null|null-json|file|rolling|queue LINES [FOLDER]\n");
    return 2;
  }
  std::string road = argv[1];
  Door door = Door::kContract;
  for (auto [suffix, which] : {std::pair{"-front16", Door::kFront16}, std::pair{"-front", Door::kFront}}) {
    std::string tail = suffix;
    if (road.size() > tail.size() && road.compare(road.size() - tail.size(), tail.size(), tail) == 0) {
      road.resize(road.size() - tail.size());
      door = which;
      break;
    }
  }
  std::uint32_t count = static_cast<std::uint32_t>(std::strtoul(argv[2], nullptr, 10));
  std::string folder = argc > 3 ? argv[3] : "/tmp/zyr-road-count";
  mkdir(folder.c_str(), 0755);
  setenv("LOCALAPPDATA", folder.c_str(), 1);

  std::u16string text = u"[root]\nSeverity = INFO\nAddAppenders = out\nMaxQueueSize = 0\n"
                        u"[out]\nType = Appender\n";
  std::u16string file = Widen(folder + "/road.log");
  if (road == "null") text += u"AppenderType = Null\n";
  else if (road == "null-json")
    text += u"AppenderType = Null\nLayout = json\n[json]\nType = Layout\nLayoutType = Json\n";
  else if (road == "file") text += u"AppenderType = File\nFileName = " + file + u"\n";
  else if (road == "rolling" || road == "queue")
    text += u"AppenderType = RollingFile\nSize = 1024000\nFilesCount = 10\nFileName = " + file + u"\n";
  else return std::fprintf(stderr, "unknown road %s\n", road.c_str()), 2;

  IZyrLog* log = nullptr;
  ZyrLogger* logger = nullptr;
  if (ZyrFailed(ZyrGetLogObject(&IID_IZyrLog, &log)) || ZyrFailed(log->LoadConfigText(text.c_str())) ||
      ZyrFailed(log->GetLogger(&logger, u"bench")))
    return std::fprintf(stderr, "setup failed\n"), 1;
  zyrlog::Log frontLog;
  zyrlog::Logger front = frontLog.GetLogger("bench");
  bool queue = road == "queue";
  if (queue && ZyrFailed(log->StartDispatcher())) return std::fprintf(stderr, "no worker\n"), 1;
  int failed = AnyLines(logger, front, door, 0, 1000);
  failed += RoadMeasured(log, logger, front, door, count, queue);
  failed += static_cast<int>(frontLog.FailedCalls());
  frontLog.Close();
  front = zyrlog::Logger();
  ZyrReleaseLogObject(&IID_IZyrLog, log);
  if (failed) std::fprintf(stderr, "%d calls failed\n", failed);
  return failed ? 1 : 0;
}
