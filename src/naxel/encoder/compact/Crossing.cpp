#include "naxel/encoder/compact/Crossing.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace Naxel::Compact {

namespace {

class Builder {
 public:
  Builder(SetFamily const& sets, uint32_t n)
      : sets_(sets), atomOf_(n, 0), componentOfSet_(sets.size()) {
    atoms_.push_back({SetFamily::none, n});
    for (uint32_t s = 0; s < sets.size(); ++s) add(s);
  }
  CrossingTree finish();

 private:
  struct Atom {
    uint32_t component;                // as it was made; find() has the present one
    uint32_t labels;                   // that lie in no component below it
    uint32_t children = 0;             // components below it
    uint32_t hits = 0;                 // of the set at hand
    uint32_t moved = SetFamily::none;  // where its labels of the set at hand have gone
    uint32_t reached = SetFamily::none;
  };
  struct Component {
    uint32_t merged;  // into this one; itself while it stands
    uint32_t parent;
  };
  uint32_t find(uint32_t c) {
    while (components_[c].merged != c)
      c = components_[c].merged = components_[components_[c].merged].merged;
    return c;
  }
  void add(uint32_t set);
  uint32_t componentFor(uint32_t set);
  void reach(uint32_t atom, uint32_t set);

  SetFamily const& sets_;
  std::vector<uint32_t> atomOf_;
  std::vector<uint32_t> componentOfSet_;
  std::vector<Atom> atoms_;
  std::vector<Component> components_;
  std::vector<uint32_t> touched_;
  // Atoms by their component, the youngest first, which are the lowest.
  std::vector<std::pair<uint32_t, uint32_t>> heap_;
  std::vector<uint32_t> met_;
};

void Builder::reach(uint32_t atom, uint32_t set) {
  if (std::exchange(atoms_[atom].reached, set) == set) return;
  // The outermost atom is above all components.
  uint32_t const place = atom == 0 ? 0 : find(atoms_[atom].component) + 1;
  heap_.emplace_back(place, atom);
  std::push_heap(heap_.begin(), heap_.end());
}

uint32_t Builder::componentFor(uint32_t set) {
  heap_.clear();
  met_.clear();
  for (uint32_t atom : touched_) reach(atom, set);
  for (;;) {
    auto const [place, atom] = heap_.front();
    bool several = false;
    while (!heap_.empty() && heap_.front().first == place) {
      several |= heap_.front().second != atom;
      std::pop_heap(heap_.begin(), heap_.end());
      heap_.pop_back();
    }
    if (!heap_.empty() || several) met_.push_back(place - 1);
    if (heap_.empty()) {
      if (!several) {
        // Everything met hangs below this atom, and is one component from now on.
        if (met_.empty()) {
          met_.push_back(static_cast<uint32_t>(components_.size()));
          components_.push_back({met_[0], atom});
          ++atoms_[atom].children;
        }
      }
      break;
    }
    reach(components_[place - 1].parent, set);
  }
  uint32_t const oldest = *std::min_element(met_.begin(), met_.end());
  for (uint32_t c : met_) {
    if (c == oldest) continue;
    components_[c].merged = oldest;
    --atoms_[components_[c].parent].children;
  }
  return oldest;
}

void Builder::add(uint32_t set) {
  touched_.clear();
  for (uint32_t l : sets_[set])
    if (atoms_[atomOf_[l]].hits++ == 0) touched_.push_back(atomOf_[l]);
  uint32_t const component = componentFor(set);
  componentOfSet_[set] = component;
  for (uint32_t a : touched_) {
    uint32_t const hits = std::exchange(atoms_[a].hits, 0);
    bool const inside = a != 0 && find(atoms_[a].component) == component;
    atoms_[a].moved = SetFamily::none;
    // Not cut: it lies in the set as a whole.
    if (inside && hits == atoms_[a].labels && atoms_[a].children == 0) continue;
    atoms_[a].labels -= hits;
    atoms_[a].moved = static_cast<uint32_t>(atoms_.size());
    atoms_.push_back({component, hits});
  }
  for (uint32_t l : sets_[set])
    if (uint32_t const to = atoms_[atomOf_[l]].moved; to != SetFamily::none) atomOf_[l] = to;
  for (uint32_t a : touched_) atoms_[a].moved = SetFamily::none;
}

CrossingTree Builder::finish() {
  // What was merged or emptied is left out; the others keep their order.
  std::vector<uint32_t> atomNumber(atoms_.size(), SetFamily::none);
  uint32_t atoms = 0;
  for (uint32_t a = 0; a < atoms_.size(); ++a)
    if (a == 0 || atoms_[a].labels || atoms_[a].children) atomNumber[a] = atoms++;
  std::vector<uint32_t> componentNumber(components_.size(), SetFamily::none);
  CrossingTree tree;
  for (uint32_t c = 0; c < components_.size(); ++c) {
    if (find(c) != c) continue;
    componentNumber[c] = tree.components();
    tree.parent.push_back(atomNumber[components_[c].parent]);
  }
  for (uint32_t& c : componentOfSet_) c = componentNumber[find(c)];
  tree.sets = SetFamily::grouped(componentOfSet_, tree.components());
  std::vector<uint32_t> componentOfAtom(atoms, SetFamily::none);
  for (uint32_t a = 1; a < atoms_.size(); ++a)
    if (atomNumber[a] != SetFamily::none)
      componentOfAtom[atomNumber[a]] = componentNumber[find(atoms_[a].component)];
  tree.atoms = SetFamily::grouped(componentOfAtom, tree.components());
  for (uint32_t& a : atomOf_) a = atomNumber[a];
  tree.labels = SetFamily::grouped(atomOf_, atoms);
  tree.children = SetFamily::grouped(tree.parent, atoms);
  return tree;
}

}  // namespace

CrossingTree crossingTree(SetFamily const& sets, uint32_t n) { return Builder(sets, n).finish(); }

}  // namespace Naxel::Compact
