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

void RuleSet::descriptionIs(std::string const& acl, std::string text) {
  if (!text.empty()) description_.insert_or_assign(acl, std::move(text));
}

std::string const& RuleSet::description(std::string const& acl) const {
  static std::string const none;
  auto const found = description_.find(acl);
  return found == description_.end() ? none : found->second;
}

uint32_t RuleSet::fileIs(std::string path) {
  files_.push_back(std::move(path));
  return static_cast<uint32_t>(files_.size() - 1);
}

void RuleSet::originIs(std::string const& acl, Naxel::AceIndex rule, RuleOrigin origin) {
  origin_[acl].insert_or_assign(rule.value(), std::move(origin));
}

RuleOrigin const* RuleSet::origin(std::string const& acl, Naxel::AceIndex rule) const {
  auto const rules = origin_.find(acl);
  if (rules == origin_.end()) return nullptr;
  auto const found = rules->second.find(rule.value());
  return found == rules->second.end() ? nullptr : &found->second;
}

std::string RuleSet::originText(std::string const& acl, Naxel::AceIndex rule) const {
  RuleOrigin const* const from = origin(acl, rule);
  if (!from) return {};
  return files_[from->file] + (from->at.line ? ":" + std::to_string(from->at.line) : "");
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

Lumox::IpGenPrefix prefixOrHostFromText(std::string_view text) {
  if (text.find('/') != std::string_view::npos) return prefixFromText(text);
  try {
    return prefixFromText(std::string(text) +
                          (text.find(':') == std::string_view::npos ? "/32" : "/128"));
  } catch (std::invalid_argument const&) {
    throw std::invalid_argument("'" + std::string(text) + "' is no address");
  }
}

bool matchesEverything(Naxel::IpPrefixList const& list) {
  return !list.addr().empty() && isEverything(addressesOf(list), bitsOf(list.addr().begin()->af()));
}

}  // namespace NaxelTool
