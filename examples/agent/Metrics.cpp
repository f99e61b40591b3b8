#include "Metrics.h"

#include "naxel/agent/Metrics.h"
#include "naxel/loader/PDConfig.h"

#include <ostream>

namespace ExampleAgent {

using namespace Naxel;

namespace {

// One metric of all chips: `each` calls its argument with further labels and a value.
template <class Each>
void metric(std::ostream& out, std::vector<ChipReport> const& chips, char const* name,
            char const* type, char const* help, Each each) {
  out << "# HELP " << name << ' ' << help << "\n# TYPE " << name << ' ' << type << '\n';
  for (ChipReport const& chip : chips)
    each(chip, [&](std::string const& labels, auto value) {
      out << name << "{chip=\"" << chip.pipeline->chipId() << '"' << labels << "} " << value
          << '\n';
    });
}

std::string label(char const* name, std::string const& value) {
  return std::string(",") + name + "=\"" + value + '"';
}

}  // namespace

void writeMetrics(std::ostream& out, std::vector<ChipReport> const& chips) {
  std::vector<Metrics> of;
  for (ChipReport const& chip : chips) of.push_back(chip.pipeline->metrics());
  auto const metrics = [&](ChipReport const& c) -> Metrics const& { return of[&c - chips.data()]; };

  metric(out, chips, "naxel_kicks_total", "counter", "Kicks that have ended, by outcome.",
         [&](ChipReport const& c, auto put) {
           for (KickEnd end :
                {KickEnd::success, KickEnd::failure, KickEnd::cancelled, KickEnd::superseded})
             put(label("outcome", std::string(name(end))),
                 metrics(c).kicks[static_cast<size_t>(end)]);
         });
  metric(out, chips, "naxel_kick_seconds", "gauge", "How long the last kick has taken.",
         [&](ChipReport const& c, auto put) { put("", metrics(c).kickSeconds); });
  metric(out, chips, "naxel_stage_seconds", "gauge",
         "How long each stage of the last kick has taken.", [&](ChipReport const& c, auto put) {
           for (size_t s = 1; s < metrics(c).stages.size(); ++s)
             put(label("stage", Mox::stringValue(static_cast<NaxelActiveStage>(s))),
                 metrics(c).stages[s].seconds);
         });
  metric(out, chips, "naxel_table_rows", "gauge", "Rows of the output that was last offered.",
         [&](ChipReport const& c, auto put) {
           for (PDTable t : allPDTables())
             put(label("table", Mox::stringValue(t)), metrics(c).tableRows[static_cast<size_t>(t)]);
         });
  auto const labels = [&](char const* name, char const* help, auto value) {
    metric(out, chips, name, "gauge", help, [&](ChipReport const& c, auto put) {
      for (LabelUse const& use : metrics(c).labels)
        if (use.width) put(label("field", use.field), value(use));
    });
  };
  labels("naxel_labels_used", "Labels in use.", [](LabelUse const& use) { return use.used; });
  labels("naxel_labels", "Labels that there are.",
         [](LabelUse const& use) { return use.available(); });
  metric(out, chips, "naxel_rows_written_total", "counter", "Rows that the driver has written.",
         [](ChipReport const& c, auto put) { put("", c.rowsWritten); });
  metric(out, chips, "naxel_policy", "gauge", "1 for the policy in force.",
         [](ChipReport const& c, auto put) {
           using enum GlobalAclControl;
           for (GlobalAclControl p : {doNotApply, denyAll, permitAll})
             put(label("policy", Mox::stringValue(p)),
                 int(c.pipeline->pdStatus()->globalAclControl() == p));
         });
  metric(out, chips, "naxel_waiting", "gauge", "1 while the chip has something to answer.",
         [](ChipReport const& c, auto put) { put("", int(!c.pipeline->waitingFor().empty())); });
}

}  // namespace ExampleAgent
