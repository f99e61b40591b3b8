#include "naxel/genset/GenSet.h"

#include "mox/OrderedMap.h"

#include <algorithm>
#include <iterator>

namespace Naxel {

namespace {

/// Members enter a content hash only as a sum, so their order does not matter.
/// This is a public function, so different members of equal sums can be computed. It serves the hash
/// attributes alone; whoever shares sets goes by place() and compares the content.
template <class Coll>
uint64_t sumOfHashes(Coll const& members) {
  uint64_t sum = 0;
  for (auto const& m : members) sum += m.hash();
  return sum;
}

uint32_t typedHash(uint32_t type, uint64_t sum) {
  return Mox::OneAtATime().bytes(type).bytes(sum).finish();
}

/// Place of members that stand in order.
/// They are sorted arrays, so equal content gives equal words in equal order.
template <class Coll>
uint64_t placeOfAll(Coll const& members) {
  Mox::KeyedHash h;
  for (auto const& m : members) Mox::placeWords(h, m);
  return h.finish();
}

/// Appends ": A, B and 3 more" for five members; `write` appends one member.
template <class Coll, class Write>
void appendMembers(std::string& out, char const* opening, Coll const& members, Write write) {
  size_t shown = 0;
  for (auto const& m : members) {
    if (shown == 2) break;
    out += shown == 0 ? opening : ", ";
    write(m);
    ++shown;
  }
  if (members.size() > 2) out += " and " + std::to_string(members.size() - 2) + " more";
}

}  // namespace

Mox::AttributeTable const& GenSetKeyGenerator::attributeTable() const {
  static Mox::AttributeTable const table = {Mox::attribute<&GenSetKeyGenerator::genKey_>("genKey"),
                                            Mox::operation("genKeyInc")};
  return table;
}

Mox::AttributeTable const& GenSet::attributeTable() const {
  static Mox::AttributeTable const table = {Mox::operation("hash"), Mox::operation("isEqual"),
                                            Mox::attribute<&GenSet::key_>("key")};
  return table;
}

Mox::AttributeTable const& PrefixSet::attributeTable() const {
  static Mox::AttributeTable const table = Mox::joinTables(
      GenSet::attributeTable(), {Mox::attribute<&PrefixSet::prefix_>("prefix"),
                                 Mox::attribute<&PrefixSet::exceptPrefix_>("exceptPrefix"),
                                 Mox::derivedAttribute<&PrefixSet::stringValue>("stringValue")});
  return table;
}

std::string PrefixSet::stringValue() const {
  std::string out = " Key: " + valueToStrep(key());
  auto const write = [&](Lumox::IpGenPrefix const& p) { out += valueToStrep(p); };
  appendMembers(out, ": ", prefix_, write);
  appendMembers(out, ", Except: ", exceptPrefix_, write);
  return out;
}

Mox::AttributeTable const& RangeSet::attributeTable() const {
  static Mox::AttributeTable const table = Mox::joinTables(
      GenSet::attributeTable(),
      {Mox::attribute<&RangeSet::type_>("type"), Mox::attribute<&RangeSet::range_>("range"),
       Mox::derivedAttribute<&RangeSet::stringValue>("stringValue")});
  return table;
}

uint32_t RangeSet::hash() const {
  return typedHash(static_cast<uint32_t>(type_), sumOfHashes(range_));
}

uint64_t RangeSet::place(RangeColl const& ranges) { return placeOfAll(ranges); }

bool RangeSet::isEqual(Mox::Ptr<Dedupable const> const& other) const {
  auto const* set = dynamic_cast<RangeSet const*>(other.get());
  return set && set->type_ == type_ && set->range_ == range_;
}

std::string RangeSet::stringValue() const {
  std::string out = " Key: " + valueToStrep(key()) + ", type:" + Mox::stringValue(type_);
  appendMembers(out, ": ", range_, [&](RangeSetElem const& e) {
    out += std::to_string(e.first()) + "-" + std::to_string(e.last());
  });
  return out;
}

Mox::AttributeTable const& ComboLabelSet::attributeTable() const {
  static Mox::AttributeTable const table =
      Mox::joinTables(GenSet::attributeTable(),
                      {Mox::attribute<&ComboLabelSet::type_>("type"),
                       Mox::attribute<&ComboLabelSet::comboLabel_>("comboLabel"),
                       Mox::derivedAttribute<&ComboLabelSet::stringValue>("stringValue")});
  return table;
}

uint32_t ComboLabelSet::hash() const {
  return typedHash(static_cast<uint32_t>(type_), sumOfHashes(comboLabel_));
}

uint64_t ComboLabelSet::place() const { return placeOfAll(comboLabel_); }

bool ComboLabelSet::isEqual(Mox::Ptr<Dedupable const> const& other) const {
  auto const* set = dynamic_cast<ComboLabelSet const*>(other.get());
  return set && set->type_ == type_ && set->comboLabel_ == comboLabel_;
}

std::string ComboLabelSet::stringValue() const {
  std::string out = " Key: " + valueToStrep(key()) + ", type:" + Mox::stringValue(type_);
  appendMembers(out, ": ", comboLabel_, [&](GenCombo const& c) {
    out += "<" + valueToStrep(c.srcLabel()) + ", " + valueToStrep(c.dstLabel()) + ">";
  });
  return out;
}

Mox::Ptr<GenSetKeyGroup> genSetKeyGroupFactory() { return Mox::makePtr<GenSetKeyGroup>(); }

Mox::AttributeTable const& GenSetKeyGroup::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::derivedAttribute<&GenSetKeyGroup::hash>("hash"), Mox::operation("isEqual"),
      Mox::attribute<&GenSetKeyGroup::keyGroup_>("keyGroup"), Mox::operation("addToKeyGroup"),
      Mox::operation("removeFromKeyGroup")};
  return table;
}

void GenSetKeyGroup::addToKeyGroup(GenSetKeyGroup const& other) {
  std::vector<GenSetKey> all;
  all.reserve(keyGroup_.size() + other.keyGroup_.size());
  std::set_union(keyGroup_.begin(), keyGroup_.end(), other.keyGroup_.begin(), other.keyGroup_.end(),
                 std::back_inserter(all));
  keyGroup_.adopt(std::move(all));
}

void GenSetKeyGroup::removeFromKeyGroup(GenSetKeyGroup const& other) {
  std::vector<GenSetKey> rest;
  rest.reserve(keyGroup_.size());
  std::set_difference(keyGroup_.begin(), keyGroup_.end(), other.keyGroup_.begin(),
                      other.keyGroup_.end(), std::back_inserter(rest));
  keyGroup_.adopt(std::move(rest));
}

uint32_t GenSetKeyGroup::hash() const {
  return Mox::OneAtATime().bytes(sumOfHashes(keyGroup_)).finish();
}

uint64_t GenSetKeyGroup::place() const { return placeOfAll(keyGroup_); }

bool GenSetKeyGroup::isEqual(Mox::Ptr<Dedupable const> const& other) const {
  auto const* group = dynamic_cast<GenSetKeyGroup const*>(other.get());
  return group && group->keyGroup_ == keyGroup_;
}

Mox::AttributeTable const& RangeSetKeyGroup::attributeTable() const {
  static Mox::AttributeTable const table =
      Mox::joinTables(GenSetKeyGroup::attributeTable(),
                      {Mox::attribute<&RangeSetKeyGroup::rangeElem_>("rangeElem")});
  return table;
}

Mox::AttributeTable const& GenSetRefCount::attributeTable() const {
  static Mox::AttributeTable const table = {Mox::attribute<&GenSetRefCount::key_>("key"),
                                            Mox::attribute<&GenSetRefCount::value_>("value"),
                                            Mox::derivedAttribute<&GenSetRefCount::hash>("hash")};
  return table;
}

uint32_t GenSetRefCount::hash() const {
  return Mox::OneAtATime().bytes(key_.value()).bytes(value_).finish();
}

Mox::AttributeTable const& GenSetUsageInfo::attributeTable() const {
  using Counts = Mox::HashMap<GenSetKey, Mox::Ptr<GenSetRefCount>>;
  static Mox::AttributeTable const table = {
      Mox::attribute<static_cast<Counts (GenSetUsageInfo::*)() const>(&GenSetUsageInfo::refCount)>(
          "refCount")};
  return table;
}

Mox::HashMap<GenSetKey, Mox::Ptr<GenSetRefCount>> GenSetUsageInfo::refCount() const {
  Mox::HashMap<GenSetKey, Mox::Ptr<GenSetRefCount>> all;
  all.reserve(counts_.size());
  for (auto const& [key, value] : counts_) all.set(key, refCount(key));
  return all;
}

Mox::Ptr<GenSetRefCount> GenSetUsageInfo::refCount(GenSetKey key) const {
  uint32_t const* const value = counts_.get(key);
  if (!value) return nullptr;
  auto count = Mox::makePtr<GenSetRefCount>(key);
  count->valueIs(*value);
  return count;
}

}  // namespace Naxel
