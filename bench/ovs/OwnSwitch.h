#pragma once

/// An Open vSwitch of the benchmark's own, and what is measured on it.

#include "ovs/Control.h"
#include "ovs/SwitchDriver.h"
#include "verify/Packet.h"

#include <string>
#include <vector>

namespace Bench {

class OwnSwitch {
 public:
  /// Starts it from the packages that are unpacked below `root`. Throws std::runtime_error.
  OwnSwitch(std::string script, std::string root);
  OwnSwitch(OwnSwitch const&) = delete;
  OwnSwitch& operator=(OwnSwitch const&) = delete;
  ~OwnSwitch();

  NaxelOvs::DriverOptions options() const;
  /// Changes flows as one bundle of ovs-ofctl, lines as it reads them. Returns the seconds.
  double change(std::vector<std::string> const& lines);
  /// Of the process, in KiB.
  uint64_t memory() const;
  /// The text of a command of ovs-appctl.
  std::string ask(std::string const& command, std::vector<std::string> const& arguments = {}) const;

  /// Sends packets of IPv4 in by port 1 while each gets a flow of its own in the cache. Returns how many upcalls are
  /// handled in a second.
  double upcallsPerSecond(std::vector<Verify::Packet> const& packets) const;

  struct Megaflows {
    size_t flows = 0;
    size_t masks = 0;
  };
  /// The different flows that the cache gets for these packets, and how many masks these have.
  Megaflows megaflows(std::vector<Verify::Packet> const& packets) const;

 private:
  void script(std::string const& arguments) const;

  std::string script_;
  std::string root_;
  std::string folder_;
};

}  // namespace Bench
