#include "ovs/Revalidation.h"

namespace NaxelOvs {

Revalidation::Revalidation(std::string const& controlPath, std::chrono::milliseconds patience)
    : patience_(patience), control_(controlPath, patience) {
  ask();
}

void Revalidation::ask() {
  control_.ask("revalidator/wait", {});
  asked_ = std::chrono::steady_clock::now();
}

Revalidation::State Revalidation::look() {
  auto const reply = control_.reply();
  if (!reply) {
    if (std::chrono::steady_clock::now() - asked_ < patience_) return State::running;
    throw SwitchError{"cached flows have not followed the tables for " +
                      std::to_string(patience_.count()) + " ms"};
  }
  if (!reply->error.empty()) return State::refused;
  if (--rounds_ == 0) return State::done;
  ask();
  return State::running;
}

}  // namespace NaxelOvs
