// tests/mutants/generated/active_mutant.h
// Which of the generated mutants is active in this process. Every mutated source includes this file, so it
// declares as little as possible, and outside of the namespaces of the daemon.
#pragma once

#include <type_traits>

// The numbers of mutants are below this one; 0 means none.
inline constexpr int briskoMutantLimit = 1 << 15;

extern int gBriskoMutant;
// For each number whether its place was reached: shared with forked processes, and with the file that
// BRISKO_MUTANT_REACHED names.
extern unsigned char* gBriskoReached;

inline bool brisko_mutant(int number) {
  gBriskoReached[number] = 1;
  return number == gBriskoMutant;
}

// In functions that can also be evaluated by the compiler, which then sees the original.
constexpr bool brisko_mutant_at_run_time(int number) {
  return !std::is_constant_evaluated() && brisko_mutant(number);
}
