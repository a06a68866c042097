#include "verify.h"

#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

namespace {

constexpr char kRequest[] = "request ";
constexpr char kWorker[] = " from worker ";

bool ParseNumber(const char*& at, const char* end, std::uint32_t* value) {
  std::uint64_t number = 0;
  const char* start = at;
  while (at < end && *at >= '0' && *at <= '9' && at - start < 10) number = number * 10 + (*at++ - '0');
  if (at == start || number > UINT32_MAX) return false;
  *value = static_cast<std::uint32_t>(number);
  return true;
}

// Collects the marks of every measured line, one bit per expected line.
class Tally {
 public:
  Tally(std::uint32_t workers, std::uint32_t perWorker)
      : workers_(workers), perWorker_(perWorker),
        seen_(static_cast<std::size_t>(workers) * perWorker, false),
        lowest_(workers, perWorker) {}

  // `fileStart`: the text begins a file, whose byte order mark is no part
  // of its first line.
  void Text(const char* data, std::size_t size, bool fileStart) {
    if (fileStart && size >= 3 && std::memcmp(data, "\xEF\xBB\xBF", 3) == 0) {
      data += 3;
      size -= 3;
    }
    const char* end = data + size;
    for (const char* line = data; line < end;) {
      const char* stop = static_cast<const char*>(std::memchr(line, '\n', end - line));
      const char* next = stop ? stop + 1 : end;
      std::uint32_t worker, sequence;
      bool measured = ParseMeasuredLine(line, next - line, &worker, &sequence);
      // A message cut short or two fused into one line: a second request,
      // or a request that does not parse (warm-up lines aside).
      const char* request = static_cast<const char*>(memmem(line, next - line, kRequest, sizeof kRequest - 1));
      if (request) {
        const char* after = request + sizeof kRequest - 1;
        bool second = memmem(after, next - after, kRequest, sizeof kRequest - 1) != nullptr;
        bool warmUp = memmem(line, next - line, "warm-up", 7) != nullptr;
        if (second || (!measured && !warmUp)) ++result_.torn;
      }
      if (measured && worker < workers_ && sequence < perWorker_) {
        std::size_t index = static_cast<std::size_t>(worker) * perWorker_ + sequence;
        if (seen_[index]) {
          ++result_.duplicates;
        } else {
          seen_[index] = true;
          ++result_.found;
          if (sequence < lowest_[worker]) lowest_[worker] = sequence;
        }
        result_.lineBytes += next - line;
      }
      line = next;
    }
  }

  VerifyResult Finish(bool window) {
    for (std::uint32_t w = 0; w < workers_; ++w) {
      std::uint32_t from = window && lowest_[w] < perWorker_ ? lowest_[w] : 0;
      std::uint64_t present = 0;
      for (std::uint32_t s = from; s < perWorker_; ++s)
        present += seen_[static_cast<std::size_t>(w) * perWorker_ + s];
      result_.missing += (perWorker_ - from) - present;
    }
    return result_;
  }

  VerifyResult& result() { return result_; }

 private:
  std::uint32_t workers_;
  std::uint32_t perWorker_;
  std::vector<bool> seen_;
  std::vector<std::uint32_t> lowest_;
  VerifyResult result_;
};

// nftw passes no context: the walk in progress is kept here. The program
// verifies one folder at a time on one thread.
Tally* g_tally = nullptr;
std::vector<char>* g_buffer = nullptr;

int VisitFile(const char* path, const struct stat* info, int type, struct FTW*) {
  if (type != FTW_F || !S_ISREG(info->st_mode)) return 0;
  std::uint64_t size = static_cast<std::uint64_t>(info->st_size);
  if (size > g_tally->result().largestFile) g_tally->result().largestFile = size;
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    g_tally->result().ok = false;
    return 0;
  }
  // Lines are cut at buffer ends: carry the unfinished tail over.
  std::vector<char>& buffer = *g_buffer;
  std::size_t kept = 0;
  bool fileStart = true;
  for (;;) {
    ssize_t got = read(fd, buffer.data() + kept, buffer.size() - kept);
    if (got < 0) {
      g_tally->result().ok = false;
      break;
    }
    std::size_t have = kept + static_cast<std::size_t>(got);
    if (got == 0) {
      g_tally->Text(buffer.data(), have, fileStart);
      break;
    }
    std::size_t cut = have;
    while (cut > 0 && buffer[cut - 1] != '\n') --cut;
    if (cut == 0) cut = have;  // a line longer than the buffer: not ours
    g_tally->Text(buffer.data(), cut, fileStart);
    fileStart = false;
    kept = have - cut;
    std::memmove(buffer.data(), buffer.data() + cut, kept);
  }
  close(fd);
  return 0;
}

}  // namespace

bool ParseMeasuredLine(const char* line, std::size_t length, std::uint32_t* worker,
                       std::uint32_t* sequence) {
  const char* end = line + length;
  const char* at = static_cast<const char*>(memmem(line, length, kRequest, sizeof kRequest - 1));
  if (!at) return false;
  at += sizeof kRequest - 1;
  if (!ParseNumber(at, end, sequence)) return false;
  if (static_cast<std::size_t>(end - at) < sizeof kWorker - 1 ||
      std::memcmp(at, kWorker, sizeof kWorker - 1) != 0)
    return false;
  at += sizeof kWorker - 1;
  return ParseNumber(at, end, worker);
}

VerifyResult VerifyTexts(const std::vector<std::string>& files, std::uint32_t workers,
                         std::uint32_t perWorker, bool window) {
  Tally tally(workers, perWorker);
  for (const std::string& text : files) tally.Text(text.data(), text.size(), true);
  return tally.Finish(window);
}

VerifyResult VerifyFolder(const std::string& folder, std::uint32_t workers,
                          std::uint32_t perWorker, bool window) {
  Tally tally(workers, perWorker);
  std::vector<char> buffer(1 << 20);
  g_tally = &tally;
  g_buffer = &buffer;
  if (nftw(folder.c_str(), VisitFile, 16, FTW_PHYS) != 0) tally.result().ok = false;
  g_tally = nullptr;
  g_buffer = nullptr;
  return tally.Finish(window);
}
