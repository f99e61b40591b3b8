#include "input/RuleSet.h"

#include "input/Intervals.h"

#include <stdexcept>

namespace NaxelTool {

Mox::Ptr<Naxel::AclConfig> RuleSet::aclIs(std::string const& name, Lumox::AddressFamily af,
                                          std::string const& file, Position at) {
  auto const [where, isNew] = file_.try_emplace(name, file);
  if (!isNew)
    throw InputError(file, at,
                     where->second == file
                         ? "duplicate ACL '" + name + "'"
                         : "ACL '" + name + "' stands in " + where->second + " already");
  Mox::Ptr<Naxel::AclConfig> acl = acls_->aclIs(name);
  acl->afIs(af);
  return acl;
}

Lumox::IpGenPrefix prefixFromText(std::string_view text) {
  std::string const quoted = "'" + std::string(text) + "'";
  size_t const slash = text.find('/');
  if (slash == std::string_view::npos)
    throw std::invalid_argument(quoted + " is not a prefix: the length is missing");
  unsigned const bits = text.find(':') == std::string_view::npos ? 32 : 128;
  std::string_view const digits = text.substr(slash + 1);
  bool const isNumber =
      !digits.empty() && digits.find_first_not_of("0123456789") == std::string_view::npos;
  if (isNumber && (digits.size() > 3 || std::stoul(std::string(digits)) > bits))
    throw std::invalid_argument(quoted + " is not a prefix: the length is beyond " +
                                std::to_string(bits));
  try {
    return Mox::valueFromText<Lumox::IpGenPrefix>(text);
  } catch (Mox::ParseError const&) {
  } catch (Mox::RangeError const&) {
  }
  throw std::invalid_argument(quoted + " is not a prefix");
}

bool matchesEverything(Naxel::IpPrefixList const& list) {
  return !list.addr().empty() && isEverything(addressesOf(list), bitsOf(list.addr().begin()->af()));
}

}  // namespace NaxelTool
