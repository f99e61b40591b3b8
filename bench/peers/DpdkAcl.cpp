#include "DpdkAcl.h"

#include "Pipeline.h"

#include <array>
#include <cstring>
#include <rte_acl.h>
#include <rte_eal.h>
#include <rte_errno.h>
#include <stdexcept>

namespace Bench {

namespace {

/// Fields as DPDK's samples lay them out: protocol, addresses, and both ports in one word.
enum Field : uint8_t { proto, src, dst, sport, dport, fields };
RTE_ACL_RULE_DEF(Rule, fields);

constexpr std::array<rte_acl_field_def, fields> layout = {{
    {RTE_ACL_FIELD_TYPE_BITMASK, 1, proto, 0, 0},
    {RTE_ACL_FIELD_TYPE_MASK, 4, src, 1, 2},
    {RTE_ACL_FIELD_TYPE_MASK, 4, dst, 2, 6},
    {RTE_ACL_FIELD_TYPE_RANGE, 2, sport, 3, 10},
    {RTE_ACL_FIELD_TYPE_RANGE, 2, dport, 3, 12},
}};

[[noreturn]] void fail(std::string const& what, int error) {
  throw std::runtime_error(what + ": " + std::strerror(error < 0 ? -error : error));
}

template <class Range>
void takeRange(Naxel::RuleFilter::RangeColl<Range> const& ranges, uint16_t& first, uint16_t& last) {
  if (ranges.empty()) return;
  if (ranges.size() > 1) throw std::runtime_error("a rule has more than one range in a field");
  first = static_cast<uint16_t>(ranges.begin()->rangeStart());
  last = static_cast<uint16_t>(ranges.begin()->rangeEnd());
}

void takePrefix(Mox::Ptr<Naxel::IpPrefixList> const& list, uint32_t& address, uint32_t& length) {
  if (!list) return;
  if (list->addrs() != 1 || list->exceptAddrs() || list->addr().begin()->af() != Lumox::ipv4())
    throw std::runtime_error("a rule has an address list that is not one IPv4 prefix");
  address = list->addr().begin()->masked().address4();
  length = list->addr().begin()->length();
}

FiveTuple fiveTuple(Naxel::RuleConfig const& rule) {
  FiveTuple out;
  Mox::Ptr<Naxel::RuleFilter> const& filter = rule.ruleFilter();
  if (!filter) return out;
  takePrefix(filter->source(), out.src, out.srcLength);
  takePrefix(filter->destination(), out.dst, out.dstLength);
  takeRange(filter->sportRange(), out.sportFirst, out.sportLast);
  takeRange(filter->dportRange(), out.dportFirst, out.dportLast);
  if (!filter->proto().empty()) {
    uint16_t first = 0;
    uint16_t last = 0;
    takeRange(filter->proto(), first, last);
    if (first != last) throw std::runtime_error("a rule has a range of protocols");
    out.proto = static_cast<uint8_t>(first);
    out.protoMask = 0xff;
  }
  return out;
}

}  // namespace

std::vector<FiveTuple> fiveTuples(Naxel::AclConfigColl const& acls) {
  std::vector<FiveTuple> out;
  for (auto const& [name, acl] : acls.acl())
    for (auto const& [index, rule] : acl->ruleById()) out.push_back(fiveTuple(*rule));
  return out;
}

void startDpdk(char const* program, unsigned megabytes) {
  std::string const size = std::to_string(megabytes);
  std::array<char const*, 9> words = {program,      "--no-huge",  "--no-pci",       "-m",
                                      size.c_str(), "--lcores=0", "--no-telemetry", "--log-level=1",
                                      "--no-shconf"};
  std::array<char*, words.size()> arguments{};
  for (size_t i = 0; i < words.size(); ++i) arguments[i] = const_cast<char*>(words[i]);
  if (rte_eal_init(static_cast<int>(arguments.size()), arguments.data()) < 0)
    fail("DPDK cannot start", rte_errno);
}

DpdkAcl::DpdkAcl(std::vector<FiveTuple> const& rules) {
  rte_acl_param param{};
  param.name = "bench";
  param.socket_id = -1;
  param.rule_size = RTE_ACL_RULE_SZ(fields);
  param.max_rule_num = static_cast<uint32_t>(rules.size());
  context_ = rte_acl_create(&param);
  if (!context_) fail("rte_acl_create", rte_errno);
  int32_t priority = RTE_ACL_MAX_PRIORITY;
  for (FiveTuple const& from : rules) {
    Rule rule{};
    rule.data.category_mask = 1;
    rule.data.priority = priority--;
    rule.data.userdata = static_cast<uint32_t>(&from - rules.data()) + 1;
    rule.field[proto].value.u8 = from.proto;
    rule.field[proto].mask_range.u8 = from.protoMask;
    rule.field[src].value.u32 = from.src;
    rule.field[src].mask_range.u32 = from.srcLength;
    rule.field[dst].value.u32 = from.dst;
    rule.field[dst].mask_range.u32 = from.dstLength;
    rule.field[sport].value.u16 = from.sportFirst;
    rule.field[sport].mask_range.u16 = from.sportLast;
    rule.field[dport].value.u16 = from.dportFirst;
    rule.field[dport].mask_range.u16 = from.dportLast;
    int const error = rte_acl_add_rules(context_, reinterpret_cast<rte_acl_rule const*>(&rule), 1);
    if (error) {
      rte_acl_free(context_);
      fail("rte_acl_add_rules", error);
    }
  }
}

DpdkAcl::~DpdkAcl() { rte_acl_free(context_); }

double DpdkAcl::build() {
  rte_acl_config config{};
  config.num_categories = 1;
  config.num_fields = fields;
  std::copy(layout.begin(), layout.end(), config.defs);
  config.max_size = 0;
  double const start = threadSeconds();
  int const error = rte_acl_build(context_, &config);
  double const seconds = threadSeconds() - start;
  if (error) fail("rte_acl_build", error);
  return seconds;
}

}  // namespace Bench
