#include "command/RuleInput.h"

#include "command/KickFailure.h"
#include "input/text/Dialect.h"
#include "naxel/types/NaxelTrace.h"
#include "output/OutputFile.h"

#include <algorithm>
#include <stdexcept>

namespace NaxelTool {

void RuleInput::declare(CLI::App& app) {
  declareChip(app);
  declareReading(app);
}

void RuleInput::declareOptions(CLI::App& app) {
  declareChip(app);
  declareFormats(app);
}

void RuleInput::declareChip(CLI::App& app) {
  addFile(app, "--chip", chip_,
          "Chip description\n"
          "Without one: labels of 16 bits for prefixes, of 12 bits for ports, of 2 bits for "
          "fragment offsets, raw values for the "
          "other fields, tables without limit.");
  addChoice<Acl::LabelCode>(
      app, "--label-code", labelCode_,
      {{"aligned", Acl::LabelCode::aligned}, {"compact", Acl::LabelCode::compact}},
      "How labels are encoded\n"
      "The default is what the chip description says, or compact.");
  addNumber(app, "--max-entries", maxEntries_, 1, ~uint64_t{0},
            "Most entries that all rules may take\n"
            "A kick that would make more is refused before it makes any.");
  addNumber(app, "--trace", trace_, 0, 9, "Show what the stages do, 0 to 9")->default_str("");
}

void RuleInput::declareReading(CLI::App& app) {
  declareFormats(app);
  app.add_option("rules", rules_, "Rule files\nPlain or packed with gzip; - is standard input.")
      ->type_name("RULES");
}

void RuleInput::declareFormats(CLI::App& app) {
  Choices<RuleFormat> formats = {{"auto", RuleFormat::automatic}};
  for (RuleFormatInfo const& f : ruleFormats()) formats.emplace_back(f.name, f.format);
  addChoice(app, "--format", read_.format, formats,
            "Format of the rules\nThe default, auto, goes by the content of each file.");
  addChoice<std::optional<Dialect>>(
      app, "--dialect", read_.dialect,
      {{"auto", std::nullopt},
       {"ios", Dialect::ios},
       {"xr", Dialect::xr},
       {"nxos", Dialect::nxos},
       {"eos", Dialect::eos}},
      "Dialect of text of the IOS family\n"
      "The default, auto, goes by the first line that only one dialect has. "
      "Lists that are neither extended nor standard look the same in "
      "those of NX-OS and EOS.");
  addChoice<FlagsMode>(app, "--flags", read_.flags,
                       {{"ignore", FlagsMode::ignore}, {"strict", FlagsMode::strict}},
                       "Flag columns of ClassBench sets\n"
                       "By default they are ignored; strict makes rules of them that say as much, "
                       "and refuses those that no rule can say.");
  addFlag(app, "--skip-unsupported", read_.skipUnsupported,
          "Leave out, with a warning, what rules cannot say\n"
          "Without it such entries are errors. The verdicts are then not those of the source, "
          "which the first line of the summary says.");
  addFlag(app, "--skip-errors", read_.skipErrors,
          "Leave out, with a warning, entries that are wrong\n"
          "An entry that names a group which the file does not have, for one. Without it they are "
          "errors.");
  app.add_flag_callback(
      "--no-implicit", [this] { read_.implicitEnd = false; },
      "Leave out the end of a list that its format implies\n"
      "Otherwise it becomes a last rule, named implicit-deny.");
  addChoice<bool>(app, "--fragments", read_.plainFragments, {{"auto", false}, {"plain", true}},
                  "What entries that look at layer 4 make of later fragments\n"
                  "What the format documents, or with plain nothing: they do not match them.");
  addChoice<std::optional<bool>>(app, "--nd-permits", read_.ndPermits,
                                 {{"yes", true}, {"no", false}},
                                 "Whether lists of IPv6 end in permits of neighbour discovery\n"
                                 "The default depends on the dialect of the text.");
  addFlag(app, "--strict", read_.strict, "Refuse what only our additions to a format can say");
  addSize(app, "--max-input", read_.maxInput, 1,
          "Largest file after unpacking, 1G by default\n"
          "In bytes, or with an ending K, M or G. A larger one is refused before it takes memory.");
}

std::vector<std::string> RuleInput::files() const {
  std::vector<std::string> out = rules_;
  if (!chip_.empty()) out.push_back(chip_);
  return out;
}

ChipSetup RuleInput::chip() const {
  ChipSetup chip =
      chip_.empty() ? defaultChip() : readChip(chip_, readInput(chip_, read_.maxInput));
  if (chip_.empty() && widths_) widths_(*chip.capability);
  if (labelCode_) chip.labelCode = *labelCode_;
  chip.entryLimit = maxEntries_;
  return chip;
}

void RuleInput::checkPaths() const {
  if (rules_.empty()) throw std::invalid_argument("no rule files are given; - is standard input");
  std::vector<std::string> const paths = files();
  if (std::find(paths.begin(), paths.end(), "") != paths.end())
    throw std::invalid_argument("the name of a rule file is empty");
  if (std::count(paths.begin(), paths.end(), "-") > 1)
    throw std::invalid_argument("standard input can be read only once");
  refuseInputs("-", paths);
}

RuleSet RuleInput::read(Console& console, ReadCounts* counts, Obel::ChipId chip) const {
  checkPaths();
  return read(rules_, console, counts, chip);
}

RuleSet RuleInput::read(std::vector<std::string> const& paths, Console& console, ReadCounts* counts,
                        Obel::ChipId chip) const {
  Naxel::naxelTrace().levelIs(trace_);
  console.progress().stepIs("reading rules");
  RuleSet rules(chip);
  ReadCounts const found = readRuleFiles(paths, read_, rules, console.messages());
  if (counts) *counts = found;
  return rules;
}

LoadedRules RuleInput::load(Console& console, std::function<void(RuleSet const&)> const& check,
                            std::function<void(Session const&)> const& ended) const {
  checkPaths();
  ChipSetup const chip = this->chip();
  ReadCounts counts;
  LoadedRules out{read(console, &counts, chip.capability->chipId()), {}, nullptr};
  out.counts = counts;
  if (check) check(out.rules);
  console.progress().stepIs("compiling");
  out.session = std::make_unique<Session>(chip, out.rules.acls());
  out.session->stageWatcherIs([&](Naxel::NaxelActiveStage stage) {
    console.progress().stepIs("compiling: " + Naxel::stringValue(stage));
  });
  bool const success = out.session->kick();
  out.session->stageWatcherIs({});
  // Why the kick has failed is said also where the session cannot be written.
  ExitCode const failure =
      success ? ExitCode::success : sayKickFailure(*out.session, out.rules, console);
  if (ended) ended(*out.session);
  if (!success) throw EndOfRun(failure);
  return out;
}

}  // namespace NaxelTool
