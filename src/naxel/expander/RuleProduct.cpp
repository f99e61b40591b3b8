#include "naxel/expander/RuleProduct.h"

#include "mox/Assert.h"

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
  if (!carriesLabel(field)) MOX_ASSERT(false && "Invalid tcam field");
  auto const& pairs = list.encLabelAndMask();
  // Only those that are there now: what is appended is complete in this field.
  for (size_t n = queue.size(); n > 0; --n) {
    PDAclFilter filter = queue.deq();
    for (EncodedLabelWithMask const& e : pairs) {
      filter.labelFieldIs(field, e);
      queue.enq(filter);
    }
  }
}

}  // namespace Naxel
