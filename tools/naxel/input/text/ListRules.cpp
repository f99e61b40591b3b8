#include "input/text/ListRules.h"

#include "input/text/IosEntry.h"
#include "input/text/Names.h"

#include <algorithm>

namespace NaxelTool {

namespace {

/// Puts the rules of a list's end behind its entries.
void addEnd(NumberedList const& list, EntryRules& rules, TextContext& context,
            std::string const& remarks) {
  Position const end{list.lastLine, 0};
  if (list.restOfFragments) {
    bool const permit = *list.restOfFragments;
    rules
        .endIs(permit ? "fragments-permit-all" : "fragments-deny-all", permit, {list.restLine, 0},
               false)
        .fragmentIs({1, Naxel::FragmentRange::bound});
    ++context.reading.counts().compiled;
  }
  ReadOptions const& options = context.reading.options();
  if (!options.implicitEnd) return;
  if (list.af == Lumox::ipv6()) {
    bool const permits = options.ndPermits.value_or(endsInNdPermits(context.dialect));
    if (!options.ndPermits && !permits)
      context.noteOnce(list.place, "nd-permits",
                       "a list of IPv6 is taken to end in a plain deny, which drops neighbour "
                       "discovery as well",
                       "--nd-permits=yes if the platform permits it");
    if (permits)
      for (auto const& [name, type] :
           {std::pair("implicit-nd-na", 136u), {"implicit-nd-ns", 135u}}) {
        Naxel::RuleFilter& filter = rules.endIs(name, true, end, true);
        filter.protoIs({icmp6Protocol, icmp6Protocol});
        filter.icmpTypeIs({type, type});
      }
  }
  rules.endIs("implicit-deny", false, end, true, remarks);
}

}  // namespace

void reportEntry(RuleReading& reading, EntryError const& error) {
  ++reading.counts().reported;
  switch (error.kind) {
    case EntryError::Kind::wrong:
      ++reading.counts().leftOut;
      reading.wrongEntry(error.place, error.code, error.what(), error.help);
      return;
    case EntryError::Kind::unsupported:
      ++reading.counts().leftOut;
      reading.unsupported(error.place, error.what(), error.help);
      return;
    case EntryError::Kind::ineffective:
      reading.note(error.place, error.code, error.what(), error.help);
      return;
  }
}

void noteFragments(TextContext& context, Entry const& entry, Place place) {
  bool const layer4 = entry.established || entry.opening ||
                      std::any_of(entry.services.begin(), entry.services.end(),
                                  [](ServiceMatch const& s) { return s.looksAtLayer4(); });
  if (layer4)
    context.noteOnce(
        place, "fragments",
        "entries that look at layer 4 are taken not to match what lies behind the first "
        "fragment of a packet",
        "--fragments=plain says that this is meant");
}

void readIosList(NumberedList const& list, std::string const& name, TextContext& context,
                 ObjectGroups& groups) {
  RuleReading& reading = context.reading;
  size_t const entries = list.entries() + (list.restOfFragments ? 1 : 0);
  reading.counts().read += entries;
  if (!list.entries()) {
    reading.counts().reported += entries;
    reading.warning(list.place, "empty-list",
                    "list " + quoted({list.name, {}}) + " has no entries and is left out",
                    "a device lets everything through it, or nothing");
    return;
  }
  Mox::Ptr<Naxel::AclConfig> acl;
  try {
    acl = reading.aclIs(name, list.af, list.place.at);
  } catch (InputError const& e) {
    reading.counts().reported += entries;
    reading.error(list.place, "duplicate-acl", e.text());
    return;
  }
  bool const plain = reading.options().plainFragments;
  bool const defined = definesFragments(context.dialect, list.af);
  EntryRules rules(context, acl, defined && !plain);
  std::vector<Words> remarks;  // numbered ones, since the last entry
  for (auto const& [number, line] : list.lines()) {
    if (line.isRemark) {
      remarks.push_back(line.words);
      continue;
    }
    Word const at = line.words.peek();
    try {
      Entry const entry = readIosEntry(line.words, list.af, list.standard, context, groups);
      if (!defined && !plain) noteFragments(context, entry, at.place);
      rules.entryIs({entry}, number, at, descriptionOf(remarks.empty() ? line.remarks : remarks));
      ++reading.counts().compiled;
    } catch (EntryError const& e) {
      reportEntry(reading, e);
    }
    remarks.clear();
  }
  addEnd(list, rules, context, descriptionOf(remarks.empty() ? list.pendingRemarks() : remarks));
}

}  // namespace NaxelTool
