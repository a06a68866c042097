// Several processes write one rolling log at the same time. No line is torn
// or lost: the kernel appends each line atomically, and the rollover is
// done by one process at a time under the companion lock file.
//
//   shared_rolling CONFIG_FOLDER LOG_FOLDER
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "example_support.h"

namespace {

constexpr int kProcesses = 4, kLines = 500;

int Writer(const char* configFolder, const char* logFolder, int id) {
  zyrlog::Log log;
  if (!example::Check(log.Status(), "getting the log object") ||
      !example::Check(log.SetFolders(configFolder, logFolder), "SetFolders") ||
      !example::Check(log.LoadConfigFile("shared_rolling.cfg"), "LoadConfigFile"))
    return 1;
  zyrlog::Logger logger = log.GetLogger("writer");
  for (int i = 0; i < kLines; ++i) ZYRLOG_INFO(logger, "process {} line {}", id, i);
  return log.FailedCalls() == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return std::fprintf(stderr, "usage: shared_rolling CONFIG_FOLDER LOG_FOLDER\n"), 2;
  // Each process takes its own log object after the fork.
  for (int id = 0; id < kProcesses; ++id) {
    pid_t pid = fork();
    if (pid == 0) _exit(Writer(argv[1], argv[2], id));
    if (pid < 0) return std::perror("fork"), 1;
  }
  int failed = 0;
  for (int id = 0; id < kProcesses; ++id) {
    int status = 0;
    wait(&status);
    failed += !WIFEXITED(status) || WEXITSTATUS(status) != 0;
  }
  // Every line of every process is in the live file or one of the rolled ones.
  std::string base = std::string(argv[2]) + "/shared_rolling.log";
  std::size_t lines = 0, files = 0;
  for (int n = 0; n <= 100; ++n) {
    std::string text = example::ReadFile(n == 0 ? base : base + "." + std::to_string(n));
    if (text.empty()) continue;
    ++files;
    lines += example::Count(text, " MSG:process ");
  }
  std::printf("%d processes wrote %zu lines of %d into %zu files\n", kProcesses, lines,
              kProcesses * kLines, files);
  return failed == 0 && lines == static_cast<std::size_t>(kProcesses * kLines) ? 0 : 1;
}
