#include "naxel/loader/NaxelLoaderTypes.h"

void Mox::TextForm<Naxel::PDDataRef>::write(std::string& out, Naxel::PDDataRef const& v) {
  out += v.get() ? "PDData#" + std::to_string(v.identity()) : "None";
}

void Mox::TextForm<Naxel::PDDataRef>::read(TextCursor& c, Naxel::PDDataRef&) {
  c.fail("a reference to an output cannot be read from text");
}

namespace Naxel {

LoaderConfig::LoaderConfig() {
  for (PrefixXformKey const& key : PrefixXformKey::all()) prefixXformLoaderInfoIs(key, nullptr);
  for (RangeSetType type : allRangeSetTypes()) rangeSplitLoaderInfoIs(type, nullptr);
  for (ComboLabelSetType type : allComboLabelSetTypes()) comboLabelLoaderInfoIs(type, nullptr);
}

Mox::AttributeTable const& LoaderConfig::attributeTable() const {
  static Mox::AttributeTable const table = Mox::joinTables(
      StageConfig::attributeTable(),
      {Mox::attribute<&LoaderConfig::prefixXformLoaderInfo_>("prefixXformLoaderInfo"),
       Mox::attribute<&LoaderConfig::rangeSplitLoaderInfo_>("rangeSplitLoaderInfo"),
       Mox::attribute<&LoaderConfig::comboLabelLoaderInfo_>("comboLabelLoaderInfo"),
       Mox::attribute<&LoaderConfig::ruleExpanderLoaderInfo_>("ruleExpanderLoaderInfo"),
       Mox::attribute<&LoaderConfig::initialized_>("initialized")});
  return table;
}

Mox::AttributeTable const& LoaderStatus::attributeTable() const {
  static Mox::AttributeTable const table =
      Mox::joinTables(StageStatus::attributeTable(),
                      {Mox::attribute<&LoaderStatus::lastFailedState_>("lastFailedState"),
                       Mox::attribute<&LoaderStatus::rows_>("rows")});
  return table;
}

}  // namespace Naxel
