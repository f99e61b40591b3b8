/// What packets meet, and whose fault it is.

#include "naxel/testing/Judge.h"
#include "naxel/testing/ModelLookup.h"
#include "verify/NaiveLookup.h"
#include "verify/PacketSource.h"

#include <algorithm>

namespace Naxel::Testing {

using Verify::KeyLayout;
using Verify::naiveLookup;
using Verify::Packet;
using Verify::Verdict;

namespace {

Verdict policyVerdict(GlobalAclControl policy) {
  Verdict out;
  out.kind = Verdict::Kind::policy;
  out.policy = policy;
  return out;
}

bool isPolicy(Met const& met) {
  return met.kind == Met::Kind::denyAll || met.kind == Met::Kind::permitAll;
}

}  // namespace

void Judge::drawProbes() {
  constexpr size_t insides = 40;
  constexpr size_t others = 30;
  // Those of the output before tell what is left of it.
  constexpr size_t most = 400;
  std::vector<Probe> before = std::exchange(probes_, {});
  Verify::PacketSource source(acls_, ++draws_);
  std::vector<Packet> packets;
  size_t const stride = source.rules() / insides + 1;
  for (size_t rule = 0; rule < source.rules(); rule += stride)
    if (auto const packet = source.inside(rule)) packets.push_back(*packet);
  for (size_t i = 0; i < others; ++i) packets.push_back(source.next());

  std::set<std::string> names;
  for (auto const& [key, acl] : relay_.libraryConfig->currPDData()->pdAclColl()->pdAcl())
    names.insert(key.aclName());
  for (Output const& output : may_)
    for (auto const& [key, acl] : output->pdAclColl()->pdAcl()) names.insert(key.aclName());
  for (Packet const& packet : packets)
    for (std::string const& name : names)
      probes_.push_back({PDAclKey(packet.af, name), packet, {}});
  for (Probe& probe : before) {
    if (probes_.size() >= most) return;
    probe.meets.clear();
    probes_.push_back(std::move(probe));
  }
}

void Judge::look(Moment moment) {
  if (breach_ || probes_.empty() || (restarted_ && moment != Moment::rest)) return;
  // Between two steps a few take turns.
  constexpr size_t few = 12;
  bool const all = moment != Moment::between && moment != Moment::acquired;
  size_t const packets = all ? probes_.size() : std::min(few, probes_.size());
  for (size_t i = 0; i < packets; ++i) {
    Probe& probe = probes_[all ? i : turn_++ % probes_.size()];
    Met const met = driver_.lookup(probe.key, probe.packet);
    if (met.kind == Met::Kind::untold) continue;
    ++figures_.packets;
    if (!fits(probe, met)) return blame(moment, probe, met);
  }
}

bool Judge::fits(Probe& probe, Met const& met) {
  for (GlobalAclControl policy : mayPolicy_) {
    if (policy != GlobalAclControl::doNotApply) {
      if (agrees(met, policyVerdict(policy))) return true;
      continue;
    }
    for (Output const& output : may_) {
      auto const [at, isNew] = probe.meets.try_emplace(output.get());
      if (isNew) at->second = naiveLookup(*output, KeyLayout::of(*output), probe.key, probe.packet);
      if (agrees(met, at->second)) return true;
    }
  }
  return false;
}

void Judge::blame(Moment moment, Probe const& probe, Met const& met) {
  std::string const seen = text(probe.packet) + " in ACL " + probe.key.aclName() + " (" +
                           Mox::stringValue(probe.key.af()) + ") meets " + text(met);
  GlobalAclControl const policy = *mayPolicy_.begin();
  bool const lifted = mayPolicy_.contains(GlobalAclControl::doNotApply);
  std::string const confirmed = Mox::stringValue(relay_.driverStatus->globalAclControl());
  if (!lifted || isPolicy(met)) {
    if (moment == Moment::policy)
      return fault(Rule::policyInForce, confirmed + " is confirmed, but " + seen);
    if (restarted_)
      return fault(Rule::restartPolicy, confirmed + " is what PDStatus reports, but " + seen);
    if (lifted) return fault(Rule::policyAsAsked, "no such policy was asked for, but " + seen);
    return fault(Rule::policyCovers, Mox::stringValue(policy) + " stands, but " + seen);
  }
  std::vector<Observation> all;
  Output const& output = may_.back();
  for (Probe const& p : probes_) {
    Met const now = driver_.lookup(p.key, p.packet);
    if (now.kind != Met::Kind::untold)
      all.push_back(
          {p.key, p.packet, naiveLookup(*output, KeyLayout::of(*output), p.key, p.packet), now});
  }
  std::string wanted;
  for (Output const& may : may_)
    wanted += (wanted.empty() ? ", must meet " : " or ") +
              text(Testing::lookup(*may, probe.key, probe.packet));
  blameTables(moment, seen + wanted, all);
}

bool Judge::explains(Output const& output, std::vector<Observation> const& all) const {
  return std::ranges::all_of(all, [&](Observation const& o) {
    return agrees(o.met, naiveLookup(*output, KeyLayout::of(*output), o.key, o.packet));
  });
}

void Judge::blameTables(Moment moment, std::string const& seen,
                        std::vector<Observation> const& all) {
  Output const none = pDDataFactory();
  Output const& offered = offered_ ? offered_ : none;
  Output const before = earlier_.empty() ? none : earlier_.back();
  RequestState const asked = request().requestState();
  Diagnosis const found = diagnose(*may_.back(), earlier_, all);
  auto const blamed = [&](Rule rule, std::string const& what) { fault(rule, what + ": " + seen); };

  bool const old = explains(before, all);
  if (moment == Moment::loaded && (old || explains(none, all)))
    return blamed(Rule::loadedInForce,
                  old ? "the output before is still in force" : "nothing is in force");
  if (moment == Moment::superseding && old)
    return blamed(Rule::loadFinishes, "the load before is not in force");
  if (restarted_) return blamed(Rule::restartTables, "after the driver has restarted");
  if (asked == RequestState::load && !complete_)
    return blamed(Rule::hitlessUndisturbed, "while it loads");
  if (moment == Moment::reverted || (asked == RequestState::revert && !complete_)) {
    if (explains(offered, all) || found.words.empty())
      return blamed(Rule::revertRestores,
                    moment == Moment::reverted ? "reverted" : "before the revert is answered");
  } else if (asked == RequestState::acquire) {
    if (explains(offered, all))
      return blamed(Rule::acquireKeeps, "the output that is offered is in force already");
    if (explains(none, all)) return blamed(Rule::acquireKeeps, "nothing is in force any more");
  }
  if (!found.words.empty()) return fault(found.rule, found.words + ": " + seen, found.table);
  bool const offering = asked == RequestState::acquire && moment != Moment::rest;
  blamed(offering && moment != Moment::superseding ? Rule::acquireKeeps : found.rule,
         offering ? "before a load is requested" : "nothing explains it");
}

}  // namespace Naxel::Testing
