#pragma once

/// The options of all commands that read rules, and what they lead to: the rules as read, and a chip that
/// has them loaded.

#include "command/Console.h"
#include "command/Options.h"
#include "input/RuleFiles.h"
#include "session/Session.h"

#include <memory>

namespace NaxelTool {

/// The rules of a run and the chip that they are in force on.
struct LoadedRules {
  RuleSet rules;
  ReadCounts counts;
  std::unique_ptr<Session> session;
};

class RuleInput {
 public:
  using Widths = std::function<void(Naxel::ChipHwCapability&)>;
  /// `widths` gives the widths of the chip where no description does.
  explicit RuleInput(Widths widths = nullptr) : widths_(std::move(widths)) {}

  void declare(CLI::App& app);
  /// For a command that only reads: the rule files and how to read them.
  void declareReading(CLI::App& app);
  /// All but the rule files, for a command that has them in its own way.
  void declareOptions(CLI::App& app);

  ReadOptions const& readOptions() const { return read_; }
  /// All files that load() reads, as they were given.
  std::vector<std::string> files() const;

  /// The description that --chip names, or the default one.
  ChipSetup chip() const;
  /// Reads the rules alone, for that chip; `counts` are set if they are asked for.
  RuleSet read(Console& console, ReadCounts* counts = nullptr,
               Obel::ChipId chip = Obel::ChipId(0)) const;
  /// Reads these files instead of those that were given as rule files.
  RuleSet read(std::vector<std::string> const& paths, Console& console,
               ReadCounts* counts = nullptr, Obel::ChipId chip = Obel::ChipId(0)) const;
  /// Reads the chip and the rules and runs a kick. What is wrong, and why a kick has failed, is said on
  /// `console`. Throws InputError and EndOfRun.
  /// Before the kick `check`, if there is one, may look for more that is wrong; after it, however it has ended,
  /// `ended` sees the session.
  LoadedRules load(Console& console, std::function<void(RuleSet const&)> const& check = nullptr,
                   std::function<void(Session const&)> const& ended = nullptr) const;

 private:
  void declareChip(CLI::App& app);
  void declareFormats(CLI::App& app);
  /// Throws std::invalid_argument for paths that cannot be meant.
  void checkPaths() const;

  Widths widths_;
  std::string chip_;
  std::optional<Acl::LabelCode> labelCode_;
  uint64_t maxEntries_ = Acl::ParamConfig::defaultEntryLimit;
  ReadOptions read_;
  int trace_ = -1;  // what a failed kick would say at level 0 is printed anyway
  std::vector<std::string> rules_;
};

}  // namespace NaxelTool
