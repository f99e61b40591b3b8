#pragma once

/// The loader's side of the policy that stands in for all ACLs while tables are rewritten: what has been
/// asked of the driver in PDConfig, what it reports in PDStatus, and what follows from the two.
///
/// At most one change is outstanding: a new value is written only once the driver has confirmed the one
/// written last, or has said by itself that another one is in force, and so has forgotten ours. A policy
/// that the driver brought along, when this object was made or later, stays until a load has succeeded. It
/// is written into PDConfig at once, which is no change for the driver: where the two differ a change is
/// outstanding, also for a driver that starts anew and looks for what it has to work off.
///
/// Over a pair in use PDConfig may ask for another policy than PDStatus reports: then the loader before
/// this one has not lived to see the change confirmed, or the driver has restarted with a policy of its
/// own and will never confirm it. A policy that is only asked for is an old change, and taken back when a
/// kick begins. One that is in force may be either, so nothing is made of it until a policy is needed or
/// has to go; then the value that is reported is written first, which takes the old change back if there
/// is one, and the wanted value after it, which is a change in either case.

#include "naxel/loader/PDConfig.h"

#include <optional>
#include <string>

namespace Naxel {

class PolicyExchange {
 public:
  /// What a report of the driver means.
  enum class News : uint8_t {
    confirmed,  ///< what was asked for is in force
    late,       ///< what was asked for before this object was made has been in force meanwhile
    ownPolicy   ///< the driver has done so by itself
  };

  /// Neither entity may be null.
  PolicyExchange(Mox::Ptr<PDConfig> config, Mox::Ptr<PDStatus const> status);

  /// A kick of the loader begins; `permit` chooses its temporary policy.
  void kickBegins(bool permit);
  /// The load has been requested: nothing that the driver brought along needs to stay any more.
  void loadBegins() { untilLoaded_ = false; }
  /// A load or a revert has been answered. What was taken back before it was asked for is through.
  void settled() { superseded_.reset(); }
  /// Nothing is written any more.
  void downIs(bool down) { down_ = down; }

  /// Evaluates a new report.
  News handleReport();
  /// Works towards a policy; true once it is in force and nothing is outstanding.
  bool policyIs(GlobalAclControl wanted);
  /// The policy for a load that disturbs traffic. What the driver has closed by itself is not opened.
  GlobalAclControl temporary() const;
  /// Whether the policy in force stays until a load has succeeded.
  bool untilLoaded() const { return untilLoaded_; }
  /// How often the driver has put a policy of its own in force in this kick.
  unsigned ownPolicies() const { return ownPolicies_; }
  /// True where it has done so as often as it may: one that puts a policy in force whenever one is lifted
  /// would keep the library at it for ever.
  bool isContested() const { return ownPolicies_ >= mostOwnPolicies; }
  /// What an operator must know of a policy that stands; empty where none does.
  std::string caution() const;

 private:
  static constexpr unsigned mostOwnPolicies = 8;

  /// Whether a policy that both sides name may have been asked for by the loader before this one, for a load.
  bool isOfInterruptedLoad() const;
  /// Writes down what is in force.
  void adopt();

  Mox::Ptr<PDConfig> config_;
  Mox::Ptr<PDStatus const> status_;
  bool permit_ = false;
  bool outstanding_ = false;  // a change that this object has asked for will be confirmed
  std::optional<GlobalAclControl> superseded_;  // a change that the one before it has asked for
  bool untilLoaded_ = false;
  bool down_ = false;
  unsigned ownPolicies_ = 0;
};

}  // namespace Naxel
