#include "naxel/loader/Judgement.h"

#include "naxel/loader/PDConfig.h"

namespace Naxel {

bool answers(ResourceStatus const& answer, ResourceConfig const& request) {
  if (answer.responseId() != request.requestId()) return false;
  ResponseState const state = answer.responseState();
  switch (request.requestState()) {
    case RequestState::acquire:
      return state != ResponseState::loaded && state != ResponseState::reverted;
    case RequestState::load: return state == ResponseState::loaded;
    case RequestState::revert: return state == ResponseState::reverted;
  }
  return false;
}

Judgement judge(PDStatus const& status, ResourceConfig const& request) {
  Judgement all;
  bool const acquire = request.requestState() == RequestState::acquire;
  auto const examine = [&](PDTable table) {
    bool const tcpFlags = table == PDTable::tcpFlags;
    ResourceStatus const answer = tableStatus(status, table);
    if (!answers(answer, request)) {
      all.complete = all.complete && tcpFlags;
      if (request.requestState() == RequestState::load && !tcpFlags &&
          answer == ResourceStatus(request.requestId(), ResponseState::failed))
        all.failedLoad = table;
      return;
    }
    ++all.answered;
    if (!acquire) return;
    if (answer.responseState() == ResponseState::failed) return all.refusedBy.push_back(table);
    if (tcpFlags) return;
    all.hitless = answer.responseState() == ResponseState::hitless;
    (all.hitless ? all.hitlessTable : all.hitfulTable) = table;
  };
  examine(PDTable::tcpFlags);
  for (PDTable table : allPDTables())
    if (table != PDTable::tcpFlags) examine(table);
  return all;
}

}  // namespace Naxel
