#include "answers/WhatIf.h"
#include "command/Command.h"
#include "command/KickFailure.h"
#include "command/RuleInput.h"
#include "output/Summary.h"

#include <limits>
#include <stdexcept>

namespace NaxelTool {

namespace {

class WhatIf : public Command {
 public:
  void declare(CLI::App& app) override {
    app.add_option(
           "--vary", vary_,
           "Values of a member of the chip's description\n"
           "As rangeXformWidth.dstPort=0,8,12 or labelCode=aligned,compact or "
           "softChip.capacity.aclEntries=1024,any. A path of an object stands for all its "
           "members, and + joins members that take each value together. May be given several "
           "times: all combinations are compiled. Without it and --grid either label code, "
           "port labels of 0, 8 and 12 bits, and combinations or none.")
        ->type_name("MEMBER=VALUES")
        ->take_all()
        ->allow_extra_args(false);
    addFile(app, "--grid", grid_, "File of values to vary\nIts axes come before those of --vary.");
    addNumber(app, "--max-points", maxPoints_, 1, 100000,
              "Most chips of the grid\nA larger grid is refused.");
    addFlag(app, "--all", all_, "Show every chip");
    input_.declare(app);
  }

  ExitCode run(Console& console) override {
    ChipSetup const chip = input_.chip();
    ChipGrid const grid = this->grid();
    if (grid.points() > maxPoints_)
      throw std::invalid_argument("the grid has " + std::to_string(grid.points()) +
                                  " chips, more than --max-points " + std::to_string(maxPoints_));
    ReadCounts counts;
    RuleSet const rules = input_.read(console, &counts, chip.capability->chipId());
    ExitCode failure = ExitCode::internal;
    console.progress().stepIs("compiling for each chip", grid.points());
    WhatIfReport const report = whatIf(
        rules, chip, grid,
        [&](Session const& session) { failure = sayKickFailure(session, rules, console); },
        [&](uint64_t done) { console.progress().doneIs(done); });
    console.progress().end();
    if (report.unusable) return failure;
    if (console.options().json) {
      printJson(report, console.out());
    } else if (!console.options().quiet) {
      printLeftOut(console.out(), counts);
      print(report, all_ ? std::numeric_limits<size_t>::max() : 12, console.out());
    }
    return report.cheapest ? ExitCode::success : ExitCode::noRoom;
  }

 private:
  ChipGrid grid() const {
    ChipGrid out;
    if (!grid_.empty()) out.read(grid_, readInput(grid_, input_.readOptions().maxInput));
    for (std::string const& axis : vary_) out.axisIs(axis);
    return out.axes().empty() ? defaultGrid() : out;
  }

  RuleInput input_;
  std::vector<std::string> vary_;
  std::string grid_;
  uint64_t maxPoints_ = 256;
  bool all_ = false;
};

}  // namespace

CommandInfo whatIfCommand() {
  return {
      "whatif",
      "Compile the same rules for many chips; say which hold them and which is cheapest",
      "Print every chip as JSON",
      "Varies the label widths, the label code and the room of the tables of a chip, and "
      "compiles the rules for each. For a chip that holds them it says the entries, the rows of "
      "all tables and the bits that these match; for any other what breaks first, and by how "
      "much. The cheapest is the one of the fewest bits. The exit code is 3 where none fits.",
      {"naxel whatif examples/edge.json",
       "naxel whatif --vary rangeXformWidth.dstPort=0,4,8 --vary labelCode=aligned,compact "
       "examples/edge.json"},
      [] { return std::unique_ptr<Command>(std::make_unique<WhatIf>()); }};
}

}  // namespace NaxelTool
