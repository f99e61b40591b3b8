#include "command/SwitchVerify.h"

#include "output/Verdicts.h"
#include "ovs/Trace.h"
#include "verify/PacketSource.h"
#include "verify/RuleOracle.h"

#include <set>
#include <unordered_set>

namespace NaxelTool {

namespace {

struct AskedAcl {
  explicit AskedAcl(Mox::Ptr<Naxel::AclConfig> const& acl)
      : config(acl), oracle(*acl), report{acl->name(), 0, 0, 0, 0} {
    report.rules = oracle.rules();
  }
  Mox::Ptr<Naxel::AclConfig> config;
  Verify::RuleOracle oracle;
  VerifiedAcl report;
  std::unordered_set<uint32_t> reached;
  /// What leads a packet of the family to this ACL, to be put behind its fields.
  std::string way;
};

/// What a packet is to meet.
struct Wanted {
  NaxelOvs::Exit exit;
  std::optional<unsigned> dscp;
  friend bool operator==(Wanted const&, Wanted const&) = default;
};

std::string wordsOf(Wanted const& wanted) {
  return NaxelOvs::text(wanted.exit) +
         (wanted.dscp ? ", set dscp " + std::to_string(*wanted.dscp) : "");
}

Wanted wantedOf(AskedAcl const& acl, std::optional<Naxel::AceIndex> rule,
                NaxelOvs::Layout const& layout) {
  if (!rule) return {layout.noVerdict, std::nullopt};
  Naxel::NaxelActionValue const& action = acl.config->ruleById(*rule)->action();
  if (action.dropEnabled()) return {{}, std::nullopt};
  std::optional<unsigned> dscp;
  if (action.setDscpEnabled() && layout.next.kind != NaxelOvs::Exit::Kind::drop)
    dscp = action.dscp().value();
  return {layout.next, dscp};
}

std::string wayOf(NaxelOvs::Binding const& binding) {
  switch (binding.by) {
    case NaxelOvs::Binding::By::everything: break;
    case NaxelOvs::Binding::By::inPort: return ",in_port=" + std::to_string(binding.value);
    case NaxelOvs::Binding::By::reg:
      return ",reg" + std::to_string(binding.reg) + "=" + std::to_string(binding.value);
  }
  return {};
}

std::vector<AskedAcl> askedAcls(Naxel::AclConfigColl const& acls, NaxelOvs::Layout const& layout) {
  std::vector<AskedAcl> out;
  out.reserve(acls.acl().size() + layout.bindings.size());
  if (layout.bindings.empty())
    for (auto const& [name, acl] : acls.acl()) out.emplace_back(acl);
  std::set<std::pair<Lumox::AddressFamily, std::string>> taken;
  for (NaxelOvs::Binding const& binding : layout.bindings) {
    auto const acl = acls.acl(binding.acl);
    if (!acl) continue;
    AskedAcl asked(acl);
    asked.way = wayOf(binding);
    // An earlier binding decides for the same packets, or for all.
    bool const shadowed = taken.contains({asked.oracle.af(), {}}) ||
                          !taken.emplace(asked.oracle.af(), asked.way).second;
    if (!shadowed) out.push_back(std::move(asked));
  }
  return out;
}

class Asking {
 public:
  Asking(NaxelOvs::DriverOptions const& options, VerifyReport& report)
      : options_(options), report_(report), control_(pathOf(options.target), options.patience) {}

  static std::string pathOf(NaxelOvs::Target const& target) {
    std::string path = target.controlPath();
    if (path.empty())
      throw NaxelOvs::SwitchError{"no control socket stands beside " + target.management +
                                  "; --control names it"};
    return path;
  }
  /// False where the switch does something else than the rules say, which is then reported.
  bool ask(AskedAcl& acl, Verify::Packet const& packet) {
    auto const rule = acl.oracle.firstMatch(packet);
    Wanted const wanted = wantedOf(acl, rule, options_.layout);
    bool const first = packet.fragment == 0 && report_.packets % 4 == 0;
    std::string const flow = traceText(packet, first) + acl.way;
    auto const traced = NaxelOvs::readTrace(
        control_.run("ofproto/trace", {options_.target.bridge(), flow}), options_.layout);
    if (!traced) throw NaxelOvs::SwitchError{"the switch does not tell what it does with " + flow};
    if (!traced->exit || Wanted{*traced->exit, traced->dscp} != wanted) {
      report_.difference = {
          "difference in ACL " + acl.config->name() + " after " + std::to_string(report_.packets) +
              " packets, seed " + std::to_string(report_.seed),
          flow, text(*acl.config, rule) + ": " + wordsOf(wanted),
          traced->exit ? wordsOf(Wanted{*traced->exit, traced->dscp})
                       : "it passes none of the tables",
          traced->priority ? "priority " + std::to_string(*traced->priority) : "none"};
      return false;
    }
    ++acl.report.packets;
    if (rule) {
      ++acl.report.matched;
      acl.reached.insert(rule->value());
    }
    return true;
  }

 private:
  NaxelOvs::DriverOptions const& options_;
  VerifyReport& report_;
  NaxelOvs::Control control_;
};

}  // namespace

std::string traceText(Verify::Packet const& packet, bool firstFragment) {
  bool const v4 = packet.af == Lumox::ipv4();
  // Fields of a protocol are known behind its name only.
  std::string const protocol = packet.isIcmp()                            ? "icmp"
                               : packet.proto == Verify::Packet::protoTcp ? "tcp"
                               : packet.proto == 17                       ? "udp"
                               : packet.proto == 132                      ? "sctp"
                                                                          : "";
  std::string out = protocol.empty() ? (v4 ? "ip" : "ipv6") : protocol + (v4 ? "" : "6");
  if (protocol.empty()) out += ",nw_proto=" + std::to_string(packet.proto);
  out += (v4 ? ",nw_src=" : ",ipv6_src=") + Verify::addressText(packet.af, packet.src);
  out += (v4 ? ",nw_dst=" : ",ipv6_dst=") + Verify::addressText(packet.af, packet.dst);
  out += ",ip_dscp=" + std::to_string(packet.dscp);
  if (packet.isLaterFragment()) return out + ",nw_frag=later";
  if (firstFragment) out += ",nw_frag=first";
  if (packet.hasPortProtocol())
    out += "," + protocol + "_src=" + std::to_string(packet.sport) + "," + protocol +
           "_dst=" + std::to_string(packet.dport);
  if (packet.isIcmp())
    out += (v4 ? ",icmp_type=" : ",icmpv6_type=") + std::to_string(packet.icmpType);
  if (packet.proto == Verify::Packet::protoTcp)
    out += ",tcp_flags=" + std::to_string(packet.syn * 2 + packet.rst * 4 + packet.ack * 16);
  return out;
}

VerifyReport verifySwitch(Mox::Ptr<Naxel::AclConfigColl> const& acls,
                          NaxelOvs::DriverOptions const& options, uint64_t packets, uint64_t seed,
                          std::function<void(uint64_t)> const& tell) {
  VerifyReport out;
  out.seed = seed;
  auto asked = askedAcls(*acls, options.layout);
  Verify::PacketSource source(*acls, seed);
  Asking asking(options, out);
  // Few of those that are drawn are impossible; rules may be such that all are.
  uint64_t const mostDrawn = packets * 100;
  for (uint64_t drawn = 0; out.packets < packets && drawn < mostDrawn && !asked.empty(); ++drawn) {
    Verify::Packet packet = source.next();
    if (!packet.isPossible()) continue;
    // So it reaches the tables, whatever is in it.
    if (packet.isLaterFragment() && packet.af == Lumox::ipv6())
      packet.proto = NaxelOvs::protoFragment;
    if (tell) tell(out.packets);
    for (AskedAcl& acl : asked)
      if (acl.oracle.af() == packet.af && !asking.ask(acl, packet)) return out;
    ++out.packets;
  }
  for (AskedAcl& acl : asked) {
    acl.report.reached = acl.reached.size();
    out.acls.push_back(std::move(acl.report));
  }
  return out;
}

}  // namespace NaxelTool
