#pragma once

/// Makes a chosen allocation of the program fail, and counts what is alive. Linking this replaces
/// the global operator new.

#include <cstdint>

namespace Test::AllocationFaults {

/// The n-th counted allocation from now on throws std::bad_alloc, once; 0 for none.
void failAt(uint64_t n);
/// How often that has happened in all.
uint64_t strikes();
/// Allocations that have not been freed, counted or not.
int64_t live();

/// Counts allocations (true) or does not (false) for its lifetime. Nothing counts at first.
class Scope {
 public:
  explicit Scope(bool counting);
  Scope(Scope const&) = delete;
  Scope& operator=(Scope const&) = delete;
  ~Scope();

 private:
  bool before_;
};

/// The same as a pair of calls, for places that a lifetime cannot span.
bool countingIs(bool counting);

}  // namespace Test::AllocationFaults
