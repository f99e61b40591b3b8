#include "answers/Changes.h"
#include "naxel/loader/NaxelLoaderTypes.h"
#include "session/Session.h"
#include "verify/ConfigCopy.h"

namespace NaxelTool {

RowChanges rowChangesOf(RuleSet const& before, RuleSet const& after, ChipSetup const& chip,
                        std::vector<AclNames> const& renamed,
                        std::function<void(std::string const&)> const& step) {
  auto const acls = Naxel::aclConfigCollFactory(chip.capability->chipId());
  Verify::copyAcls(*before.acls(), *acls);
  Session session(chip, acls);
  RowChanges out;
  auto const kick = [&](char const* what) {
    session.stageWatcherIs([&](Naxel::NaxelActiveStage stage) {
      if (step) step(std::string(what) + ": " + Naxel::stringValue(stage));
    });
    bool const success = session.kick();
    session.stageWatcherIs({});
    if (!success) out.failure = session.failureTexts();
    if (!success && out.failure.empty()) out.failure = {session.rootStatus().kickMessage()};
    return success;
  };
  out.isOldTheFailure = !kick("compiling the old rules");
  if (out.isOldTheFailure) return out;
  auto const changed = Naxel::aclConfigCollFactory(chip.capability->chipId());
  for (auto const& [name, acl] : after.acls()->acl()) {
    std::string as = name;
    for (auto const& [old, now] : renamed)
      if (now == name) as = old;
    Verify::copyAcl(*acl, *changed->aclIs(as));
  }
  Verify::copyAcls(*changed, *acls);
  if (!kick("compiling the new rules")) return out;
  out.rows = session.root().loaderStatus()->rows();
  if (auto const policy = session.temporaryPolicy()) {
    out.isHitless = false;
    out.policy = Naxel::stringValue(*policy);
  }
  return out;
}

}  // namespace NaxelTool
