#include "naxel/loader/Judgement.h"

#include "naxel/loader/PDConfig.h"

namespace Naxel {

bool answers(ResourceStatus const& answer, ResourceConfig const& request) {
  // A table that has never been answered for has the id 0, which no request has.
  if (answer.responseId() != request.requestId()) return false;
  // The requests of one kick share an id, so the state has to tell them apart: right after the load has
  // been requested every table still shows its answer to the acquire.
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
      // The state `failed` does not answer a load, and so this is noted beside the tables that are missing:
      // what a chip does that has lost resources which it had acquired nobody knows.
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
  // First, so that the table that nobody has to answer for is never the one that decides whether the change
  // is hitless.
  examine(PDTable::tcpFlags);
  for (PDTable table : allPDTables())
    if (table != PDTable::tcpFlags) examine(table);
  return all;
}

}  // namespace Naxel
