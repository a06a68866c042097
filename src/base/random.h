// The process-wide random generator: a 48-bit linear congruential state,
// stepped S = (S * 25214903917 + 11) mod 2^48 from the start value 0x1330e,
// stirred once with what the process and the system offer at start.
//
// It makes names unique (temporary files) and picks scramble keys; it is
// no source of secrets. One spin lock guards the state.
#ifndef ZYR_BASE_RANDOM_H
#define ZYR_BASE_RANDOM_H

#include <cstddef>
#include <cstdint>

inline constexpr std::uint64_t kZyrBasRandomStart = 0x1330e;

// The rules, on a state the caller holds.
// One step; the answer is bits 17 to 48 of the new state (counting from 1),
// that is (S >> 16) & 0xffffffff.
std::uint32_t ZyrBasRandomStepState(std::uint64_t& state);
// `count` bytes: each step gives its four bytes lowest first; a count not
// divisible by 4 first takes the odd bytes from the top of one step.
void ZyrBasRandomFillState(std::uint64_t& state, void* out, std::size_t count);
// Stirs bytes into a state: S = step(S) + byte, for each byte.
void ZyrBasRandomStirState(std::uint64_t& state, const void* bytes, std::size_t count);

// The shared generator. Seeding happens once per process: at base start,
// or at the first use if base start has not run.
void ZyrBasRandomSeed();
std::uint32_t ZyrBasRandomStep();
void ZyrBasRandomBytes(void* out, std::size_t count);

// Around a fork (base/fork.h): the generator's lock is taken before and
// given back after; the child, whose state would repeat the parent's,
// stirs fresh material into it.
void ZyrBasRandomForkPrepare();
void ZyrBasRandomForkParent();
void ZyrBasRandomForkChild();

#endif
