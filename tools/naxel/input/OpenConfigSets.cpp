#include "input/OpenConfigSets.h"

#include "input/Intervals.h"

namespace NaxelTool::OpenConfig {

namespace {

/// Calls `read(name, config)` for each set of a list, and tells what it throws.
template <class Read>
void forEachSet(RuleReading& reading, Values const& values, JsonNode const& node, Read read) {
  values.forEach(node, [&](JsonNode const& set) {
    try {
      JsonNode const* const config = values.find(set, "config");
      JsonNode const* name = values.find(set, "name");
      if (!name && config) name = values.find(*config, "name");
      if (!name || !config) values.file().fail(set, "a set needs 'name' and 'config'");
      read(values.file().name(*name, "name"), *config, name->at());
    } catch (InputError const& e) {
      reading.error(e, "set");
    }
  });
}

/// Calls `f` for each item of a leaf-list, if it is there.
template <class F>
void forEachOf(Values const& values, JsonNode const& config, std::string_view name, F f) {
  if (JsonNode const* const list = values.find(config, name)) values.forEach(*list, f);
}

}  // namespace

void Sets::read(RuleReading& reading, Values const& values, JsonNode const& node) {
  for (auto const& [container, list, af] :
       {std::tuple("ipv4-prefix-sets", "ipv4-prefix-set", Lumox::ipv4()),
        std::tuple("ipv6-prefix-sets", "ipv6-prefix-set", Lumox::ipv6())})
    if (JsonNode const* const sets = values.find(node, container))
      if (JsonNode const* const all = values.find(*sets, list))
        readPrefixes(reading, values, *all, af);
  if (JsonNode const* const sets = values.find(node, "port-sets"))
    if (JsonNode const* const all = values.find(*sets, "port-set"))
      readPorts(reading, values, *all);
}

void Sets::readPrefixes(RuleReading& reading, Values const& values, JsonNode const& node,
                        Lumox::AddressFamily af) {
  auto& all = prefixes_[af == Lumox::ipv4() ? 0 : 1];
  forEachSet(reading, values, node,
             [&](std::string const& name, JsonNode const& config, Position at) {
               auto const [entry, isNew] = all.try_emplace(name);
               if (!isNew) values.file().fail(at, "duplicate prefix set '" + name + "'");
               NamedList set;
               set.list = Mox::makePtr<Naxel::IpPrefixList>();
               set.af = af;
               auto const prefixOf = [&](JsonNode const& item) {
                 Lumox::IpGenPrefix const prefix = values.prefix(item);
                 if (prefix.af() != af)
                   values.file().fail(item, "the prefix is not of " + Mox::stringValue(af));
                 return prefix;
               };
               forEachOf(values, config, "prefix",
                         [&](JsonNode const& item) { set.list->addrIs(prefixOf(item)); });
               forEachOf(values, config, "exclude-prefix",
                         [&](JsonNode const& item) { set.list->exceptAddrIs(prefixOf(item)); });
               if (!set.list->families().any())
                 values.file().fail(at, "prefix set '" + name + "' is empty");
               set.everything = matchesEverything(*set.list);
               if (JsonNode const* const about = values.find(config, "description"))
                 set.description = values.file().text(*about, "description");
               reading.rules().lists().nameIs(set.list, name);
               entry->second = std::move(set);
             });
}

void Sets::readPorts(RuleReading& reading, Values const& values, JsonNode const& node) {
  forEachSet(
      reading, values, node, [&](std::string const& name, JsonNode const& config, Position at) {
        auto const [entry, isNew] = ports_.try_emplace(name);
        if (!isNew) values.file().fail(at, "duplicate port set '" + name + "'");
        auto const rangesOf = [&](std::string_view field) {
          RuleDraft::Ranges ranges;
          forEachOf(values, config, field,
                    [&](JsonNode const& item) { ranges.push_back(values.port(item)); });
          return valuesOf(ranges);
        };
        for (Interval const& i : without(rangesOf("port"), rangesOf("exclude-port")))
          entry->second.emplace_back(static_cast<uint32_t>(i.first), static_cast<uint32_t>(i.last));
        if (entry->second.empty()) values.file().fail(at, "port set '" + name + "' is empty");
      });
}

NamedList const* Sets::prefixes(Lumox::AddressFamily af, std::string_view name) const {
  auto const& all = prefixes_[af == Lumox::ipv4() ? 0 : 1];
  auto const found = all.find(name);
  return found == all.end() ? nullptr : &found->second;
}

RuleDraft::Ranges const* Sets::ports(std::string_view name) const {
  auto const found = ports_.find(name);
  return found == ports_.end() ? nullptr : &found->second;
}

}  // namespace NaxelTool::OpenConfig
