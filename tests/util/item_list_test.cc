#include "util/item_list.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <vector>

#include "tabulon/automation_error.h"

namespace tabulon {
namespace {

struct ParseCase {
  std::string input;
  std::string list;  // the list written back
  int32_t count;
  int32_t result;
};

class ParsesList : public ::testing::TestWithParam<ParseCase> {};

TEST_P(ParsesList, IntoSortedUniqueItems) {
  const ParseCase& c = GetParam();
  std::string list = c.input;
  std::vector<std::string> items = {"stale", "items"};
  int32_t count = -1;

  EXPECT_EQ(ParseToDoList(list, items, count), c.result);
  EXPECT_EQ(list, c.list);
  EXPECT_EQ(count, c.count);
  ASSERT_EQ(items.size(), static_cast<size_t>(c.count));
  std::string joined;
  for (const std::string& item : items) joined += (joined.empty() ? "" : ",") + item;
  EXPECT_EQ(joined, c.list);
}

INSTANTIATE_TEST_SUITE_P(
    ItemList, ParsesList,
    ::testing::Values(
        ParseCase{"3,1,2", "1,2,3", 3, 0},
        ParseCase{"1,1,2", "1,2", 2, 0},
        ParseCase{"7-5", "5,6,7", 3, 0},
        ParseCase{"5-5", "5", 1, 0},
        ParseCase{"5-7, 2", "2,5,6,7", 4, kItemListCharacterDropped},
        ParseCase{" 1 ,\t2;x,3 ", "1,2,3", 3, kItemListCharacterDropped},
        // A dropped character inside a number joins its digits.
        ParseCase{"1.5", "15", 1, kItemListCharacterDropped},
        ParseCase{"3-1,2-4,9", "1,2,3,4,9", 5, 0},
        ParseCase{"007,7,0", "0,7", 2, 0},
        // Discarded and empty items read as 0 rather than vanishing.
        ParseCase{"1-2-3", "0", 1, 0},
        ParseCase{"4,1-2-3", "0,4", 2, 0},
        ParseCase{"1,,2", "0,1,2", 3, 0},
        ParseCase{",", "0", 1, 0},
        ParseCase{"2147483647", "2147483647", 1, 0},
        ParseCase{"2147483647-2147483646", "2147483646,2147483647", 2, 0}));

TEST(ItemList, EmptyListLeavesItemsAndCountAlone) {
  std::string list;
  std::vector<std::string> items = {"kept"};
  int32_t count = 42;
  EXPECT_EQ(ParseToDoList(list, items, count), kItemListEmpty);
  EXPECT_EQ(list, "");
  EXPECT_EQ(items, std::vector<std::string>{"kept"});
  EXPECT_EQ(count, 42);
}

TEST(ItemList, ListWithoutPermittedCharactersBecomesEmpty) {
  for (std::string input : {"a", "   ", "sheet one"}) {
    std::string list = input;
    std::vector<std::string> items = {"kept"};
    int32_t count = 42;
    EXPECT_EQ(ParseToDoList(list, items, count), kItemListEmpty + kItemListCharacterDropped) << input;
    EXPECT_EQ(list, "") << input;
    EXPECT_EQ(items, std::vector<std::string>{"kept"}) << input;
    EXPECT_EQ(count, 42) << input;
  }
}

struct ErrorCase {
  std::string input;
  int32_t number;
  std::string description;
  std::string list_after;  // already cleaned when the error is raised
};

class RaisesAutomationError : public ::testing::TestWithParam<ErrorCase> {};

TEST_P(RaisesAutomationError, AndLeavesItemsAlone) {
  const ErrorCase& c = GetParam();
  std::string list = c.input;
  std::vector<std::string> items = {"kept"};
  int32_t count = 42;
  try {
    ParseToDoList(list, items, count);
    FAIL() << "no error for " << c.input;
  } catch (const AutomationError& e) {
    EXPECT_EQ(e.number(), c.number);
    EXPECT_STREQ(e.description(), c.description.c_str());
  }
  EXPECT_EQ(list, c.list_after);
  EXPECT_EQ(items, std::vector<std::string>{"kept"});
  EXPECT_EQ(count, 42);
}

INSTANTIATE_TEST_SUITE_P(
    ItemList, RaisesAutomationError,
    ::testing::Values(
        ErrorCase{"-5", AutomationError::kTypeMismatch, "Type mismatch", "-5"},
        ErrorCase{"5-", AutomationError::kTypeMismatch, "Type mismatch", "5-"},
        ErrorCase{"1, -", AutomationError::kTypeMismatch, "Type mismatch", "1,-"},
        ErrorCase{"2147483648", kItemListOverflow, "Overflow", "2147483648"},
        ErrorCase{"1-2147483648", kItemListOverflow, "Overflow", "1-2147483648"},
        ErrorCase{"99999999999999999999999", kItemListOverflow, "Overflow", "99999999999999999999999"},
        // Ranges are resolved before plain numbers are converted.
        ErrorCase{"2147483648,-5", AutomationError::kTypeMismatch, "Type mismatch", "2147483648,-5"},
        ErrorCase{"1-2000000000", kItemListOutOfMemory, "Out of memory", "1-2000000000"},
        // The limit counts numbers before duplicates are removed.
        ErrorCase{"1-600000,1-400001", kItemListOutOfMemory, "Out of memory", "1-600000,1-400001"}));

TEST(ItemList, ExpandsRangesUpToTheLimit) {
  std::string list = "1000000-1";
  std::vector<std::string> items;
  int32_t count = 0;
  ASSERT_EQ(kMaxExpandedItems, 1'000'000);
  EXPECT_EQ(ParseToDoList(list, items, count), 0);
  ASSERT_EQ(count, 1'000'000);
  ASSERT_EQ(items.size(), 1'000'000u);
  EXPECT_EQ(items.front(), "1");
  EXPECT_EQ(items[499'999], "500000");
  EXPECT_EQ(items.back(), "1000000");
  EXPECT_EQ(list.substr(0, 6), "1,2,3,");
  EXPECT_EQ(list.size(), 6'888'895u);  // the digits of 1..1000000 plus 999999 commas
}

// Random lists of numbers and ranges, in any order and with many duplicates,
// against a set of the numbers they name.
TEST(ItemList, MatchesASetOfTheNamedNumbersOnRandomLists) {
  std::mt19937 random(20240611);
  for (int round = 0; round < 500; ++round) {
    std::string input;
    std::set<int32_t> expected;
    bool with_blanks = false;
    const int elements = 1 + static_cast<int>(random() % 40);
    const int32_t spread = round % 2 == 0 ? 20 : 5000;
    for (int e = 0; e < elements; ++e) {
      if (e > 0) input += ',';
      if (random() % 7 == 0) {
        input += ' ';
        with_blanks = true;
      }
      const int32_t a = static_cast<int32_t>(random() % spread);
      if (random() % 3 == 0) {
        const int32_t b = static_cast<int32_t>(random() % spread);
        input += std::to_string(a) + "-" + std::to_string(b);
        for (int32_t n = std::min(a, b); n <= std::max(a, b); ++n) expected.insert(n);
      } else {
        input += std::to_string(a);
        expected.insert(a);
      }
    }

    std::string want;
    for (int32_t n : expected) want += (want.empty() ? "" : ",") + std::to_string(n);

    std::string list = input;
    std::vector<std::string> items;
    int32_t count = -1;
    ASSERT_EQ(ParseToDoList(list, items, count), with_blanks ? kItemListCharacterDropped : 0) << input;
    ASSERT_EQ(list, want) << input;
    ASSERT_EQ(count, static_cast<int32_t>(expected.size())) << input;
  }
}

}  // namespace
}  // namespace tabulon
