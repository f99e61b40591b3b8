#pragma once

/// The lines of a configuration that begin a list or a group, or take one away, and those of a listing that
/// head a list.

#include "input/text/ObjectGroups.h"
#include "input/text/Words.h"
#include "lumox/AddressFamily.h"

#include <optional>
#include <string_view>

namespace NaxelTool {

struct ListHead {
  bool away = false;      ///< "no" stands in front
  bool other = false;     ///< of a kind that holds no rules for IP packets: it ends the list before
  bool listing = false;   ///< in the output of a show command
  bool standard = false;  ///< its entries have sources only
  Lumox::AddressFamily af = Lumox::AddressFamily::ipv4;
  Word name{};
  Words entry{};  ///< of a numbered list whose line has an entry, or a remark: from there on
};

/// What the line begins; none if it is no head of a list.
std::optional<ListHead> listHead(Words line);

struct GroupHead {
  bool away = false;
  Word name{};
  GroupKind kind = GroupKind::network;
  ValueSet protocols{};  ///< those of all ports in it
};

/// The same for groups, those of an ASA among them.
std::optional<GroupHead> groupHead(Words line);

}  // namespace NaxelTool
