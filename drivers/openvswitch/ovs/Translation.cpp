#include "ovs/Translation.h"

#include "ovs/EntryFlows.h"

#include <algorithm>
#include <map>
#include <set>

namespace NaxelOvs {

using Lumox::AddressFamily;
using Naxel::PDAclKey;
using Naxel::PDData;

namespace {

constexpr uint16_t policyPriority = 65535;
constexpr uint16_t firstBindingPriority = 60000;

/// One ACL for some packets.
struct Bound {
  Binding binding;
  PDAclKey key;
};

class Translator {
 public:
  Translator(PDData const& data, Layout const& layout)
      : data_(data), layout_(layout), entries_(data, layout) {}

  Translation run() {
    out_.refusal = layoutFault(layout_);
    if (out_.refusal.empty()) bind();
    if (out_.refusal.empty()) number();
    for (auto const& [key, id] : ids_)
      if (out_.refusal.empty()) acl(key, id);
    if (!out_.refusal.empty()) return {out_.refusal, {}, {}};
    out_.flows = labelFlows(data_, layout_, {families_.begin(), families_.end()});
    entryFlows();
    return std::move(out_);
  }

 private:
  void bind() {
    auto const& acls = data_.pdAclColl()->pdAcl();
    if (layout_.bindings.empty())
      for (auto const& [key, acl] : acls) bound_.push_back({{key.aclName()}, key});
    for (Binding const& binding : layout_.bindings) {
      size_t const before = bound_.size();
      for (auto const& [key, acl] : acls)
        if (key.aclName() == binding.acl) bound_.push_back({binding, key});
      if (bound_.size() == before && !layout_.absentAcls)
        out_.refusal = "there is no ACL '" + binding.acl + "' among the rules";
    }
    std::set<AddressFamily> whole;
    for (Bound const& b : bound_) {
      families_.insert(b.key.af());
      if (layout_.bindings.empty() && !whole.insert(b.key.af()).second)
        out_.refusal = "there are several ACLs of " + Mox::stringValue(b.key.af()) +
                       ", and nothing says which packets each is for";
    }
    if (bound_.size() >= firstBindingPriority) out_.refusal = "there are too many bindings of ACLs";
  }

  /// Numbers that depend on the names, so that one more ACL leaves the others as they are.
  void number() {
    std::set<uint32_t> taken = {0};
    std::set<PDAclKey> keys;
    for (Bound const& b : bound_) keys.insert(b.key);
    for (PDAclKey const& key : keys) {
      uint32_t id = 2166136261u;
      for (char c : Mox::stringValue(key.af()) + key.aclName())
        id = (id ^ static_cast<uint8_t>(c)) * 16777619u;
      while (!taken.insert(id).second) ++id;
      ids_.emplace_back(key, id);
    }
  }

  void acl(PDAclKey const& key, uint32_t id) {
    AclFlows flows{id, key.aclName(), {}};
    auto const rules = data_.pdAclColl()->pdAcl(key);
    flows.rules.reserve(rules->rule().size());
    for (auto const& [index, rule] : rules->rule()) {
      std::string fault = entries_.faultOf(rule->action());
      RuleFlows of;
      of.matches.reserve(rule->filters());
      for (auto const& entry : rule->filter())
        if (fault.empty()) fault = entries_.add(entry, key.af(), id, of.matches);
      if (!fault.empty()) {
        out_.refusal =
            "rule " + std::to_string(index.value()) + " of ACL " + key.aclName() + " " + fault;
        return;
      }
      if (of.matches.empty()) continue;
      // Entries that differ only in bits that they do not compare are one.
      std::sort(of.matches.begin(), of.matches.end());
      of.matches.erase(std::unique(of.matches.begin(), of.matches.end()), of.matches.end());
      of.instructions = instructionsOf(rule->action());
      flows.rules.push_back(std::move(of));
    }
    out_.acls.push_back(std::move(flows));
  }

  std::string instructionsOf(Naxel::NaxelActionValue const& action) const {
    if (action.dropEnabled()) return {};
    return action.setDscpEnabled() ? leave(layout_.next, action.dscp()) : leave(layout_.next);
  }

  void add(Stage stage, uint16_t priority, std::string match, std::string instructions) {
    out_.flows.push_back(
        {layout_.table(stage), priority, std::move(match), std::move(instructions)});
  }

  void entryFlows() {
    add(Stage::entry, 0, {}, leave(layout_.notIp));
    for (AddressFamily af : {Lumox::ipv4(), Lumox::ipv6()})
      add(Stage::entry, 1, MatchBuilder().add(MatchField::ethType, etherType(af)).bytes(),
          leave(layout_.noAcl));
    add(Stage::acl, 0, {}, leave(layout_.noVerdict));
    std::map<PDAclKey, uint32_t> const ids(ids_.begin(), ids_.end());
    for (size_t i = 0; i < bound_.size(); ++i) {
      auto const& [binding, key] = bound_[i];
      MatchBuilder match;
      if (binding.by == Binding::By::inPort) match.add(MatchField::inPort, binding.value);
      match.add(MatchField::ethType, etherType(key.af()));
      if (binding.by == Binding::By::reg) match.add(registerField(binding.reg), binding.value);
      add(Stage::entry, static_cast<uint16_t>(firstBindingPriority - i), match.bytes(),
          loadAndGo(layout_.aclSlot(), ids.at(key), layout_.table(Stage::source)));
    }
  }

  PDData const& data_;
  Layout const& layout_;
  EntryFlows entries_;
  std::vector<Bound> bound_;
  std::set<AddressFamily> families_;
  std::vector<std::pair<PDAclKey, uint32_t>> ids_;  // by key
  Translation out_;
};

}  // namespace

Translation translate(PDData const& data, Layout const& layout) {
  return Translator(data, layout).run();
}

std::vector<Flow> policyFlows(Naxel::GlobalAclControl policy, Layout const& layout) {
  if (policy == Naxel::GlobalAclControl::doNotApply) return {};
  bool const permit = policy == Naxel::GlobalAclControl::permitAll;
  return {
      {layout.table(Stage::entry), policyPriority, {}, permit ? leave(layout.next) : leave({})}};
}

void setWidths(Naxel::ChipHwCapability& capability) {
  for (Naxel::RangeSetType type : Naxel::allRangeSetTypes()) capability.rangeXformWidthIs(type, 16);
}

}  // namespace NaxelOvs
