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

/// Whether allocations count from now on; nothing does at first. Returns what was before.
bool countingIs(bool counting);

/// The same for its lifetime.
class Scope {
 public:
  explicit Scope(bool counting) : before_(countingIs(counting)) {}
  Scope(Scope const&) = delete;
  ~Scope() { countingIs(before_); }

 private:
  bool before_;
};

}  // namespace Test::AllocationFaults
