#include "naxel/expander/RuleProduct.h"

#include "mox/Assert.h"
#include "mox/Bounded.h"

#include <algorithm>
#include <stdexcept>

namespace Naxel {

void RuleFilterQueue::enq(PDAclFilter const& f) {
  if (nextIndex_ == indexSpace) throw std::length_error("linkqueue index space full");
  items_.push_back(f);
  ++nextIndex_;
}

PDAclFilter RuleFilterQueue::deq() {
  PDAclFilter const f = items_[head_++];
  // Dropping the consumed half now and then keeps the cost of a removal constant on average.
  if (head_ * 2 > items_.size() && head_ >= 64) {
    items_.erase(items_.begin(), items_.begin() + static_cast<std::ptrdiff_t>(head_));
    head_ = 0;
  }
  return f;
}

void RuleFilterQueue::delAll() {
  items_.clear();
  head_ = 0;
  nextIndex_ = 0;
}

void setTcamField(PDAclFilter& filter, TcamFieldType type, EncodedLabelWithMask const& value) {
  if (!carriesLabel(type)) MOX_ASSERT(false && "Invalid tcam field");
  filter.labelFieldIs(type, value);
}

void multiply(RuleFilterQueue& queue, TcamFieldType field, EncodedLabelWithMaskList const& list) {
  auto const& pairs = list.encLabelAndMask();
  // Most fields have one pair, and then nothing moves.
  if (pairs.size() == 1)
    return queue.replaceAll([&](PDAclFilter& f) { setTcamField(f, field, pairs.front()); });
  // Only those that are there now: what is appended is complete in this field.
  for (size_t n = queue.size(); n > 0; --n) {
    PDAclFilter filter = queue.deq();
    for (EncodedLabelWithMask const& e : pairs) {
      setTcamField(filter, field, e);
      queue.enq(filter);
    }
  }
}

std::vector<PDAclFilter> takeDistinct(RuleFilterQueue& queue, bool tcpInit, bool tcpEstablished,
                                      std::function<void(PDAclFilter const&)> const& duplicate) {
  std::vector<PDAclFilter> filters;
  filters.reserve(queue.size());
  Mox::HashSet<PDAclFilter> seen;
  bool ascending = true;
  while (!queue.empty()) {
    PDAclFilter filter = queue.deq();
    filter.matchTcpInitIs(tcpInit);
    filter.matchTcpEstablishedIs(tcpEstablished);
    // The lists are ascending, and so are their products: as long as that holds, none occurs twice.
    if (ascending && !filters.empty() && !(filters.back() < filter)) {
      ascending = false;
      // A table of all entries is made only from the first one on that is out of order.
      for (PDAclFilter const& f : filters) seen.insert(f);
    }
    if (!ascending && !seen.insert(filter)) {
      duplicate(filter);
      continue;
    }
    filters.push_back(filter);
  }
  return filters;
}

bool RuleRecipes::isSame(size_t rule, RuleRecipes const& others, size_t other) const {
  RuleRecipe const& a = rules[rule];
  RuleRecipe const& b = others.rules[other];
  return a.fields == b.fields && a.tcpInit == b.tcpInit && a.tcpEstablished == b.tcpEstablished &&
         a.matchesNothing == b.matchesNothing &&
         std::ranges::equal(factorsOf(rule), others.factorsOf(other),
                            [](RuleFactor const& f, RuleFactor const& g) {
                              // Every run of an encoder makes new lists, most of which say what the old
                              // ones said.
                              return f == g || f->encLabelAndMask() == g->encLabelAndMask();
                            });
}

void RuleRecipes::add(RuleRecipes const& others, size_t other) {
  auto const from = others.factorsOf(other);
  factors.insert(factors.end(), from.begin(), from.end());
  rules.push_back(others.rules[other]);
  // The end is a position among the factors here, and not where the recipe comes from.
  rules.back().factorsEnd = static_cast<uint32_t>(factors.size());
}

uint64_t RuleRecipes::entriesOf(size_t rule) const {
  if (rules[rule].matchesNothing) return 0;
  uint64_t entries = 1;
  for (RuleFactor const& f : factorsOf(rule))
    entries = Mox::boundedProduct(entries, f->encLabelAndMask().size());
  return entries;
}

uint64_t RuleRecipes::entriesOf(size_t rule, FieldCodes const& codes) const {
  if (rules[rule].matchesNothing) return 0;
  uint64_t entries = 1;
  unsigned fields = rules[rule].fields;
  for (RuleFactor const& f : factorsOf(rule)) {
    entries = Mox::boundedProduct(entries,
                                  f->pairsBy(codes[static_cast<size_t>(std::countr_zero(fields))]));
    fields &= fields - 1;
  }
  return entries;
}

}  // namespace Naxel
