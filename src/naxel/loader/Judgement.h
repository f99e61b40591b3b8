#pragma once

/// What the answers of all tables come to, for one request. The loader decides by nothing else: it looks at
/// the present statuses whenever one of them changes, so the order in which a driver answers, or answers
/// to older requests in between, cannot matter.

#include "naxel/loader/PDTable.h"
#include "naxel/loader/PDTypes.h"

#include <optional>
#include <vector>

namespace Naxel {

/// True if the answer is one to this request: it carries the request's id, and its state is one of those
/// that the request asks for (`failed` answers an acquire, but neither a load nor a revert).
bool answers(ResourceStatus const& answer, ResourceConfig const& request);

struct Judgement {
  /// Every table has answered; the one for TCP flags need not.
  bool complete = true;
  /// Tables that have answered, the one for TCP flags included.
  size_t answered = 0;
  /// The tables that refuse an acquire, the one for TCP flags first.
  std::vector<PDTable> refusedBy;
  /// Whether the change disturbs no traffic: as the table says that is examined last, because a driver
  /// answers alike for all of them. True where none says anything.
  bool hitless = true;
  /// A table of either kind where a driver has broken that rule.
  std::optional<PDTable> hitlessTable;
  std::optional<PDTable> hitfulTable;
  /// A table that fails to load what it has acquired.
  std::optional<PDTable> failedLoad;

  bool isMixed() const { return hitlessTable && hitfulTable; }
};

/// Looks at the answers of all tables as they stand now. It has no memory: the same statuses and request
/// give the same result.
Judgement judge(PDStatus const& status, ResourceConfig const& request);

}  // namespace Naxel
