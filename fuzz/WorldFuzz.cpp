/// Whole configurations: widths, ACLs and rules of a small vocabulary, in which prefixes, ranges and
/// their ends collide, with a few wild values. One kick; after a success the tables must give every
/// probed packet the verdict of the rules.

#include "Bytes.h"
#include "Check.h"
#include "Intervals.h"
#include "mox/Trace.h"
#include "softchip/LoadedTables.h"
#include "softchip/NaiveLookup.h"
#include "softchip/PacketSource.h"
#include "softchip/RuleOracle.h"
#include "support/World.h"

#include <algorithm>
#include <array>

using namespace Naxel;

namespace {

/// A world made of bytes, and whether anything in it entitles the kick to fail.
class Made {
 public:
  explicit Made(Fuzz::Bytes in) : in_(in) {
    widths();
    driver();
    for (unsigned rules = 0; rules < 12 && !in_.atEnd(); ++rules) {
      if (rules == 0 || in_.oneIn(6)) nextAcl();
      rule();
    }
  }

  Test::World world;
  bool mayFail = false;
  SoftChip::MissYields missYields = SoftChip::MissYields::nothing;

 private:
  void widths() {
    static constexpr uint8_t some[] = {16, 1, 2, 3, 4, 6, 8, 16};
    auto const width = [&] {
      uint8_t const w = in_.of(some);
      if (w != 16) mayFail = true;
      return w;
    };
    // A range without width is raw, a combination without width is not made; neither can overflow.
    auto const widthOrNone = [&] { return in_.below(2) ? width() : uint8_t{0}; };
    ChipHwCapability& c = *world.capability;
    for (PrefixXformKey const& key : PrefixXformKey::all()) c.prefixXformWidthIs(key, width());
    for (RangeSetType type : allRangeSetTypes()) c.rangeXformWidthIs(type, widthOrNone());
    for (ComboLabelSetType type : allComboLabelSetTypes()) c.comboXformWidthIs(type, widthOrNone());
  }

  void driver() {
    uint8_t const b = in_.byte();
    if (b & 1) missYields = SoftChip::MissYields::highest;
    if (b & 2) world.params->permitDuringUpdateIs(true);
    world.driver.acquireAnswer = b & 4 ? ResponseState::hitful : ResponseState::hitless;
    if (b < 0xf0) return;
    world.driver.acquireAnswer = ResponseState::failed;
    mayFail = true;
  }

  void nextAcl() {
    acl_ = world.acls->aclIs(std::string(1, static_cast<char>('a' + acls_++)));
    af_ = in_.oneIn(3) ? Lumox::ipv6() : Lumox::ipv4();
    acl_->afIs(af_);
  }

  void rule() {
    auto const r = acl_->ruleByNameIs("r" + std::to_string(acl_->ruleByName().size()));
    // A rule may take the place of another one, or stand at several indexes.
    acl_->ruleByIdIs(index(), r);
    if (in_.oneIn(16)) acl_->ruleByIdIs(index(), r);
    auto const what = in_.word(2);
    NaxelActionValue action;
    action.dropEnabledIs(what & 1);
    action.logEnabledIs(what & 2);
    r->actionIs(action);
    if (!(what >> 2)) return;
    RuleFilter& f = *r->ruleFilterIs();
    auto const has = [&](unsigned bit) { return what >> bit & 1; };
    entries_ = 1;
    if (has(2)) f.sourceIs(list());
    if (has(3)) f.destinationIs(list());
    if (has(4))
      ranges<L4PortRange>(RangeSetType::srcPort, [&](auto const& v) { f.sportRangeIs(v); });
    if (has(5))
      ranges<L4PortRange>(RangeSetType::dstPort, [&](auto const& v) { f.dportRangeIs(v); });
    if (has(6)) ranges<ProtoRange>(RangeSetType::proto, [&](auto const& v) { f.protoIs(v); });
    if (has(7)) ranges<IcmpTypeRange>(RangeSetType::icmp, [&](auto const& v) { f.icmpTypeIs(v); });
    if (has(8)) ranges<LengthRange>(RangeSetType::length, [&](auto const& v) { f.lengthIs(v); });
    if (has(9))
      ranges<FragmentRange>(RangeSetType::fragment, [&](auto const& v) { f.fragmentIs(v); });
    if (has(10)) ranges<DscpRange>(RangeSetType::dscp, [&](auto const& v) { f.dscpIs(v); });
    f.matchTcpInitIs(has(11));
    f.matchTcpEstablishedIs(has(12));
    if (has(13)) f.protoIs({SoftChip::Packet::protoTcp, SoftChip::Packet::protoTcp});
  }

  AceIndex index() {
    unsigned const b = in_.byte();
    return AceIndex(b < 0xff ? b & 15 : AceIndex::null);
  }

  /// A list of this rule, or one that stands in other rules as well.
  Mox::Ptr<IpPrefixList> list() {
    unsigned const b = in_.byte();
    auto& shared = shared_[af_ == Lumox::ipv6()];
    if (b >= 0xc0 && !shared.empty()) return shared[b % shared.size()];
    auto const out = Mox::makePtr<IpPrefixList>();
    unsigned const members = b & 3;
    unsigned const exceptions = std::max(b >> 2 & 3, members == 0 ? 1u : 0u);
    for (unsigned i = 0; i < members; ++i) out->addrIs(prefix());
    for (unsigned i = 0; i < exceptions; ++i) out->exceptAddrIs(prefix());
    shared.push_back(out);
    return out;
  }

  /// Mostly three bits below a fixed byte, cut at lengths 8 to 11; then the same at the lowest bits
  /// and around the middle word, which is where IPv6 prefixes change words; then anything.
  Lumox::IpGenPrefix prefix() {
    bool const four = af_ == Lumox::ipv4();
    unsigned const bits = four ? 32 : 128;
    unsigned const b = in_.byte();
    uint64_t const three = b & 7;
    unsigned const cut = b >> 3 & 3;
    switch (b >> 5) {
      default: return prefixOf(0x0a00000000000000u | three << 53, b & 64 ? 0x1234 : 0, 8 + cut);
      case 4:
        return four ? prefixOf((three | 0x0a000100) << 32, 0, bits - 3 + cut % 4)
                    : prefixOf(0x2001000000000000u, three, bits - 3 + cut % 4);
      case 5:
        return four ? prefixOf(three << 61, 0, cut)
                    : prefixOf(0x20010000000000fcu | three >> 1, three << 63, 62 + cut);
      case 6: {
        // The first and last addresses there are.
        uint64_t const all = b & 1 ? ~uint64_t{0} : 0;
        static constexpr unsigned lengths[] = {0, 1, 2, 31};
        return prefixOf(all, all, b & 2 ? bits - cut : lengths[cut]);
      }
      case 7: {
        uint64_t const hi = in_.word(4) << 32;
        return prefixOf(hi, four ? 0 : in_.word(2), in_.below(bits + 1));
      }
    }
  }
  Lumox::IpGenPrefix prefixOf(uint64_t hi, uint64_t lo, unsigned length) const {
    auto const l = static_cast<uint8_t>(length);
    return af_ == Lumox::ipv4() ? Lumox::IpGenPrefix::v4(static_cast<uint32_t>(hi >> 32), l)
                                : Lumox::IpGenPrefix::v6(hi, lo, l);
  }

  /// A field is left alone where the rule would become many entries: that takes long, and finds
  /// nothing that few do not.
  template <class Range, class Add>
  void ranges(RangeSetType type, Add add) {
    std::vector<Range> all;
    do {
      uint32_t first = value(Range::bound);
      uint32_t last = in_.oneIn(3) ? first : value(Range::bound);
      if (first > last) std::swap(first, last);
      all.emplace_back(first, last);
    } while (all.size() < 3 && in_.oneIn(3));
    uint64_t cost = NaxelTool::coverSize(NaxelTool::valuesOf(all), NaxelTool::rangeBits<Range>());
    if (world.capability->rangeXformWidth(type)) cost = std::min<uint64_t>(cost, 3);
    if (entries_ * cost > 100) return;
    entries_ *= cost;
    for (Range const& r : all) add(r);
  }
  /// Near the start, near the end, around powers of two, or anything.
  uint32_t value(uint32_t bound) {
    unsigned const b = in_.byte();
    if (b < 0x80) return std::min(b & 15u, bound);
    if (b < 0xa0) return bound - std::min(b & 3u, bound);
    if (b < 0xe0) return std::min((1u << (b >> 2 & 15)) - (b & 1), bound);
    return static_cast<uint32_t>(in_.word(2)) & bound;
  }

  Fuzz::Bytes in_;
  Mox::Ptr<AclConfig> acl_;
  unsigned acls_ = 0;
  uint64_t entries_ = 1;  // of the rule that is being made, about
  Lumox::AddressFamily af_ = Lumox::ipv4();
  std::array<std::vector<Mox::Ptr<IpPrefixList>>, 2> shared_;  // by family
};

class Verdicts {
 public:
  explicit Verdicts(Made const& made)
      : world_(made.world),
        layout_(SoftChip::KeyLayout::of(*world_.capability, made.missYields)),
        loaded_(world_.pdConfig->currPDData(), layout_) {}

  void check() {
    for (std::string const& breach : outputBreaches(world_.tables(), layout_)) Fuzz::fail(breach);
    SoftChip::PacketSource source(*world_.acls, 1);
    for (size_t i = 0; i < source.rules(); ++i)
      if (auto const packet = source.inside(i)) check(*packet);
    for (int i = 0; i < 30; ++i) check(source.next());
  }

 private:
  void check(SoftChip::Packet const& packet) {
    for (auto const& [name, acl] : world_.acls->acl()) {
      PDAclKey const key(SoftChip::familyOf(*acl), name);
      auto const expected = SoftChip::firstMatch(*acl, packet);
      auto const got = SoftChip::naiveLookup(world_.tables(), layout_, key, packet);
      if (got != loaded_.lookup(key, packet)) differ(*acl, packet, "the two lookups differ");
      bool const hit = got.kind == SoftChip::Verdict::Kind::rule;
      if (hit != expected.has_value() || (hit && got.rule != *expected))
        differ(*acl, packet,
               "tables: " + text(got) +
                   "\nrules: " + (expected ? Mox::valueToStrep(*expected) : "none"));
      if (hit && got.action != acl->ruleById(got.rule)->action())
        differ(*acl, packet, "another action: " + text(got));
    }
  }
  [[noreturn]] void differ(AclConfig const& acl, SoftChip::Packet const& packet,
                           std::string const& what) const {
    Fuzz::fail(acl.name() + ": " + text(packet) + "\n" + what + "\n" + Test::dump(world_.tables()));
  }

  Test::World const& world_;
  SoftChip::KeyLayout layout_;
  SoftChip::LoadedTables loaded_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  static bool const silent = (Mox::traceSinkIs({}), true);
  Fuzz::expect(silent, "");
  Made made(Fuzz::Bytes(data, size));
  NaxelProgress const progress = made.world.kick();
  if (progress == NaxelProgress::naxelFinishedSuccess) {
    Verdicts(made).check();
  } else {
    Fuzz::expect(progress == NaxelProgress::naxelFinishedFail, "the kick did not end");
    Fuzz::expect(!made.world.failureText().empty(), "a failure without a reason");
    Fuzz::expect(made.mayFail, "a failure without need: " + made.world.failureText());
  }
  Fuzz::expect(made.world.pdStatus->globalAclControl() == GlobalAclControl::doNotApply,
               "a policy is left behind");
  return 0;
}
