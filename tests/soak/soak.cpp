// Soak: many processes and threads on one RollingFile under reloads and
// kills, then a check of every line that the files hold.
//
//   zyr_soak [--processes 8] [--threads 4] [--seconds 20] [--settle 3]
//            [--kill-ms 250] [--dir DIR] [--keep]
//
// The first process is the conductor. It starts the writers and one
// reconfigurer as fresh programs (this file run with a role), kills and
// restarts random writers, and reads the files when the time is up. Of the
// kills, a third wait for a queue writer inside StopDispatcher and a third
// for a writer that holds the rollover's file lock (seen under /proc), each
// for at most 300 ms; the rest fall anywhere.
//
// Writers: even slots write on the queue road (a controller thread cycles
// StartDispatcher / StopDispatcher), odd slots on the direct road. Each
// line's message is "<<INCARNATION.THREAD.SEQUENCE:PAD>>", the pad's length
// and text following from the three numbers, so that any damage shows.
//
// The reconfigurer rewrites the configuration file every 100 ms (Size,
// FilesCount, layout) and loads it itself; each writer process loads it
// again, on a thread of its own, as soon as it sees the new generation in
// the shared state (the library's own change monitor is not what is tested
// here). At the end the configuration stands still (Size 65536, FilesCount
// 40) for `--settle` seconds, counted from the moment every writer has it
// in force, so that the files that survive were all written under one
// FilesCount and one Size: numbered files removed while processes disagreed
// on FilesCount are losses by design, and this keeps them out of the count.
//
// What counts as accepted. A direct-road line is accepted when its call
// returned success. A queue-road line is accepted once a StopDispatcher that
// began after its call returned has come back: for a writer killed on the
// queue road only those lines are owed, the lines still queued die with the
// process. The controller holds the writer threads still around each
// StopDispatcher, so that no direct-road line overtakes a queued one of the
// same thread. Writers that end at the close owe every line whose call
// succeeded. A line owed is lost if it is missing while an older line of
// the same thread survives (rolling keeps only FilesCount files), or if it
// is the last line of a writer that lived to the end.
//
// Exit status: 0 when nothing was lost, torn or duplicated and every
// process ended as it should; 1 otherwise; 2 for a bad command line.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "zyrlog/zyrlog.h"

namespace {

constexpr int kMaxProcesses = 64;
constexpr int kMaxThreads = 16;
constexpr int kMaxIncarnations = 16384;
constexpr char16_t kPad[] = u"abcdefghijklmnopqrstuvwxyz0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";

std::size_t PadLength(std::uint64_t incarnation, std::uint64_t thread, std::uint64_t seq) {
  return static_cast<std::size_t>((seq * 7 + thread * 3 + incarnation) % 64 + 4);
}

// ---------------------------------------------------------------------------
// State shared by all processes: a file mapped by each.

struct ThreadRecord {
  std::atomic<std::uint64_t> accepted;  // calls that returned success, counted from 0
  std::atomic<std::uint64_t> durable;   // queue road: lines sure to be written
  std::atomic<std::uint64_t> failed;    // calls that returned a failure
};

struct Incarnation {
  std::atomic<std::int32_t> pid;
  std::atomic<std::uint32_t> slot;
  std::atomic<std::uint32_t> queueRoad;
  std::atomic<std::uint32_t> killed;    // set by the conductor before SIGKILL
  std::atomic<std::uint32_t> finished;  // set by the writer after its last line is out
  std::atomic<std::uint32_t> inStop;    // 1 while the controller is in StopDispatcher
  std::atomic<std::uint32_t> startFailure;
  std::atomic<std::uint32_t> applied;   // configuration generation in force
  ThreadRecord threads[kMaxThreads];
};

struct Shared {
  std::atomic<std::uint32_t> stop;
  std::atomic<std::uint32_t> settle;      // the conductor asks for the last configuration
  std::atomic<std::uint32_t> generation;  // configuration file generation
  std::atomic<std::uint32_t> finalGeneration;
  std::atomic<std::uint32_t> finalSize;
  std::atomic<std::uint32_t> finalFilesCount;
  std::atomic<std::uint64_t> reloads;
  std::atomic<std::uint64_t> reloadFailures;
  std::atomic<std::uint64_t> stops;  // StopDispatcher calls completed
  std::atomic<std::uint64_t> slowestReloadMs;
  Incarnation incarnations[kMaxIncarnations];
};

Shared* MapShared(const std::string& path, bool create) {
  int fd = open(path.c_str(), O_RDWR | (create ? O_CREAT | O_TRUNC : 0), 0644);
  if (fd < 0) return nullptr;
  if (create && ftruncate(fd, sizeof(Shared)) != 0) {
    close(fd);
    return nullptr;
  }
  void* p = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  return p == MAP_FAILED ? nullptr : static_cast<Shared*>(p);
}

std::u16string Wide(const std::string& s) { return std::u16string(s.begin(), s.end()); }

void SleepMs(long ms) {
  struct timespec t = {ms / 1000, (ms % 1000) * 1000000L};
  while (nanosleep(&t, &t) != 0 && errno == EINTR) {}
}

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// ---------------------------------------------------------------------------
// Configuration.

struct Variant {
  unsigned size;
  unsigned filesCount;
  int layout;  // 0 Standard, 1 and 2 Custom
};

std::string ConfigText(const Variant& v) {
  std::string text =
      "[root]\nMaxQueueSize = 0\n"
      "[soak]\nSeverity = INFO\nAdditive = false\nAddAppenders = out\n"
      "[out]\nType = Appender\nAppenderType = RollingFile\nFileName = soak.log\n"
      "Size = " + std::to_string(v.size) + "\nFilesCount = " + std::to_string(v.filesCount) + "\n";
  if (v.layout == 1) text += "Layout = custom1\n";
  if (v.layout == 2) text += "Layout = custom2\n";
  text +=
      "[custom1]\nType = Layout\nLayoutType = Custom\n"
      "Format = %date %time [%pid:%tid] %severity %logger %msg\n"
      "[custom2]\nType = Layout\nLayoutType = Custom\nFormat = %msg | %line\nFooter = -- closed --\n";
  return text;
}

bool WriteConfig(const std::string& dir, const Variant& v) {
  std::string tmp = dir + "/soak.cfg.tmp", path = dir + "/soak.cfg";
  FILE* f = fopen(tmp.c_str(), "w");
  if (!f) return false;
  std::string text = ConfigText(v);
  bool ok = fwrite(text.data(), 1, text.size(), f) == text.size();
  ok = fclose(f) == 0 && ok;
  return ok && rename(tmp.c_str(), path.c_str()) == 0;  // readers see old or new, whole
}

// ---------------------------------------------------------------------------
// Roles that hold a log object.

struct Client {
  IZyrLog* log = nullptr;
  ZyrLogger* logger = nullptr;
  std::u16string configPath;

  bool Open(const std::string& dir, Shared* shared, std::atomic<std::uint32_t>* applied) {
    configPath = Wide(dir + "/soak.cfg");
    std::uint32_t generation = shared->generation.load(std::memory_order_acquire);
    if (ZyrGetLogObject(&IID_IZyrLog, &log) != ZYR_OK) return false;
    if (log->SetFolders(Wide(dir).c_str(), Wide(dir).c_str(), 0) != ZYR_OK) return false;
    // The first load is tried a few times before the writer gives up.
    ZyrResult r = ZYR_E_INVALID_ARGUMENT;  // until the first load answers
    for (int i = 0; i < 50 && r != ZYR_OK; ++i) {
      r = log->LoadConfigFile(configPath.c_str());
      if (r != ZYR_OK) SleepMs(10);
    }
    if (r == ZYR_OK && applied) applied->store(generation);
    return r == ZYR_OK && log->GetLogger(&logger, u"soak") == ZYR_OK;
  }
  // Loads the file again whenever its generation moved.
  void FollowConfig(Shared* shared, std::uint32_t& seen, std::atomic<std::uint32_t>* applied) {
    std::uint32_t g = shared->generation.load(std::memory_order_acquire);
    if (g == seen) return;
    seen = g;
    double began = Now();
    if (log->LoadConfigFile(configPath.c_str()) == ZYR_OK) {
      shared->reloads.fetch_add(1);
      if (applied) applied->store(g);
    } else {
      shared->reloadFailures.fetch_add(1);
    }
    std::uint64_t ms = static_cast<std::uint64_t>((Now() - began) * 1000);
    std::uint64_t m = shared->slowestReloadMs.load();
    while (ms > m && !shared->slowestReloadMs.compare_exchange_weak(m, ms)) {}
  }
};

struct WriterControl {
  std::atomic<bool> pause{false};
  std::atomic<int> paused{0};
  std::atomic<bool> end{false};
};

void WriterThread(Client& client, Incarnation& me, WriterControl& control, int dirFd,
                  std::uint32_t incarnation, std::uint32_t thread) {
  ThreadRecord& record = me.threads[thread];
  // Queued lines cost the caller next to nothing, and with no limit on the
  // queue free-running producers would outgrow the one worker without end;
  // on the queue road a thread waits while 2000 of its lines are not yet
  // known to be written.
  const bool paced = me.queueRoad.load() != 0;
  const char16_t* format = u"<<%u.%u.%I64u:%.*s>>";
  for (std::uint64_t seq = 0; !control.end.load(std::memory_order_acquire); ++seq) {
    if (control.pause.load(std::memory_order_acquire)) {
      control.paused.fetch_add(1);
      while (control.pause.load(std::memory_order_acquire)) std::this_thread::yield();
      control.paused.fetch_sub(1);
    }
    std::uint64_t args[5] = {incarnation, thread, seq, PadLength(incarnation, thread, seq),
                             static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(kPad))};
    while (paced && seq >= record.durable.load(std::memory_order_acquire) + 2000 &&
           !control.pause.load(std::memory_order_acquire) && !control.end.load(std::memory_order_acquire))
      SleepMs(1);
    ZyrResult r = client.logger->Log(ZYR_SEVERITY_ERROR, format, nullptr, 0, 0, 0, 0, 0, args);
    if (r == ZYR_OK) {
      record.accepted.store(seq + 1, std::memory_order_release);
      continue;
    }
    // The failed call is written down before the next one can be owed.
    char note[96];
    int n = snprintf(note, sizeof note, "%u %u %llu 0x%08x\n", incarnation, thread,
                     static_cast<unsigned long long>(seq), static_cast<unsigned>(r));
    int fd = openat(dirFd, "failed.txt", O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (fd >= 0) {
      (void)!write(fd, note, static_cast<std::size_t>(n));
      close(fd);
    }
    record.failed.fetch_add(1);
    record.accepted.store(seq + 1, std::memory_order_release);
  }
}

int RunWriter(const std::string& dir, std::uint32_t incarnation, int threads) {
  Shared* shared = MapShared(dir + "/soak.state", false);
  if (!shared) return 3;
  Incarnation& me = shared->incarnations[incarnation];
  Client client;
  if (!client.Open(dir, shared, &me.applied)) {
    me.startFailure.store(1);
    return 4;
  }
  int dirFd = open(dir.c_str(), O_RDONLY | O_DIRECTORY);
  WriterControl control;
  std::vector<std::thread> pool;
  for (int t = 0; t < threads; ++t)
    pool.emplace_back(WriterThread, std::ref(client), std::ref(me), std::ref(control), dirFd,
                      incarnation, static_cast<std::uint32_t>(t));

  // Reloads have a thread of their own, so that a long StopDispatcher does
  // not hold them up.
  std::thread reloader([&] {
    std::uint32_t seen = me.applied.load();
    while (!shared->stop.load(std::memory_order_acquire)) {
      client.FollowConfig(shared, seen, &me.applied);
      SleepMs(5);
    }
  });
  std::mt19937 random(incarnation);
  bool queue = me.queueRoad.load() != 0;
  auto stopDispatcher = [&] {
    // The writers stand still, so that no line of theirs goes on the
    // direct road while an older one still waits in the queue.
    control.pause.store(true);
    while (control.paused.load() < threads && !control.end.load()) std::this_thread::yield();
    std::uint64_t owed[kMaxThreads];
    for (int t = 0; t < threads; ++t) owed[t] = me.threads[t].accepted.load(std::memory_order_acquire);
    me.inStop.store(1);
    client.log->StopDispatcher();
    me.inStop.store(0);
    for (int t = 0; t < threads; ++t) me.threads[t].durable.store(owed[t]);
    shared->stops.fetch_add(1);
    control.pause.store(false);
  };
  while (!shared->stop.load(std::memory_order_acquire)) {
    if (!queue) {
      SleepMs(5);
      continue;
    }
    (void)client.log->StartDispatcher();
    long until = 5 + static_cast<long>(random() % 60);
    for (long waited = 0; waited < until && !shared->stop.load(); waited += 5) SleepMs(5);
    stopDispatcher();
    SleepMs(static_cast<long>(random() % 5));  // a little of the direct road between queue runs
  }
  control.pause.store(false);
  control.end.store(true);
  for (auto& t : pool) t.join();
  reloader.join();
  if (queue) client.log->StopDispatcher();
  for (int t = 0; t < threads; ++t) me.threads[t].durable.store(me.threads[t].accepted.load());
  ZyrReleaseLogObject(&IID_IZyrLog, client.log);
  me.finished.store(1);
  return 0;
}

int RunReconfigurer(const std::string& dir) {
  Shared* shared = MapShared(dir + "/soak.state", false);
  if (!shared) return 3;
  Client client;
  if (!client.Open(dir, shared, nullptr)) return 4;
  std::mt19937 random(12345);
  static const unsigned kSizes[] = {1024, 2048, 4096, 8192, 16384};
  bool settled = false;
  while (!shared->stop.load()) {
    if (!settled) {
      Variant v{kSizes[random() % 5], 1 + static_cast<unsigned>(random() % 8), static_cast<int>(random() % 3)};
      if (shared->settle.load()) {
        v = Variant{shared->finalSize.load(), shared->finalFilesCount.load(), 2};
        settled = true;
      }
      if (WriteConfig(dir, v)) {
        std::uint32_t g = shared->generation.fetch_add(1, std::memory_order_release) + 1;
        if (settled) shared->finalGeneration.store(g);
        std::uint32_t seen = 0;
        client.FollowConfig(shared, seen, nullptr);
      }
    }
    // Its own lines stand beside the writers', under another thread number.
    std::uint64_t args[1] = {0};
    (void)client.logger->Log(ZYR_SEVERITY_ERROR, u"reconfigured %I64u", nullptr, 0, 0, 0, 0, 0, args);
    SleepMs(100);
  }
  ZyrReleaseLogObject(&IID_IZyrLog, client.log);
  return 0;
}

// ---------------------------------------------------------------------------
// The check.

struct Finding {
  std::uint64_t lines = 0, tokens = 0, torn = 0, excused = 0, duplicates = 0, lost = 0;
  std::uint64_t strayMarks = 0, otherLines = 0, accepted = 0, failedCalls = 0;
  std::int64_t largest = 0;
  int beyondCount = 0, files = 0;
  std::vector<std::string> examples;
  void Example(const std::string& s) {
    if (examples.size() < 12) examples.push_back(s);
  }
};

struct Key {
  std::uint32_t incarnation, thread;
  bool operator<(const Key& o) const {
    return incarnation != o.incarnation ? incarnation < o.incarnation : thread < o.thread;
  }
};

bool ReadNumber(const std::string& s, std::size_t& i, std::uint64_t& v) {
  std::size_t start = i;
  v = 0;
  while (i < s.size() && s[i] >= '0' && s[i] <= '9' && i - start < 19) v = v * 10 + (s[i++] - '0');
  return i > start;
}

// Parses "<<I.T.S:PAD>>" at `at`; true with the numbers when it is whole.
bool ParseToken(const std::string& s, std::size_t at, std::size_t* end, std::uint64_t n[3]) {
  std::size_t i = at + 2;
  for (int k = 0; k < 3; ++k) {
    if (!ReadNumber(s, i, n[k])) return false;
    if (i >= s.size() || s[i] != (k < 2 ? '.' : ':')) return false;
    ++i;
  }
  if (n[0] >= kMaxIncarnations || n[1] >= kMaxThreads) return false;
  std::size_t pad = PadLength(n[0], n[1], n[2]);
  if (s.size() < i + pad + 2) return false;
  for (std::size_t k = 0; k < pad; ++k)
    if (s[i + k] != static_cast<char>(kPad[k])) return false;
  if (s.compare(i + pad, 2, ">>") != 0) return false;
  *end = i + pad + 2;
  return true;
}

void Check(const std::string& dir, Shared* shared, std::uint32_t incarnations, Finding& f) {
  std::map<Key, std::set<std::uint64_t>> seen;
  std::map<Key, std::set<std::uint64_t>> failed;
  const std::string mark = "\xef\xbb\xbf";
  unsigned filesCount = shared->finalFilesCount.load();
  std::int64_t size = shared->finalSize.load();

  DIR* d = opendir(dir.c_str());
  std::vector<std::string> names;
  while (d) {
    dirent* e = readdir(d);
    if (!e) break;
    std::string name = e->d_name;
    if (name == "soak.log" || (name.rfind("soak.log.", 0) == 0 && name != "soak.log.lock")) names.push_back(name);
  }
  if (d) closedir(d);
  for (const std::string& name : names) {
    ++f.files;
    if (name != "soak.log" && std::strtoul(name.c_str() + 9, nullptr, 10) > filesCount) ++f.beyondCount;
    FILE* in = fopen((dir + "/" + name).c_str(), "rb");
    if (!in) continue;
    std::string all;
    char buffer[65536];
    for (std::size_t n; (n = fread(buffer, 1, sizeof buffer, in)) > 0;) all.append(buffer, n);
    fclose(in);
    f.largest = std::max<std::int64_t>(f.largest, static_cast<std::int64_t>(all.size()) - size);
    std::size_t pos = 0;
    while (pos < all.size()) {
      std::size_t lineStart = pos;
      std::size_t eol = all.find('\n', pos);
      bool ended = eol != std::string::npos;
      std::string line = all.substr(pos, (ended ? eol : all.size()) - pos);
      pos = ended ? eol + 1 : all.size();
      if (ended && !line.empty() && line.back() == '\r') line.pop_back();
      ++f.lines;
      // The mark belongs at the start of a file; a second one there means
      // two processes both found the file empty.
      for (bool first = lineStart == 0; line.compare(0, 3, mark) == 0; first = false) {
        if (!first) ++f.strayMarks;
        line.erase(0, 3);
      }
      // Whole tokens count as written; anything else that looks like part
      // of one is damage.
      int whole = 0;
      bool damage = !ended, excused = false;
      for (std::size_t at = 0; (at = line.find("<<", at)) != std::string::npos;) {
        std::uint64_t n[3];
        std::size_t end;
        if (ParseToken(line, at, &end, n)) {
          ++whole;
          ++f.tokens;
          if (!seen[{static_cast<std::uint32_t>(n[0]), static_cast<std::uint32_t>(n[1])}].insert(n[2]).second) {
            ++f.duplicates;
            f.Example("duplicate in " + name + ": " + line);
          }
          at = end;
          continue;
        }
        damage = true;
        // The unfinished line of a killed writer: its call never returned.
        std::size_t i = at + 2;
        std::uint64_t inc;
        if (ReadNumber(line, i, inc) && inc < incarnations && shared->incarnations[inc].killed.load())
          excused = true;
        at += 2;
      }
      std::size_t closes = 0;
      for (std::size_t at = 0; (at = line.find(">>", at)) != std::string::npos; at += 2) ++closes;
      if (closes != static_cast<std::size_t>(whole)) damage = true;
      if (whole == 0 && !damage) ++f.otherLines;
      if (damage) {
        if (excused) {
          ++f.excused;
        } else {
          ++f.torn;
          f.Example("torn in " + name + ": " + line);
        }
      }
    }
  }

  FILE* in = fopen((dir + "/failed.txt").c_str(), "r");
  unsigned inc, thread;
  unsigned long long seq;
  unsigned code;
  while (in && fscanf(in, "%u %u %llu %x", &inc, &thread, &seq, &code) == 4) failed[{inc, thread}].insert(seq);
  if (in) fclose(in);

  for (std::uint32_t i = 0; i < incarnations; ++i) {
    Incarnation& rec = shared->incarnations[i];
    bool killed = rec.killed.load() != 0;
    for (std::uint32_t t = 0; t < kMaxThreads; ++t) {
      ThreadRecord& tr = rec.threads[t];
      std::uint64_t accepted = tr.accepted.load();
      if (accepted == 0) continue;
      f.accepted += accepted;
      f.failedCalls += tr.failed.load();
      std::uint64_t owed = killed && rec.queueRoad.load() ? tr.durable.load() : accepted;
      const std::set<std::uint64_t>& present = seen[{i, t}];
      const std::set<std::uint64_t>& excusedSeqs = failed[{i, t}];
      std::uint64_t lost = 0, first = 0;
      if (!present.empty()) {
        for (std::uint64_t s = *present.begin(); s < owed; ++s)
          if (!present.count(s) && !excusedSeqs.count(s)) ++lost, first = first ? first : s + 1;
      }
      // A writer that lived to the end wrote its last line into the newest
      // file: no rolling can have taken it.
      if (!killed && rec.finished.load() && !present.count(owed - 1) && !excusedSeqs.count(owed - 1))
        ++lost, first = first ? first : owed;
      if (lost) {
        f.lost += lost;
        f.Example("lost " + std::to_string(lost) + " of incarnation " + std::to_string(i) + " thread " +
                  std::to_string(t) + (killed ? " (killed" : " (alive") +
                  (rec.queueRoad.load() ? ", queue road)" : ", direct road)") + ", first sequence " +
                  std::to_string(first - 1) + ", owed up to " + std::to_string(owed));
      }
    }
  }
}

// ---------------------------------------------------------------------------
// The conductor.

struct Options {
  int processes = 8, threads = 4;
  double seconds = 20, settle = 3;
  int killMs = 250;
  std::string dir;
  bool keep = false;
};

struct Slot {
  pid_t pid = -1;
  std::uint32_t incarnation = 0;
};

pid_t Spawn(const std::string& dir, const char* role, std::uint32_t incarnation, int threads) {
  pid_t child = fork();
  if (child != 0) return child;
  std::string inc = std::to_string(incarnation), th = std::to_string(threads);
  execl("/proc/self/exe", "zyr_soak", role, dir.c_str(), inc.c_str(), th.c_str(), static_cast<char*>(nullptr));
  _exit(127);
}

// Whether the process holds the lock of a rollover right now: the lock of
// the ".lock" file shows in the descriptor's entry under /proc.
bool HoldsRolloverLock(pid_t pid, const std::string& lockPath) {
  std::string fdDir = "/proc/" + std::to_string(pid) + "/fd";
  DIR* d = opendir(fdDir.c_str());
  if (!d) return false;
  bool held = false;
  while (dirent* e = readdir(d)) {
    char target[4096];
    ssize_t n = readlink((fdDir + "/" + e->d_name).c_str(), target, sizeof target - 1);
    if (n <= 0) continue;
    target[n] = 0;
    if (lockPath != target) continue;
    FILE* info = fopen(("/proc/" + std::to_string(pid) + "/fdinfo/" + e->d_name).c_str(), "r");
    char line[256];
    while (info && fgets(line, sizeof line, info)) held |= std::strncmp(line, "lock:", 5) == 0;
    if (info) fclose(info);
  }
  closedir(d);
  return held;
}

int Conduct(const Options& o) {
  std::string dir = o.dir;
  (void)!system(("rm -rf '" + dir + "' && mkdir -p '" + dir + "'").c_str());
  char real[4096];
  if (!realpath(dir.c_str(), real)) {
    fprintf(stderr, "soak: cannot make %s\n", dir.c_str());
    return 1;
  }
  dir = real;
  Shared* shared = MapShared(dir + "/soak.state", true);
  if (!shared) {
    fprintf(stderr, "soak: cannot map the shared state\n");
    return 1;
  }
  shared->finalSize.store(65536);
  shared->finalFilesCount.store(40);
  if (!WriteConfig(dir, Variant{4096, 4, 0})) return 1;
  std::uint32_t nextIncarnation = 0;
  auto start = [&](int slot) {
    std::uint32_t i = nextIncarnation++;
    Incarnation& rec = shared->incarnations[i];
    rec.slot.store(static_cast<std::uint32_t>(slot));
    rec.queueRoad.store(slot % 2 == 0);
    pid_t pid = Spawn(dir, "--writer", i, o.threads);
    rec.pid.store(pid);
    return Slot{pid, i};
  };

  double t0 = Now();
  pid_t reconfigurer = Spawn(dir, "--reconfigurer", 0, 0);
  std::vector<Slot> slots;
  for (int s = 0; s < o.processes; ++s) slots.push_back(start(s));

  std::mt19937 random(static_cast<unsigned>(time(nullptr)));
  std::uint64_t kills = 0, killsInStop = 0, killsInRollover = 0, abnormal = 0;
  std::string lockPath = dir + "/soak.log.lock";
  // The settled time counts from the moment every writer has the last
  // configuration in force.
  double settleAt = t0 + o.seconds - o.settle, end = 0, settleWait = -1;
  bool settling = false;
  std::uint64_t unsettled = 0;
  auto allApplied = [&] {
    std::uint32_t g = shared->finalGeneration.load();
    for (auto& s : slots)
      if (g == 0 || shared->incarnations[s.incarnation].applied.load() < g) return false;
    return true;
  };
  while (nextIncarnation + 1 < kMaxIncarnations) {
    double now = Now();
    if (!settling && now > settleAt) {
      shared->settle.store(1);
      settling = true;
    }
    if (settling && end == 0 && allApplied()) {
      settleWait = now - settleAt;
      end = now + o.settle;
    }
    if (end != 0 && now >= end) break;
    if (settling && end == 0 && now > settleAt + 60) {
      ++unsettled;
      fprintf(stderr, "soak: configuration %u not in force everywhere after 60 s; writers have",
              shared->finalGeneration.load());
      for (auto& s : slots)
        fprintf(stderr, " %u (pid %d)", shared->incarnations[s.incarnation].applied.load(), s.pid);
      fprintf(stderr, "\n");
      break;
    }
    if (settling && end == 0) {  // no kills until the last configuration is everywhere
      SleepMs(10);
      continue;
    }
    SleepMs(o.killMs / 2 + static_cast<long>(random() % static_cast<unsigned>(o.killMs)));
    // The victim: every third kill waits for a queue writer inside
    // StopDispatcher, every third for a writer inside a rollover, the rest
    // fall where they fall. Waiting is bounded; then anyone goes.
    int kind = static_cast<int>(kills % 3), victim = -1;
    double give = Now() + 0.3;
    while (victim < 0 && kind != 0 && Now() < give) {
      for (int s = 0; s < o.processes && victim < 0; ++s) {
        Incarnation& rec = shared->incarnations[slots[s].incarnation];
        if (kind == 1 && rec.inStop.load()) victim = s;
        if (kind == 2 && HoldsRolloverLock(slots[s].pid, lockPath)) victim = s;
      }
    }
    if (victim < 0) {
      victim = static_cast<int>(random() % static_cast<unsigned>(o.processes));
      kind = 0;
    }
    Incarnation& rec = shared->incarnations[slots[victim].incarnation];
    rec.killed.store(1);
    kill(slots[victim].pid, SIGKILL);
    int status = 0;
    waitpid(slots[victim].pid, &status, 0);
    if (!(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL)) {
      ++abnormal;  // it ended before the kill reached it
      fprintf(stderr, "soak: writer %d ended with status 0x%x before its kill\n", slots[victim].pid, status);
    }
    ++kills;
    killsInStop += kind == 1;
    killsInRollover += kind == 2;
    slots[victim] = start(victim);
  }
  double writingEnd = Now();
  shared->stop.store(1);

  // Every process must end by itself; one that does not is hung.
  std::vector<pid_t> live;
  for (auto& s : slots) live.push_back(s.pid);
  live.push_back(reconfigurer);
  double deadline = Now() + 120;
  std::uint64_t hung = 0;
  for (pid_t pid : live) {
    int status = 0;
    pid_t r;
    while ((r = waitpid(pid, &status, WNOHANG)) == 0 && Now() < deadline) SleepMs(20);
    if (r == 0) {
      ++hung;
      fprintf(stderr, "soak: process %d did not end within its time\n", pid);
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
    } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      ++abnormal;
      fprintf(stderr, "soak: process %d ended with status 0x%x\n", pid, status);
    }
  }
  for (std::uint32_t i = 0; i < nextIncarnation; ++i)
    if (shared->incarnations[i].startFailure.load()) ++abnormal;

  Finding f;
  Check(dir, shared, nextIncarnation, f);
  double elapsed = writingEnd - t0;
  printf("soak: %d processes x %d threads, %.1f s (last %.1f s settled), in %s\n", o.processes,
         o.threads, elapsed, o.settle, dir.c_str());
  printf("lines accepted        %llu (calls that failed: %llu)\n", (unsigned long long)f.accepted,
         (unsigned long long)f.failedCalls);
  printf("lines per second      %.0f\n", f.accepted / elapsed);
  printf("lines in files        %llu (soak lines %llu, other %llu)\n", (unsigned long long)f.lines,
         (unsigned long long)f.tokens, (unsigned long long)f.otherLines);
  printf("lost                  %llu\n", (unsigned long long)f.lost);
  printf("torn                  %llu\n", (unsigned long long)f.torn);
  printf("duplicated            %llu\n", (unsigned long long)f.duplicates);
  printf("unfinished by a kill  %llu\n", (unsigned long long)f.excused);
  printf("stray marks           %llu\n", (unsigned long long)f.strayMarks);
  printf("largest over Size     %lld bytes (Size %u)\n", (long long)f.largest, shared->finalSize.load());
  printf("files                 %d, beyond FilesCount %d (FilesCount %u)\n", f.files, f.beyondCount,
         shared->finalFilesCount.load());
  printf("kills survived        %llu (in StopDispatcher %llu, in a rollover %llu)\n",
         (unsigned long long)kills, (unsigned long long)killsInStop, (unsigned long long)killsInRollover);
  printf("reloads applied       %llu (failed %llu, slowest %llu ms), dispatcher stops %llu\n",
         (unsigned long long)shared->reloads.load(), (unsigned long long)shared->reloadFailures.load(),
         (unsigned long long)shared->slowestReloadMs.load(), (unsigned long long)shared->stops.load());
  printf("last configuration    in force everywhere %.2f s after it was asked for\n", settleWait);
  printf("processes hung        %llu, ended wrongly %llu\n", (unsigned long long)hung,
         (unsigned long long)abnormal);
  for (const std::string& e : f.examples) printf("  %s\n", e.substr(0, 300).c_str());
  bool ok = f.lost == 0 && f.torn == 0 && f.duplicates == 0 && hung == 0 && abnormal == 0 &&
            unsettled == 0 && f.tokens > 0;
  printf("%s\n", ok ? "soak passed" : "soak FAILED");
  munmap(shared, sizeof(Shared));
  if (ok && !o.keep) (void)!system(("rm -rf '" + dir + "'").c_str());
  return ok ? 0 : 1;
}

int Usage() {
  fprintf(stderr,
          "usage: zyr_soak [--processes N] [--threads M] [--seconds S] [--settle S]\n"
          "                [--kill-ms MS] [--dir DIR] [--keep]\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 5 && std::strcmp(argv[1], "--writer") == 0)
    return RunWriter(argv[2], static_cast<std::uint32_t>(std::atoi(argv[3])), std::atoi(argv[4]));
  if (argc == 5 && std::strcmp(argv[1], "--reconfigurer") == 0) return RunReconfigurer(argv[2]);
  Options o;
  const char* tmp = getenv("ZYR_TEST_TMP");
  o.dir = std::string(tmp && *tmp ? tmp : "/tmp") + "/zyr-soak-" + std::to_string(getpid());
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    bool more = i + 1 < argc;
    if (a == "--keep") o.keep = true;
    else if (a == "--processes" && more) o.processes = std::atoi(argv[++i]);
    else if (a == "--threads" && more) o.threads = std::atoi(argv[++i]);
    else if (a == "--seconds" && more) o.seconds = std::atof(argv[++i]);
    else if (a == "--settle" && more) o.settle = std::atof(argv[++i]);
    else if (a == "--kill-ms" && more) o.killMs = std::atoi(argv[++i]);
    else if (a == "--dir" && more) o.dir = argv[++i];
    else return Usage();
  }
  if (o.processes < 1 || o.processes > kMaxProcesses || o.threads < 1 || o.threads > kMaxThreads ||
      o.seconds <= 0 || o.settle < 0 || o.killMs < 2)
    return Usage();
  return Conduct(o);
}
