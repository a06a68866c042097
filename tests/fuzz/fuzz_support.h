// Small helpers shared by the fuzz targets: a failed invariant aborts, so
// that libFuzzer keeps the input, and a reader that takes typed pieces from
// the front of the fuzzer's bytes (zeros once they run out).
#ifndef ZYR_TESTS_FUZZ_SUPPORT_H
#define ZYR_TESTS_FUZZ_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace zyrfuzz {

inline void CheckAt(bool condition, const char* file, int line) {
  if (condition) return;
  std::fprintf(stderr, "invariant broken at %s:%d\n", file, line);
  std::abort();
}
#define ZYR_FUZZ_CHECK(condition) ::zyrfuzz::CheckAt((condition), __FILE__, __LINE__)

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  std::size_t Left() const { return size_; }
  std::uint8_t Byte() {
    if (!size_) return 0;
    --size_;
    return *data_++;
  }
  std::uint64_t U64() {
    std::uint64_t v = 0;
    std::size_t n = size_ < 8 ? size_ : 8;
    std::memcpy(&v, data_, n);
    data_ += n;
    size_ -= n;
    return v;
  }
  // Up to `most` UTF-16 units from pairs of bytes, terminated.
  std::vector<char16_t> Wide(std::size_t most) {
    std::size_t n = size_ / 2 < most ? size_ / 2 : most;
    std::vector<char16_t> text(n + 1, 0);
    for (std::size_t i = 0; i < n; ++i) text[i] = static_cast<char16_t>(data_[2 * i] | data_[2 * i + 1] << 8);
    data_ += 2 * n;
    size_ -= 2 * n;
    return text;
  }
  // Up to `most` bytes, followed by four zero bytes so that the copy ends
  // any narrow or wide reading.
  std::vector<char> Bytes(std::size_t most) {
    std::size_t n = size_ < most ? size_ : most;
    std::vector<char> bytes(data_, data_ + n);
    bytes.insert(bytes.end(), 4, 0);
    data_ += n;
    size_ -= n;
    return bytes;
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
};

}  // namespace zyrfuzz

#endif
