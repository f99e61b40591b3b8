#include "command/Command.h"
#include "generate/Generate.h"
#include "output/OutputFile.h"

#include <stdexcept>
#include <unistd.h>

#include <nlohmann/json.hpp>

namespace NaxelTool {

namespace {

enum class Style : uint8_t { acl, fw, ipc, groups, attributes };

Choices<Style> const& styles() {
  static Choices<Style> const all = {{"acl", Style::acl},
                                     {"fw", Style::fw},
                                     {"ipc", Style::ipc},
                                     {"groups", Style::groups},
                                     {"attributes", Style::attributes}};
  return all;
}

Choices<Overlap> const& overlaps() {
  static Choices<Overlap> const all = {
      {"nested", Overlap::nested}, {"crossing", Overlap::crossing}, {"mixed", Overlap::mixed}};
  return all;
}

template <class E>
std::string nameOf(Choices<E> const& names, E value) {
  for (auto const& [name, v] : names)
    if (v == value) return std::string(name);
  return {};
}

class Generation : public Command {
 public:
  void declare(CLI::App& app) override {
    addChoice(app, "--style", style_, styles(),
              "What the rules resemble\n"
              "acl, fw and ipc are ClassBench filter sets of an edge router, a firewall and a "
              "gateway; groups is JSON with shared prefix lists; attributes is JSON with groups of "
              "hosts by application, tier, environment and site.");
    addNumber(app, "--rules", groups_.rules, 1, 1000000, "How many rules");
    addNumber(app, "--seed", seed_, 0, ~uint64_t{0}, "Which rules");
    addNumber(app, "--acls", groups_.acls, 1, 1000, "groups: ACLs that share the rules out");
    addNumber(app, "--lists", groups_.lists, 1, 100000, "groups: prefix lists");
    addNumber(app, "--list-size", groups_.listSize, 1, 100000,
              "groups: prefixes of a list on average");
    addChoice(app, "--overlap", groups_.overlap, overlaps(),
              "groups: how lists lie to each other\n"
              "nested: one within the other, or disjoint; crossing: with members in common and "
              "members of their own; mixed: half of them each.");
    addNumber(app, "--hand-made", groups_.handMade, 0, 100000,
              "attributes: further lists that go by none");
    addFlag(app, "--ipv6", groups_.ipv6, "groups: IPv6 instead of IPv4");
    addFile(app, "-o,--output", output_, "Write to a file");
  }

  ExitCode run(Console& console) override {
    checkMemory();
    if (console.options().json && (output_.empty() || isStandardOutput(output_)))
      throw std::invalid_argument(
          "--json tells of the file that --output names, and none is named");
    console.progress().stepIs("making up rules");
    if (output_.empty()) {
      write(console.out());
    } else {
      OutputFile file(output_);
      write(file.stream());
      file.commit();
    }
    if (console.options().json) writeReport(console.out());
    console.note("made", commandLine());
    return ExitCode::success;
  }

 private:
  void checkMemory() const {
    uint64_t const needed = isGroups() ? memoryFor(groups_) : 0;
    auto const memory = static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) *
                        static_cast<uint64_t>(sysconf(_SC_PAGE_SIZE));
    if (needed <= memory) return;
    throw std::invalid_argument(std::to_string(uint64_t{groups_.lists} * groups_.listSize) +
                                " prefixes take about " + std::to_string(needed >> 30) +
                                " GiB of memory, and there are " + std::to_string(memory >> 30) +
                                "; fewer --lists or a smaller --list-size take less");
  }

  void writeReport(std::ostream& out) const {
    nlohmann::ordered_json report{{"schema", "naxel-generation"},
                                  {"version", 1},
                                  {"file", output_},
                                  {"style", nameOf(styles(), style_)},
                                  {"format", isGroups() ? "json" : "classbench"},
                                  {"rules", groups_.rules},
                                  {"seed", seed_},
                                  {"command", commandLine()}};
    out << report.dump(1, ' ', true, nlohmann::json::error_handler_t::replace) << '\n';
  }

  bool isGroups() const { return style_ == Style::groups || style_ == Style::attributes; }

  void write(std::ostream& out) const {
    if (isGroups()) {
      ObjectGroupOptions groups = groups_;
      if (style_ == Style::attributes) groups.overlap = Overlap::attributes;
      groups.seed = seed_;
      return generateObjectGroups(out, groups);
    }
    FilterSetOptions set;
    set.style = style_ == Style::acl  ? FilterStyle::acl
                : style_ == Style::fw ? FilterStyle::fw
                                      : FilterStyle::ipc;
    set.rules = groups_.rules;
    set.seed = seed_;
    generateFilterSet(out, set);
  }

  /// The options that give the same bytes again.
  std::string commandLine() const {
    std::string out = "naxel gen --style " + nameOf(styles(), style_);
    auto const add = [&](char const* name, uint64_t value) {
      out += " " + std::string(name) + " " + std::to_string(value);
    };
    add("--rules", groups_.rules);
    add("--seed", seed_);
    if (!isGroups()) return out;
    add("--acls", groups_.acls);
    add("--lists", groups_.lists);
    add("--list-size", groups_.listSize);
    if (style_ == Style::groups)
      out += " --overlap " + nameOf(overlaps(), groups_.overlap);
    else
      add("--hand-made", groups_.handMade);
    return out + (groups_.ipv6 ? " --ipv6" : "");
  }

  Style style_ = Style::acl;
  uint64_t seed_ = 1;
  ObjectGroupOptions groups_;
  std::string output_;
};

}  // namespace

CommandInfo generateCommand() {
  return {"gen",
          "Make up a rule file that resembles those in use",
          "Print what was made as JSON; needs --output",
          "The same options give the same bytes on every machine; a note on standard error repeats "
          "them, with the seed.",
          {"naxel gen --style groups --rules 100 --seed 7 --output groups.json"},
          [] { return std::unique_ptr<Command>(std::make_unique<Generation>()); }};
}

}  // namespace NaxelTool
