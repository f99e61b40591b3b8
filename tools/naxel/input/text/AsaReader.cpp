#include "input/text/AsaReader.h"

#include "input/text/AsaEntry.h"
#include "input/text/IosHeads.h"
#include "input/text/ListRules.h"
#include "input/text/PositionedList.h"

#include <list>
#include <unordered_map>

namespace NaxelTool {

namespace {

/// How many lines may be looked at to find those that are taken away.
constexpr size_t mostComparisons = 20'000'000;

/// "ASA Version 9.0(3)"; 0 where the line says no version.
uint32_t majorVersion(Words line) {
  Word const product = line.take();
  if (!product.is("ASA") && !product.is("PIX") && !product.is("FWSM")) return 0;
  if (!line.takeIf("Version")) return 0;
  std::string_view const version = line.take().text;
  return decimalOf(version.substr(0, version.find_first_of(".(")), 1000).value_or(0);
}

bool isEntryWord(Word word) {
  return word.is("extended") || word.is("standard") || word.is("line") || word.is("remark") ||
         word.is("permit") || word.is("deny");
}

/// What "any" means: addresses of IPv6 as well since version 9, which has words for either family.
bool anyHasIpv6(std::string_view content) {
  Lines lines(content);
  for (Words line; lines.next(line);)
    if (uint32_t const major = majorVersion(line)) return major >= 9;
  lines = Lines(content);
  for (Words line; lines.next(line);)
    if (line.peek().is("access-list"))
      while (Word const word = line.take())
        if (word.is("any4") || word.is("any6")) return true;
  return false;
}

/// The lists, groups and names of one text while its lines are read, and the ACLs that they become.
class AsaText {
 public:
  explicit AsaText(RuleReading& reading)
      : reading_(reading), context_(reading, Dialect::asa), groups_(context_) {
    context_.anyHasIpv6 = anyHasIpv6(reading.content());
  }

  void read() {
    Lines lines(reading_.content());
    for (Words line; lines.next(line);)
      if (!line.atEnd() && !line.rest().starts_with('!')) readLine(line);
    for (PositionedList const& list : lists_) writeList(list);
  }

 private:
  /// An entry of a list, and what it matches.
  struct Read {
    std::vector<Entry> entries;
    uint64_t number;
    Word at;
    std::string description;
  };

  void readLine(Words line);
  bool readGroupLine(Words line);
  void readListLine(Words words, bool ipv6, size_t indent);
  void takeAway(Words words);
  void clear(Words words);
  void dropList(PositionedList& list, Place place);
  PositionedList& listIs(Word name);
  void writeList(PositionedList const& list);
  std::vector<Read> readEntries(PositionedList const& list, std::string& remarks);
  void writeFamily(PositionedList const& list, std::string const& name, Lumox::AddressFamily af,
                   std::vector<Read> const& all, std::string const& remarks);

  RuleReading& reading_;
  TextContext context_;
  ObjectGroups groups_;
  std::list<PositionedList> lists_;
  std::unordered_map<std::string_view, std::list<PositionedList>::iterator> byName_;
  ObjectGroups::Group* group_ = nullptr;
  size_t compared_ = 0;
};

void AsaText::readLine(Words line) {
  Words words = line;
  Word const first = words.take();
  if (group_ && line.indent() > 0) {
    group_->members.push_back(line);
    return;
  }
  group_ = nullptr;
  if (first.is("name")) {
    Word const address = words.take();
    if (Word const alias = words.take())
      context_.aliases.insert_or_assign(alias.text, address.text);
  } else if (first.is("access-list")) {
    readListLine(words, false, line.indent());
  } else if (first.is("ipv6") && words.takeIf("access-list")) {
    readListLine(words, true, line.indent());
  } else if (first.is("no") && words.takeIf("access-list")) {
    takeAway(words);
  } else if (first.is("clear")) {
    clear(words);
  } else if (auto const head = groupHead(line)) {
    if (head->away)
      groups_.groupDel(head->name.text);
    else
      group_ = &groups_.groupIs(head->name.text, head->kind, head->protocols);
  }
}

PositionedList& AsaText::listIs(Word name) {
  auto const [found, isNew] = byName_.try_emplace(name.text, lists_.end());
  if (isNew) {
    lists_.emplace_back(name.text, name.place);
    found->second = std::prev(lists_.end());
  }
  return *found->second;
}

/// "NAME [line N] [extended|standard] permit ..." and "NAME [line N] remark ...".
void AsaText::readListLine(Words words, bool ipv6, size_t indent) {
  Word const name = words.take();
  // Commands about all lists, and the heads of a listing: "NAME; 5 elements".
  if (!isEntryWord(words.peek())) {
    bool const other = words.peek().is("ethertype") || words.peek().is("webtype");
    if (other)
      context_.noteOnce(
          words.peek().place, "other-list",
          "lists of the kind " + quoted(words.peek()) + " hold no rules for IP packets");
    return;
  }
  uint64_t position = 0;
  if (words.takeIf("line")) {
    Word const number = words.take();
    position = decimalOf(number.text, UINT32_MAX).value_or(0);
    if (!position) {
      reading_.error(number.place, "syntax", quoted(number) + " is no number of a line");
      return;
    }
  }
  PositionedList& list = listIs(name);
  PositionedList::Line line;
  line.ipv6 = ipv6;
  line.isRemark = words.takeIf("remark");
  if (!line.isRemark && !words.takeIf("extended")) line.standard = words.takeIf("standard");
  line.words = words;
  PositionedList::Line* const last = list.last();
  // In a listing, what a line stands for follows it under the same number.
  if (indent && last && position == last->number && !line.isRemark)
    last->expanded.push_back(words);
  else
    list.lineIs(position, std::move(line));
}

void AsaText::dropList(PositionedList& list, Place place) {
  if (size_t const n = list.entries()) {
    reading_.counts().read += n;
    reading_.counts().reported += n;
    reading_.note(place, "taken-away",
                  "list " + quoted({list.name, {}}) + " is taken away here, with " +
                      std::to_string(n) + (n == 1 ? " entry" : " entries"));
  }
  auto const found = byName_.find(list.name);
  auto const where = found->second;
  byName_.erase(found);
  lists_.erase(where);
}

/// "no access-list NAME ...": one entry, or with nothing behind the name all of them.
void AsaText::takeAway(Words words) {
  Word const name = words.take();
  auto const found = byName_.find(name.text);
  if (found == byName_.end()) return;
  PositionedList& list = *found->second;
  if (words.atEnd()) return dropList(list, name.place);
  if (words.takeIf("line")) words.take();
  if (words.peek().is("remark")) return;
  if (!words.takeIf("extended")) words.takeIf("standard");
  if ((compared_ += list.entries()) > mostComparisons)
    throw InputError(reading_.path(), name.place.at,
                     "too many entries are taken away from long lists");
  if (!list.entryDel(words)) {
    reading_.warning(name.place, "nothing-to-take-away", "the list has no such entry");
    return;
  }
  ++reading_.counts().read;
  ++reading_.counts().reported;
  reading_.note(name.place, "taken-away", "an entry is taken away here");
}

/// "clear configure access-list [NAME]"
void AsaText::clear(Words words) {
  if (!words.takeIf("configure") || !words.takeIf("access-list")) return;
  Word const name = words.take();
  if (!name) {
    while (!lists_.empty()) dropList(lists_.front(), name.place);
  } else if (auto const found = byName_.find(name.text); found != byName_.end()) {
    dropList(*found->second, name.place);
  }
}

std::vector<AsaText::Read> AsaText::readEntries(PositionedList const& list, std::string& remarks) {
  std::vector<Read> out;
  list.forEach([&](PositionedList::Line const& line, uint64_t number) {
    if (line.isRemark) {
      remarks.append(remarks.empty() ? "" : "\n").append(line.words.rest());
      return;
    }
    Word const at = line.words.peek();
    AnyAddress const any{!line.ipv6, line.ipv6 || context_.anyHasIpv6};
    Read read{{}, number, at, std::move(remarks)};
    remarks.clear();
    try {
      // The line itself may speak of groups that a listing does not have.
      for (Words const& words : line.expanded.empty() ? std::vector{line.words} : line.expanded)
        read.entries.push_back(readAsaEntry(words, line.standard, any, context_, groups_));
      for (Entry const& entry : read.entries)
        if (!reading_.options().plainFragments) noteFragments(context_, entry, at.place);
      out.push_back(std::move(read));
    } catch (EntryError const& e) {
      reportEntry(reading_, e);
    }
  });
  return out;
}

void AsaText::writeFamily(PositionedList const& list, std::string const& name,
                          Lumox::AddressFamily af, std::vector<Read> const& all,
                          std::string const& remarks) {
  Mox::Ptr<Naxel::AclConfig> const acl = reading_.aclIs(name, af, list.place.at);
  EntryRules rules(context_, acl, false);
  for (Read const& read : all) {
    std::vector<Entry> entries;
    for (Entry const& entry : read.entries)
      if (Entry own = inFamily(entry, af); !own.services.empty()) entries.push_back(std::move(own));
    if (entries.empty()) continue;
    try {
      rules.entryIs(entries, read.number, read.at, read.description);
    } catch (EntryError const& e) {
      throw InputError(reading_.path(), e.place.at, e.what());
    }
  }
  if (reading_.options().implicitEnd)
    rules.endIs("implicit-deny", false, {list.lastLine, 0}, true, remarks);
}

void AsaText::writeList(PositionedList const& list) {
  ReadCounts& counts = reading_.counts();
  counts.read += list.entries();
  if (!list.entries()) {
    reading_.warning(list.place, "empty-list",
                     "list " + quoted({list.name, {}}) + " has no entries and is left out");
    return;
  }
  std::string remarks;
  std::vector<Read> const all = readEntries(list, remarks);
  auto const has = [&](Lumox::AddressFamily af) {
    for (Read const& read : all)
      for (Entry const& entry : read.entries)
        if (!inFamily(entry, af).services.empty()) return true;
    return false;
  };
  bool const ipv6 = has(Lumox::ipv6());
  bool const ipv4 = has(Lumox::ipv4()) || !ipv6;
  std::string const name(list.name);
  try {
    if (ipv4) writeFamily(list, name, Lumox::ipv4(), all, remarks);
    if (ipv6) writeFamily(list, ipv4 ? name + "-v6" : name, Lumox::ipv6(), all, remarks);
    counts.compiled += all.size();
  } catch (InputError const& e) {
    counts.reported += all.size();
    reading_.error({e.at()}, "list", e.text());
  }
}

}  // namespace

bool isAsaText(std::string_view content) {
  Lines lines(content);
  for (Words line; lines.next(line);) {
    if (majorVersion(line)) return true;
    if (!line.takeIf("access-list")) continue;
    Word const name = line.take();
    Word const word = line.take();
    if (word.is("extended") || word.is("line")) return true;
    if (word.is("standard") && (line.peek().is("permit") || line.peek().is("deny"))) return true;
    if (isEntryWord(word) && !decimalOf(name.text, UINT32_MAX)) return true;
  }
  return false;
}

void readAsa(RuleReading& reading) { AsaText(reading).read(); }

}  // namespace NaxelTool
