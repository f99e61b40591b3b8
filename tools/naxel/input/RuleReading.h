#pragma once

/// What a reader of rules works with: the text of one file, the options of the run, the rule set that
/// it fills, and the account of what became of each entry of the file.
///
/// Nothing is lost in silence: every line or object that belongs to an ACL is counted by read(), and
/// then either ruleIs() makes at least one rule of it or it is reported; read = compiled + reported. A
/// reader goes on behind an entry that it cannot use, so that one run tells all that is wrong.

#include "input/Diagnostics.h"
#include "input/InputFile.h"
#include "input/RuleSet.h"

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace NaxelTool {

enum class Dialect : uint8_t;  // input/text/Dialect.h

enum class RuleFormat : uint8_t { automatic, classBench, json, openConfig, configDb, ios, asa };

/// What becomes of the flag columns of ClassBench sets.
enum class FlagsMode : uint8_t {
  ignore,  ///< read the lines as 5-tuples
  strict   ///< use the flags that a rule can say, refuse the others
};

struct ReadOptions {
  RuleFormat format = RuleFormat::automatic;
  FlagsMode flags = FlagsMode::ignore;
  /// Entries that a rule cannot say are left out with a warning; otherwise they are errors.
  bool skipUnsupported = false;
  /// So are entries that are wrong by themselves: names that the file does not have, say.
  bool skipErrors = false;
  /// The end that a format implies becomes a last rule of its own, "implicit-deny".
  bool implicitEnd = true;
  /// Entries that look at layer 4 say nothing special about later fragments.
  bool plainFragments = false;
  /// Whether lists of IPv6 end in permits of neighbour discovery; none: as the format has it.
  std::optional<bool> ndPermits = std::nullopt;
  /// Of text of the IOS family; none: by the first line that only one dialect has.
  std::optional<Dialect> dialect = std::nullopt;
  /// Refuse what only this tool's own additions to a format can say.
  bool strict = false;
  /// Most bytes of a file, unpacked.
  uint64_t maxInput = defaultMaxInput;
};

class RuleReading {
 public:
  RuleReading(std::string path, std::string const& content, ReadOptions const& options,
              RuleSet& rules, Diagnostics& diagnostics);
  RuleReading(RuleReading const&) = delete;
  RuleReading& operator=(RuleReading const&) = delete;

  std::string const& path() const { return path_; }
  std::string const& content() const { return content_; }
  ReadOptions const& options() const { return options_; }
  RuleSet& rules() { return rules_; }
  ReadCounts& counts() { return counts_; }

  /// Makes an ACL of a name that no other has. Throws InputError.
  Mox::Ptr<Naxel::AclConfig> aclIs(std::string const& name, Lumox::AddressFamily af, Position at) {
    return rules_.aclIs(name, af, path_, at);
  }
  /// Makes a rule at the end of an ACL: at `wanted` where that lies behind the last index, else right
  /// behind the last. The name must be free in the ACL. The file of `origin` is set here. Throws
  /// InputError where no index is left.
  Naxel::RuleConfig& ruleIs(Naxel::AclConfig& acl, std::optional<uint64_t> wanted,
                            std::string const& name, RuleOrigin origin);

  /// Where a rule comes from that the reader has put at an index by itself.
  void originIs(Naxel::AclConfig const& acl, Naxel::AceIndex rule, RuleOrigin origin) {
    origin.file = file_;
    rules_.originIs(acl.name(), rule, std::move(origin));
  }

  /// These do not count entries: the reader does, as one entry may be worth several messages.
  void error(Place place, std::string code, std::string text, std::string help = {}) {
    say(Severity::error, place, std::move(code), std::move(text), std::move(help));
  }
  void warning(Place place, std::string code, std::string text, std::string help = {}) {
    say(Severity::warning, place, std::move(code), std::move(text), std::move(help));
  }
  void note(Place place, std::string code, std::string text, std::string help = {}) {
    say(Severity::note, place, std::move(code), std::move(text), std::move(help));
  }
  /// What a rule cannot say: an error, or a warning where such entries are left out.
  void unsupported(Place place, std::string text, std::string help = {}) {
    cannotUse(place, "unsupported", std::move(text), std::move(help));
  }
  /// Why an entry gives no rules that says something which only its source knows, such as the name of a
  /// group that is not there: an error, or a warning where such entries are left out.
  void cannotUse(Place place, std::string code, std::string text, std::string help = {}) {
    say(options_.skipUnsupported ? Severity::warning : Severity::error, place, std::move(code),
        std::move(text), std::move(help));
  }
  /// What is wrong with an entry, but with nothing else: an error, or a warning where such entries are left
  /// out.
  void wrongEntry(Place place, std::string code, std::string text, std::string help = {}) {
    say(options_.skipErrors ? Severity::warning : Severity::error, place, std::move(code),
        std::move(text), std::move(help));
  }

  /// Says what was wrong with an entry that a function gave up.
  void error(InputError const& e, std::string code) {
    error({e.at()}, std::move(code), e.text(), e.help());
  }
  /// Place of this file in RuleSet::files().
  uint32_t file() const { return file_; }

  /// The line of that number without its end, counted from 1; empty if there is none.
  std::string_view line(size_t number) const;

 private:
  void say(Severity severity, Place place, std::string code, std::string text, std::string help);

  std::string path_;
  std::string const& content_;
  ReadOptions options_;
  RuleSet& rules_;
  Diagnostics& diagnostics_;
  ReadCounts counts_;
  uint32_t file_;
  std::unordered_map<Naxel::AclConfig const*, uint64_t> next_;  // index behind the last rule
  mutable size_t knownLine_ = 1;  // where the last search for a line ended
  mutable size_t knownOffset_ = 0;
};

/// Gives rules what they wait for from later files. `counts` are those of all files that were read.
void settle(ReadCounts& counts, RuleSet& rules, Diagnostics& diagnostics);

using RuleReader = void (*)(RuleReading&);

/// Reads one text by one reader; throws InputError with the first error that it reports.
ReadCounts readRules(RuleReader reader, std::string const& path, std::string const& content,
                     RuleSet& out, ReadOptions const& options = {});

}  // namespace NaxelTool
