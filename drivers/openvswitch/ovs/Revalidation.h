#pragma once

/// Waiting until cached flows follow new tables, without holding anybody up.
///
/// A switch looks through what it has cached round after round, and answers `revalidator/wait` at the end of the round
/// that is under way. That one may have begun before the tables changed, so only the second answer tells that every
/// cached flow has been held against the new ones.

#include "ovs/Control.h"

namespace NaxelOvs {

class Revalidation {
 public:
  enum class State : uint8_t { running, done, refused };

  /// Begins, when the new tables are in force. Throws SwitchError where nobody answers at the control socket.
  Revalidation(std::string const& controlPath, std::chrono::milliseconds patience);
  /// How far it is by now. `refused`: a switch of several kinds of datapath does not tell. Throws SwitchError where
  /// a round takes longer than our patience.
  State look();

 private:
  void ask();

  std::chrono::milliseconds const patience_;
  Control control_;
  unsigned rounds_ = 2;
  std::chrono::steady_clock::time_point asked_;
};

}  // namespace NaxelOvs
