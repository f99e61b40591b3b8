#pragma once

/// What every driver of a chip needs: the order in which requests and policies are worked off, what a newer
/// request does to an older one, taking over a pair that is in use, and writes that may bring the next
/// request while they are made. The contract stands at the head of loader/PDConfig.h.
///
/// A driver derives from this class and overrides what touches the chip. Each of these calls may answer at
/// once, by answerAll() and confirmPolicy(), or later, when the chip is through; none is made from within
/// another one. Until a load has been answered no other request comes, whatever the library asks for
/// meanwhile; an acquire or a revert may be superseded by a newer request. A driver that answers later says
/// by its id which request it answers: what comes for a superseded one is dropped. No load and no revert
/// begins while a policy is unconfirmed.
///
///     class MyDriver : public Naxel::Driver {
///       void acquire(Offer const& offer) override {
///         bool const ok = fits(*offer.next);
///         answerAll(ok ? Naxel::ResponseState::hitless : Naxel::ResponseState::failed, "full");
///       }
///       void load(Offer const& offer) override { ...; answerAll(Naxel::ResponseState::loaded); }
///       void revert(Offer const& offer) override { ...; answerAll(Naxel::ResponseState::reverted); }
///       void policy(Naxel::GlobalAclControl wanted) override { ...; confirmPolicy(); }
///     };

#include "naxel/loader/PDConfig.h"

#include <memory>
#include <optional>
#include <string>

namespace Naxel {

class NAXEL_EXPORT Driver {
 public:
  /// Neither may be null. Nothing is done before start().
  Driver(Mox::Ptr<PDConfig> config, Mox::Ptr<PDStatus> status);
  Driver(Driver const&) = delete;
  Driver& operator=(Driver const&) = delete;
  virtual ~Driver();

  /// Begins: calls restore() where the pair has been in use, then works off what is not confirmed or
  /// answered. To be called once, when the derived object is complete; a driver that starts with a policy of
  /// its own calls reportPolicy() before.
  void start();

  PDConfig const& config() const { return *config_; }
  PDStatus const& status() const { return *status_; }
  /// The request that has been passed on and is not answered; none while there is nothing to do.
  std::optional<ResourceConfig> const& request() const { return asked_; }

 protected:
  struct Offer {
    Mox::Seconds id;
    Mox::Ptr<PDData const> next;  ///< what is offered, to be loaded, or to be in force again
    /// What the chip holds: what was last asked to be loaded, or to be restored.
    Mox::Ptr<PDData const> current;
  };

  /// Find resources for the whole of `next`: answer hitless, hitful or failed. What an earlier acquire has
  /// reserved and no load has used is free again.
  virtual void acquire(Offer const& offer) = 0;
  /// Put `next` in force: answer loaded. It must not fail.
  virtual void load(Offer const& offer) = 0;
  /// See to it that `next`, the output of before, is completely in force: answer reverted.
  virtual void revert(Offer const& offer) = 0;
  /// Put a policy in force, or lift it (`doNotApply`): confirm it. Not called again before that, whatever is asked for
  /// meanwhile; an acquire may come.
  virtual void policy(GlobalAclControl wanted) = 0;
  /// Over a pair in use: put in force what should be, before anything else is worked off. To be complete when it
  /// returns, however slow the chip; status().globalAclControl() is to be in the chip before, which after a reset is
  /// not there by itself.
  virtual void restore(Mox::Ptr<PDData const> const& inForce) { static_cast<void>(inForce); }

  /// Answers the present request for all tables. `failed` refuses an acquire, for `table` and with the reason
  /// in words; the other tables then say that they would be hitless. The next call may come within this
  /// one, so own bookkeeping is done before. Returns false where the request has been superseded, before or while the tables were written, where there is none, or where the outcome is no
  /// answer to it: `reverted` to an acquire is about the revert before.
  bool answerAll(ResponseState outcome, std::string const& reason = {},
                 PDTable table = PDTable::aclEntries);
  /// The same where the present request has this id; otherwise nothing is answered.
  bool answerAll(Mox::Seconds id, ResponseState outcome, std::string const& reason = {},
                 PDTable table = PDTable::aclEntries) {
    return asked_ && asked_->requestId() == id && answerAll(outcome, reason, table);
  }
  /// The policy that policy() was called for is in force.
  void confirmPolicy();
  /// A policy that nobody asked for is in force; a change that is not confirmed is dropped. The library takes
  /// the policy over. Where none is there to do so, what stands in PDConfig is put in force again, but not
  /// over a pair that has never been in use: there the policy waits for a library.
  void reportPolicy(GlobalAclControl policy);

 private:
  class Watch;
  class Working;
  struct Load {
    ResourceConfig request;
    Offer offer;
  };
  void handleRequest();
  void handleChange();
  bool policyStep();
  bool requestStep();
  bool loadStep();
  void takeOver();
  Offer present() const;
  void inForceIs(GlobalAclControl policy);

  Mox::Ptr<PDConfig> config_;
  Mox::Ptr<PDStatus> status_;
  std::unique_ptr<Watch> watch_;
  std::optional<ResourceConfig> asked_;     // passed on and not answered
  ResourceConfig answered_;                 // the last one
  std::optional<Load> load_;                // requested, and not passed on yet
  ResourceConfig takenOver_;                // what stood at the start
  std::optional<GlobalAclControl> wanted_;  // passed on and not confirmed
  // What stood in a new PDConfig when the driver put a policy in force by itself, until that changes.
  std::optional<GlobalAclControl> overruled_;
  bool started_ = false;
  bool working_ = false;  // calls and writes are under way
};

}  // namespace Naxel
