#include "mox/Facts.h"

#include "mox/Entity.h"

namespace Mox {

void FactWriter::write(std::string_view head, Entity const* e) {
  path_ = head;
  if (e) entity(*e);
}

void FactWriter::homeIs(Entity const* e, std::string_view head) {
  if (e) homes_.try_emplace(e, head);
}

void FactWriter::time(Seconds t) {
  size_t const end = path_.size();
  path_ += " = ";
  appendTime(t);
  emit(end);
}

void FactWriter::appendTime(Seconds t) {
  if (t == 0) {
    path_ += "none";
    return;
  }
  auto const found = std::find(times_.begin(), times_.end(), t);
  size_t const number = static_cast<size_t>(found - times_.begin()) + 1;
  if (found == times_.end()) times_.push_back(t);
  path_ += "kick#";
  path_ += std::to_string(number);
}

void FactWriter::emit(size_t end) {
  constexpr size_t separator = 3;  // " = "
  bool const repeats = knownAt_ != 0 && end == knownAt_ && path_.size() > end &&
                       std::string_view(path_).substr(end + separator) == std::string_view(known_);
  if (!repeats) {
    path_ += '\n';
    out_.write(path_.data(), static_cast<std::streamsize>(path_.size()));
    ++lines_;
  }
  path_.resize(end);
}

void FactWriter::entity(Entity const& e) {
  size_t const end = path_.size();
  if (e.references() > 1) {
    auto const [home, isFirst] = homes_.try_emplace(&e, path_);
    if (!isFirst && home->second != path_) {
      path_ += " = see " + home->second;
      return emit(end);
    }
  }
  types_.insert(e.fwkType());
  std::string const key =
      path_.ends_with(']') ? path_.substr(keyAt_, end - 1 - keyAt_) : std::string();
  size_t const linesBefore = lines_;
  bool mayRepeat = !key.empty();
  for (Attribute const& a : e.attributeTable()) {
    if (!a.facts) continue;
    path_ += '.';
    path_ += a.name;
    knownAt_ = mayRepeat ? path_.size() : 0;
    if (mayRepeat) known_ = key;
    mayRepeat = false;
    a.facts(e, *this);
    path_.resize(end);
  }
  knownAt_ = 0;
  if (lines_ == linesBefore) emit(end);
}

}  // namespace Mox
