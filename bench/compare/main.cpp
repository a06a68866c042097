// compare: zyrlog beside the limit of the machine and two peer libraries,
// on one file system and one message. Each contender writes the same lines
// in turn, several rounds alternating, each measurement in a process of its
// own; the table shows medians across rounds, and one "name value" line per
// figure follows for machines.
#include <dlfcn.h>
#include <ftw.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "contenders.h"
#include "runner.h"
#include "stats.h"
#include "zyrlog/zyrlog.h"

namespace {

// Not a contender of the rounds: a row of its own, run after them.
constexpr char kColdStartId[] = "zyrlog-cold-start";

struct Options {
  unsigned rounds = 5;
  std::uint64_t lines = 200000;
  std::uint64_t belowCalls = 20000000;
  std::uint32_t warmUp = 1000;
  std::vector<std::uint32_t> threads = {1, 4};
  std::string dir;
  std::vector<std::string> only;
  bool keep = false;
  bool figures = true;
  unsigned timeLimit = 300;
};

void Usage(FILE* out) {
  std::fprintf(out,
               "usage: compare [options]\n"
               "  --rounds N       rounds, each contender once per round (default 5)\n"
               "  --lines N        measured lines a round, all threads together (default 200000)\n"
               "  --below N        calls a round for the below-threshold rows (default 20000000)\n"
               "  --warmup N       unmeasured lines per thread before each round (default 1000)\n"
               "  --threads LIST   writing threads, comma separated (default 1,4)\n"
               "  --dir PATH       folder for the files, on the file system to measure\n"
               "                   (default: a new folder below $TMPDIR or /tmp)\n"
               "  --only IDS       comma-separated contender ids (see --list)\n"
               "  --list           list the contenders and exit\n"
               "  --keep           keep the files of the last round\n"
               "  --no-figures     print the table only\n"
               "  --time-limit S   seconds one measurement may take (default 300)\n");
}

std::vector<std::string> Split(const std::string& text) {
  std::vector<std::string> parts;
  std::size_t from = 0;
  while (from <= text.size()) {
    std::size_t comma = text.find(',', from);
    if (comma == std::string::npos) comma = text.size();
    if (comma > from) parts.push_back(text.substr(from, comma - from));
    from = comma + 1;
  }
  return parts;
}

bool ParseCount(const char* text, std::uint64_t* value) {
  char* end = nullptr;
  unsigned long long number = std::strtoull(text, &end, 10);
  if (!*text || *end || number == 0) return false;
  *value = number;
  return true;
}

bool ParseOptions(int argc, char** argv, Options* options) {
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    auto next = [&]() -> const char* { return i + 1 < argc ? argv[++i] : nullptr; };
    std::uint64_t number = 0;
    const char* value = nullptr;
    if (arg == "--help" || arg == "-h") {
      Usage(stdout);
      std::exit(0);
    } else if (arg == "--list") {
      for (const ContenderInfo& info : AllContenders()) std::printf("%-28s %s\n", info.id, info.label);
      std::printf("%-28s %s\n", kColdStartId, "zyrlog cold start: dlopen to the first line");
      std::exit(0);
    } else if (arg == "--keep") {
      options->keep = true;
    } else if (arg == "--no-figures") {
      options->figures = false;
    } else if (arg == "--dir" && (value = next())) {
      options->dir = value;
    } else if (arg == "--only" && (value = next())) {
      options->only = Split(value);
    } else if (arg == "--threads" && (value = next())) {
      options->threads.clear();
      for (const std::string& part : Split(value)) {
        if (!ParseCount(part.c_str(), &number) || number > 64) return false;
        options->threads.push_back(static_cast<std::uint32_t>(number));
      }
      if (options->threads.empty()) return false;
    } else if ((arg == "--rounds" || arg == "--lines" || arg == "--below" || arg == "--warmup" ||
                arg == "--time-limit") &&
               (value = next()) && ParseCount(value, &number)) {
      if (arg == "--rounds") options->rounds = static_cast<unsigned>(number);
      if (arg == "--lines") options->lines = number;
      if (arg == "--below") options->belowCalls = number;
      if (arg == "--warmup") options->warmUp = static_cast<std::uint32_t>(number);
      if (arg == "--time-limit") options->timeLimit = static_cast<unsigned>(number);
    } else {
      std::fprintf(stderr, "compare: bad option %s\n", arg.c_str());
      return false;
    }
  }
  for (const std::string& id : options->only) {
    bool known = id == kColdStartId;
    for (const ContenderInfo& info : AllContenders()) known |= id == info.id;
    if (!known) {
      std::fprintf(stderr, "compare: unknown contender %s (see --list)\n", id.c_str());
      return false;
    }
  }
  return true;
}

int RemoveEntry(const char* path, const struct stat*, int, struct FTW*) {
  std::remove(path);
  return 0;
}

void RemoveTree(const std::string& path) { nftw(path.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS); }

std::string HostName() {
  char name[256] = {};
  if (gethostname(name, sizeof name - 1) != 0 || !name[0]) return "localhost";
  if (char* dot = std::strchr(name, '.')) *dot = 0;
  return name;
}

std::string FileSystemName(const std::string& path) {
  struct statfs info;
  if (statfs(path.c_str(), &info) != 0) return "unknown";
  switch (static_cast<unsigned long>(info.f_type)) {
    case 0xEF53: return "ext4";
    case 0x58465342: return "xfs";
    case 0x9123683E: return "btrfs";
    case 0x01021994: return "tmpfs";
    case 0x794c7630: return "overlay";
  }
  char text[32];
  std::snprintf(text, sizeof text, "type 0x%lx", static_cast<unsigned long>(info.f_type));
  return text;
}

// The rounds of one row: one contender at one thread count.
struct Row {
  const ContenderInfo* info;
  std::uint32_t threads;
  std::vector<Measurement> rounds;
};

// The figures of a row across its rounds.
struct Summary {
  bool available = true;
  std::string why;
  double nsPerCall = NAN, nsToDisk = NAN, p50 = NAN, p99 = NAN, p999 = NAN;
  double allocations = NAN, bytesPerLine = NAN;
  long peakRssKib = 0;
  bool verified = false, lostAtReturnKnown = false;
  std::uint64_t lostAtReturn = 0, lostAtEnd = 0, keptAtEnd = 0, duplicates = 0, errors = 0;
  std::uint64_t torn = 0, largestFile = 0;
};

Summary Summarize(const Row& row) {
  Summary s;
  std::vector<double> perCall, toDisk, p50, p99, p999, allocations, bytes;
  for (const Measurement& m : row.rounds) {
    if (!m.available) {
      s.available = false;
      if (s.why.empty()) s.why = m.why;
      continue;
    }
    if (m.why[0] && s.why.empty()) s.why = m.why;
    double calls = static_cast<double>(m.calls);
    perCall.push_back(m.callSeconds * 1e9 / calls);
    toDisk.push_back(m.completeSeconds * 1e9 / calls);
    if (m.p50 >= 0) {
      p50.push_back(m.p50);
      p99.push_back(m.p99);
      p999.push_back(m.p999);
    }
    allocations.push_back(m.allocationsPerCall);
    if (m.peakRssKib > s.peakRssKib) s.peakRssKib = m.peakRssKib;
    // Losses: the worst round counts.
    if (m.verified) {
      s.verified = true;
      bytes.push_back(m.bytesPerLine);
      s.lostAtEnd = std::max(s.lostAtEnd, m.missingAtEnd);
      s.keptAtEnd = s.keptAtEnd ? std::min(s.keptAtEnd, m.keptAtEnd) : m.keptAtEnd;
      s.duplicates = std::max(s.duplicates, m.duplicates);
      s.torn = std::max(s.torn, m.torn);
      s.largestFile = std::max(s.largestFile, m.largestFile);
    }
    if (m.missingAtReturnKnown) {
      s.lostAtReturnKnown = true;
      s.lostAtReturn = std::max(s.lostAtReturn, m.missingAtReturn);
    }
    s.errors += m.errors;
  }
  if (!s.available) return s;
  s.nsPerCall = Median(perCall);
  s.nsToDisk = Median(toDisk);
  s.p50 = Median(p50);
  s.p99 = Median(p99);
  s.p999 = Median(p999);
  s.allocations = Median(allocations);
  s.bytesPerLine = Median(bytes);
  return s;
}

// Which limit a row stands beside: rolling rows beside the loop that also
// asks for the size, the rest beside the plain loop. The size-query loop
// itself is shown against the plain one.
const char* LimitOf(const ContenderInfo& info) {
  if (info.kind == Kind::kBelow) return nullptr;
  if (info.processes) return std::strcmp(info.id, "limit-write-procs") == 0 ? "limit-write" : "limit-write-procs";
  if (info.kind == Kind::kRolling) return "limit-write-lseek";
  if (std::strcmp(info.id, "limit-write") == 0) return nullptr;
  return "limit-write";
}

std::string Number(double value, int decimals) {
  if (std::isnan(value)) return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

std::string Count(std::uint64_t value, bool known) {
  return known ? std::to_string(value) : std::string("-");
}

}  // namespace

// The cold start: cold_start, next to this program, loads the module in a
// fresh process and writes one line through the built-in default
// configuration; each round is a new process with a new, empty log folder.
void ColdStart(const std::string& root, unsigned rounds) {
  char self[4096];
  ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
  Dl_info module;
  if (length <= 0 || !dladdr(reinterpret_cast<void*>(&ZyrGetLogObject), &module) || !module.dli_fname) {
    std::printf("\nzyrlog cold start: not available (no program or module path)\n");
    return;
  }
  self[length] = 0;
  std::string helper = std::string(self, std::strrchr(self, '/')) + "/cold_start";
  std::vector<double> took;
  std::string failure;
  for (unsigned round = 0; round < (rounds < 3 ? 3 : rounds); ++round) {
    std::string folder = root + "/cold-" + std::to_string(round);
    RemoveTree(folder);
    mkdir(folder.c_str(), 0755);
    std::string command = "LOCALAPPDATA='" + folder + "' '" + helper + "' '" + module.dli_fname + "'";
    std::fflush(nullptr);
    FILE* out = popen(command.c_str(), "r");
    char text[256] = {};
    if (out) {
      if (!std::fgets(text, sizeof text, out)) text[0] = 0;
      pclose(out);
    }
    RemoveTree(folder);
    char* end = nullptr;
    double ns = std::strtod(text, &end);
    if (end == text) {
      failure = text[0] ? text : "cold_start gave nothing";
      continue;
    }
    took.push_back(ns);
  }
  if (took.empty()) {
    std::printf("\nzyrlog cold start: not available (%s)\n", failure.c_str());
    return;
  }
  double median = Median(took);
  std::printf("\nzyrlog cold start, dlopen to the first line in common.log (fresh process, median "
              "of %zu): %.0f us\nzyrlog-cold-start.ns_to_first_line %.0f\n",
              took.size(), median / 1000, median);
}

int main(int argc, char** argv) {
  Options options;
  if (!ParseOptions(argc, argv, &options)) {
    Usage(stderr);
    return 2;
  }

  std::string root = options.dir;
  if (root.empty()) {
    const char* tmp = std::getenv("TMPDIR");
    std::string templ = std::string(tmp && *tmp ? tmp : "/tmp") + "/zyr-compare-XXXXXX";
    std::vector<char> name(templ.begin(), templ.end());
    name.push_back(0);
    if (!mkdtemp(name.data())) {
      std::perror("compare: mkdtemp");
      return 1;
    }
    root = name.data();
  } else if (mkdir(root.c_str(), 0755) != 0 && errno != EEXIST) {
    std::perror("compare: --dir");
    return 1;
  }
  // zyrlog's default log folder lies below LOCALAPPDATA: never the user's.
  std::string appData = root + "/appdata";
  mkdir(appData.c_str(), 0755);
  setenv("LOCALAPPDATA", appData.c_str(), 1);
  const std::string host = HostName();

  std::vector<Row> rows;
  for (std::uint32_t threads : options.threads)
    for (const ContenderInfo& info : AllContenders()) {
      bool wanted = options.only.empty();
      for (const std::string& id : options.only) wanted |= id == info.id;
      if (wanted) rows.push_back({&info, threads, {}});
    }

  std::fprintf(stderr, "compare: %zu rows x %u rounds, files in %s (%s)\n", rows.size(),
               options.rounds, root.c_str(), FileSystemName(root).c_str());
  for (unsigned round = 0; round < options.rounds; ++round) {
    std::fprintf(stderr, "  round %u/%u\n", round + 1, options.rounds);
    // Alternate the order, so that no contender always follows the same one.
    for (std::size_t k = 0; k < rows.size(); ++k) {
      Row& row = rows[round % 2 ? rows.size() - 1 - k : k];
      RunPlan plan;
      plan.workers = row.threads;
      plan.calls = row.info->kind == Kind::kBelow ? options.belowCalls : options.lines;
      plan.warmUp = options.warmUp;
      plan.timeLimitSeconds = options.timeLimit;
      plan.paced = row.info->paced;
      std::string folder = root + "/" + row.info->id + "-t" + std::to_string(row.threads);
      RemoveTree(folder);
      mkdir(folder.c_str(), 0755);
      row.rounds.push_back(RunMeasurement(*row.info, plan, folder, host));
      if (!options.keep || round + 1 < options.rounds) RemoveTree(folder);
    }
  }

  std::map<std::string, Summary> summaries;
  for (const Row& row : rows)
    summaries[std::string(row.info->id) + "/" + std::to_string(row.threads)] = Summarize(row);
  auto find = [&](const char* id, std::uint32_t threads) -> const Summary* {
    auto at = summaries.find(std::string(id) + "/" + std::to_string(threads));
    return at == summaries.end() ? nullptr : &at->second;
  };
  auto ratio = [&](const Row& row, const Summary& s) {
    const char* limit = LimitOf(*row.info);
    const Summary* base = limit ? find(limit, row.threads) : nullptr;
    if (!base || !base->available || !s.available) return std::nan("");
    return s.nsPerCall / base->nsPerCall;
  };

  std::printf(
      "\nzyrlog comparison: %llu lines a round (below-threshold rows: %llu calls), %u rounds, "
      "median of the rounds\nfiles on %s (%s), message \"request %%d from worker %%d for %%s\"\n\n",
      static_cast<unsigned long long>(options.lines),
      static_cast<unsigned long long>(options.belowCalls), options.rounds, root.c_str(),
      FileSystemName(root).c_str());
  std::printf("%-50s %3s %8s %7s %8s %7s %8s %8s %8s %8s %6s %8s %8s %8s\n", "contender", "thr",
              "ns/call", "x limit", "ns/disk", "p50", "p99", "p99.9", "alloc/c", "RSS MiB", "B/line",
              "kept", "lost@ret", "lost@end");
  for (const Row& row : rows) {
    const Summary& s = *find(row.info->id, row.threads);
    if (!s.available) {
      std::printf("%-50s %3u   not available: %s\n", row.info->label, row.threads, s.why.c_str());
      continue;
    }
    std::printf("%-50s %3u %8s %7s %8s %7s %8s %8s %8s %8s %6s %8s %8s %8s\n", row.info->label,
                row.threads, Number(s.nsPerCall, 1).c_str(), Number(ratio(row, s), 2).c_str(),
                Number(row.info->kind == Kind::kBelow ? NAN : s.nsToDisk, 1).c_str(),
                Number(s.p50, 0).c_str(), Number(s.p99, 0).c_str(), Number(s.p999, 0).c_str(),
                Number(s.allocations, 2).c_str(), Number(s.peakRssKib / 1024.0, 1).c_str(),
                Number(s.bytesPerLine, 0).c_str(), Count(s.keptAtEnd, s.verified).c_str(),
                Count(s.lostAtReturn, s.lostAtReturnKnown).c_str(),
                Count(s.lostAtEnd, s.verified).c_str());
    if (s.duplicates || s.errors || !s.why.empty())
      std::printf("%-50s     ! %llu duplicate lines, %llu failed calls%s%s\n", "",
                  static_cast<unsigned long long>(s.duplicates),
                  static_cast<unsigned long long>(s.errors), s.why.empty() ? "" : ", ",
                  s.why.c_str());
  }
  std::printf(
      "\nns/call: wall time of the round / calls of all threads. x limit: against the write loop\n"
      "(rolling rows: against the write+lseek loop; rows of processes: against the write loop of\n"
      "as many processes). ns/disk: the same until every line was in the\n"
      "kernel's hands (flush, close, or the queue's end). p50..p99.9: one caller's call on a queue\n"
      "road, in ns; these rows time every call, which adds two clock reads to their ns/call.\n"
      "alloc/c: allocations per call in the whole process (queue rows: until the queue is done).\n"
      "RSS: peak resident size of the process that ran the round (limit rows hold their\n"
      "pre-formatted lines). kept/lost: measured lines found in the files after the end; lost@ret:\n"
      "lines not yet in the kernel when the last call returned. Rolling rows keep their last files\n"
      "only: their losses are counted from each thread's oldest line still kept. [buffered]: lines\n"
      "wait in process memory, a crash loses them and another process cannot share the file.\n");

  if (options.figures) {
    std::printf("\n");
    for (const Row& row : rows) {
      const Summary& s = *find(row.info->id, row.threads);
      std::string name = std::string(row.info->id) + ".t" + std::to_string(row.threads) + ".";
      auto figure = [&](const char* what, double value, int decimals) {
        if (!std::isnan(value)) std::printf("%s%s %.*f\n", name.c_str(), what, decimals, value);
      };
      figure("available", s.available ? 1 : 0, 0);
      if (!s.available) continue;
      figure("ns_per_call", s.nsPerCall, 1);
      figure("ratio_to_limit", ratio(row, s), 3);
      if (row.info->kind != Kind::kBelow) figure("ns_per_line_to_disk", s.nsToDisk, 1);
      figure("latency_p50_ns", s.p50, 0);
      figure("latency_p99_ns", s.p99, 0);
      figure("latency_p999_ns", s.p999, 0);
      figure("allocs_per_call", s.allocations, 3);
      figure("peak_rss_kib", static_cast<double>(s.peakRssKib), 0);
      if (s.verified) {
        figure("bytes_per_line", s.bytesPerLine, 1);
        figure("kept_lines", static_cast<double>(s.keptAtEnd), 0);
        figure("lost_at_end", static_cast<double>(s.lostAtEnd), 0);
        figure("duplicates", static_cast<double>(s.duplicates), 0);
        figure("torn_lines", static_cast<double>(s.torn), 0);
        if (row.info->kind == Kind::kRolling)
          figure("largest_file_over_size", static_cast<double>(s.largestFile) - kRollSize, 0);
      }
      if (s.lostAtReturnKnown) figure("lost_at_return", static_cast<double>(s.lostAtReturn), 0);
      figure("failed_calls", static_cast<double>(s.errors), 0);
    }
  }

  bool coldWanted = options.only.empty();
  for (const std::string& id : options.only) coldWanted |= id == kColdStartId;
  if (coldWanted) ColdStart(root, options.rounds);

  if (!options.keep) RemoveTree(options.dir.empty() ? root : appData);
  return 0;
}
