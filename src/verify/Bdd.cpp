#include "verify/Bdd.h"

#include <stdexcept>
#include <string>
#include <utility>

#include <bdd.h>

// The header redirects these to its own classes, which know nothing of a full table.
#undef bdd_init
#undef bdd_ithvar

namespace Verify {

namespace {

/// What the library reported first. Most of its functions answer an error with the constant false,
/// so that only this tells a result from none.
int reportedError = 0;

void onError(int code) {
  // The first one counts: those that follow are about its result.
  if (reportedError == 0) reportedError = code;
}

[[noreturn]] void fail() {
  int const code = reportedError;
  if (code == BDD_NODENUM || code == BDD_MEMORY)
    throw std::runtime_error("the proof needs more BDD nodes than it may have (" +
                             std::to_string(bdd_getallocnum()) + " are in use)");
  throw std::runtime_error(std::string("the BDD library reports: ") + bdd_errstring(code));
}

int checked(int result) {
  if (reportedError != 0) fail();
  return result;
}

}  // namespace

BddTable::BddTable(int variables, int maxNodes) {
  if (bdd_isrunning()) throw std::logic_error("two proofs at a time");
  reportedError = 0;
  bdd_error_hook(onError);
  int const nodes =
      8 * variables;  // no more than that: a small proof takes less time than its table
  checked(bdd_init(nodes, nodes / 4));
  // It has set its own: they print and abort.
  bdd_error_hook(onError);
  bdd_gbc_hook(nullptr);
  bdd_setvarnum(variables);
  // Builds of the library are about whose collection of garbage, within an operation, takes places of its
  // stack for nodes that nothing has been written to yet. This writes to all of them, as no other operation
  // goes deeper, and the table has room for it without a collection.
  if (reportedError == 0) {
    Bdd all(true);
    for (int v = variables; v-- > 0;) all = Bdd::choice(v, all, Bdd(false));
    static_cast<void>(all & Bdd::variable(variables - 1));
  }
  bdd_setmaxincrease(1 << 23);
  bdd_setminfreenodes(30);
  bdd_setcacheratio(8);
  bdd_setmaxnodenum(maxNodes);
  if (reportedError == 0) return;
  bdd_done();
  fail();
}

BddTable::~BddTable() { bdd_done(); }

Bdd::Bdd(Adopt, int node) : node_(bdd_addref(checked(node))) {}

Bdd::Bdd(Bdd const& other) : node_(bdd_addref(other.node_)) {}

Bdd& Bdd::operator=(Bdd other) noexcept {
  std::swap(node_, other.node_);
  return *this;
}

Bdd::~Bdd() {
  // The two constants are not counted.
  if (node_ > 1) bdd_delref(node_);
}

Bdd Bdd::ofNode(int node) { return Bdd(Adopt(), node); }

Bdd Bdd::choice(int v, Bdd const& high, Bdd const& low) {
  // A diagram has no node whose two ways lead to the same place, and a call would find that out at a cost.
  if (high == low) return high;
  return Bdd(Adopt(), bdd_ite(bdd_ithvar(v), high.node_, low.node_));
}

Bdd Bdd::anyOf(std::vector<Bdd> all) {
  // In pairs: one after the other would carry the whole union through every step.
  for (size_t count = all.size(); count > 1; count = (count + 1) / 2)
    for (size_t i = 0; 2 * i < count; ++i)
      all[i] = 2 * i + 1 < count ? all[2 * i] | all[2 * i + 1] : all[2 * i];
  return all.empty() ? Bdd(false) : std::move(all.front());
}

Bdd operator&(Bdd const& a, Bdd const& b) {
  return Bdd(Bdd::Adopt(), bdd_apply(a.node_, b.node_, bddop_and));
}
Bdd operator|(Bdd const& a, Bdd const& b) {
  return Bdd(Bdd::Adopt(), bdd_apply(a.node_, b.node_, bddop_or));
}
Bdd operator^(Bdd const& a, Bdd const& b) {
  return Bdd(Bdd::Adopt(), bdd_apply(a.node_, b.node_, bddop_xor));
}
Bdd operator-(Bdd const& a, Bdd const& b) {
  return Bdd(Bdd::Adopt(), bdd_apply(a.node_, b.node_, bddop_diff));
}

std::vector<int> Bdd::somePoint() const {
  std::vector<int> ones;
  // Every node but the constant false has a way to the constant true.
  for (int node = node_; node > 1;) {
    // The low way where it can be taken, so that the packet found has zeros wherever it may: people read
    // it.
    if (int const low = bdd_low(node)) {
      node = low;
    } else {
      ones.push_back(bdd_var(node));
      node = bdd_high(node);
    }
  }
  return ones;
}

}  // namespace Verify
