#pragma once

/// Boolean functions of a row of variables as binary decision diagrams, by the BDD library. Two
/// functions are equal if and only if their diagrams are the same node, so comparing costs nothing.
///
/// A diagram is smallest to build from the last variable up: joining what stands above with what
/// stands below costs the size of the upper part only.

#include <cstddef>
#include <vector>

namespace Verify {

/// The node table of the library, which is global: there is one at a time, and it outlives all
/// functions. Throws std::logic_error if there is one already, std::runtime_error if there is no
/// memory for it.
class BddTable {
 public:
  /// At most `maxNodes` nodes of 20 bytes; the table begins small and doubles.
  BddTable(int variables, int maxNodes);
  BddTable(BddTable const&) = delete;
  BddTable& operator=(BddTable const&) = delete;
  ~BddTable();
};

/// One function; keeps its nodes alive. Every operation throws std::runtime_error when the table is
/// full.
class Bdd {
 public:
  /// The constant.
  explicit Bdd(bool value = false) : node_(value ? 1 : 0) {}
  /// The function of a node that somebody keeps alive.
  static Bdd ofNode(int node);
  /// `high` where variable `v` is 1, else `low`. Cheap if both depend on later variables only.
  static Bdd choice(int v, Bdd const& high, Bdd const& low);
  static Bdd variable(int v) { return choice(v, Bdd(true), Bdd(false)); }
  /// The union of any number of functions.
  static Bdd anyOf(std::vector<Bdd> all);

  Bdd(Bdd const& other);
  Bdd(Bdd&& other) noexcept : node_(other.node_) { other.node_ = 0; }
  Bdd& operator=(Bdd other) noexcept;
  ~Bdd();

  friend Bdd operator&(Bdd const& a, Bdd const& b);
  friend Bdd operator|(Bdd const& a, Bdd const& b);
  friend Bdd operator^(Bdd const& a, Bdd const& b);
  /// a and not b.
  friend Bdd operator-(Bdd const& a, Bdd const& b);
  friend bool operator==(Bdd const& a, Bdd const& b) { return a.node_ == b.node_; }

  int node() const { return node_; }
  bool isFalse() const { return node_ == 0; }
  /// The variables that are 1 in one point where the function holds; it must hold somewhere.
  std::vector<int> somePoint() const;

 private:
  struct Adopt {};
  Bdd(Adopt, int node);

  int node_;
};

}  // namespace Verify
