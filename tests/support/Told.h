#pragma once

/// Does something whenever an entity tells of a change.

#include "mox/Entity.h"

#include <functional>

namespace Test {

template <class Base>
class Told : public Base {
 public:
  Told(Mox::Entity* entity, std::function<void()> act) : act_(std::move(act)) {
    this->notifierIs(entity);
  }
  // Each base has some of these.
  void onKickCount() { act_(); }
  void onKickTime() { act_(); }
  void onKickMessage() { act_(); }
  void onKickProgress() { act_(); }
  void onPrevPDData() { act_(); }
  void onCurrPDData() { act_(); }
  void onGlobalAclControl() { act_(); }
  void onPdResourceConfig() { act_(); }
  void onTableStatus() { act_(); }
  void onStatus() { act_(); }
  void onLastFailedState() { act_(); }

 private:
  std::function<void()> act_;
};

}  // namespace Test
