#include "Config.h"

#include <charconv>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace ExampleAgent {

namespace {

using namespace Naxel;

[[noreturn]] void refuse(std::string const& why) { throw std::runtime_error(why); }

uint32_t number(std::string const& text, uint32_t largest) {
  uint32_t n = 0;
  char const* const end = text.data() + text.size();
  if (auto const [at, error] = std::from_chars(text.data(), end, n);
      error != std::errc() || at != end || n > largest)
    refuse("'" + text + "' is no number from 0 to " + std::to_string(largest));
  return n;
}

template <class R>
R range(std::string const& text) {
  size_t const dash = text.find('-');
  uint32_t const first = number(text.substr(0, dash), R::bound);
  return R(first, dash == std::string::npos ? first : number(text.substr(dash + 1), R::bound));
}

class Reader {
 public:
  void line(std::string const& text) {
    words_ = std::istringstream(text);
    std::string const first = word();
    if (first == "chip")
      chip();
    else if (first == "acl")
      acl();
    else if (!first.empty())
      rule(number(first, AceIndex::null));
  }
  Config& config() { return config_; }

 private:
  std::string word() {
    std::string w;
    words_ >> w;
    return w;
  }
  void chip() {
    auto const id = static_cast<uint8_t>(number(word(), 255));
    if (word() != "rows") refuse("expected: chip NUMBER rows NUMBER");
    if (!config_.rows.emplace(id, number(word(), 1u << 20)).second)
      refuse("the chip is there already");
    config_.acls[id];
  }
  void acl() {
    std::string const name = word();
    acl_.clear();
    for (std::string w; !(w = word()).empty();) {
      auto const chip = config_.acls.find(static_cast<uint8_t>(number(w, 255)));
      if (chip == config_.acls.end()) refuse("there is no chip " + w);
      auto const [at, isNew] = chip->second.try_emplace(name);
      if (!isNew) refuse("the ACL is there already on chip " + w);
      acl_.push_back(&at->second);
    }
    if (acl_.empty()) refuse("expected: acl NAME CHIP...");
  }
  void rule(uint32_t index) {
    std::string const verdict = word();
    if (verdict != "permit" && verdict != "deny")
      refuse("neither permit nor deny: '" + verdict + "'");
    Rule rule{AceIndex(index), verdict == "deny", {}};
    bool source = true;
    for (std::string key; !(key = word()).empty();) {
      if (key == "src" || key == "dst") source = key == "src";
      rule.matches.push_back(match(key, word(), source));
    }
    if (acl_.empty()) refuse("the rule is in no ACL");
    for (auto* const acl : acl_) acl->push_back(rule);
  }
  static std::function<void(RuleFilter&)> match(std::string const& key, std::string const& value,
                                                bool source) {
    if (key == "src" || key == "dst" || key == "except") {
      auto const prefix = Mox::valueFromText<Lumox::IpGenPrefix>(value);
      return [=, except = key == "except"](RuleFilter& f) {
        auto const list = source ? f.sourceIs() : f.destinationIs();
        except ? list->exceptAddrIs(prefix) : list->addrIs(prefix);
      };
    }
    if (key == "proto") return [r = range<ProtoRange>(value)](RuleFilter& f) { f.protoIs(r); };
    if (key == "sport")
      return [r = range<L4PortRange>(value)](RuleFilter& f) { f.sportRangeIs(r); };
    if (key == "dport")
      return [r = range<L4PortRange>(value)](RuleFilter& f) { f.dportRangeIs(r); };
    refuse("unknown: '" + key + "'");
  }

  std::istringstream words_;
  Config config_;
  std::vector<std::vector<Rule>*> acl_;  // the one that the next rules are of, by chip
};

}  // namespace

Config readConfig(std::string const& path) {
  std::ifstream file(path);
  if (!file) refuse(path + ": cannot be read");
  Reader reader;
  size_t at = 0;
  for (std::string text; ++at, std::getline(file, text);) {
    try {
      reader.line(text.substr(0, text.find('#')));
    } catch (
        std::exception const& e) {  // the library's values say in words what is wrong with them
      refuse(path + ":" + std::to_string(at) + ": " + e.what());
    }
  }
  // A kick would find the first error only, and an empty list would end the process.
  for (auto const& [chip, rows] : reader.config().rows) {
    auto const candidate = aclConfigCollFactory(Obel::ChipId(chip));
    writeAcls(*candidate, reader.config());
    for (ConfigError const& e : validate(*chipHwCapabilityFactory(Obel::ChipId(chip)), *candidate))
      refuse(path + ": " + e.text);
  }
  return std::move(reader.config());
}

void writeAcls(AclConfigColl& to, Config const& config) {
  to.aclDelAll();
  for (auto const& [name, rules] : config.acls.at(to.chipId().value())) {
    auto const acl = to.aclIs(name);
    for (Rule const& from : rules) {
      auto const rule = acl->ruleByNameIs(std::to_string(from.index.value()));
      rule->ruleFilterDel();
      for (auto const& match : from.matches) match(*rule->ruleFilterIs());
      NaxelActionValue action;
      action.dropEnabledIs(from.denies);
      rule->actionIs(action);
      acl->ruleByIdIs(from.index, rule);
    }
  }
}

}  // namespace ExampleAgent
