/// Labels that stay: exact whatever has happened, the same for whoever has the same history, and small changes of the
/// tables for small changes of the rules.

#include "naxel/driver/TableDiff.h"
#include "support/Fresh.h"
#include "support/Thinning.h"
#include "support/TraceLog.h"
#include "support/Vocabulary.h"
#include "verify/Agreement.h"

#include <map>

namespace Test {
namespace {

using namespace Naxel;

/// Rules over lists of few prefixes and over ranges that cross, of which one changes at a time.
class Author {
 public:
  explicit Author(uint64_t seed) : dice_(seed) {}
  std::string rules(uint32_t count) {
    std::string out;
    for (uint32_t i = 0; i < count; ++i) out += rule(10 * i);
    return out;
  }
  /// A rule that is there is replaced.
  std::string rule(uint32_t index) {
    std::string const number = std::to_string(index);
    std::string out = "a " + number + " r" + number + " src " + prefixes();
    if (dice_.oneIn(2)) out += " dst " + prefixes();
    if (dice_.oneIn(2)) {
      uint64_t const first = dice_.below(8) * 100;
      out += " dport " + std::to_string(first) + "-" + std::to_string(first + dice_.below(500));
    }
    return out + "\n";
  }
  uint32_t index(uint32_t count) { return 10 * static_cast<uint32_t>(dice_.below(count)); }
  uint64_t below(uint64_t n) { return dice_.below(n); }

 private:
  std::string prefixes() {
    std::string out;
    for (uint64_t i = dice_.between(1, 3); i > 0; --i) {
      uint64_t const length = dice_.between(1, 3) * 8;
      out += (out.empty() ? "10." : ",10.") + std::to_string(dice_.below(4)) + "." +
             std::to_string(length > 8 ? dice_.below(4) * 16 : 0) + ".0/" +
             std::to_string(length + 4);
    }
    return out;
  }
  SeededDice dice_;
};

void keep(World& w, uint8_t width, Chip chip) {
  for (auto const& key : PrefixXformKey::all()) w.capability->prefixXformWidthIs(key, width);
  setWidths(w, chip, width);
  w.params->labelCodeIs(Acl::LabelCode::compact);
  w.params->keepLabelsIs(true);
}

/// A code of both outputs yields for at least one key what it did: it has not gone to another label.
template <class Coll>
std::string reusedCodes(Coll const& before, Coll const& after, uint32_t miss) {
  std::map<uint32_t, bool> stays;
  for (auto const& e : after.entry()) stays[e.value().value()];
  std::map<uint32_t, bool> stood;
  for (auto const& e : before.entry()) stood[e.value().value()] = true;
  for (auto const& e : after.entry())
    if (auto const* was = before.entry(e.key()))
      if (was->value() == e.value()) stays[e.value().value()] = true;
  std::string out;
  for (auto const& [code, same] : stays)
    if (code != miss && stood.contains(code) && !same) out += " " + std::to_string(code);
  return out;
}

TEST(KeptLabels, HistoriesAreExactAndAlikeForWhoeverSharesThem) {
  TraceLog const quiet;
  uint64_t afresh = 0;
  uint64_t kept = 0;
  for (uint64_t seed = 0; seed < 40; seed += thinning()) {
    SCOPED_TRACE(seed);
    Author author(seed);
    World w(author.rules(12)), restarted;
    restarted.acls = w.acls;
    auto width = static_cast<uint8_t>(4 + author.below(9));
    for (World* each : {&w, &restarted}) keep(*each, width, Chip::combos);
    for (World* each : {&w, &restarted}) each->buildRoot();
    for (int change = 0; change < 30; ++change) {
      SCOPED_TRACE(change);
      uint32_t const index = author.index(16);
      std::string const name = "r" + std::to_string(index);
      if (w.acls->acl("a")->ruleByNameHas(name) && author.below(3) == 0)
        w.acls->acl("a")->ruleByNameDel(name);
      else
        w.rules(author.rule(index));
      // Codes of another width are none to keep.
      if (author.below(8) == 0) {
        width = static_cast<uint8_t>(4 + author.below(9));
        for (World* each : {&w, &restarted}) keep(*each, width, Chip::combos);
      }
      // A driver that refuses and a root that is built anew leave the output in force where it was.
      auto const answer = author.below(6) ? ResponseState::hitless : ResponseState::failed;
      for (World* each : {&w, &restarted}) each->driver.acquireAnswer = answer;
      if (author.below(3) == 0) restarted.buildRoot();
      auto const before = w.pdConfig->currPDData();
      bool const success = w.kick() == NaxelProgress::naxelFinishedSuccess;
      ASSERT_EQ(restarted.kick() == NaxelProgress::naxelFinishedSuccess, success)
          << w.failureText() << restarted.failureText();
      ASSERT_EQ(full(w.tables()), full(restarted.tables()));
      if (!success) continue;
      ASSERT_EQ(Verify::firstDifference(*w.acls, w.tables()), "");
      auto const again = w.pdConfig->currPDData();
      ASSERT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess);
      ASSERT_EQ(TableDiff(*again, w.tables()).rows(), 0u);
      // Whoever starts anew over what stands finds nothing to do either.
      if (author.below(3) == 0) restarted.buildRoot();
      ASSERT_EQ(restarted.kick(), NaxelProgress::naxelFinishedSuccess);
      ASSERT_EQ(full(*again), full(restarted.tables()));
      for (auto const& key : PrefixXformKey::all()) {
        auto const status = w.root->prefixEncoderStatus(key);
        (status->encodedAfresh() ? afresh : kept) += 1;
        if (status->encodedAfresh() || before->hwCapability()->prefixXformWidth(key) !=
                                           again->hwCapability()->prefixXformWidth(key))
          continue;
        ASSERT_EQ(reusedCodes(*before->pdPrefixXformEntryColl(key),
                              *again->pdPrefixXformEntryColl(key), (1u << width) - 1),
                  "");
      }
    }
    // Not kept any more, the tables are those of a pipeline without a past.
    for (World* each : {&w, &restarted}) each->driver.acquireAnswer = ResponseState::hitless;
    w.params->keepLabelsIs(false);
    if (w.kick() != NaxelProgress::naxelFinishedSuccess) continue;
    ASSERT_EQ(full(w.tables()), freshTables(w));
  }
  if (thinning() > 1) return;
  EXPECT_GT(kept, 1000u);
  EXPECT_GT(afresh, 0u);
}

TEST(KeptLabels, AChangeOfARuleChangesFewRows) {
  TraceLog const quiet;
  Author author(7);
  World w(author.rules(150));
  keep(w, 12, Chip::labels);
  w.buildRoot();
  ASSERT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess) << w.failureText();
  std::vector<size_t> rows;
  for (int change = 0; change < 100; ++change) {
    auto const before = w.pdConfig->currPDData();
    w.rules(author.rule(author.index(150)));
    ASSERT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess) << w.failureText();
    size_t const changed = TableDiff(*before, w.tables()).aclRows();
    rows.push_back(changed);
    auto const& told = *w.root->loaderStatus()->rows().get(PDTable::aclEntries);
    ASSERT_EQ(told.added() + told.deleted() + told.changed(), changed);
    ASSERT_EQ(told.added() + told.changed() + told.kept(), w.tables().pdAclColl()->numFilters());
  }
  std::sort(rows.begin(), rows.end());
  EXPECT_LE(rows[50], 20u);
  // More than afresh, but not without end.
  size_t const entries = w.tables().pdAclColl()->numFilters();
  w.params->keepLabelsIs(false);
  ASSERT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess) << w.failureText();
  EXPECT_LE(entries, w.tables().pdAclColl()->numFilters() * 3 / 2);
}

TEST(KeptLabels, TheAlignedCodeKeepsNoneAndSaysSoOnce) {
  TraceLog const log;
  World w("a 1 r src 10.0.0.0/8\n");
  w.params->keepLabelsIs(true);
  for (int i = 0; i < 2; ++i) {
    w.rules("a 2 q src 10." + std::to_string(i) + ".0.0/16\n");
    kickOk(w);
  }
  EXPECT_EQ(log.lines, "Naxel:0:[0] keepLabels is without effect: the label code is aligned\n");
}

}  // namespace
}  // namespace Test
