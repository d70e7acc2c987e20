// Telling sheet names from sheet numbers, with the real text library.
#include <gtest/gtest.h>

#include "office/office.h"
#include "support/no_office.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon {
namespace {

using testing::NoOffice;

struct DetectCase {
  const char* list;
  bool named;
  const char* rewritten;  // the list afterwards
};

TEST(DetectNamedSheets, DecidesByTheRulesInOrder) {
  const DetectCase cases[] = {
      {"  ", true, "*"},            // blank means every sheet
      {"", true, "*"},
      {"*", true, "*"},
      {"Sheet*", true, "Sheet*"},
      {"\"3\"", true, "\"3\""},     // a quoted number is a name
      {"2-4", false, "2-4"},
      {"4-2", false, "4-2"},
      {"Sales-2023", true, "Sales-2023"},  // no pair parses: a name
      {"0-0", true, "0-0"},                // the pair adds up to 0
      {"3", false, "3"},
      {" 3 ", false, " 3 "},
      {"Totals", true, "Totals"},
      {"1,Summary", false, "1,Summary"},  // only the first item decides
      {"Summary,2", true, "Summary,2"},
      {"1 , 2", false, "1 , 2"},
      {"2.5", false, "2.5"},
  };
  ControlOptions o;
  o.office = std::make_shared<NoOffice>();
  TabulonCtrl c(o);
  for (const DetectCase& t : cases) {
    std::string list = t.list;
    EXPECT_EQ(c.bDetectNamedSheets(list), t.named) << "[" << t.list << "]";
    EXPECT_EQ(list, t.rewritten) << "[" << t.list << "]";
  }
}

}  // namespace
}  // namespace tabulon
