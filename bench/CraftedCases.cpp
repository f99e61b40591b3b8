/// Kicks over prefixes whose public hashes are one value, beside random ones; lists that all have half of
/// the addresses in common, beside a tenth as many; and the removal of many rules, beside that of a tenth
/// as many: what grows with the square of its input shows in a ratio.

#include "Cases.h"
#include "Pipeline.h"
#include "input/ChipReader.h"
#include "verify/Random.h"

#include <functional>

namespace Bench {

namespace {

using Prefixes = std::vector<Lumox::IpGenPrefix>;

/// Host prefixes of IPv6, random ones or such that hash64() is the same for all.
Prefixes drawHosts(size_t count, bool ofOneHash) {
  Verify::Random random(count);
  Prefixes out;
  for (size_t i = 0; i < count; ++i) {
    uint64_t const hi = random.next();
    uint64_t const lo = ofOneHash ? 1 - (hi + 1) * 0xd6e8feb86659fd93u : random.next();
    out.push_back(Lumox::IpGenPrefix::v6(hi, lo, 128));
  }
  return out;
}

/// A rule of its own at each index.
class Rules {
 public:
  Naxel::RuleFilter& filter(uint32_t index) {
    auto const rule = acl_->ruleByNameIs(std::to_string(index));
    acl_->ruleByIdIs(Naxel::AceIndex(index), rule);
    return *rule->ruleFilterIs();
  }
  Naxel::IpPrefixList& source(uint32_t index) { return *filter(index).sourceIs(); }
  /// Seconds since it was made, those of a first kick over the rules included.
  double compileSeconds() {
    double const filled = threadSeconds() - start_;
    Pipeline pipeline(acls_, NaxelTool::defaultChip().capability);
    return filled + pipeline.kick();
  }

 private:
  double start_ = threadSeconds();
  Mox::Ptr<Naxel::AclConfigColl> acls_ = Mox::makePtr<Naxel::AclConfigColl>(Obel::ChipId(0));
  Mox::Ptr<Naxel::AclConfig> acl_ = acls_->aclIs("crafted");
};

/// Seconds to write the prefixes into rules of that many each, and to compile them for the first time.
double compileSeconds(Prefixes const& prefixes, size_t perRule) {
  Rules rules;
  for (size_t i = 0; i < prefixes.size(); ++i)
    rules.source(static_cast<uint32_t>(i / perRule)).addrIs(prefixes[i]);
  return rules.compileSeconds();
}

/// The same for lists that all have half of the field in common, so that what lies in it is in all of them,
/// and for what comes and goes there.
enum class Nesting : uint8_t { hosts, exceptions, ports };
double nestedSeconds(uint32_t lists, Nesting nesting) {
  Rules rules;
  auto const host = [](uint32_t net, uint32_t i) {
    return Lumox::IpGenPrefix::v4(net << 24 | i, 32);
  };
  for (uint32_t i = 0; i < lists; ++i) switch (nesting) {
      case Nesting::hosts:  // each in a list of its own and all in one
        rules.source(i).addrIs(Lumox::IpGenPrefix::v4(0, 1));
        rules.source(i).addrIs(host(200, i));
        rules.source(i).addrIs(host(10, i));
        rules.source(lists).addrIs(host(10, i));
        break;
      case Nesting::exceptions:  // each of a list that has nothing there
        rules.source(i).addrIs(Lumox::IpGenPrefix::v4(0, 1));
        rules.source(i).addrIs(host(200, i));
        rules.source(lists + i).addrIs(host(201, i));
        rules.source(lists + i).exceptAddrIs(host(10, i));
        break;
      case Nesting::ports:  // every second one, in one list
        rules.filter(i).dportRangeIs({0, 49999});
        for (uint32_t bit = 0; bit < 15; ++bit)
          if (i >> bit & 1) rules.filter(i).dportRangeIs({60000 + 2 * bit, 60000 + 2 * bit});
        rules.filter(lists).dportRangeIs({2 * i, 2 * i});
        break;
    }
  return rules.compileSeconds();
}

/// Seconds to delete rules where they stand at no index: every one, from the first or the second on; else
/// every tenth.
enum class Removal : uint8_t { first, second, everyTenth };
double deleteSeconds(uint32_t rules, Removal removal) {
  bool const indexed = removal == Removal::everyTenth;
  auto const acl = Mox::makePtr<Naxel::AclConfig>("removal");
  for (uint32_t i = 0; i < rules; ++i) {
    auto const rule = acl->ruleByNameIs(std::to_string(i));
    if (indexed) acl->ruleByIdIs(Naxel::AceIndex(i), rule);
  }
  double const start = threadSeconds();
  if (indexed)
    for (uint32_t i = 0; i < rules; i += 10) acl->ruleByNameDel(std::to_string(i));
  else
    for (size_t const kept = removal == Removal::second ? 1 : 0; acl->ruleByName().size() > kept;)
      acl->ruleByNameDel(std::next(acl->ruleByName().begin(), static_cast<ptrdiff_t>(kept))->first);
  return threadSeconds() - start;
}

/// `large` beside `small`, which is what it should take.
void addRatioCase(std::string const& kind, std::string const& set, size_t size,
                  std::function<double()> large, std::function<double()> small) {
  addCase(kind, set, 1, [=](benchmark::State& state) {
    double const beside = small();
    double const seconds = large();
    state.counters["size"] = static_cast<double>(size);
    state.counters["beside"] = beside * 1e3;
    state.counters["ratio"] = seconds / beside;
    return seconds;
  });
}

}  // namespace

void addCraftedCases() {
  for (auto const& [set, size, perRule] :
       {std::tuple("100k in one list", size_t{100000}, size_t{100000}),
        std::tuple("10k lists of one", size_t{10000}, size_t{1})}) {
    auto const compile = [size = size, perRule = perRule](bool ofOneHash) {
      Prefixes const prefixes = drawHosts(size, ofOneHash);
      return compileSeconds(prefixes, perRule);
    };
    addRatioCase(
        "crafted", set, size, [=] { return compile(true); }, [=] { return compile(false); });
  }
  for (auto const& [set, nesting] : {std::pair("20k lists and one of 20k", Nesting::hosts),
                                     std::pair("20k lists and exceptions", Nesting::exceptions),
                                     std::pair("20k lists of ports and one", Nesting::ports)})
    addRatioCase(
        "nested", set, 20000, [=, n = nesting] { return nestedSeconds(20000, n); },
        [=, n = nesting] { return 10 * nestedSeconds(2000, n); });
  for (auto const& [set, removal] : {std::pair("100k, the first", Removal::first),
                                     std::pair("100k, the second", Removal::second),
                                     std::pair("every tenth of 100k", Removal::everyTenth)})
    addRatioCase(
        "removal", set, 100000, [=, r = removal] { return deleteSeconds(100000, r); },
        [=, r = removal] { return 10 * deleteSeconds(10000, r); });
}

}  // namespace Bench
