#include "generate/Generate.h"
#include "generate/GeneratePrefixes.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <set>

namespace NaxelTool {

namespace {

using Verify::Random;

/// Leading bits and how many of them count.
using Bits = std::pair<uint64_t, uint8_t>;

struct List {
  std::vector<Bits> addr;
  std::vector<Bits> except;
  std::vector<Bits> left = {};  ///< members that no list nested in this one has taken yet
};

/// Application, tier, environment and site, and how many of them there are.
using Attributes = std::array<uint32_t, 4>;
constexpr Attributes attributeValues = {24, 4, 4, 6};

class Generator {
 public:
  Generator(std::ostream& out, ObjectGroupOptions const& options)
      : out_(out), options_(options), random_(options.seed), tree_(options.seed, 60, 24) {}

  void generate() {
    lists_.reserve(size_t{options_.lists} + options_.handMade);
    if (options_.overlap == Overlap::attributes) {
      drawHosts();
      for (uint32_t i = 0; i < options_.lists; ++i) drawSelection(i);
      for (uint32_t i = 0; i < options_.handMade; ++i) drawHandMade();
    } else {
      drawClusters();
      for (uint32_t i = 0; i < options_.lists; ++i) drawList();
    }
    drawPortGroups();
    out_ << "{\n  \"schema\": \"naxel-rules\",\n  \"version\": 1,\n  \"prefixLists\": {\n";
    for (size_t i = 0; i < lists_.size(); ++i) writeList(i);
    out_ << "  },\n  \"acls\": [\n";
    uint32_t const acls = std::max(options_.acls, 1u);
    for (uint32_t i = 0; i < acls; ++i) {
      uint32_t const rules = options_.rules / acls + (i < options_.rules % acls ? 1 : 0);
      writeAcl(i, rules, i + 1 == acls);
    }
    out_ << "  ]\n}\n";
  }

 private:
  unsigned maxLength() const { return options_.ipv6 ? 64 : 32; }
  /// Where all prefixes lie: everywhere in IPv4, below 2000::/3 in IPv6.
  Bits root() const { return options_.ipv6 ? Bits{0x2000000000000000u, 3} : Bits{0, 0}; }

  Bits below(Bits const& parent, unsigned least, unsigned most) {
    unsigned const from = parent.second;
    auto const length =
        static_cast<unsigned>(std::min<uint64_t>(from + random_.between(least, most), maxLength()));
    return {tree_.extend(random_, parent.first, from, length), static_cast<uint8_t>(length)};
  }

  /// A network that meets none that was drawn before, as long as there is room.
  Bits network() {
    unsigned const least = options_.ipv6 ? 29 : 14;
    unsigned const most = options_.ipv6 ? 45 : 24;
    Bits out;
    for (unsigned tries = 0; tries < 100; ++tries) {
      out = below(root(), least, most + tries / 20);
      if (isFree(out)) break;
    }
    networks_.insert(out);
    return out;
  }
  bool isFree(Bits const& bits) const {
    auto const next = networks_.lower_bound({bits.first, 0});
    uint64_t const last = bits.first | (~uint64_t{0} >> bits.second);
    if (next != networks_.end() && next->first <= last) return false;
    if (next == networks_.begin()) return true;
    Bits const& before = *std::prev(next);
    return (before.first | (~uint64_t{0} >> before.second)) < bits.first;
  }

  /// What crossing lists have in common: clusters of networks, half as many as lists.
  void drawClusters() {
    uint64_t const most = std::max<uint64_t>(options_.listSize / 4, 1);
    for (uint32_t i = 0; i < options_.lists / 2 + 1; ++i) {
      clusters_.emplace_back();
      for (uint64_t n = random_.between(1, most); n > 0; --n) clusters_.back().push_back(network());
    }
  }

  void drawList() {
    bool const nested = options_.overlap == Overlap::nested ||
                        (options_.overlap == Overlap::mixed && random_.oneIn(2));
    uint64_t const size = random_.between(1, uint64_t{options_.listSize} * 2 - 1);
    lists_.emplace_back();
    if (nested)
      drawNested(lists_.back(), size);
    else
      drawCrossing(lists_.back(), size);
    tidy(lists_.back().addr);
  }

  /// Takes over some networks of an earlier list, perhaps parts of them, or begins with new ones. No
  /// two lists take from the same network.
  void drawNested(List& list, uint64_t size) {
    List* parent = nullptr;
    if (!nested_.empty() && !random_.oneIn(3)) parent = &lists_[oftenEarly(random_, nested_)];
    for (uint64_t i = 0; i < size; ++i) {
      if (!parent) {
        list.addr.push_back(network());
      } else if (!parent->left.empty()) {
        list.addr.push_back(below(parent->left.back(), 0, 4));
        parent->left.pop_back();
      }
    }
    if (list.addr.empty()) list.addr.push_back(network());
    list.left.assign(list.addr.begin() + (list.addr.size() > 1 && random_.oneIn(4)),
                     list.addr.end());
    if (list.left.size() < list.addr.size()) carve(list, list.addr.front());
    nested_.push_back(lists_.size() - 1);
  }

  void drawCrossing(List& list, uint64_t size) {
    for (uint64_t i = random_.between(1, 4); i > 0; --i) {
      std::vector<Bits> const& cluster = oftenEarly(random_, clusters_);
      list.addr.insert(list.addr.end(), cluster.begin(), cluster.end());
    }
    tidy(list.addr);
    // Some lists hold nothing but clusters.
    if (!random_.oneIn(4))
      while (list.addr.size() < size) list.addr.push_back(network());
    if (random_.oneIn(4)) carve(list, random_.of(list.addr));
  }

  /// One subnet, at times two, for most combinations of application, tier, environment and site.
  void drawHosts() {
    Attributes a{};
    do {
      if (!random_.oneIn(8)) {
        hosts_.push_back({a, {network()}});
        if (random_.oneIn(4)) hosts_.back().second.push_back(network());
      }
    } while (next(a));
  }
  static bool next(Attributes& a) {
    for (size_t k = 0; k < a.size(); ++k) {
      if (++a[k] < attributeValues[k]) return true;
      a[k] = 0;
    }
    return false;
  }

  /// All hosts that agree with some host in one to three attributes: first of each value of one, then at random.
  void drawSelection(uint32_t number) {
    lists_.emplace_back();
    Attributes picked = random_.of(hosts_).first;
    std::array<bool, 4> counts{};
    for (size_t k = 0; k < counts.size(); ++k) {
      if (number < attributeValues[k]) {
        counts[k] = true;
        picked[k] = number;
        break;
      }
      number -= attributeValues[k];
      if (k + 1 == counts.size())
        for (uint64_t n = random_.between(2, 3); n > 0; --n)
          counts[random_.below(counts.size())] = true;
    }
    for (auto const& [attributes, subnets] : hosts_) {
      bool same = true;
      for (size_t k = 0; k < counts.size(); ++k) same &= !counts[k] || attributes[k] == picked[k];
      if (same) lists_.back().addr.insert(lists_.back().addr.end(), subnets.begin(), subnets.end());
    }
    tidy(lists_.back().addr);
  }

  void drawHandMade() {
    lists_.emplace_back();
    for (uint64_t n = random_.between(2, uint64_t{options_.listSize} * 2); n > 0; --n)
      lists_.back().addr.push_back(random_.of(random_.of(hosts_).second));
    tidy(lists_.back().addr);
  }

  /// Takes small parts of a network out of a list.
  void carve(List& list, Bits const& network) {
    for (uint64_t i = random_.between(1, 3); i > 0; --i)
      if (network.second + 2u <= maxLength()) list.except.push_back(below(network, 2, 5));
    tidy(list.except);
  }

  static void tidy(std::vector<Bits>& list) {
    std::sort(list.begin(), list.end());
    list.erase(std::unique(list.begin(), list.end()), list.end());
  }

  void drawPortGroups() {
    if (options_.overlap == Overlap::attributes) {
      // What hosts of a kind offer is one service each.
      for (char const* service : {"443", "22", "5432", "\"8080-8083\"", "53", "9100"})
        portGroups_.emplace_back(service);
      return;
    }
    static std::vector<std::string> const known = {"80",  "443",         "53",   "22", "25",
                                                   "123", "\"161-162\"", "3306", "21", "8080"};
    for (unsigned i = 0; i < 40; ++i) {
      std::string group;
      uint64_t const size = random_.between(1, 5);
      for (uint64_t j = 0; j < size; ++j) {
        std::string member = random_.of(known);
        if (random_.oneIn(3)) {
          auto const first = random_.between(1024, 60000);
          auto const last = first + random_.below(random_.oneIn(4) ? 1000 : 16);
          member = "\"" + std::to_string(first) + "-" + std::to_string(last) + "\"";
        }
        group += (group.empty() ? "" : ", ") + member;
      }
      portGroups_.push_back("[" + group + "]");
    }
  }

  std::string text(Bits const& bits) const {
    auto const prefix = options_.ipv6 ? Lumox::IpGenPrefix::v6(bits.first, 0, bits.second)
                                      : Lumox::IpGenPrefix::v4(
                                            static_cast<uint32_t>(bits.first >> 32), bits.second);
    return "\"" + Mox::valueToStrep(prefix) + "\"";
  }
  std::string text(std::vector<Bits> const& list) const {
    std::string out;
    for (Bits const& bits : list) out += (out.empty() ? "[" : ", ") + text(bits);
    return out + "]";
  }

  void writeList(size_t i) {
    List const& list = lists_[i];
    out_ << "    \"list-" << i << "\": ";
    if (list.except.empty())
      out_ << text(list.addr);
    else
      out_ << "{ \"addr\": " << text(list.addr) << ", \"except\": " << text(list.except) << " }";
    out_ << (i + 1 < lists_.size() ? ",\n" : "\n");
  }

  void writeAcl(uint32_t number, uint32_t rules, bool last) {
    out_ << "    { \"name\": \"acl-" << number << "\", \"af\": \""
         << (options_.ipv6 ? "ipv6" : "ipv4") << "\", \"rules\": [\n";
    for (uint32_t i = 1; i <= rules; ++i) {
      out_ << "      { \"index\": " << uint64_t{i} * 10 << ", \"name\": \"rule-" << i << "\"";
      // The last rule refuses the rest.
      if (i == rules)
        out_ << ", \"action\": { \"dropEnabled\": true, \"logEnabled\": true }";
      else
        writeFields();
      out_ << (i < rules ? " },\n" : " }\n");
    }
    out_ << "    ] }" << (last ? "\n" : ",\n");
  }

  void writeFields() {
    uint64_t const sides = random_.below(10);
    if (sides > 1) out_ << ", \"source\": \"" << listName() << "\"";
    if (sides != 1 && sides != 2) out_ << ", \"destination\": \"" << listName() << "\"";
    uint64_t const proto = random_.below(10);
    if (proto < 5) {
      out_ << ", \"proto\": 6";
      uint64_t const kind = random_.below(10);
      if (kind == 0)
        out_ << ", \"matchTcpEstablished\": true";
      else
        out_ << ", \"dport\": " << oftenEarly(random_, portGroups_);
      if (kind == 1) out_ << ", \"matchTcpInit\": true";
    } else if (proto < 8) {
      out_ << ", \"proto\": 17, \"dport\": " << oftenEarly(random_, portGroups_);
      if (random_.oneIn(5)) out_ << ", \"sport\": \"1024-65535\"";
    } else if (proto == 8 && options_.overlap != Overlap::attributes) {
      out_ << ", \"proto\": " << (options_.ipv6 ? 58 : 1)
           << ", \"icmpType\": " << (options_.ipv6 ? "[\"1-4\", \"128-129\"]" : "[0, 3, 8, 11]");
    }
    if (random_.oneIn(4)) out_ << ", \"action\": { \"dropEnabled\": true }";
  }

  std::string listName() {
    uint64_t const bound = random_.below(lists_.size()) + 1;
    return "list-" + std::to_string(random_.below(bound));
  }

  std::ostream& out_;
  ObjectGroupOptions options_;
  Random random_;
  PrefixTree tree_;
  std::set<Bits> networks_;
  std::vector<std::vector<Bits>> clusters_;
  std::vector<std::pair<Attributes, std::vector<Bits>>> hosts_;
  std::vector<List> lists_;
  std::vector<size_t> nested_;  // which of them lists may be nested in
  std::vector<std::string> portGroups_;
};

}  // namespace

uint64_t memoryFor(ObjectGroupOptions const& options) {
  // Each prefix stands in a list, mostly in what is left of it too, and in a set of its own meanwhile.
  constexpr uint64_t bytesOfPrefix = 100;
  return (uint64_t{options.lists} + options.handMade) * options.listSize * bytesOfPrefix;
}

void generateObjectGroups(std::ostream& out, ObjectGroupOptions const& options) {
  Generator(out, options).generate();
}

}  // namespace NaxelTool
