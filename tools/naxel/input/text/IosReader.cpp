#include "input/text/IosReader.h"

#include "input/text/IosHeads.h"
#include "input/text/ListRules.h"
#include "input/text/NumberedList.h"

#include <list>
#include <map>
#include <set>

namespace NaxelTool {

namespace {

/// Lines of a list that say nothing about which packets it lets through.
bool isAboutList(Word word) {
  for (std::string_view const name :
       {"statistics", "counters", "hardware", "ignore", "Total", "Configured", "Active"})
    if (word.is(name)) return true;
  return false;
}

/// The lists and groups of one text while its lines are read.
class IosText {
 public:
  IosText(RuleReading& reading, FoundDialect const& dialect)
      : reading_(reading), context_(reading, dialect.dialect), groups_(context_) {}

  void read() {
    Lines lines(reading_.content());
    for (Words line; lines.next(line);) {
      if (line.atEnd() || line.rest().starts_with('!')) continue;
      if (line.indent() == 0 && line.peek().is("banner"))
        skipBanner(line, lines);
      else
        readLine(line);
    }
    for (NumberedList const& list : lists_) readIosList(list, nameFor(list), context_, groups_);
  }

 private:
  using Key = std::pair<Lumox::AddressFamily, std::string_view>;

  void readLine(Words line);
  void skipBanner(Words line, Lines& lines);
  void openList(ListHead const& head, Words line);
  void openGroup(GroupHead const& head, Words line);
  bool readListLine(Words line);
  bool takeAway(Words words);
  void addLine(std::optional<uint32_t> number, Words words);
  void addNumbered(std::optional<uint32_t> number, NumberedList::Line line);
  void dropEntries(size_t n, Place place, std::string const& what);
  std::string nameFor(NumberedList const& list) const;

  RuleReading& reading_;
  TextContext context_;
  ObjectGroups groups_;
  std::list<NumberedList> lists_;
  std::map<Key, std::list<NumberedList>::iterator> byName_;
  // What the next lines belong to.
  NumberedList* list_ = nullptr;
  ObjectGroups::Group* group_ = nullptr;
  size_t headIndent_ = 0;
  std::set<std::string, std::less<>> openBanners_;  // ends that no line from here on has
};

void IosText::readLine(Words line) {
  if (auto const head = listHead(line)) return openList(*head, line);
  if (auto const head = groupHead(line)) return openGroup(*head, line);
  if (list_ && readListLine(line)) return;
  if (group_ && line.indent() > headIndent_) {
    group_->members.push_back(line);
    return;
  }
  list_ = nullptr;
  group_ = nullptr;
}

/// The text of a banner may look like anything. It ends where its first letter comes again, or at "EOF".
void IosText::skipBanner(Words line, Lines& lines) {
  list_ = nullptr;
  group_ = nullptr;
  line.take();
  line.take();
  std::string_view const text = line.rest();
  std::string_view const end =
      text.empty() ? "EOF" : text.substr(0, text.starts_with("^C") ? 2 : 1);
  if (!text.empty() && text.find(end, end.size()) != std::string_view::npos) return;
  if (openBanners_.contains(end)) return;
  Lines probe = lines;
  for (Words next; probe.next(next);)
    if (next.rest().find(end) != std::string_view::npos) {
      lines = probe;
      return;
    }
  openBanners_.emplace(end);
}

void IosText::openList(ListHead const& head, Words line) {
  list_ = nullptr;
  group_ = nullptr;
  headIndent_ = line.indent();
  if (head.other) return;
  auto const found = byName_.find({head.af, head.name.text});
  if (head.away) {
    if (found == byName_.end()) return;
    dropEntries(found->second->entries(), head.name.place,
                "list " + quoted(head.name) + " is taken away here");
    lists_.erase(found->second);
    byName_.erase(found);
    return;
  }
  if (found == byName_.end()) {
    lists_.emplace_back(head.name.text, head.af, head.standard, head.name.place);
    list_ = &lists_.back();
    byName_.emplace(Key(head.af, head.name.text), std::prev(lists_.end()));
  } else {
    list_ = &*found->second;
    if (list_->standard != head.standard)
      reading_.error(head.name.place, "list-kind",
                     "list " + quoted(head.name) + " is a standard list and an extended one");
  }
  if (Words entry = head.entry; !entry.atEnd()) {
    auto const number = decimalOf(entry.peek().text, UINT32_MAX);
    if (number) entry.take();
    addLine(number, entry);
    list_ = nullptr;
  }
}

void IosText::openGroup(GroupHead const& head, Words line) {
  list_ = nullptr;
  group_ = nullptr;
  headIndent_ = line.indent();
  if (head.away)
    groups_.groupDel(head.name.text);
  else
    group_ = &groups_.groupIs(head.name.text, head.kind, head.protocols);
}

void IosText::dropEntries(size_t n, Place place, std::string const& what) {
  if (!n) return;
  reading_.counts().read += n;
  reading_.counts().reported += n;
  reading_.note(place, "taken-away",
                what + ", with " + std::to_string(n) + (n == 1 ? " entry" : " entries"));
}

/// Reads a line if it belongs to the list.
bool IosText::readListLine(Words line) {
  Words words = line;
  bool const within = line.indent() > headIndent_;
  Word const first = words.peek();
  if (first.is("exit") || first.is("end")) return false;
  if (words.takeIf("no")) return takeAway(words) || within;
  if (isAboutList(first)) return true;
  if (first.is("fragments") && !words.atEnd()) {
    words.take();
    bool const permit = words.peek().is("permit-all");
    if (!permit && !words.peek().is("deny-all")) return false;
    // The second such line takes the place of the first.
    if (list_->restOfFragments)
      dropEntries(1, first.place, "the line before about fragments is replaced");
    list_->restOfFragments = permit;
    list_->restLine = line.line();
    return true;
  }
  std::optional<uint32_t> number;
  if (!words.takeIf("sequence")) words.takeIf("seq");
  if ((number = decimalOf(words.peek().text, UINT32_MAX))) words.take();
  Word const action = words.peek();
  if (!action.is("permit") && !action.is("deny") && !action.is("remark") && !within) return false;
  addLine(number, words);
  return true;
}

/// "no 10", "no permit tcp any any".
bool IosText::takeAway(Words words) {
  Word const word = words.peek();
  if (isAboutList(word) || word.is("remark") || word.is("fragments")) {
    if (word.is("fragments") && list_->restOfFragments) {
      dropEntries(1, word.place, "the line about fragments is taken away");
      list_->restOfFragments.reset();
    }
    return true;
  }
  words.takeIf("sequence");
  std::optional<uint64_t> number = decimalOf(words.peek().text, UINT32_MAX);
  if (!number && (word.is("permit") || word.is("deny"))) {
    number = list_->sameEntry(words);
    if (!number) number = 0;  // that of no line
  }
  if (!number) return false;
  auto const* const line = list_->line(*number);
  if (!line) {
    reading_.warning(word.place, "nothing-to-take-away", "the list has no such entry");
    return true;
  }
  dropEntries(line->isRemark ? 0 : 1, word.place,
              "line " + std::to_string(line->words.line()) + " is taken away here");
  list_->lineDel(*number);
  return true;
}

void IosText::addLine(std::optional<uint32_t> number, Words words) {
  if (words.takeIf("remark")) {
    if (number || numbersRemarks(context_.dialect))
      addNumbered(number, {words, true, {}});
    else
      list_->remarkIs(words);
    return;
  }
  if (!number && list_->af == Lumox::ipv6()) {
    // In a listing of IPv6 the number stands behind.
    for (Words behind = words; !behind.atEnd();)
      if (behind.take().is("sequence")) number = decimalOf(behind.peek().text, UINT32_MAX);
  }
  addNumbered(number, {words, false, {}});
}

void IosText::addNumbered(std::optional<uint32_t> number, NumberedList::Line line) {
  uint64_t const wanted = number ? *number : list_->nextNumber();
  if (auto const* const before = list_->line(wanted)) {
    std::string const where = "line " + std::to_string(before->words.line());
    Place const place = line.words.peek().place;
    if (!replacesEntries(context_.dialect)) {
      reading_.wrongEntry(place, "duplicate-number",
                          "number " + std::to_string(wanted) + " is that of " + where + " already");
      if (!line.isRemark) {
        ++reading_.counts().read;
        ++reading_.counts().reported;
        ++reading_.counts().leftOut;
      }
      return;
    }
    dropEntries(before->isRemark ? 0 : 1, place, where + " is replaced here");
    list_->lineDel(wanted);
  }
  list_->lineIs(wanted, std::move(line));
}

/// Lists of both families may have one name, which ACLs may not.
std::string IosText::nameFor(NumberedList const& list) const {
  std::string name(list.name);
  if (list.af == Lumox::ipv6() && byName_.contains({Lumox::ipv4(), list.name})) name += "-v6";
  return name;
}

}  // namespace

bool isIosText(std::string_view content) {
  Lines lines(content);
  for (Words line; lines.next(line);)
    if (auto const head = listHead(line); head && (!head->other || head->listing)) return true;
  return false;
}

void readIos(RuleReading& reading) {
  if (reading.options().dialect) {
    IosText(reading, {*reading.options().dialect, 0}).read();
    return;
  }
  FoundDialect const dialect = findDialect(reading.content());
  if (dialect.dialect != Dialect::ios)
    reading.note({{dialect.line, 1}, reading.line(dialect.line).size()}, "dialect",
                 "the text is read as that of " + std::string(nameOf(dialect.dialect)));
  IosText(reading, dialect).read();
}

}  // namespace NaxelTool
