#pragma once

/// Named groups of addresses, and of protocols and ports, which entries and other groups refer to.
///
/// Groups are read when the first entry needs them, since a group may stand behind its users and may be wrong
/// where nothing uses it. Each is resolved once, into what it holds with all groups within; whatever is wrong
/// with it is said at every entry that uses it. Cost: the members, plus those of the groups within for each
/// group that has them, up to the limit of the file.

#include "input/text/TextContext.h"

#include <map>
#include <memory>
#include <optional>

namespace NaxelTool {

enum class GroupKind : uint8_t {
  network,   ///< addresses
  service,   ///< protocols, each with its ports or ICMP types
  port,      ///< ports alone
  protocol,  ///< protocols alone
  icmpType   ///< ICMP types alone
};

struct GroupContent {
  Prefixes prefixes{};
  std::vector<ServiceMatch> services{};
};

class ObjectGroups {
 public:
  struct Group {
    GroupKind kind = GroupKind::network;
    ValueSet protocols{};  ///< of all ports in the group; empty if each says it, or the entry does
    std::vector<Words> members{};  ///< lines, of which those with "no" in front take others away

    bool resolved = false;
    bool resolving = false;
    GroupContent content{};
    std::optional<AddressMatch> addresses{};  ///< of `content`, once an entry used them
    std::optional<EntryError> error{};        ///< why it cannot be used
  };

  explicit ObjectGroups(TextContext& context) : context_(context) {}

  /// Makes a group, or returns the one of that name. Addresses and services have names of their own.
  Group& groupIs(std::string_view name, GroupKind kind, ValueSet protocols = {});
  void groupDel(std::string_view name);
  bool has(std::string_view name, bool isNetwork) const {
    return groups_.contains({isNetwork, name});
  }

  /// The addresses, or the protocols and ports, of the group of that name. Throws EntryError, at the name,
  /// where there is none, it is empty, or something is wrong in it.
  AddressMatch const& addresses(Word name);
  std::vector<ServiceMatch> const& services(Word name) {
    return resolved(name, false).content.services;
  }
  GroupKind kind(Word name) { return resolved(name, false).kind; }

 private:
  using Key = std::pair<bool, std::string_view>;
  struct Step;

  Group& resolved(Word name, bool isNetwork);
  void resolve(Key const& root, Word at);
  /// Reads members until one names a group that is not known yet, which is returned.
  Group* readOn(Step& step, Word at);

  TextContext& context_;
  std::map<Key, Group> groups_;
};

/// Reads one member into what a group holds, or returns the name of the group that it is. Throws EntryError.
Word readMember(Words line, ObjectGroups::Group const& group, TextContext& context,
                GroupContent& out);

}  // namespace NaxelTool
