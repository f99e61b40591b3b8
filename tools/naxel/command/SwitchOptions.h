#pragma once

/// The options of commands that speak with Open vSwitch: which bridge, and which of its tables, registers and packets
/// the rules are for.

#include "command/Options.h"
#include "ovs/SwitchDriver.h"

#include <string>
#include <vector>

namespace NaxelTool {

class SwitchOptions {
 public:
  /// --ovs and what belongs to it. The object must outlive the parser.
  void declare(CLI::App& app);

  bool given() const { return !target_.empty(); }
  /// What the options say. Throws std::invalid_argument where they contradict each other.
  NaxelOvs::DriverOptions driver() const;

 private:
  std::string target_;
  std::string control_;
  std::vector<std::string> bindings_;
  NaxelOvs::DriverOptions options_;
};

/// "edge", "edge:in_port=3", "edge:reg0=7". Throws std::invalid_argument.
NaxelOvs::Binding bindingFromText(std::string const& text);
/// "normal", "drop" or the number of a table. Throws std::invalid_argument.
NaxelOvs::Exit exitFromText(std::string const& text);

}  // namespace NaxelTool
