#pragma once

/// Looks the packets of files up, in the loaded tables and in the rules evaluated in order, and counts what
/// came of them.

#include "answers/RuleDemands.h"
#include "answers/RuleTargets.h"
#include "input/RuleSet.h"
#include "packets/PacketFiles.h"
#include "session/Session.h"
#include "verify/RuleOracle.h"

#include <map>
#include <memory>
#include <unordered_map>

namespace NaxelTool {

/// Why packets are not decided by one rule.
struct WhyNotTally {
  Naxel::AceIndex rule;
  RuleDemands demands;
  uint64_t packets = 0;
  uint64_t decided = 0;  ///< by this rule
  struct Count {
    uint64_t unmet = 0;  ///< packets that do not meet the demand
    uint64_t alone = 0;  ///< of them, those that meet all the others
  };
  std::vector<Count> count = std::vector<Count>(demands.size());
  std::map<uint32_t, uint64_t> takenBy = {};  ///< by index of the earlier rule

  void take(Verify::Packet const& packet, std::optional<Naxel::AceIndex> decides);
};

/// What the packets came to in one ACL.
struct AclTally {
  explicit AclTally(Mox::Ptr<Naxel::AclConfig> const& acl)
      : config(acl), oracle(*acl), key(oracle.af(), acl->name()) {}

  Mox::Ptr<Naxel::AclConfig> config;
  Verify::RuleOracle oracle;
  Naxel::PDAclKey key;
  uint64_t packets = 0;
  uint64_t matched = 0;
  std::unordered_map<uint32_t, uint64_t> hits;  ///< by index of the rule
  std::vector<WhyNotTally> whyNot;
};

/// What became of one packet in one ACL.
struct PacketVerdict {
  size_t file;
  FilePacket const& packet;
  AclTally const& acl;
  std::optional<Naxel::AceIndex> rule;  ///< that decides by the rules
  Verify::Verdict found;                ///< by the tables
  bool agrees;                          ///< the two are the same
  bool later;  ///< a trace's header is decided later than by the rule that it names
};

class FileClassifier {
 public:
  /// Looks at the ACL named `only` alone where that is not empty, and counts for each of `targets` why it does
  /// not decide. Session, rules and files must outlive it.
  FileClassifier(Session& session, RuleSet const& rules, PacketFiles const& files, std::string only,
                 std::vector<RuleTarget> const& targets = {});

  struct Listener {
    std::function<void(PacketVerdict const&)> verdict = [](PacketVerdict const&) {};
    std::function<void(size_t file, size_t number, std::string const& reason)> leftOut =
        [](size_t, size_t, std::string const&) {};
  };
  /// Works through all files, once. Throws RejectedInput as PacketFiles::walk() does.
  void run(Listener const& listener, Diagnostics& diagnostics);

  std::vector<std::unique_ptr<AclTally>> const& acls() const { return acls_; }
  uint64_t read() const { return classified_ + leftOutInAll_; }
  /// Packets that were looked up in at least one ACL.
  uint64_t classified() const { return classified_; }
  std::map<std::string, uint64_t> const& leftOut() const { return leftOut_; }
  uint64_t differences() const { return differences_; }
  uint64_t fromTraces() const { return fromTraces_; }
  uint64_t later() const { return later_; }

 private:
  void take(size_t file, FilePacket const& packet, Listener const& listener);
  void leaveOut(size_t file, size_t number, std::string const& reason, Listener const& listener);
  void lookUp(size_t file, FilePacket const& packet, AclTally& acl, Listener const& listener);
  bool isLater(AclTally const& acl, std::optional<Naxel::AceIndex> rule, uint32_t drawnFrom) const;

  Session& session_;
  RuleSet const& rules_;
  PacketFiles const& files_;
  std::string only_;
  std::vector<std::unique_ptr<AclTally>> acls_;  // in the order of names
  std::map<std::string, AclTally*, std::less<>> byName_;
  std::array<std::vector<AclTally*>, 2> byFamily_;
  std::map<std::string, uint64_t> leftOut_;
  uint64_t leftOutInAll_ = 0;
  uint64_t classified_ = 0;
  uint64_t differences_ = 0;
  uint64_t fromTraces_ = 0;
  uint64_t later_ = 0;
};

}  // namespace NaxelTool
