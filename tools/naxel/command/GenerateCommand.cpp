#include "command/GenerateCommand.h"

#include "output/OutputFile.h"

#include <iostream>

namespace NaxelTool {

namespace {

using Style = Generation::Style;

std::map<std::string, Style> const styles = {{"acl", Style::acl},
                                             {"fw", Style::fw},
                                             {"ipc", Style::ipc},
                                             {"groups", Style::groups},
                                             {"attributes", Style::attributes}};
std::map<std::string, Overlap> const overlaps = {
    {"nested", Overlap::nested}, {"crossing", Overlap::crossing}, {"mixed", Overlap::mixed}};

template <class E>
std::string nameOf(std::map<std::string, E> const& names, E value) {
  for (auto const& [name, v] : names)
    if (v == value) return name;
  return "";
}

bool isGroups(Style style) { return style == Style::groups || style == Style::attributes; }

void write(std::ostream& out, Generation const& options) {
  if (isGroups(options.style)) {
    ObjectGroupOptions groups = options.groups;
    if (options.style == Style::attributes) groups.overlap = Overlap::attributes;
    groups.seed = options.seed;
    generateObjectGroups(out, groups);
    return;
  }
  FilterSetOptions set;
  set.style = options.style == Style::acl  ? FilterStyle::acl
              : options.style == Style::fw ? FilterStyle::fw
                                           : FilterStyle::ipc;
  set.rules = options.groups.rules;
  set.seed = options.seed;
  generateFilterSet(out, set);
}

}  // namespace

void addGeneration(CLI::App& command, Generation& to) {
  ObjectGroupOptions& groups = to.groups;
  CLI::Range const upToMillion(1, 1000000);
  command
      .add_option(
          "--style", to.style,
          "acl, fw or ipc: a ClassBench filter set of that kind; groups: JSON with shared "
          "prefix lists; attributes: groups of hosts by application, tier, environment and site")
      ->transform(CLI::Transformer(styles))
      ->type_name("STYLE");
  command.add_option("--rules", groups.rules, "How many rules")
      ->check(upToMillion)
      ->capture_default_str();
  command.add_option("--seed", to.seed, "Which rules")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  command.add_option("--acls", groups.acls, "groups: ACLs that share the rules out")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  command.add_option("--lists", groups.lists, "groups: prefix lists")
      ->check(CLI::Range(1, 100000))
      ->capture_default_str();
  command.add_option("--list-size", groups.listSize, "groups: prefixes of a list on average")
      ->check(CLI::Range(1, 100000))
      ->capture_default_str();
  command.add_option("--overlap", groups.overlap, "groups: nested, crossing or mixed lists")
      ->transform(CLI::Transformer(overlaps))
      ->type_name("KIND");
  command.add_option("--hand-made", groups.handMade, "attributes: further lists that go by none")
      ->check(CLI::Range(0, 100000))
      ->capture_default_str();
  command.add_flag("--ipv6", groups.ipv6, "groups: IPv6 instead of IPv4");
  command.add_option("-o,--output", to.output, "Write to a file")->type_name("FILE");
}

ExitCode run(Generation const& options) {
  if (options.output.empty()) {
    write(std::cout, options);
  } else {
    OutputFile file(options.output);
    write(file.stream(), options);
    file.commit();
  }
  ObjectGroupOptions const& groups = options.groups;
  std::cerr << "made by: naxel gen --style " << nameOf(styles, options.style) << " --rules "
            << groups.rules << " --seed " << options.seed;
  if (isGroups(options.style)) {
    std::cerr << " --acls " << groups.acls << " --lists " << groups.lists << " --list-size "
              << groups.listSize;
    if (options.style == Style::groups)
      std::cerr << " --overlap " << nameOf(overlaps, groups.overlap);
    else
      std::cerr << " --hand-made " << groups.handMade;
    std::cerr << (groups.ipv6 ? " --ipv6" : "");
  }
  std::cerr << '\n';
  return ExitCode::success;
}

}  // namespace NaxelTool
