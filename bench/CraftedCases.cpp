/// Kicks over prefixes whose public hashes are one value, beside random ones, and the removal of many
/// rules, beside that of a tenth as many: what grows with the square of its input shows in a ratio.

#include "Cases.h"
#include "ChipReader.h"
#include "Pipeline.h"
#include "softchip/Random.h"

#include <functional>

namespace Bench {

namespace {

using Prefixes = std::vector<Lumox::IpGenPrefix>;

/// Host prefixes of IPv6, random ones or such that hash64() is the same for all.
Prefixes drawHosts(size_t count, bool ofOneHash) {
  SoftChip::Random random(count);
  Prefixes out;
  for (size_t i = 0; i < count; ++i) {
    uint64_t const hi = random.next();
    uint64_t const lo = ofOneHash ? 1 - (hi + 1) * 0xd6e8feb86659fd93u : random.next();
    out.push_back(Lumox::IpGenPrefix::v6(hi, lo, 128));
  }
  return out;
}

/// Seconds to write the prefixes into rules of that many each, and to compile them for the first time.
double compileSeconds(Prefixes const& prefixes, size_t perRule) {
  double const start = threadSeconds();
  auto const acls = Mox::makePtr<Naxel::AclConfigColl>(Obel::ChipId(0));
  auto const acl = acls->aclIs("crafted");
  for (size_t i = 0; i < prefixes.size(); ++i) {
    auto const index = static_cast<uint32_t>(i / perRule);
    auto const rule = acl->ruleByNameIs(std::to_string(index));
    acl->ruleByIdIs(Naxel::AceIndex(index), rule);
    rule->ruleFilterIs()->sourceIs()->addrIs(prefixes[i]);
  }
  double const filled = threadSeconds() - start;
  Pipeline pipeline(acls, NaxelTool::defaultChip().capability);
  return filled + pipeline.kick();
}

/// Seconds to delete rules: every one, from the front on, where they stand at no index; else every tenth.
double deleteSeconds(uint32_t rules, bool indexed) {
  auto const acl = Mox::makePtr<Naxel::AclConfig>("removal");
  for (uint32_t i = 0; i < rules; ++i) {
    auto const rule = acl->ruleByNameIs(std::to_string(i));
    if (indexed) acl->ruleByIdIs(Naxel::AceIndex(i), rule);
  }
  double const start = threadSeconds();
  if (indexed)
    for (uint32_t i = 0; i < rules; i += 10) acl->ruleByNameDel(std::to_string(i));
  else
    while (!acl->ruleByName().empty()) acl->ruleByNameDel(acl->ruleByName().begin()->first);
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
  for (bool indexed : {false, true})
    addRatioCase(
        "removal", indexed ? "every tenth of 100k" : "100k without index", 100000,
        [=] { return deleteSeconds(100000, indexed); },
        [=] { return 10 * deleteSeconds(10000, indexed); });
}

}  // namespace Bench
