#include "generate/Generate.h"
#include "generate/GeneratePrefixes.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <tuple>

namespace NaxelTool {

namespace {

using Verify::Random;

enum class PortClass : uint8_t { any, high, low, exact, range };
using Ports = std::pair<uint16_t, uint16_t>;

struct SideStyle {
  Weighted<uint8_t> length;
  unsigned newPercent;  ///< of the draws of a prefix that could be a new one, how many are
  Weighted<PortClass> ports;
  unsigned exactPorts;
  unsigned portRanges;
};
struct SetStyle {
  SideStyle src;
  SideStyle dst;
  Weighted<uint8_t> proto;  ///< 0 stands for any
  unsigned leastSkew;
  unsigned tcpInitPercent;
};

constexpr uint8_t icmp = 1;
constexpr uint8_t tcp = 6;
constexpr uint8_t udp = 17;
constexpr uint8_t gre = 47;

SetStyle styleOf(FilterStyle style) {
  using enum PortClass;
  switch (style) {
    case FilterStyle::acl:
      return {{{{32, 54}, {31, 24}, {23, 7}, {30, 5}, {24, 5}, {22, 3}, {29, 1}, {0, 1}},
               42,
               {{any, 100}},
               0,
               0},
              {{{32, 51}, {31, 20}, {22, 7}, {30, 5}, {23, 5}, {24, 3}, {21, 3}, {25, 3}, {16, 3}},
               8,
               {{exact, 64}, {any, 24}, {range, 12}},
               85,
               30},
              {{tcp, 87}, {0, 8}, {icmp, 3}, {udp, 2}},
              75,
              0};
    case FilterStyle::fw:
      return {{{{0, 41}, {1, 19}, {2, 3}, {32, 16}, {31, 12}, {30, 4}, {28, 3}, {24, 2}},
               100,
               {{any, 75}, {exact, 16}, {high, 9}},
               11,
               1},
              {{{32, 34}, {31, 28}, {0, 18}, {1, 9}, {30, 7}, {28, 2}, {22, 1}, {21, 1}},
               100,
               {{exact, 70}, {any, 20}, {high, 9}, {range, 1}},
               40,
               2},
              {{tcp, 57}, {udp, 33}, {gre, 5}, {icmp, 4}, {0, 1}},
              50,
              50};
    case FilterStyle::ipc: break;
  }
  return {{{{32, 18},
            {24, 15},
            {23, 15},
            {25, 9},
            {31, 9},
            {0, 8},
            {22, 6},
            {1, 5},
            {26, 5},
            {16, 4},
            {28, 3}},
           20,
           {{any, 71}, {exact, 26}, {range, 3}},
           28,
           5},
          {{{32, 27},
            {24, 13},
            {31, 12},
            {25, 11},
            {23, 8},
            {0, 6},
            {26, 6},
            {16, 5},
            {1, 3},
            {28, 4},
            {20, 3}},
           35,
           {{any, 35}, {exact, 54}, {high, 8}, {range, 3}},
           45,
           8},
          {{udp, 38}, {0, 33}, {tcp, 27}, {icmp, 1}, {gre, 1}},
          70,
          0};
}

/// Everything that fits one port field, the common ones first.
class PortPool {
 public:
  PortPool(Random& random, unsigned exact, unsigned ranges) {
    static constexpr std::array<uint16_t, 20> known = {80,  443, 53,   25,   22,   21,  20,
                                                       110, 123, 1521, 1433, 135,  139, 445,
                                                       161, 162, 514,  3306, 8080, 23};
    for (unsigned i = 0; i < exact; ++i) {
      auto const port =
          i < known.size() ? known[i] : static_cast<uint16_t>(random.between(1024, 20000));
      exact_.push_back({port, port});
    }
    static std::vector<uint32_t> const lengths = {2, 3, 5, 10, 50, 100, 256, 1000, 5000};
    for (unsigned i = 0; i < ranges; ++i) {
      auto const first = static_cast<uint32_t>(random.between(1, 60000));
      uint32_t const last = std::min(first + random.of(lengths) - 1, 65535u);
      ranges_.push_back({static_cast<uint16_t>(first), static_cast<uint16_t>(last)});
    }
  }

  Ports draw(Random& random, PortClass which) const {
    switch (which) {
      case PortClass::exact: return oftenEarly(random, exact_);
      case PortClass::range: return oftenEarly(random, ranges_);
      case PortClass::high: return {1024, 65535};
      case PortClass::low: return {0, 1023};
      case PortClass::any: break;
    }
    return {0, 65535};
  }

 private:
  std::vector<Ports> exact_;
  std::vector<Ports> ranges_;
};

/// One side of the rules: the prefixes that there are so far, and ports.
class Side {
 public:
  Side(Random& random, SideStyle const& style, PrefixTree tree)
      : style_(style), tree_(tree), ports_(random, style.exactPorts, style.portRanges) {}

  Lumox::IpGenPrefix prefix(Random& random) {
    uint8_t const length = style_.length.draw(random);
    auto& known = known_[length];
    bool const fresh = random.below(100) < style_.newPercent && prefixes_ < most;
    if (!fresh && !known.empty()) return oftenEarly(random, known);
    uint64_t const bits = tree_.extend(random, 0, 0, length);
    auto const prefix = Lumox::IpGenPrefix::v4(static_cast<uint32_t>(bits >> 32), length);
    if (isKnown_.insert(bits | length).second) {
      known.push_back(prefix);
      ++prefixes_;
    }
    return prefix;
  }
  Ports ports(Random& random) const { return ports_.draw(random, style_.ports.draw(random)); }

 private:
  /// Leaves room in 16 bits of label.
  static constexpr size_t most = 45000;

  SideStyle const& style_;
  PrefixTree tree_;
  PortPool ports_;
  std::map<uint8_t, std::vector<Lumox::IpGenPrefix>> known_;  // by length
  std::set<uint64_t> isKnown_;
  size_t prefixes_ = 0;
};

struct Rule {
  Lumox::IpGenPrefix src;
  Lumox::IpGenPrefix dst;
  Ports sport = {0, 65535};
  Ports dport = {0, 65535};
  uint8_t proto = 0;
  bool tcpInit = false;

  friend auto operator<=>(Rule const&, Rule const&) = default;
  /// Rules that leave both sides open would hide all that come behind them.
  bool isBroad() const { return src.length() < 8 && dst.length() < 8; }
};

Rule drawRule(Random& random, SetStyle const& style, Side& src, Side& dst) {
  Rule rule;
  rule.proto = style.proto.draw(random);
  rule.src = src.prefix(random);
  rule.dst = dst.prefix(random);
  if (rule.proto == tcp || rule.proto == udp) {
    rule.sport = src.ports(random);
    rule.dport = dst.ports(random);
  }
  rule.tcpInit = rule.proto == tcp && random.below(100) < style.tcpInitPercent;
  return rule;
}

void write(std::ostream& out, Rule const& rule) {
  char proto[16];
  std::snprintf(proto, sizeof proto, "0x%02x/0x%02X", unsigned{rule.proto}, rule.proto ? 255u : 0u);
  out << '@' << rule.src << '\t' << rule.dst << '\t' << rule.sport.first << " : "
      << rule.sport.second << '\t' << rule.dport.first << " : " << rule.dport.second << '\t'
      << proto << '\t' << (rule.tcpInit ? "0x0200/0x1200" : "0x0000/0x0000") << '\n';
}

}  // namespace

void generateFilterSet(std::ostream& out, FilterSetOptions const& options) {
  SetStyle const style = styleOf(options.style);
  Random random(options.seed);
  PrefixTree const srcTree(options.seed, style.leastSkew, 24);
  PrefixTree const dstTree(options.seed + 1, style.leastSkew, 24);
  Side src(random, style.src, srcTree);
  Side dst(random, style.dst, dstTree);
  std::vector<Rule> rules;
  std::set<Rule> seen;
  // Real sets have hardly any rule twice, but a small vocabulary may have no other left.
  for (uint32_t misses = 0; rules.size() < options.rules;) {
    Rule const rule = drawRule(random, style, src, dst);
    if (!seen.insert(rule).second && ++misses <= options.rules) continue;
    rules.push_back(rule);
  }
  std::stable_partition(rules.begin(), rules.end(), [](Rule const& r) { return !r.isBroad(); });
  for (Rule const& rule : rules) write(out, rule);
}

}  // namespace NaxelTool
