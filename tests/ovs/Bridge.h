#pragma once

/// A bridge of an Open vSwitch of the test's own, in a folder of its own, that ends with the object.

#include "command/SwitchSession.h"
#include "command/SwitchVerify.h"
#include "ovs/Switch.h"

#include <memory>
#include <string>

namespace Test {

class Bridge {
 public:
  /// False where its packages are not unpacked beside the build.
  static bool possible();

  Bridge();
  Bridge(Bridge const&) = delete;
  Bridge& operator=(Bridge const&) = delete;
  ~Bridge();

  NaxelOvs::DriverOptions options() const;
  std::string const& folder() const { return folder_; }
  /// Kills the switch; it begins anew without flows.
  void crash() { script("crash " + folder_); }
  void resume() { script("resume " + root() + " " + folder_); }
  /// One of its tools, "ovs-ofctl add-flow br0 ..."; expects success.
  void tool(std::string const& command) { script("run " + root() + " " + folder_ + " " + command); }
  /// What it holds of ours.
  NaxelOvs::FlowSet flows() const;

 private:
  static std::string root();
  static void script(std::string const& arguments);
  std::string folder_;
};

/// Rules in one of the formats of the tool.
Mox::Ptr<Naxel::AclConfigColl> aclsOf(std::string const& text);

/// A few rules in the words of the tests.
Mox::Ptr<Naxel::AclConfigColl> small(std::string const& rules);

/// An agent over rules, with labels that stay.
std::unique_ptr<NaxelTool::SwitchSession> agent(Mox::Ptr<Naxel::AclConfigColl> acls,
                                                NaxelOvs::DriverOptions options);

/// Expects a kick's success, or a refusal with these words; returns what it said.
std::string kick(NaxelTool::SwitchSession& session, std::string const& refusal = {});

/// Expects that the switch does with so many packets what the rules say.
void expectInForce(Mox::Ptr<Naxel::AclConfigColl> const& acls,
                   NaxelOvs::DriverOptions const& options, uint64_t packets, uint64_t seed = 1);

}  // namespace Test
