#include "input/OpenConfigReader.h"

#include "input/OpenConfigEntry.h"
#include "input/OpenConfigFamilies.h"

#include <algorithm>
#include <map>

namespace NaxelTool {

namespace OpenConfig {
namespace {

/// A value in brackets of a path such as /acl/acl-sets/acl-set[name=x][type=ACL_IPV4].
std::string keyOfPath(std::string_view path, std::string_view key) {
  size_t const at = path.find("[" + std::string(key) + "=");
  if (at == std::string_view::npos) return {};
  std::string_view const rest = path.substr(at + key.size() + 2);
  return std::string(rest.substr(0, rest.find(']')));
}

class FileReader {
 public:
  explicit FileReader(RuleReading& reading)
      : reading_(reading),
        file_(reading.path()),
        context_{Values(file_), {}, reading.options().strict, 0, 0, {}, {}} {}

  void read() {
    std::string_view content = reading_.content();
    Position start{1, 1};
    // A path may stand in a line before the object.
    size_t const first = content.find_first_not_of(" \t\r\n");
    if (first != std::string_view::npos && content[first] == '/') {
      size_t const end = std::min(content.find('\n', first), content.size());
      path_ = content.substr(first, end - first);
      start = positionOf(reading_.content(), end);
      content.remove_prefix(end);
    }
    root_ = parseJson(reading_.path(), content, JsonDuplicates::refused, start);
    findSets(root_);
    findAcls(root_);
    if (!found_)
      throw InputError(reading_.path(), root_.at(), "there is no 'acl-set' in this file");
    remark();
  }

 private:
  JsonNode const* find(JsonNode const& node, std::string_view name) const {
    return context_.values.find(node, name);
  }
  static bool isSkipped(std::string_view name) { return name == "state"; }

  void findSets(JsonNode const& node) {
    if (node.items())
      for (JsonNode const& item : *node.items()) findSets(item);
    if (!node.members()) return;
    for (JsonMember const& m : *node.members()) {
      std::string_view const name = baseName(m.name);
      if (name == "defined-sets")
        context_.sets.read(reading_, context_.values, m.value);
      else if (name != "acl-entries" && !isSkipped(name))
        findSets(m.value);
    }
  }

  void findAcls(JsonNode const& node) {
    if (node.items())
      for (JsonNode const& item : *node.items()) findAcls(item);
    if (!node.members()) return;
    if (find(node, "acl-entries")) return readAcl(node, keyOfPath(path_, "name"), false);
    for (JsonMember const& m : *node.members()) {
      std::string_view const name = baseName(m.name);
      if (name == "acl-set")
        readAcls(m.value);
      else if (name == "interfaces" && find(m.value, "interface"))
        reading_.note({m.at()}, "bindings", "what ACLs are bound to is not read");
      else if (!isSkipped(name))
        findAcls(m.value);
    }
  }

  /// A list, or in the older dialect a map by name.
  void readAcls(JsonNode const& node) {
    found_ = true;
    if (!node.members()) {
      for (JsonNode const& item : file_.array(node, "acl-set")) readAcl(item, {}, false);
      return;
    }
    for (JsonMember const& m : *node.members()) {
      if (m.value.members())
        readAcl(m.value, m.name, true);
      else
        reading_.note({m.at()}, "no-acl", "'" + m.name + "' is no ACL");
    }
  }

  void readAcl(JsonNode const& node, std::string const& key, bool old) {
    found_ = true;
    JsonNode const* entries = nullptr;
    try {
      JsonNode const* const container = find(node, "acl-entries");
      if (container) file_.object(*container, "'acl-entries'", {});
      if (container) entries = find(*container, "acl-entry");
      old = old || (entries && (entries->members() || hasIp(*entries)));
      AclDraft acl;
      acl.at = node.at();
      acl.endsInDeny = old;
      JsonNode const* const config = find(node, "config");
      JsonNode const* name = find(node, "name");
      if (!name && config) name = find(*config, "name");
      acl.name = old && !key.empty() ? key : name ? file_.name(*name, "name") : key;
      if (acl.name.empty()) file_.fail(node, "the ACL has no name");
      if (JsonNode const* const about = config ? find(*config, "description") : nullptr)
        acl.description = file_.text(*about, "description");
      acl.families = familiesOf(node, config);
      if (!acl.families && entries) acl.families = familiesOfAll(*entries);
      if (entries) readEntries(*entries, acl, old);
      makeAcl(reading_, acl);
      if (old && !oldAt_) oldAt_ = node.at();
    } catch (UnsupportedError const& e) {
      reading_.counts().leftOut += lose(entries);
      reading_.unsupported({e.at()}, e.text(), e.help());
    } catch (InputError const& e) {
      lose(entries);
      reading_.error(e, "acl");
    }
  }

  /// An entry with the container that only the older dialect has.
  bool hasIp(JsonNode const& entries) const {
    return entries.items() &&
           std::any_of(entries.items()->begin(), entries.items()->end(),
                       [&](JsonNode const& entry) { return find(entry, "ip") != nullptr; });
  }

  /// The entries of an ACL that cannot be read count as well.
  size_t lose(JsonNode const* entries) {
    if (!entries) return 0;
    size_t const n = entries->items()     ? entries->items()->size()
                     : entries->members() ? entries->members()->size()
                                          : 0;
    reading_.counts().read += n;
    reading_.counts().reported += n;
    return n;
  }

  std::optional<Families> familiesOf(JsonNode const& node, JsonNode const* config) {
    JsonNode const* type = find(node, "type");
    if (!type && config) type = find(*config, "type");
    std::string const inPath = keyOfPath(path_, "type");
    if (!type && inPath.empty()) return std::nullopt;
    std::string_view const text = type ? context_.values.identity(*type, "type") : baseName(inPath);
    Position const at = type ? type->at() : node.at();
    if (text == "ACL_IPV4") return Families{true, false};
    if (text == "ACL_IPV6") return Families{false, true};
    if (text == "ACL_MIXED") return Families{true, true};
    if (text == "ACL_L2" || text == "ACL_MPLS")
      throw UnsupportedError(file_.path(), at,
                             "an ACL of type " + std::string(text) + " is not about IP packets");
    throw InputError(file_.path(), at, "there is no type '" + std::string(text) + "' of ACLs",
                     didYouMean(text, {"ACL_IPV4", "ACL_IPV6", "ACL_MIXED"}));
  }

  /// What any of the entries names: what a rule cannot say of one does not take its family from the list.
  std::optional<Families> familiesOfAll(JsonNode const& entries) const {
    Families found{false, false};
    auto const add = [&](JsonNode const& entry) {
      try {
        found = found | familiesNamed(context_.values, entry);
      } catch (InputError const&) {
        // Told when the entry is read.
      }
    };
    if (entries.members())
      for (JsonMember const& m : *entries.members()) add(m.value);
    if (entries.items())
      for (JsonNode const& item : *entries.items()) add(item);
    return found.none() ? std::nullopt : std::optional(found);
  }

  void readEntries(JsonNode const& entries, AclDraft& acl, bool old) {
    std::map<uint64_t, EntryDraft> bySequence;
    uint32_t number = 0;
    Families const families = acl.families.value_or(untoldFamilies);
    auto const readOne = [&](JsonNode const& node, std::string const* key) {
      readEntry(reading_, [&] {
        uint64_t const sequence = sequenceOf(node, key);
        if (bySequence.contains(sequence))
          file_.fail(node, "duplicate sequence-id " + std::to_string(sequence) + " in ACL '" +
                               acl.name + "'");
        EntryDraft entry = readAclEntry(context_, node, families, old);
        entry.index = sequence;
        entry.name = std::to_string(sequence);
        entry.origin.at = node.at();
        entry.origin.entry = number;
        bySequence.emplace(sequence, std::move(entry));
      });
      ++number;
    };
    if (entries.members())
      for (JsonMember const& m : *entries.members()) readOne(m.value, &m.name);
    else
      for (JsonNode const& item : file_.array(entries, "acl-entry")) readOne(item, nullptr);
    acl.entries.reserve(bySequence.size());
    for (auto& [sequence, entry] : bySequence) acl.entries.push_back(std::move(entry));
  }

  /// The number of an entry; what stands in its configuration goes before the key of a map.
  uint64_t sequenceOf(JsonNode const& node, std::string const* key) {
    JsonNode const* const config = find(node, "config");
    JsonNode const* id = find(node, "sequence-id");
    if (!id && config) id = find(*config, "sequence-id");
    if (id) return context_.values.number(*id, "sequence-id", 0, UINT32_MAX);
    if (key && !key->empty() && key->size() < 10 &&
        key->find_first_not_of("0123456789") == std::string::npos)
      return std::stoul(*key);
    file_.fail(node, "the entry has no sequence-id");
  }

  void remark() {
    if (oldAt_)
      reading_.note({*oldAt_}, "dialect",
                    "the older dialect is read: numbers of 0 ask for nothing, and a list ends in "
                    "a drop");
    if (context_.icmpOf6)
      reading_.note({*context_.icmpOf6}, "icmp",
                    "'IP_ICMP' is read as protocol 58, ICMPv6, in entries and lists of IPv6");
    if (context_.icmpOfAny)
      reading_.note({*context_.icmpOfAny}, "icmp",
                    "'IP_ICMP' is read as protocol 1, also in IPv6, in entries that name no family "
                    "in lists of both");
    if (context_.rejects)
      reading_.note({}, "reject",
                    std::to_string(context_.rejects) +
                        (context_.rejects == 1 ? " entry rejects" : " entries reject") +
                        " packets, which is read as a drop");
  }

  RuleReading& reading_;
  JsonFile file_;
  Context context_;
  JsonNode root_;
  std::string_view path_;
  bool found_ = false;
  std::optional<Position> oldAt_;
};

}  // namespace
}  // namespace OpenConfig

bool looksLikeOpenConfig(std::string_view content) {
  for (std::string_view const name : {"acl-set", "acl-sets", "acl-entries", "defined-sets"})
    for (std::string const& quoted :
         {"\"" + std::string(name) + "\"", ":" + std::string(name) + "\""})
      if (content.find(quoted) != std::string_view::npos) return true;
  return false;
}

void readOpenConfig(RuleReading& reading) { OpenConfig::FileReader(reading).read(); }

}  // namespace NaxelTool
