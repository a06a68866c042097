// Central collection with rsyslog: two writer processes log through two
// RollingFile chains (a Json layout and the Standard line), small Size so
// that they roll often; a shipper rsyslogd follows both chains
// (tools/rsyslog/zyrlog-shipper.conf) and forwards over TCP to a receiving
// rsyslogd (zyrlog-receiver.conf), which parses every line and writes its
// fields. The shipper is stopped and started again while the writers write.
// Then every line must be at the receiver exactly once, parsed, with the
// fields it was written with.
//
//   zyr_collect [--lines N] [--pace-us U] [--json-size B] [--standard-size B]
//               [--files N] [--keep] [--kill]
//
// Exit status 0: passed; 1: failed; 77: skipped (no rsyslogd, or it cannot
// run here), with the reason on standard output.
#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "json_reader.h"
#include "zyrlog/zyrlog.h"

namespace {

constexpr int kSkipped = 77;
constexpr int kWriters = 2;
constexpr char kRevisionText[] = "0123456789abcdef0123456789abcdef01234567";

using Clock = std::chrono::steady_clock;

std::u16string Wide(const std::string& ascii) { return std::u16string(ascii.begin(), ascii.end()); }

std::string Id(int writer, int seq) {
  char id[32];
  std::snprintf(id, sizeof id, "id=w%d-%06d", writer, seq);
  return id;
}

// Every seventh line is a typed list; the others are format text that
// needs escaping somewhere on the way: quotes, backslashes, a tab, line
// breaks (a public log writes them as VT), non-ASCII, a long text.
bool IsTyped(int seq) { return seq % 7 == 3; }
ZyrLogSeverity SeverityOf(int seq) {
  static const ZyrLogSeverity kSeverities[] = {ZYR_SEVERITY_DEBUG, ZYR_SEVERITY_INFO, ZYR_SEVERITY_WARN,
                                               ZYR_SEVERITY_ERROR};
  return kSeverities[seq % 4];
}
const char* SeverityName(int seq) {
  static const char* const kNames[] = {"DEBUG", "INFO", "WARN", "ERROR"};
  return kNames[seq % 4];
}
std::u16string Message(int writer, int seq) {
  std::u16string text = Wide(Id(writer, seq)) + u" ";
  switch (seq % 6) {
    case 0: text += u"plain text"; break;
    case 1: text += u"quotes \"q\" and 'single', back\\slash \\n and 100% of it"; break;
    case 2: text += u"tab\there, braces {}[] and a ] too"; break;
    case 3: text += u"UTF-8 \u00e9t\u00e9 \u6f22\u5b57 \U0001F600"; break;
    case 4: text += u"line\nbreak and CR\rtoo"; break;
    default:
      for (int i = 0; i < 60; ++i) text += u"long text, ";
      break;
  }
  return text;
}
// What a public log makes of it: line breaks become VT.
std::string Written(const std::u16string& message) {
  std::u16string text = message;
  for (char16_t& c : text)
    if (c == u'\n' || c == u'\r') c = 0x0b;
  return zyrtest::Utf8(text);
}

// ---------------------------------------------------------------------------
// A writer process: both chains from one logger, `lines` lines.

int RunWriter(const std::string& dir, int writer, int lines, int paceUs, const std::string& jsonSize,
              const std::string& standardSize, const std::string& files) {
  IZyrLog* log = nullptr;
  if (ZyrGetLogObject(&IID_IZyrLog, &log) != ZYR_OK) return 3;
  // Small files that roll fast.
  std::u16string config =
      u"[root]\nSeverity = ALL\nAddAppenders = json, standard\n"
      u"[json]\nType = Appender\nAppenderType = RollingFile\nLayout = jsonLines\nSize = " + Wide(jsonSize) +
      u"\nFilesCount = " + Wide(files) + u"\nFileName = " + Wide(dir) + u"/json/app.log\n"
      u"[standard]\nType = Appender\nAppenderType = RollingFile\nSize = " + Wide(standardSize) +
      u"\nFilesCount = " + Wide(files) + u"\nFileName = " + Wide(dir) + u"/standard/app.log\n"
      u"[jsonLines]\nType = Layout\nLayoutType = Json\n";
  ZyrLogger* logger = nullptr;
  std::u16string name = u"collect.w" + Wide(std::to_string(writer));
  if (log->LoadConfigText(config.c_str()) != ZYR_OK || log->GetLogger(&logger, name.c_str()) != ZYR_OK) return 3;
  int failed = 0;
  std::u16string revision = Wide(kRevisionText);
  for (int seq = 0; seq < lines; ++seq) {
    ZyrResult r;
    std::uint32_t line = static_cast<std::uint32_t>(seq % 1000);
    if (IsTyped(seq)) {
      std::u16string id = Wide(Id(writer, seq));
      double half = seq / 8.0;
      std::uint64_t slots[] = {ZYR_TAG_STR, reinterpret_cast<std::uintptr_t>(id.c_str()),
                               ZYR_TAG_DWORD, static_cast<std::uint32_t>(seq),
                               ZYR_TAG_INT32, static_cast<std::uint32_t>(-seq),
                               ZYR_TAG_BOOL, static_cast<std::uint64_t>(seq & 1),
                               ZYR_TAG_DOUBLE, 0,
                               ZYR_TAG_END};
      std::memcpy(&slots[9], &half, sizeof half);
      r = writer == 1 ? logger->Log(SeverityOf(seq), nullptr, u"collect.cpp", line, 7, 100 + writer, 3, 0, slots)
                      : logger->LogRevision(SeverityOf(seq), nullptr, u"collect.cpp", line, 7, revision.c_str(), 3,
                                            0, slots);
    } else {
      std::u16string message = Message(writer, seq);  // no arguments: taken as it stands
      r = writer == 1 ? logger->Log(SeverityOf(seq), message.c_str(), u"collect.cpp", line, 7, 100 + writer, 3, 0,
                                    nullptr)
                      : logger->LogRevision(SeverityOf(seq), message.c_str(), u"collect.cpp", line, 7,
                                            revision.c_str(), 3, 0, nullptr);
    }
    if (ZyrFailed(r)) ++failed;
    if (paceUs) usleep(static_cast<useconds_t>(paceUs));
  }
  ZyrReleaseLogObject(&IID_IZyrLog, log);
  if (failed) std::printf("writer %d: %d calls failed\n", writer, failed);
  return failed ? 1 : 0;
}

// ---------------------------------------------------------------------------
// The conductor.

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}
void WriteFile(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

std::string Replace(std::string text, const std::map<std::string, std::string>& values) {
  for (const auto& [key, value] : values)
    for (std::size_t at = 0; (at = text.find(key, at)) != std::string::npos; at += value.size())
      text.replace(at, key.size(), value);
  return text;
}

std::string FindRsyslogd() {
  std::string path = std::getenv("PATH") ? std::getenv("PATH") : "";
  path += ":/usr/sbin:/sbin";
  std::stringstream dirs(path);
  for (std::string dir; std::getline(dirs, dir, ':');)
    if (!dir.empty() && access((dir + "/rsyslogd").c_str(), X_OK) == 0) return dir + "/rsyslogd";
  return "";
}

// A child that runs `argv` with its output in `log`, in a process group of
// its own.
pid_t Start(const std::vector<std::string>& argv, const std::string& log) {
  pid_t pid = fork();
  if (pid != 0) return pid;
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // none outlives a conductor that dies
  int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
  if (fd >= 0) {
    dup2(fd, 1);
    dup2(fd, 2);
  }
  std::vector<char*> args;
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  execv(args[0], args.data());
  _exit(127);
}

// rsyslogd's own check of a configuration: empty when it passes, else what
// it said.
std::string Validate(const std::string& rsyslogd, const std::string& conf, const std::string& log) {
  pid_t pid = Start({rsyslogd, "-N1", "-f", conf}, log);
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? "" : ReadFile(log);
}

// Stops a child: SIGTERM, then after `seconds` SIGKILL. The exit status.
int Stop(pid_t pid, int seconds) {
  kill(pid, SIGTERM);
  int status = 0;
  for (int i = 0; i < seconds * 20; ++i) {
    if (waitpid(pid, &status, WNOHANG) == pid) return status;
    usleep(50000);
  }
  kill(pid, SIGKILL);
  waitpid(pid, &status, 0);
  return status;
}

bool WaitForFile(const std::string& path, double seconds) {
  for (auto end = Clock::now() + std::chrono::duration<double>(seconds); Clock::now() < end;) {
    struct stat st;
    if (stat(path.c_str(), &st) == 0 && st.st_size > 0) return true;
    usleep(20000);
  }
  return false;
}

std::size_t CountLines(const std::string& path) {
  std::string text = ReadFile(path);
  std::size_t n = 0;
  for (char c : text) n += c == '\n';
  return n;
}

// Rollovers seen: moves of a live file to its number 1.
struct RolloverCounter {
  int fd = inotify_init1(IN_NONBLOCK);
  std::map<int, int> counts;  // watch -> rollovers
  int Watch(const std::string& dir) {
    int wd = inotify_add_watch(fd, dir.c_str(), IN_MOVED_TO);
    counts[wd] = 0;
    return wd;
  }
  void Drain() {
    alignas(struct inotify_event) char buffer[16384];
    for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0;)
      for (char* p = buffer; p < buffer + n;) {
        auto* e = reinterpret_cast<struct inotify_event*>(p);
        if (e->len && std::strcmp(e->name, "app.log.1") == 0) ++counts[e->wd];
        p += sizeof *e + e->len;
      }
  }
};

struct Check {
  std::map<std::string, int> seen[2];  // by source: 0 json, 1 standard; id -> count
  std::vector<std::string> problems;
  std::size_t unparsed = 0, mismatched = 0;
  void Problem(std::size_t& counter, const std::string& what) {
    ++counter;
    if (problems.size() < 20) problems.push_back(what);
  }
};

std::string Text(const zyrtest::Json* v) { return v ? v->text : "(missing)"; }

// One received line against what its writer wrote.
void CheckLine(Check& check, const zyrtest::Json& line, const pid_t* writers) {
  const zyrtest::Json* fields = line.Get("fields");
  std::string source = Text(line.Get("source"));
  int s = source == "zyrlog-json" ? 0 : source == "zyrlog-standard" ? 1 : -1;
  if (s < 0 || !fields || Text(line.Get("parsed")) != "OK") {
    check.Problem(check.unparsed, "unparsed: source " + source + ", " + (fields ? Text(fields->Get("originalmsg")) : ""));
    return;
  }
  std::string msg = Text(fields->Get("msg"));
  std::size_t at = msg.find("id=w");
  int writer = 0, seq = -1;
  if (at == std::string::npos || std::sscanf(msg.c_str() + at, "id=w%d-%d", &writer, &seq) != 2 || writer < 1 ||
      writer > kWriters) {
    check.Problem(check.mismatched, "no id in " + msg);
    return;
  }
  std::string id = Id(writer, seq);
  ++check.seen[s][id];
  std::map<std::string, std::string> expected = {
      {"logger", "collect.w" + std::to_string(writer)},
      {"severity", SeverityName(seq)},
      {"pid", std::to_string(writers[writer - 1])},
      {"file", "collect.cpp"},
      {"line", std::to_string(seq % 1000)},
      {"build", "7"},
      {"revision", writer == 1 ? std::to_string(100 + writer) : kRevisionText},
      {"product", "3"},
  };
  if (!IsTyped(seq)) expected["msg"] = Written(Message(writer, seq));
  for (const auto& [key, value] : expected)
    if (Text(fields->Get(key)) != value)
      return check.Problem(check.mismatched, id + " " + source + ": " + key + " is '" + Text(fields->Get(key)) +
                                                 "', not '" + value + "'");
  for (const char* key : {"host", "tid"})
    if (!fields->Get(key) || fields->Get(key)->text.empty())
      return check.Problem(check.mismatched, id + " " + source + ": no " + key);
  if (s == 1) {
    std::string date = Text(fields->Get("date")), time = Text(fields->Get("time"));
    if (date.size() != 10 || time.size() != 12 || time[8] != ',')
      return check.Problem(check.mismatched, id + ": date and time '" + date + " " + time + "'");
    return;
  }
  std::string time = Text(fields->Get("time"));
  if (time.size() != 24 || time[10] != 'T' || time[19] != '.' || time[23] != 'Z')
    return check.Problem(check.mismatched, id + ": time '" + time + "'");
  if (Text(fields->Get("severity_number")).empty())
    return check.Problem(check.mismatched, id + ": no severity_number");
  const zyrtest::Json* args = fields->Get("args");
  if (!IsTyped(seq)) {
    if (args) check.Problem(check.mismatched, id + ": args for format text");
    return;
  }
  // {"str":id},{"dword":seq},{"int32":-seq},{"bool":odd},{"double":seq/8}
  auto arg = [&](std::size_t i, const char* kind) -> const zyrtest::Json* {
    return args && args->items.size() == 5 ? args->items[i].Get(kind) : nullptr;
  };
  bool good = Text(arg(0, "str")) == id && Text(arg(1, "dword")) == std::to_string(seq) &&
              Text(arg(2, "int32")) == std::to_string(-seq) && arg(3, "bool") &&
              arg(3, "bool")->boolean == ((seq & 1) != 0) && arg(4, "double") &&
              std::fabs(std::strtod(arg(4, "double")->text.c_str(), nullptr) - seq / 8.0) <= 1e-12 * seq;
  if (!good) check.Problem(check.mismatched, id + ": typed values do not match");
}

// Two writers at 50 lines a second each, about 380 bytes a Json line and
// 240 a Standard line: each chain rolls about once a second, 57 times in
// a run of about a minute. Faster than that, imfile falls behind on this
// chain of renames (docs/collection.md has the figures).
struct Options {
  int lines = 2800;
  int paceUs = 20000;
  std::string jsonSize = "38000", standardSize = "24000", files = "10";
  bool keep = false;
  bool kill = false;  // stop the shipper with SIGKILL: a crash, for measuring only
};

int Conduct(const Options& options, const char* self) {
  std::string rsyslogd = FindRsyslogd();
  if (rsyslogd.empty()) {
    std::printf("skipped: rsyslogd not found (Debian's package rsyslog; tools/setup.sh installs it)\n");
    return kSkipped;
  }
  const char* tmp = std::getenv("ZYR_TEST_TMP");
  std::string base = tmp ? tmp : "/tmp";
  mkdir(base.c_str(), 0755);
  std::string dir = base + "/collection-" + std::to_string(getpid());
  for (const char* sub : {"", "/json", "/standard", "/shipper", "/shipper.d", "/receiver"})
    mkdir((dir + sub).c_str(), 0755);
  const std::string source = ZYR_RSYSLOG_DIR;
  std::string portFile = dir + "/receiver/port", output = dir + "/received.json";
  // The test's receiver listens on a free port that it picks itself.
  std::string receiver = Replace(ReadFile(source + "/zyrlog-receiver.conf"),
                                 {{"port=\"@PORT@\"", "port=\"0\" listenPortFileName=\"" + portFile + "\""},
                                  {"@STATE_DIR@", dir + "/receiver"},
                                  {"@ADDRESS@", "127.0.0.1"},
                                  {"@RULEBASE@", source + "/zyrlog-standard.rulebase"},
                                  {"@OUTPUT@", output}});
  WriteFile(dir + "/receiver.conf", receiver);
  // A module this rsyslog lacks is the machine's; any other complaint is
  // about our configuration, and a failure.
  std::string complaint = Validate(rsyslogd, dir + "/receiver.conf", dir + "/receiver-check.log");
  if (complaint.find("could not load module") != std::string::npos) {
    std::printf("skipped: rsyslogd lacks a module:\n%s\n", complaint.c_str());
    return kSkipped;
  }
  if (!complaint.empty()) return std::printf("the receiver's configuration is refused:\n%s\n", complaint.c_str()), 1;
  pid_t receiverPid = Start({rsyslogd, "-n", "-f", dir + "/receiver.conf", "-i", dir + "/receiver.pid"},
                            dir + "/receiver.log");
  if (!WaitForFile(portFile, 20)) {
    Stop(receiverPid, 5);
    std::printf("skipped: the receiving rsyslogd did not start:\n%s\n", ReadFile(dir + "/receiver.log").c_str());
    return kSkipped;
  }
  std::string port = ReadFile(portFile);
  while (!port.empty() && (port.back() == '\n' || port.back() == '\r')) port.pop_back();
  // The shipper as shipped, and a copy of each line it sends, with the file
  // and offset it came from, for the report of a failure.
  std::string shipper = Replace(ReadFile(source + "/zyrlog-shipper.conf"),
                                {{"@STATE_DIR@", dir + "/shipper"},
                                 {"@JSON_LOG@", dir + "/json/app.log"},
                                 {"@STANDARD_LOG@", dir + "/standard/app.log"},
                                 {"@TARGET@", "127.0.0.1"},
                                 {"@PORT@", port},
                                 {"@LOCAL_DIR@", dir + "/shipper.d"}});
  WriteFile(dir + "/shipper.conf", shipper);
  WriteFile(dir + "/shipper.d/sent.conf",
            "action(type=\"omfile\" file=\"" + dir + "/sent.txt\" template=\"zyrlog-sent\")\n");
  std::string shipperConf = dir + "/shipper.conf";
  {  // the template of that copy, ahead of the ruleset that uses it
    std::string text = ReadFile(shipperConf);
    text.insert(text.find("ruleset(name=\"zyrlog-ship\")"),
                "template(name=\"zyrlog-sent\" type=\"string\" "
                "string=\"%$!metadata!filename% %$!metadata!fileoffset% %$.line%\\n\")\n");
    text = Replace(text, {{"deleteStateOnFileDelete=\"off\")", "deleteStateOnFileDelete=\"off\" addMetadata=\"on\")"}});
    WriteFile(shipperConf, text);
  }
  complaint = Validate(rsyslogd, shipperConf, dir + "/shipper-check.log");
  if (complaint.find("could not load module") != std::string::npos) {
    std::printf("skipped: rsyslogd lacks a module:\n%s\n", complaint.c_str());
    return kSkipped;
  }
  if (!complaint.empty()) return std::printf("the shipper's configuration is refused:\n%s\n", complaint.c_str()), 1;
  std::vector<std::string> shipperArgs = {rsyslogd, "-n", "-f", shipperConf, "-i", dir + "/shipper.pid"};
  pid_t shipperPid = Start(shipperArgs, dir + "/shipper.log");
  if (!WaitForFile(dir + "/shipper.pid", 20)) {
    Stop(shipperPid, 5);
    Stop(receiverPid, 5);
    std::printf("skipped: the shipping rsyslogd did not start:\n%s\n", ReadFile(dir + "/shipper.log").c_str());
    return kSkipped;
  }

  RolloverCounter rollovers;
  int jsonWatch = rollovers.Watch(dir + "/json"), standardWatch = rollovers.Watch(dir + "/standard");
  pid_t writers[kWriters];
  auto started = Clock::now();
  for (int w = 0; w < kWriters; ++w)
    writers[w] = Start({self, "--writer", dir, std::to_string(w + 1), std::to_string(options.lines),
                        std::to_string(options.paceUs), options.jsonSize, options.standardSize, options.files},
                       dir + "/writer" + std::to_string(w + 1) + ".log");
  // The shipper stops and starts again at about 40 % of the writing, and
  // stays away for a second, while the chains move on.
  double writing = options.lines * (options.paceUs / 1e6 + 0.0002);
  while (Clock::now() - started < std::chrono::duration<double>(0.4 * writing)) {
    rollovers.Drain();
    usleep(20000);
  }
  if (options.kill) kill(shipperPid, SIGKILL);
  int stopped = Stop(shipperPid, 30);
  unlink((dir + "/shipper.pid").c_str());
  auto away = Clock::now();
  while (Clock::now() - away < std::chrono::seconds(1)) {
    rollovers.Drain();
    usleep(20000);
  }
  shipperPid = Start(shipperArgs, dir + "/shipper.log");
  bool writersFailed = false;
  for (pid_t& w : writers) {
    int status = 0;
    while (waitpid(w, &status, WNOHANG) == 0) {
      rollovers.Drain();
      usleep(20000);
    }
    writersFailed |= !WIFEXITED(status) || WEXITSTATUS(status) != 0;
  }
  rollovers.Drain();
  const std::size_t expected = 2u * kWriters * static_cast<std::size_t>(options.lines);
  std::size_t received = 0;
  auto progress = Clock::now();
  auto deadline = Clock::now() + std::chrono::seconds(120);
  // Done when nothing has come for ten seconds, or for three once there
  // are as many lines as were written (a doubled line may come later).
  while (Clock::now() < deadline && Clock::now() - progress < std::chrono::seconds(received >= expected ? 3 : 10)) {
    std::size_t now = CountLines(output);
    if (now != received) progress = Clock::now();
    received = now;
    usleep(200000);
  }
  Stop(shipperPid, 30);
  Stop(receiverPid, 30);
  double seconds = std::chrono::duration<double>(Clock::now() - started).count();

  Check check;
  std::istringstream lines(ReadFile(output));
  std::size_t total = 0;
  for (std::string text; std::getline(lines, text);) {
    ++total;
    zyrtest::Json line;
    std::string error;
    if (!zyrtest::JsonReader::Parse(text, &line, &error)) {
      check.Problem(check.unparsed, "the receiver wrote no JSON (" + error + "): " + text.substr(0, 200));
      continue;
    }
    CheckLine(check, line, writers);
  }
  std::size_t lost = 0, doubled = 0;
  std::vector<std::string> lostIds, doubledIds;
  for (int s = 0; s < 2; ++s)
    for (int w = 1; w <= kWriters; ++w)
      for (int seq = 0; seq < options.lines; ++seq) {
        std::string id = Id(w, seq);
        auto it = check.seen[s].find(id);
        int n = it == check.seen[s].end() ? 0 : it->second;
        std::string where = (s ? "standard " : "json ") + id;
        if (n == 0 && ++lost <= 20) lostIds.push_back(where);
        if (n > 1 && ++doubled <= 20) doubledIds.push_back(where + " x" + std::to_string(n));
      }
  int jsonRolls = rollovers.counts[jsonWatch], standardRolls = rollovers.counts[standardWatch];
  bool restarted = options.kill || (WIFEXITED(stopped) && WEXITSTATUS(stopped) == 0);
  std::printf("collection: %d writers x %d lines in %.1f s; rollovers: json %d, standard %d; shipper stopped (%s) "
              "and started again; received %zu of %zu lines: lost %zu, doubled %zu, unparsed %zu, wrong fields %zu\n",
              kWriters, options.lines, seconds, jsonRolls, standardRolls,
              options.kill ? "killed" : restarted ? "cleanly" : "not cleanly", total, expected, lost, doubled, check.unparsed, check.mismatched);
  bool passed = !writersFailed && restarted && jsonRolls >= 50 && standardRolls >= 50 && lost == 0 && doubled == 0 &&
                check.unparsed == 0 && check.mismatched == 0;
  if (!passed) {
    if (writersFailed) std::printf("a writer failed; see %s/writer*.log\n", dir.c_str());
    if (jsonRolls < 50 || standardRolls < 50) std::printf("fewer than 50 rollovers in a chain\n");
    for (const std::string& id : lostIds) std::printf("lost: %s\n", id.c_str());
    for (const std::string& id : doubledIds) std::printf("doubled: %s\n", id.c_str());
    for (const std::string& p : check.problems) std::printf("%s\n", p.c_str());
    std::printf("shipper's messages:\n%s\nkept: %s (sent.txt: file, offset and line of each line sent; "
                "shipper/: the state files)\n",
                ReadFile(dir + "/shipper.log").substr(0, 4000).c_str(), dir.c_str());
  } else if (!options.keep) {
    std::system(("rm -rf '" + dir + "'").c_str());
  }
  return passed ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 9 && std::strcmp(argv[1], "--writer") == 0)
    return RunWriter(argv[2], std::atoi(argv[3]), std::atoi(argv[4]), std::atoi(argv[5]), argv[6], argv[7], argv[8]);
  Options options;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--lines" && i + 1 < argc) options.lines = std::atoi(argv[++i]);
    else if (arg == "--pace-us" && i + 1 < argc) options.paceUs = std::atoi(argv[++i]);
    else if (arg == "--json-size" && i + 1 < argc) options.jsonSize = argv[++i];
    else if (arg == "--standard-size" && i + 1 < argc) options.standardSize = argv[++i];
    else if (arg == "--files" && i + 1 < argc) options.files = argv[++i];
    else if (arg == "--keep") options.keep = true;
    else if (arg == "--kill") options.kill = true;
    else
      return std::fprintf(stderr, "usage: zyr_collect [--lines N] [--pace-us U] [--json-size B] "
                                  "[--standard-size B] [--files N] [--keep] [--kill]\n"), 2;
  }
  char self[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  if (n <= 0) return 2;
  self[n] = 0;
  return Conduct(options, self);
}
