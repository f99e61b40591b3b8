#include "verify/OutputText.h"

#include "naxel/genset/GenSetTypes.h"

#include <sstream>

namespace Verify {

using namespace Naxel;

std::string dump(PDData const& data) {
  std::ostringstream out;
  auto const table = [&](std::string const& title, auto const& coll, auto write) {
    if (coll.empty()) return;
    out << title << ":";
    for (auto const& e : coll) {
      out << " ";
      write(e);
      out << "=" << e.value();
    }
    out << "\n";
  };
  for (auto const& [key, coll] : data.pdPrefixXformEntryColl())
    table(Mox::stringValue(key.af()) + (key.src() ? " src" : " dst"), coll->entry(),
          [&](auto const& e) { out << e.key(); });
  for (RangeSetType type : allRangeSetTypes())
    table(Mox::stringValue(type), data.rangeColl(type)->entry(),
          [&](auto const& e) { out << e.key().first() << "-" << e.key().last(); });
  for (ComboLabelSetType type : allComboLabelSetTypes())
    table(Mox::stringValue(type), data.comboColl(type)->entry(),
          [&](auto const& e) { out << e.key().srcLabel() << "," << e.key().dstLabel(); });
  for (auto const& [key, acl] : data.pdAclColl()->pdAcl()) {
    if (acl->rule().empty()) out << "acl " << key.aclName() << " " << key.af() << "\n";
    for (auto const& [index, rule] : acl->rule()) {
      if (rule->filter().empty())
        out << "acl " << key.aclName() << " " << key.af() << " " << index << ": none\n";
      for (PDAclFilter const& f : rule->filter()) {
        out << "acl " << key.aclName() << " " << key.af() << " " << index << ":";
        for (TcamFieldType type : allLabelFields())
          if (auto const& e = f.labelField(type); e.mask().value())
            out << " " << labelFieldName(type) << "=" << e.label() << "/" << e.mask();
        if (f.matchTcpInit()) out << " init";
        if (f.matchTcpEstablished()) out << " est";
        if (rule->action().dropEnabled()) out << " drop";
        out << "\n";
      }
    }
  }
  return out.str();
}

std::string full(PDData const& data) {
  std::string out = dump(data);
  for (auto const& [key, acl] : data.pdAclColl()->pdAcl())
    for (auto const& [index, rule] : acl->rule())
      out += key.aclName() + " " + valueToStrep(index) + " " + valueToStrep(rule->action()) + "\n";
  return out;
}

}  // namespace Verify
