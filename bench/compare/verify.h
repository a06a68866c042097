// What a contender left on disk. Every measured line carries its writer's
// number and its sequence number ("request SEQ from worker W for ..."), so
// the files below a folder can be checked line by line: how many of the
// expected lines are there, which are missing, which appear twice.
#ifndef ZYR_BENCH_COMPARE_VERIFY_H
#define ZYR_BENCH_COMPARE_VERIFY_H

#include <cstdint>
#include <string>
#include <vector>

struct VerifyResult {
  bool ok = true;               // false when the folder could not be read
  std::uint64_t found = 0;      // distinct measured lines found
  std::uint64_t missing = 0;    // expected lines not found (see window)
  std::uint64_t duplicates = 0; // measured lines found more than once
  std::uint64_t lineBytes = 0;  // bytes of the measured lines, line ends included
  std::uint64_t torn = 0;       // lines that hold a broken or more than one message
  std::uint64_t largestFile = 0;  // bytes of the largest file below the folder
};

// Parses one line; true and the numbers when it is a measured line.
bool ParseMeasuredLine(const char* line, std::size_t length, std::uint32_t* worker,
                       std::uint32_t* sequence);

// Counts the measured lines of `workers` writers, `perWorker` each, in every
// regular file below `folder`. With `window` the expected lines of a writer
// start at the lowest sequence number found for it (a rolling appender
// deletes its oldest files); without, at 0. Either way they end at
// perWorker - 1, so a lost tail always shows.
VerifyResult VerifyFolder(const std::string& folder, std::uint32_t workers,
                          std::uint32_t perWorker, bool window);

// The same over text already in memory, one buffer per file.
VerifyResult VerifyTexts(const std::vector<std::string>& files, std::uint32_t workers,
                         std::uint32_t perWorker, bool window);

#endif
