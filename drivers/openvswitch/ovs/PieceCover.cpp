#include "ovs/PieceCover.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace NaxelOvs {

namespace {

class Cover {
 public:
  explicit Cover(std::vector<LabelPiece> const& pieces) : pieces_(pieces) {}

  std::vector<PortCover> run() {
    // Roots of the two halves lie before their parent, the whole at the end.
    size_t const root = gather(0, 0, 0);
    choose(root, 0, 0, std::nullopt);
    return std::move(out_);
  }

 private:
  struct Node {
    std::vector<uint16_t> labels;  // ascending: those with which the subtree is cheapest
    size_t low = 0;                // the halves, by their place plus one; 0 for a leaf
    size_t high = 0;
  };

  /// The piece that holds a value, at or behind `from`.
  size_t pieceOf(uint32_t value, size_t from) const {
    while (from + 1 < pieces_.size() && pieces_[from + 1].first <= value) ++from;
    return from;
  }

  size_t gather(uint32_t value, unsigned length, size_t from) {
    uint32_t const size = 0x10000u >> length;
    from = pieceOf(value, from);
    Node node;
    if (pieceOf(value + size - 1, from) == from) {
      node.labels = {pieces_[from].label};
    } else {
      node.low = gather(value, length + 1, from);
      node.high = gather(value + size / 2, length + 1, from);
      auto const& a = nodes_[node.low].labels;
      auto const& b = nodes_[node.high].labels;
      std::set_intersection(a.begin(), a.end(), b.begin(), b.end(),
                            std::back_inserter(node.labels));
      if (node.labels.empty())
        std::set_union(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(node.labels));
      node.low += 1;
      node.high += 1;
    }
    nodes_.push_back(std::move(node));
    return nodes_.size() - 1;
  }

  void choose(size_t at, uint32_t value, unsigned length, std::optional<uint16_t> inherited) {
    Node const& node = nodes_[at];
    bool const same =
        inherited && std::binary_search(node.labels.begin(), node.labels.end(), *inherited);
    uint16_t const label = same ? *inherited : node.labels.front();
    if (!same) out_.push_back({static_cast<uint16_t>(value), static_cast<uint8_t>(length), label});
    if (node.low == 0) return;
    choose(node.low - 1, value, length + 1, label);
    choose(node.high - 1, value + (0x8000u >> length), length + 1, label);
  }

  std::vector<LabelPiece> const& pieces_;
  std::vector<Node> nodes_;
  std::vector<PortCover> out_;
};

}  // namespace

std::vector<PortCover> coverPorts(std::vector<LabelPiece> const& pieces) {
  return Cover(pieces).run();
}

}  // namespace NaxelOvs
