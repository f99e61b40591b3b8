#include "TwoBankDriver.h"

#include <algorithm>

namespace TwoBank {

using namespace Naxel;

namespace {

// What has to be written, row by row: first what goes, so that there is room for what comes.
class Writes {
 public:
  using Write = std::function<void(Bank&)>;

  explicit Writes(TableDiff const& diff) {
    for (auto const& [key, rows] : diff.prefix)
      table(
          rows, [key = key](Bank & b) -> auto& { return b.prefix[key]; });
    for (size_t i = 0; i < diff.range.size(); ++i)
      table(
          diff.range[i], [i](Bank & b) -> auto& { return b.range[i]; });
    for (size_t i = 0; i < diff.combo.size(); ++i)
      table(
          diff.combo[i], [i](Bank & b) -> auto& { return b.combo[i]; });
    for (AclChanges const& acl : diff.acl) {
      for (PDAclRule const* rule : acl.del)
        for (PDAclFilter const& f : rule->filter()) entryDel({acl.key, rule->aceIndex(), f});
      for (PDAclRule const* rule : acl.add) entries(acl.key, *rule);
      for (RuleChange const& c : acl.change) {
        for (PDAclFilter const* f : c.del) entryDel({acl.key, c.before->aceIndex(), *f});
        if (c.newAction)
          entries(acl.key, *c.after);
        else
          for (PDAclFilter const* f : c.add)
            entry({acl.key, c.after->aceIndex(), *f}, c.after->action());
      }
    }
  }

  /// To be taken from the end.
  std::vector<Write> inReverse() && {
    del_.insert(del_.end(), set_.begin(), set_.end());
    std::reverse(del_.begin(), del_.end());
    return std::move(del_);
  }

 private:
  template <class Row, class Table>
  void table(RowChanges<Row> const& rows, Table const& of) {
    auto const set = [&](Row const* r) {
      set_.push_back([=](Bank& b) { of(b)[r->key()] = r->value(); });
    };
    for (Row const* r : rows.del) del_.push_back([=](Bank& b) { of(b).erase(r->key()); });
    for (Row const* r : rows.add) set(r);
    for (auto const& [before, after] : rows.change) set(after);
  }
  void entries(PDAclKey const& acl, PDAclRule const& rule) {
    for (PDAclFilter const& f : rule.filter()) entry({acl, rule.aceIndex(), f}, rule.action());
  }
  void entry(Bank::Place const& place, NaxelActionValue const& action) {
    set_.push_back([=](Bank& b) { b.tcam[place] = action; });
  }
  void entryDel(Bank::Place const& place) {
    del_.push_back([=](Bank& b) { b.tcam.erase(place); });
  }

  std::vector<Write> del_;
  std::vector<Write> set_;
};

}  // namespace

Driver::Driver(Chip& chip, Mox::Ptr<PDConfig> config, Mox::Ptr<PDStatus> status,
               Mox::Ptr<Obel::TimerWheel> wheel, Traits const& traits)
    : Naxel::Driver(std::move(config), std::move(status)),
      chip_(chip),
      traits_(traits),
      work_(wheel),
      policyWork_(wheel) {
  start();
}

size_t Driver::room(PDTable table) const {
  return table == PDTable::aclEntries ? traits_.tcamRows : traits_.tableRows;
}

bool Driver::fitsOneBank(PDData const& output) const {
  return std::ranges::all_of(allPDTables(),
                             [&](PDTable t) { return tableEntries(output, t) <= room(t); });
}

bool Driver::isInForce(PDData const& output) const {
  if (!held_[chip_.active]) return false;
  TableDiff const diff(*held_[chip_.active], output);
  return !diff.otherWidths && diff.rows() == 0;
}

void Driver::acquire(Offer const& offer) {
  work_.after(traits_.transferTime, [this, offer] {
    for (PDTable const t : allPDTables()) {
      size_t const needed = tableEntries(*offer.next, t);
      if (needed <= 2 * room(t)) continue;
      answerAll(offer.id, ResponseState::failed,
                std::to_string(needed) + " needed, " + std::to_string(2 * room(t)) + " there", t);
      return;
    }
    bool const quiet = isInForce(*offer.next) || fitsBeside(*offer.next);
    answerAll(offer.id, quiet ? ResponseState::hitless : ResponseState::hitful);
  });
}

void Driver::load(Offer const& offer) {
  begin(offer.next);
  proceed(offer.id, ResponseState::loaded);
}

void Driver::revert(Offer const& offer) {
  begin(offer.next);
  proceed(offer.id, ResponseState::reverted);
}

void Driver::policy(GlobalAclControl wanted) {
  policyWork_.after(traits_.transferTime, [this, wanted] {
    chip_.policy = wanted;
    confirmPolicy();
  });
}

void Driver::restore(Output const& inForce) {
  GlobalAclControl const policy = status().globalAclControl();
  // What is written in place must not decide about packets before it is complete.
  chip_.policy = policy == GlobalAclControl::doNotApply && !fitsBeside(*inForce)
                     ? GlobalAclControl::denyAll
                     : policy;
  begin(inForce);
  while (writeSome()) {
  }
  chip_.policy = policy;
}

void Driver::begin(Output const& next) {
  bool const same = isInForce(*next);
  bool const beside = !same && fitsBeside(*next);
  target_ = beside ? 1 - chip_.active : chip_.active;
  if (!same && !beside) {
    chip_.bank[1 - target_] = Bank();
    held_[1 - target_] = nullptr;
    chip_.joined = true;
  }
  if (!held_[target_]) {
    chip_.bank[target_] = Bank();
    held_[target_] = pDDataFactory();
  }
  before_ = held_[target_];
  next_ = next;
  writes_ = Writes(TableDiff(*before_, *next_)).inReverse();
  // From the first write on the bank holds neither.
  if (!writes_.empty()) held_[target_] = nullptr;
}

bool Driver::writeSome() {
  for (size_t n = traits_.rowsPerWrite; n > 0 && !writes_.empty(); --n, ++rowsWritten_) {
    writes_.back()(chip_.bank[target_]);
    writes_.pop_back();
  }
  if (!writes_.empty()) return true;
  chip_.bank[target_].widths = next_->hwCapability();
  chip_.active = target_;
  chip_.joined = chip_.joined && !fitsOneBank(*next_);
  held_[target_] = next_;
  before_ = nullptr;
  return false;
}

void Driver::proceed(Mox::Seconds id, ResponseState done) {
  work_.after(traits_.transferTime, [this, id, done] {
    if (writeSome())
      proceed(id, done);
    else
      answerAll(id, done);
  });
}

}  // namespace TwoBank
