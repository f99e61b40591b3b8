// Comparing rule sets for every packet.

#include "support/World.h"
#include "verify/ExactComparison.h"
#include "verify/Packet.h"

#include <gtest/gtest.h>

namespace Verify {
namespace {

TEST(Comparison, SameOutcomeOfEveryPacket) {
  struct Row {
    char const* first;
    char const* second;
    char const* difference;  ///< none if empty: "ACL FIRST-INDEX SECOND-INDEX", 0 for no rule
  };
  for (Row const& row : {
           Row{"a 1 x src 10.0.0.0/8\n", "a 7 y src 10.0.0.0/9,10.128.0.0/9\n", ""},
           // One rule as several, on either side, in any order.
           {"a 1 x src 10.0.0.0/8\na 2 z drop\n",
            "a 1 x src 10.128.0.0/9\na 2 y src 10.0.0.0/9\na 3 z drop\n", ""},
           {"a 1 x dport 1-3\na 2 y dport 4-5\na 3 z dport 9 drop\n",
            "a 1 x dport 1-5\na 2 z dport 9 drop\n", ""},
           // Rules that never decide.
           {"a 1 x dport 1-9\na 2 y dport 3 drop\n", "a 1 x dport 1-9\n", ""},
           {"a 1 x dport 1\na 2 y dport 2 drop\n", "a 1 y dport 2 drop\na 2 x dport 1\n", ""},
           {"a 1 x dport 1-9\na 2 y dport 9-12 drop\n", "a 1 y dport 9-12 drop\na 2 x dport 1-9\n",
            "a 1 1"},
           // No rule is not the same as a drop.
           {"a 1 x dport 1\n", "a 1 x dport 1\na 2 y drop\n", "a 0 2"},
           {"a 1 x\n", "a 1 x log\n", "a 1 1"},
           {"a 1 x\n", "b 1 x\n", "a 0 0"},
           {"a 1 x\n", "a 1 x\nb 1 x\n", "b 0 0"},
           {"a 1 x src 1.0.0.0/8\n", "a 1 x src 1::/16\n", "a 0 0"},
       }) {
    SCOPED_TRACE(std::string(row.first) + "---\n" + row.second);
    auto const first = Naxel::aclConfigCollFactory(Obel::ChipId(0));
    auto const second = Naxel::aclConfigCollFactory(Obel::ChipId(0));
    ::Test::addRules(*first, row.first);
    ::Test::addRules(*second, row.second);
    auto const found = compareRules(*first, *second);
    std::string text;
    auto const indexText = [](auto const& index) {
      return " " + std::to_string(index ? index->value() : 0);
    };
    if (found) text = found->acl + indexText(found->first) + indexText(found->second);
    EXPECT_EQ(text, row.difference) << (found ? found->text : "");
  }
}

}  // namespace
}  // namespace Verify
