#include "input/text/PositionedList.h"

#include <algorithm>
#include <iterator>

namespace NaxelTool {

void PositionedList::lineIs(uint64_t position, Line line) {
  Line const* const before = last();
  uint64_t const next = inserted_ ? lines_ + 1 : (before ? before->number + 1 : 1);
  if (!line.isRemark) ++entries_;
  ++lines_;
  lastLine = line.words.line();
  if (position == 0 || position >= next) {
    line.number = position ? position : next;
    if (chunks_.empty() || chunks_.back().size() >= chunkSize) chunks_.emplace_back();
    chunks_.back().push_back(std::move(line));
    return;
  }
  inserted_ = true;
  size_t rest = static_cast<size_t>(position - 1);
  size_t i = 0;
  while (i + 1 < chunks_.size() && rest > chunks_[i].size()) rest -= chunks_[i++].size();
  auto& chunk = chunks_[i];
  rest = std::min(rest, chunk.size());
  chunk.insert(chunk.begin() + static_cast<std::ptrdiff_t>(rest), std::move(line));
  if (chunk.size() < 2 * chunkSize) return;
  auto const half = chunk.begin() + chunkSize;
  std::vector<Line> second(std::make_move_iterator(half), std::make_move_iterator(chunk.end()));
  chunk.erase(half, chunk.end());
  chunks_.insert(chunks_.begin() + static_cast<std::ptrdiff_t>(i) + 1, std::move(second));
}

bool PositionedList::entryDel(Words words) {
  std::string const text = sameText(words);
  for (auto chunk = chunks_.begin(); chunk != chunks_.end(); ++chunk)
    for (auto line = chunk->begin(); line != chunk->end(); ++line) {
      if (line->isRemark || sameText(line->words) != text) continue;
      chunk->erase(line);
      if (chunk->empty()) chunks_.erase(chunk);
      --lines_;
      --entries_;
      inserted_ = true;
      return true;
    }
  return false;
}

}  // namespace NaxelTool
