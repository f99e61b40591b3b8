#include "naxel/testing/RuleText.h"

#include "naxel/testing/Pieces.h"

#include <sstream>
#include <stdexcept>

namespace Naxel::Testing {

namespace {

[[noreturn]] void bad(std::string const& what) {
  throw std::invalid_argument("rule text: " + what);
}

void addPrefixes(IpPrefixList& list, std::string const& text) {
  for (std::string const& p : pieces(text, ",")) {
    bool const except = p.starts_with('!');
    auto const prefix = Mox::valueFromText<Lumox::IpGenPrefix>(p.substr(except));
    except ? list.exceptAddrIs(prefix) : list.addrIs(prefix);
  }
}

void addRanges(RuleFilter& filter, RangeSetType type, std::string const& text) {
  for (std::string const& part : pieces(text, ",")) {
    auto const ends = pieces(part, "-");
    auto const number = [](std::string const& n) { return static_cast<uint32_t>(std::stoul(n)); };
    filter.rangeIs(type, number(ends.front()), number(ends.back()));
  }
}

}  // namespace

RangeField const* rangeFieldOf(std::string_view word) {
  for (RangeField const& field : rangeFields)
    if (word.size() > 2 && field.name.starts_with(word)) return &field;
  return nullptr;
}

void fillFilter(RuleConfig& rule, std::string_view text) {
  std::istringstream in{std::string(text)};
  NaxelActionValue action;
  rule.ruleFilterDel();
  auto const value = [&] {
    std::string v;
    if (!(in >> v)) bad("value missing in " + std::string(text));
    return v;
  };
  for (std::string key; in >> key;) {
    auto const filter = rule.ruleFilterIs();
    if (key == "src")
      addPrefixes(*filter->sourceIs(), value());
    else if (key == "dst")
      addPrefixes(*filter->destinationIs(), value());
    else if (RangeField const* const field = rangeFieldOf(key))
      addRanges(*filter, field->type, value());
    else if (key == "init")
      filter->matchTcpInitIs(true);
    else if (key == "est")
      filter->matchTcpEstablishedIs(true);
    else if (key == "drop")
      action.dropEnabledIs(true);
    else if (key == "log")
      action.logEnabledIs(true);
    else if (key.starts_with("tc=")) {
      action.setTcEnabledIs(true);
      action.tcIs(NaxelTrafficClass(static_cast<uint8_t>(std::stoul(key.substr(3)))));
    } else
      bad("unknown key " + key);
  }
  rule.actionIs(action);
}

void addRules(AclConfigColl& coll, std::string_view text) {
  std::istringstream lines{std::string(text)};
  for (std::string line; std::getline(lines, line);) {
    std::istringstream in(line);
    std::string acl, index, name;
    if (!(in >> acl)) continue;
    if (acl == "af" || acl == "acl") {
      in >> name >> index;
      auto const config = coll.aclIs(name);
      if (acl == "af") config->afIs(*Mox::instanceFromText<Lumox::AddressFamily>(index));
      continue;
    }
    if (!(in >> index >> name)) bad(line);
    std::string rest;
    std::getline(in, rest);
    auto const config = coll.aclIs(acl);
    auto const rule = config->ruleByNameIs(name);
    config->ruleByIdIs(AceIndex(static_cast<uint32_t>(std::stoul(index))), rule);
    fillFilter(*rule, rest);
  }
}

}  // namespace Naxel::Testing
