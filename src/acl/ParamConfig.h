#pragma once

/// The agent's ACL parameters.

#include "mox/Entity.h"
#include "mox/Enum.h"

namespace Acl {

/// How labels get their codes, and sets of labels their value/mask pairs.
enum class LabelCode : uint8_t {
  /// Each set, in the order of its cost, gets blocks for those of its labels that no set before it has. Known
  /// beforehand and quick; sets within others and crossing ones take several pairs.
  aligned,
  /// Sets that nest are one pair each, by filled-up blocks, and most sets that cross, by searching places for them.
  /// Never more entries in all than `aligned`, whose codes are taken for the fields where that makes for fewer.
  compact
};

}  // namespace Acl

template <>
struct Mox::EnumNames<Acl::LabelCode> {
  static constexpr std::array<std::string_view, 2> value = {"aligned", "compact"};
};

namespace Acl {

class NAXEL_EXPORT ParamConfig : public Mox::Entity {
 public:
  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onPermitDuringUpdate() {}
    virtual void onEntryLimit() {}
    virtual void onSilenceLimit() {}
    virtual void onLabelCode() {}
    virtual void onKeepLabels() {}
    virtual void onRepairRows() {}
  };
  std::string_view fwkType() const override { return "Acl::ParamConfig"; }
  Mox::AttributeTable const& attributeTable() const override {
    static Mox::AttributeTable const table = {
        Mox::attribute<&ParamConfig::permitDuringUpdate_>("permitDuringUpdate"),
        Mox::attribute<&ParamConfig::entryLimit_>("entryLimit"),
        Mox::attribute<&ParamConfig::silenceLimit_>("silenceLimit"),
        Mox::attribute<&ParamConfig::labelCode_>("labelCode"),
        Mox::attribute<&ParamConfig::keepLabels_>("keepLabels"),
        Mox::attribute<&ParamConfig::repairRows_>("repairRows")};
    return table;
  }
  static constexpr uint64_t defaultEntryLimit = 4194304;
  /// Stands for 0.5 % of the ACL entries in force.
  static constexpr uint64_t defaultRepairRows = ~uint64_t{0};

  /// Which policy stands in for the ACLs while a change that disturbs traffic is being loaded: true
  /// permits all packets, false denies all. Default false.
  bool permitDuringUpdate() const { return permitDuringUpdate_; }
  void permitDuringUpdateIs(bool v) {
    attrIs(permitDuringUpdate_, v, &Notifiee::onPermitDuringUpdate);
  }

  /// Most TCAM entries that all rules of a configuration may take; a kick of more fails before any is
  /// made. It guards the memory of the process: an entry takes about 60 bytes, and a few rules of crossing
  /// lists can multiply to any number. Default 4,194,304, beyond every chip.
  uint64_t entryLimit() const { return entryLimit_; }
  void entryLimitIs(uint64_t v) { attrIs(entryLimit_, v, &Notifiee::onEntryLimit); }

  /// After how many seconds without any progress of a kick the library traces what it waits for, at
  /// level 0; again after each doubling. 0 or less for never. Default 10.
  Mox::Seconds silenceLimit() const { return silenceLimit_; }
  void silenceLimitIs(Mox::Seconds v) { attrIs(silenceLimit_, v, &Notifiee::onSilenceLimit); }

  /// The code of all label encoders. Default aligned.
  LabelCode labelCode() const { return labelCode_; }
  void labelCodeIs(LabelCode v) { attrIs(labelCode_, v, &Notifiee::onLabelCode); }

  /// Whether labels and value/mask pairs stay as they are in the output in force as far as they can, so that a small
  /// change of the rules is a small change of the tables. The tables then depend on those before them, and take some
  /// more entries. Only with the code `compact`; without effect otherwise. Default false.
  bool keepLabels() const { return keepLabels_; }
  void keepLabelsIs(bool v) { attrIs(keepLabels_, v, &Notifiee::onKeepLabels); }

  /// About how many ACL entries of a kick may be written only to take fewer of them in future, where labels are
  /// kept. Default defaultRepairRows.
  uint64_t repairRows() const { return repairRows_; }
  void repairRowsIs(uint64_t v) { attrIs(repairRows_, v, &Notifiee::onRepairRows); }

  /// Takes over all values of another one.
  void valuesIs(ParamConfig const& from) {
    permitDuringUpdateIs(from.permitDuringUpdate_);
    entryLimitIs(from.entryLimit_);
    silenceLimitIs(from.silenceLimit_);
    labelCodeIs(from.labelCode_);
    keepLabelsIs(from.keepLabels_);
    repairRowsIs(from.repairRows_);
  }

 private:
  bool permitDuringUpdate_ = false;
  uint64_t entryLimit_ = defaultEntryLimit;
  Mox::Seconds silenceLimit_ = 10;
  LabelCode labelCode_ = LabelCode::aligned;
  bool keepLabels_ = false;
  uint64_t repairRows_ = defaultRepairRows;
};

inline Mox::Ptr<ParamConfig> paramConfigFactory() { return Mox::makePtr<ParamConfig>(); }

}  // namespace Acl
