#include "answers/FileClassifier.h"

#include "output/Verdicts.h"

#include <bit>

namespace NaxelTool {

void WhyNotTally::take(Verify::Packet const& packet, std::optional<Naxel::AceIndex> decides) {
  ++packets;
  if (decides == rule) {
    ++decided;
    return;
  }
  uint64_t const unmet = demands.unmet(packet);
  for (size_t i = 0; i < count.size(); ++i) {
    if (!(unmet >> i & 1)) continue;
    ++count[i].unmet;
    count[i].alone += std::has_single_bit(unmet);
  }
  if (!unmet && decides) ++takenBy[decides->value()];
}

FileClassifier::FileClassifier(Session& session, RuleSet const& rules, PacketFiles const& files,
                               std::string only, std::vector<RuleTarget> const& targets)
    : session_(session), rules_(rules), files_(files), only_(std::move(only)) {
  for (auto const& [name, acl] : session.acls()->acl()) {
    if (!only_.empty() && only_ != name) continue;
    AclTally* const tally = acls_.emplace_back(std::make_unique<AclTally>(acl)).get();
    byName_.emplace(name, tally);
    byFamily_[static_cast<size_t>(tally->key.af())].push_back(tally);
    for (RuleTarget const& target : targets)
      if (target.acl == name)
        tally->whyNot.push_back({target.rule, RuleDemands(*acl->ruleById(target.rule),
                                                          tally->key.af(), rules.lists())});
  }
}

void FileClassifier::run(Listener const& listener, Diagnostics& diagnostics) {
  files_.walk(*session_.acls(), only_, diagnostics, [&](size_t file) {
    PacketSink sink;
    sink.take = [this, file, &listener](FilePacket const& packet) { take(file, packet, listener); };
    sink.leaveOut = [this, file, &listener](size_t number, std::string const& reason) {
      leaveOut(file, number, reason, listener);
    };
    return sink;
  });
}

void FileClassifier::take(size_t file, FilePacket const& packet, Listener const& listener) {
  if (!packet.acl.empty()) {
    auto const named = byName_.find(packet.acl);
    if (named == byName_.end())
      return leaveOut(file, packet.number, "meant for an ACL that is not looked at", listener);
    ++classified_;
    return lookUp(file, packet, *named->second, listener);
  }
  auto const& acls = byFamily_[static_cast<size_t>(packet.packet.af)];
  if (acls.empty())
    return leaveOut(file, packet.number,
                    packet.packet.af == Lumox::ipv4() ? "of IPv4, without an ACL for it"
                                                      : "of IPv6, without an ACL for it",
                    listener);
  ++classified_;
  for (AclTally* const acl : acls) lookUp(file, packet, *acl, listener);
}

void FileClassifier::leaveOut(size_t file, size_t number, std::string const& reason,
                              Listener const& listener) {
  // A capture may be made to hold frames of all EtherTypes.
  constexpr size_t reasonsKept = 40;
  ++leftOutInAll_;
  bool const kept = leftOut_.size() < reasonsKept || leftOut_.contains(reason);
  ++leftOut_[kept ? reason : "for other reasons"];
  listener.leftOut(file, number, reason);
}

void FileClassifier::lookUp(size_t file, FilePacket const& packet, AclTally& acl,
                            Listener const& listener) {
  PacketVerdict verdict{file, packet, acl, acl.oracle.firstMatch(packet.packet), {}, true, false};
  verdict.found = session_.softChip().lookup(acl.key, packet.packet);
  verdict.agrees = agree(*acl.config, verdict.rule, verdict.found);
  ++acl.packets;
  if (verdict.rule) {
    ++acl.matched;
    ++acl.hits[verdict.rule->value()];
  }
  for (WhyNotTally& tally : acl.whyNot) tally.take(packet.packet, verdict.rule);
  if (packet.drawnFrom) {
    ++fromTraces_;
    verdict.later = isLater(acl, verdict.rule, *packet.drawnFrom);
  }
  differences_ += !verdict.agrees;
  later_ += verdict.later;
  listener.verdict(verdict);
}

/// A trace counts the entries of the source, of which a reader may make several rules each.
bool FileClassifier::isLater(AclTally const& acl, std::optional<Naxel::AceIndex> rule,
                             uint32_t drawnFrom) const {
  if (!rule) return true;
  RuleOrigin const* const origin = rules_.origin(acl.config->name(), *rule);
  return (origin ? origin->entry : rule->value()) > drawnFrom;
}

}  // namespace NaxelTool
