#include "naxel/agent/Dump.h"

#include "naxel/agent/Pipeline.h"
#include "naxel/control/NaxelRootSm.h"
#include "naxel/control/StageControllerTypes.h"
#include "naxel/genset/GenSet.h"
#include "naxel/loader/PDConfig.h"

#include <cctype>
#include <utility>
#include <variant>

namespace Naxel {

namespace {

/// "rangeEncoder" for stageRangeEncoder.
std::string headOf(NaxelActiveStage stage) {
  std::string out = stringValue(stage).substr(std::string_view("stage").size());
  out[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(out[0])));
  return out;
}

std::string keyText(std::monostate) { return {}; }
std::string keyText(PrefixXformKey const& key) {
  return " " + Mox::stringValue(key.af()) + (key.src() ? " src" : " dst");
}
template <Mox::NamedEnum Type>
std::string keyText(Type type) {
  return " " + stringValue(type);
}

/// The two entities of one stage and key; either may have been taken out.
struct StageEntities {
  StageConfig const* config = nullptr;
  StageStatus const* status = nullptr;
};

void writeStage(Mox::FactWriter& out, NaxelRootSm const& root, NaxelActiveStage stage) {
  std::vector<std::pair<std::string, StageEntities>> all;
  auto const at = [&](auto const& key) -> StageEntities& {
    std::string const text = keyText(key);
    for (auto& [name, entities] : all)
      if (name == text) return entities;
    return all.emplace_back(text, StageEntities()).second;
  };
  root.stageSmConfig()->forEachKeyed(
      stage, [&](auto const& key, auto const& config) { at(key).config = config.get(); });
  root.stageSmStatus()->forEachKeyed(
      stage, [&](auto const& key, auto const& status) { at(key).status = status.get(); });
  for (auto const& [key, entities] : all) {
    std::string const head = headOf(stage) + key + ": ";
    out.write(head + "config", entities.config);
    out.write(head + "status", entities.status);
  }
}

void writeStages(Mox::FactWriter& out, NaxelRootSm const& root) {
  out.write("controller: config", root.stageControllerConfig().get());
  out.write("controller: status", root.stageControllerStatus().get());
  out.write("genSetKeyGen", root.genSetKeyGen().get());
  for (size_t stage = static_cast<size_t>(NaxelActiveStage::stageAggregator);
       stage < Mox::EnumNames<NaxelActiveStage>::value.size(); ++stage)
    writeStage(out, root, static_cast<NaxelActiveStage>(stage));
}

}  // namespace

void writeFacts(Mox::FactWriter& out, ChipEntities const& entities, NaxelRootSm const* root) {
  PDConfig const& pd = *entities.pdConfig;
  // What is in force is the basis of encoders, and belongs to the driver all the same. Both are held here, so that
  // they are written once.
  auto const current = pd.currPDData();
  auto const previous = pd.prevPDData();
  out.homeIs(current.get(), "output");
  out.homeIs(previous.get(), "previousOutput");
  out.write("capability", entities.capability.get());
  out.write("acls", entities.acls.get());
  out.write("params", entities.params.get());
  out.write("rootConfig", entities.rootConfig.get());
  out.write("rootStatus", entities.rootStatus.get());
  // The agent's kick times are its own; the stages and the driver go by those of the root.
  out.timesDelAll();
  if (root) writeStages(out, *root);
  out.write("output", current.get());
  out.write("previousOutput", previous.get());
  out.write("pdConfig", &pd);
  out.write("pdStatus", entities.pdStatus.get());
}

void Pipeline::dump(std::ostream& out) const {
  Mox::FactWriter facts(out);
  writeFacts(facts, entities_, root_.get());
}

}  // namespace Naxel
