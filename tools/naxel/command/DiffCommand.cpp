#include "answers/Changes.h"
#include "command/Command.h"
#include "command/RuleInput.h"
#include "output/OutputFile.h"

#include <algorithm>
#include <stdexcept>

namespace NaxelTool {

namespace {

/// Changes that are shown where not all are asked for.
constexpr size_t shownChanges = 20;

class Diff : public Command {
 public:
  void declare(CLI::App& app) override {
    addFlag(app, "--all", all_, "Show all changes, not only the first 20");
    app.add_option(
           "--acl", pairs_,
           "Compare the ACL OLD with NEW; may be given several times\n"
           "ACLs of equal names are compared anyway, and so are two of different names where "
           "each side has no other one. The old name counts in the tables.")
        ->type_name("OLD=NEW")
        ->allow_extra_args(false);
    addNumber(app, "--effort", options_.effort, 1, ~uint64_t{0},
              "How many steps the search may take\n"
              "Where they do not suffice, the output says how many rules were not looked at in "
              "full.");
    addChoice<bool>(app, "--labels", keepLabels_, {{"kept", true}, {"anew", false}},
                    "Whether the second kick leaves labels as they are\n"
                    "kept is what a switch does that is to write few rows, and needs the compact "
                    "label code; anew makes the tables of a compile from scratch.");
    addFlag(app, "--no-rows", noRows_, "Compare the packets alone, without any chip");
    for (auto const& [name, to, text] :
         {std::tuple{"--more-old", &moreOld_, "One more file of the old rules"},
          std::tuple{"--more-new", &moreNew_, "One more file of the new rules"}})
      app.add_option(name, *to, std::string(text) + "\nMay be given several times.")
          ->type_name("FILE")
          ->allow_extra_args(false);
    input_.declareOptions(app);
    app.add_option("old", old_,
                   "The rules as they were\nPlain or packed with gzip; - is standard input.")
        ->type_name("OLD");
    app.add_option("new", new_, "The rules as they are to be")->type_name("NEW");
  }

  ExitCode run(Console& console) override {
    readPairs();
    std::vector<std::string> const before = paths(old_, moreOld_);
    std::vector<std::string> const after = paths(new_, moreNew_);
    checkPaths(before, after);
    console.progress().stepIs("reading rules");
    ReadCounts readBefore;
    ReadCounts readAfter;
    RuleSet const old = input_.read(before, console, &readBefore);
    RuleSet const now = input_.read(after, console, &readAfter);
    console.progress().stepIs("comparing");
    Changes changes = changesOf(old, now, options_);
    changes.readBefore = readBefore;
    changes.readAfter = readAfter;
    if (!noRows_) {
      ChipSetup chip = input_.chip();
      chip.keepLabels = keepLabels_;
      std::vector<AclNames> renamed = options_.pairs;
      renamed.insert(renamed.end(), changes.renamed.begin(), changes.renamed.end());
      changes.rows = rowChangesOf(old, now, chip, renamed, [&](std::string const& step) {
        console.progress().stepIs(step);
      });
    }
    console.progress().end();
    if (console.options().json)
      printJson(changes, console.out());
    else if (!changes.isSame() || !console.options().quiet || readBefore.leftOut ||
             readAfter.leftOut)
      print(changes, all_ ? changes.packets.size() : shownChanges, console.out());
    if (changes.rows && !changes.rows->failure.empty() && !changes.rows->isOldTheFailure)
      return ExitCode::noRoom;
    return changes.isSame() ? ExitCode::success : ExitCode::findings;
  }

 private:
  void readPairs() {
    for (std::string const& pair : pairs_) {
      size_t const at = pair.find('=');
      if (at == std::string::npos || at == 0 || at + 1 == pair.size())
        throw std::invalid_argument("--acl: '" + printable(pair) + "' is not OLD=NEW");
      options_.pairs.emplace_back(pair.substr(0, at), pair.substr(at + 1));
    }
  }

  static std::vector<std::string> paths(std::string const& first,
                                        std::vector<std::string> const& more) {
    std::vector<std::string> out = more;
    if (!first.empty()) out.insert(out.begin(), first);
    return out;
  }

  void checkPaths(std::vector<std::string> const& before,
                  std::vector<std::string> const& after) const {
    if (before.empty() || after.empty())
      throw std::invalid_argument("two rule sets are compared: the old one and the new one");
    std::vector<std::string> all = input_.files();
    all.insert(all.end(), before.begin(), before.end());
    all.insert(all.end(), after.begin(), after.end());
    if (std::find(all.begin(), all.end(), "") != all.end())
      throw std::invalid_argument("the name of a rule file is empty");
    if (std::count(all.begin(), all.end(), "-") > 1)
      throw std::invalid_argument("standard input can be read only once");
    refuseInputs("-", all);
  }

  RuleInput input_;
  std::string old_;
  std::string new_;
  std::vector<std::string> moreOld_;
  std::vector<std::string> moreNew_;
  std::vector<std::string> pairs_;
  ChangeOptions options_;
  bool keepLabels_ = true;
  bool noRows_ = false;
  bool all_ = false;
};

}  // namespace

CommandInfo diffCommand() {
  CommandInfo info = {
      "diff",
      "What a change of the rules does, to packets and to the tables",
      "Print the changes as JSON",
      "Compares two rule sets, whatever their formats: which packets are treated differently, "
      "with one of each kind and the rules that decide, before and after; exactly, over all "
      "packets that there can be. Verdict and actions count.\n"
      "\n"
      "Then both are compiled for one chip, one after the other, which says what its driver has "
      "to write: the rows of each table that come, go, change and stay.\n"
      "\n"
      "The exit code is 0 if no packet is treated differently, 1 if one is or if the search came "
      "to no end, 3 if the new rules do not fit the chip.",
      {"naxel diff examples/edge.json examples/edge-new.json",
       "naxel diff --no-rows examples/office.ios examples/office.openconfig"},
      [] { return std::unique_ptr<Command>(std::make_unique<Diff>()); }};
  info.pairs = true;
  return info;
}

}  // namespace NaxelTool
