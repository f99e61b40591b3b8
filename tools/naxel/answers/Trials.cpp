#include "answers/Trials.h"

#include "mox/Bounded.h"
#include "output/TcamBits.h"

namespace NaxelTool {

using SoftChip::Table;

namespace {

/// The same chip with tables that take everything, at once.
ChipSetup unlimited(ChipSetup const& chip) {
  ChipSetup out = copyOf(chip);
  out.softChip = {};
  return out;
}

/// Bits that a row of a table matches; those of ACL entries differ by ACL.
uint64_t rowBits(Table table, KeyBits const& keys) {
  auto const both = [&](Lumox::AddressFamily af, Verify::Field src, Verify::Field dst) {
    return uint64_t{keys.field(af, src)} + keys.field(af, dst);
  };
  namespace Fields = Verify::Fields;
  switch (table) {
    case Table::v4Source:
    case Table::v4Destination: return 32;
    case Table::v6Source:
    case Table::v6Destination: return 128;
    case Table::v4PrefixCombo: return both(Lumox::ipv4(), Fields::source, Fields::destination);
    case Table::v6PrefixCombo: return both(Lumox::ipv6(), Fields::source, Fields::destination);
    case Table::portCombo: return both(Lumox::ipv4(), Fields::sport, Fields::dport);
    case Table::tcpFlags:
    case Table::aclEntries: return 0;
    default: {
      auto const first = static_cast<size_t>(Table::srcPort);
      return uint64_t{2} * Naxel::rangeFields[static_cast<size_t>(table) - first].bits;
    }
  }
}

}  // namespace

uint64_t TableSizes::allBits() const {
  uint64_t out = 0;
  for (Table const t : Naxel::allPDTables()) out = Mox::boundedSum(out, bits[t]);
  return out;
}

TableSizes sizesOf(Naxel::PDData const& data) {
  KeyBits const keys(data);
  TableSizes out;
  for (Table const t : Naxel::allPDTables()) {
    out.rows[t] = Naxel::tableEntries(data, t);
    out.bits[t] = out.rows[t] * rowBits(t, keys);
  }
  for (auto const& [key, acl] : data.pdAclColl()->pdAcl())
    out.bits[Table::aclEntries] += uint64_t{keys.of(*acl)} * acl->numFilters();
  return out;
}

ChipSetup copyOf(ChipSetup const& chip) {
  ChipSetup out = chip;
  out.capability = Mox::makePtr<Naxel::ChipHwCapability>(chip.capability->chipId());
  out.capability->valuesIs(*chip.capability);
  return out;
}

Trials::Trials(ChipSetup const& chip, Mox::Ptr<Naxel::AclConfigColl> acls)
    : session_(unlimited(chip), std::move(acls)) {}

bool Trials::kick(ChipSetup const& chip) {
  ++kicks_;
  session_.setupIs(chip);
  sizes_.reset();
  if (!session_.kick()) return false;
  sizes_ = sizesOf(session_.data());
  return true;
}

void RulesTakenOut::takeOut(std::string const& acl, Naxel::AceIndex rule) {
  Mox::Ptr<Naxel::AclConfig> const config = acls_.acl(acl);
  Mox::Ptr<Naxel::RuleConfig> const known = config ? config->ruleById(rule) : nullptr;
  if (!known) return;
  rules_.push_back({config, rule, known});
  config->ruleByIdDel(rule);
}

RulesTakenOut::~RulesTakenOut() {
  for (Rule const& r : rules_) r.acl->ruleByIdIs(r.index, r.rule);
}

}  // namespace NaxelTool
