#include <gtest/gtest.h>

#include <vector>

#include "workbooks.h"

namespace tabulon {
namespace {

using testing::GetFixtures;
using testing::ResetSharedControl;
using testing::SharedControl;

struct Listing {
  int32_t result;
  std::vector<std::string> names;
  std::string list_after;
  std::vector<int32_t> events;
};

Listing List(const std::string& book, const std::string& sheet_list, size_t capacity = 10) {
  ResetSharedControl();
  TabulonCtrl& c = SharedControl();
  Listing out;
  const uint32_t cookie = c.AdviseOnError([&](int32_t& code, std::string&) { out.events.push_back(code); });
  std::string path = book;
  out.list_after = sheet_list;
  out.names.assign(capacity, "");
  out.result = c.GetSheetNames(path, out.list_after, out.names);
  c.UnadviseOnError(cookie);
  return out;
}

using Names = std::vector<std::string>;

TEST(GetSheetNames, ListsWhatTheSheetListSelects) {
  struct Case {
    const char* sheet_list;
    int32_t result;
    Names names;
  } cases[] = {
      {"*", 3, {"North", "South", "Totals"}},
      {"2", 1, {"South"}},
      {"3-2", 1, {"South"}},  // one pair: only its low end is used
      {"3-2,1", 3, {"South", "Totals", "North"}},
      {"1,3", 2, {"North", "Totals"}},
      {"\"Totals\", North", 2, {"Totals", "North"}},
  };
  for (const Case& t : cases) {
    const Listing l = List(GetFixtures().three_sheets, t.sheet_list);
    EXPECT_EQ(l.result, t.result) << t.sheet_list;
    EXPECT_EQ(Names(l.names.begin(), l.names.begin() + t.names.size()), t.names) << t.sheet_list;
    EXPECT_EQ(l.names.size(), 10u);  // never resized
    EXPECT_TRUE(l.events.empty()) << t.sheet_list;
  }
}

TEST(GetSheetNames, ANumberThatIsASheetNameFindsThatSheet) {
  const Listing l = List(GetFixtures().named_seven, "7");
  EXPECT_EQ(l.result, 1);
  EXPECT_EQ(l.names[0], "7");
}

TEST(GetSheetNames, MissingSheetsAreMinusElevenWithTheEvent) {
  const Listing l = List(GetFixtures().three_sheets, "North,Nowhere,South");
  EXPECT_EQ(l.result, -11);
  EXPECT_EQ(SharedControl().get_ErrorString(), "Invalid Sheet Specified.");
  EXPECT_EQ(l.events, std::vector<int32_t>{-11});
  EXPECT_EQ(Names(l.names.begin(), l.names.begin() + 2), (Names{"North", "South"}));  // the walk went on
  const Listing big = List(GetFixtures().three_sheets, "1,2-2000000000");
  EXPECT_EQ(big.result, -11);
}

TEST(GetSheetNames, BadArgumentsFailWithoutTheEvent) {
  const Listing missing = List(GetFixtures().dir.string() + "/none.xlsx", "*");
  EXPECT_EQ(missing.result, -202);
  EXPECT_EQ(SharedControl().get_ErrorString(), "Original File does not exist");
  EXPECT_TRUE(missing.events.empty());
  const Listing empty = List(GetFixtures().three_sheets, "");
  EXPECT_EQ(empty.result, -11);
  EXPECT_EQ(SharedControl().get_ErrorString(), "Invalid sheet specified");
  EXPECT_TRUE(empty.events.empty());
}

TEST(GetSheetNames, AFullArrayEndsTheWalk) {
  const Listing l = List(GetFixtures().three_sheets, "*", 2);
  EXPECT_EQ(l.result, 2);
  EXPECT_EQ(l.names, (Names{"North", "South"}));
}

TEST(GetSheetNames, OpensWithTheInputPassword) {
  ResetSharedControl();
  TabulonCtrl& c = SharedControl();
  for (const char* password : {"pw", "wrong"}) {
    c.put_InputFile_PassWord(password);
    std::string path = GetFixtures().protected_book, sheet_list = "*";
    std::vector<std::string> names(3, "untouched");
    const int32_t result = c.GetSheetNames(path, sheet_list, names);
    if (std::string(password) == "pw") {
      EXPECT_EQ(result, 1);
      EXPECT_EQ(names[0], "Locked");
    } else {
      // The open fails inside the routine: nothing is listed.
      EXPECT_EQ(result, 0);
      EXPECT_EQ(names[0], "untouched");
    }
  }
  c.put_InputFile_PassWord("");
}

}  // namespace
}  // namespace tabulon
