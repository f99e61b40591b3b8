#include "input/text/NumberedList.h"

namespace NaxelTool {

NumberedList::Line const* NumberedList::line(uint64_t number) const {
  auto const found = lines_.find(number);
  return found == lines_.end() ? nullptr : &found->second;
}

void NumberedList::lineIs(uint64_t number, Line line) {
  lastLine = line.words.line();
  if (!line.isRemark) {
    ++entries_;
    line.remarks = std::move(pending_);
    pending_.clear();
    if (numbers_) numbers_->emplace(sameText(line.words), number);
  }
  lines_.emplace(number, std::move(line));
}

void NumberedList::lineDel(uint64_t number) {
  auto const found = lines_.find(number);
  if (found == lines_.end()) return;
  if (!found->second.isRemark) {
    --entries_;
    if (numbers_) {
      auto const [from, to] = numbers_->equal_range(sameText(found->second.words));
      for (auto i = from; i != to; ++i)
        if (i->second == number) {
          numbers_->erase(i);
          break;
        }
    }
  }
  lines_.erase(found);
}

std::optional<uint64_t> NumberedList::sameEntry(Words words) {
  if (!numbers_) {
    numbers_.emplace();
    for (auto const& [number, line] : lines_)
      if (!line.isRemark) numbers_->emplace(sameText(line.words), number);
  }
  auto const found = numbers_->find(sameText(words));
  return found == numbers_->end() ? std::nullopt : std::optional(found->second);
}

std::string descriptionOf(std::vector<Words> const& remarks) {
  std::string out;
  for (Words const& remark : remarks) out.append(out.empty() ? "" : "\n").append(remark.rest());
  return out;
}

}  // namespace NaxelTool
