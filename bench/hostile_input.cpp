// hostile_input [SECTIONS]: time and memory of the inputs that an attacker
// or an accident can hand the library, one row each, every row in a process
// of its own so that its peak of memory is its own:
//
//   build-bench/bench/hostile_input 1000000
//
// Rows: SECTIONS sections in random order, read into a document and applied
// through a log object; configuration files that are no configuration (a
// FIFO, /dev/zero, a sparse file of 2 GiB, a file rewritten while it is
// read); the largest file that is read (4 MiB of the shortest keys); a
// format with a width of 2^31 - 1, written and from a "*" slot. Each row
// prints its result, its wall and processor time and the growth of its peak
// resident memory. Wall times are noisy on a shared machine; processor time
// and memory are not.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <algorithm>
#include <random>
#include <string>
#include <thread>

#include "base/format.h"
#include "config/document.h"
#include "config/reader.h"
#include "zyrlog/zyrlog.h"

namespace {

long PeakKb() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

// User and system time of this process, in milliseconds: on a machine
// shared by many, the figure that does not depend on the others' load.
double CpuMs() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  auto ms = [](const timeval& t) { return t.tv_sec * 1000.0 + t.tv_usec / 1000.0; };
  return ms(usage.ru_utime) + ms(usage.ru_stime);
}

// Runs `body` in a child and prints its row: the result it gives, the time
// and the growth of the peak resident memory.
void Row(const char* name, const std::function<ZyrResult()>& body) {
  std::fflush(stdout);
  pid_t child = fork();
  if (child == 0) {
    long before = PeakKb();
    double cpu = CpuMs();
    auto start = std::chrono::steady_clock::now();
    ZyrResult r = body();
    double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    std::printf("%-44s 0x%08x %10.1f ms %10.1f ms %8.1f MB\n", name, static_cast<unsigned>(r), ms,
                CpuMs() - cpu, (PeakKb() - before) / 1024.0);
    std::fflush(stdout);
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFEXITED(status)) std::printf("%-44s died\n", name);
}

std::u16string RandomSections(long count) {
  std::vector<long> order(static_cast<std::size_t>(count));
  for (long i = 0; i < count; ++i) order[static_cast<std::size_t>(i)] = i;
  std::shuffle(order.begin(), order.end(), std::mt19937_64(42));
  std::u16string text;
  text.reserve(static_cast<std::size_t>(count) * 12);
  for (long i : order) {
    std::string line = "[s" + std::to_string(i) + "]\n";
    text.append(line.begin(), line.end());
  }
  return text;
}

ZyrResult LoadFile(const std::string& path) {
  IZyrLog* log = nullptr;
  ZyrResult r = ZyrGetLogObject(&IID_IZyrLog, &log);
  if (ZyrFailed(r)) return r;
  std::u16string wide(path.begin(), path.end());
  r = log->LoadConfigFile(wide.c_str());
  ZyrReleaseLogObject(&IID_IZyrLog, log);
  return r;
}

}  // namespace

int main(int argc, char** argv) {
  const long sections = argc > 1 ? std::atol(argv[1]) : 1000000;
  char folder[] = "/tmp/zyr-hostile-XXXXXX";
  if (!mkdtemp(folder)) return 1;
  const std::string dir = folder;
  setenv("LOCALAPPDATA", folder, 1);
  std::printf("%-44s %10s %13s %13s %11s\n", "input", "result", "wall time", "cpu time", "peak growth");

  const std::u16string text = RandomSections(sections);
  std::string name = std::to_string(sections) + " sections in random order";
  Row((name + ", read").c_str(), [&] {
    ZyrCfgDocument doc;
    ZyrStringReader reader(text.c_str(), text.size());
    return doc.Load(reader);
  });
  Row((name + ", applied").c_str(), [&] {
    IZyrLog* log = nullptr;
    ZyrResult r = ZyrGetLogObject(&IID_IZyrLog, &log);
    if (ZyrSucceeded(r)) r = log->LoadConfigText(text.c_str());
    return r;
  });

  // The same from a file, as many as fit below the limit of a file.
  const std::u16string fileText = RandomSections(200000);
  FILE* sectionsFile = std::fopen((dir + "/sections.cfg").c_str(), "wb");
  for (char16_t c : fileText) std::fputc(static_cast<char>(c), sectionsFile);
  std::fclose(sectionsFile);
  Row("200000 sections in random order, a file", [&] { return LoadFile(dir + "/sections.cfg"); });

  mkfifo((dir + "/fifo.cfg").c_str(), 0644);
  Row("a FIFO", [&] { return LoadFile(dir + "/fifo.cfg"); });
  Row("/dev/zero", [&] { return LoadFile("/dev/zero"); });
  int fd = open((dir + "/sparse.cfg").c_str(), O_CREAT | O_WRONLY, 0644);
  if (fd < 0 || ftruncate(fd, 2l << 30) != 0) return 1;
  close(fd);
  Row("a sparse file of 2 GiB", [&] { return LoadFile(dir + "/sparse.cfg"); });

  // The most memory a file can cost: 4 MiB of the shortest distinct keys.
  std::string keys = "[s]\n";
  for (long i = 0; keys.size() < kZyrCfgMaxFileBytes - 16; ++i) keys += std::to_string(i) + "=\n";
  FILE* f = std::fopen((dir + "/keys.cfg").c_str(), "wb");
  std::fwrite(keys.data(), 1, keys.size(), f);
  std::fclose(f);
  Row("4 MiB of the shortest keys", [&] { return LoadFile(dir + "/keys.cfg"); });

  // Rewritten while read: a writer that never stops.
  Row("a file rewritten while it is read", [&] {
    std::atomic<bool> stop{false};
    std::thread writer([&] {
      for (int i = 0; !stop.load(); ++i) {
        FILE* w = std::fopen((dir + "/busy.cfg").c_str(), "wb");
        std::fwrite(keys.data(), 1, keys.size() / 2 + (i % 2), w);
        std::fclose(w);
      }
    });
    ZyrResult r = ZYR_OK;
    for (int i = 0; i < 20 && r != ZYR_E_SHARING_VIOLATION; ++i) r = LoadFile(dir + "/busy.cfg");
    stop.store(true);
    writer.join();
    return r;
  });

  std::uint64_t value[] = {7};
  Row("\"%2147483647d\"", [&] {
    ZyrBasString out;
    return ZyrBasFormat(out, u"%2147483647d", value);
  });
  std::uint64_t star[] = {0x7fffffff, 7};
  Row("\"%*d\" with 0x7fffffff", [&] {
    ZyrBasString out;
    return ZyrBasFormat(out, u"%*d", star);
  });
  std::string cleanup = "rm -rf '" + dir + "'";
  return std::system(cleanup.c_str()) == 0 ? 0 : 1;
}
