// CopySheetData and CopySheetDataEx on real workbooks in real offices, the
// results read back through an office of the test's own.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <iostream>

#include "copy_data_env.h"
#include "support/processes.h"

namespace tabulon {
namespace {

namespace fs = std::filesystem;
using office::Block;
using office::Cell;
using testing::CopyCall;
using testing::CopyOf;
using testing::CopyOutcome;
using testing::Fixtures;
using testing::Read;
using testing::SheetCells;
using testing::SheetOf;
using testing::TestFolder;

const Cell kEmpty{};
using Names = std::vector<std::string>;

Names SheetNames(const std::vector<SheetCells>& book) {
  Names names;
  for (const SheetCells& sheet : book) names.push_back(sheet.name);
  return names;
}

std::vector<int> Sorted(std::vector<int> pids) {
  std::sort(pids.begin(), pids.end());
  return pids;
}

class CopySheetData : public ::testing::Test {
 protected:
  void SetUp() override { testing::ResetWarmControl(); }
  TabulonCtrl& warm() { return testing::WarmControl(); }

  // A call of North's A1:B3 into sheet A of a copy of the target fixture.
  CopyCall North(const fs::path& folder, const std::string& to = "A1") {
    CopyCall call;
    call.original = Fixtures().source;
    call.sheet_original = "North";
    call.from = "A1:B3";
    call.target = CopyOf(Fixtures().target, folder, "target.xls");
    call.sheet_target = "A";
    call.to = to;
    return call;
  }
};

const Block kNorth = {{"name", "qty"}, {"pens", 3.0}, {"ink", 4.0}};

TEST_F(CopySheetData, TwoOfficesAreStartedAndQuitAndTheOriginalIsReadOnly) {
  testing::ColdControl cold;
  const fs::path folder = TestFolder("two-offices");
  const auto before = Sorted(testing::ChildOfficePids());
  cold.control->put_InputFile_PassWord("in");
  cold.control->put_OutputFile_PassWord_TW("out-tw");
  CopyCall call = North(folder);
  const CopyOutcome first = RunCopy(*cold.control, call);
  ASSERT_EQ(first.code, 0) << first.error;
  EXPECT_TRUE(first.events.empty());
  // Both applications were quit; none is left.
  EXPECT_EQ(cold.spy().quits, 2);
  EXPECT_EQ(Sorted(testing::ChildOfficePids()), before);
  // The target opened for writing with the output pair, in one office; the
  // original read-only with the input pair, in the other.
  ASSERT_EQ(cold.spy().opens.size(), 2u);
  EXPECT_EQ(cold.spy().opens[0].first, call.target);
  EXPECT_EQ(cold.spy().opens[0].second.read_only, false);
  EXPECT_EQ(cold.spy().opens[0].second.password, "");
  EXPECT_EQ(cold.spy().opens[0].second.write_res_password, "out-tw");
  EXPECT_EQ(cold.spy().opens[1].first, call.original);
  EXPECT_EQ(cold.spy().opens[1].second.read_only, true);
  EXPECT_EQ(cold.spy().opens[1].second.password, "in");

  // A second call starts exactly two offices again (the first one also
  // probed for the office once).
  const int created = cold.spy().excel_created;
  call.to = "D1";
  ASSERT_EQ(RunCopy(*cold.control, call).code, 0);
  EXPECT_EQ(cold.spy().excel_created - created, 2);
  EXPECT_EQ(cold.spy().quits, 4);
  EXPECT_EQ(Sorted(testing::ChildOfficePids()), before);

  const auto book = Read(call.target);
  EXPECT_EQ(SheetNames(book), (Names{"A", "B", "C", "3", "Used"}));
  EXPECT_EQ(SheetOf(book, "A").cells, (Block{{"name", "qty", kEmpty, "name", "qty"},
                                             {"pens", 3.0, kEmpty, "pens", 3.0},
                                             {"ink", 4.0, kEmpty, "ink", 4.0}}));
  EXPECT_EQ(SheetOf(book, "Used").cells.size(), 10u);
}

TEST_F(CopySheetData, AWarmControlReusesItsTwoOffices) {
  const fs::path folder = TestFolder("warm");
  const auto before = Sorted(testing::ChildOfficePids());
  const int created = testing::WarmSpy().excel_created;
  CopyCall call = North(folder);
  for (const char* to : {"A1", "A5"}) {
    call.to = to;
    ASSERT_EQ(RunCopy(warm(), call).code, 0);
  }
  EXPECT_EQ(testing::WarmSpy().excel_created, created);
  EXPECT_EQ(Sorted(testing::ChildOfficePids()), before);
  EXPECT_EQ(SheetOf(Read(call.target), "A").cells,
            (Block{{"name", "qty"}, {"pens", 3.0}, {"ink", 4.0}, {kEmpty, kEmpty}, {"name", "qty"},
                   {"pens", 3.0}, {"ink", 4.0}}));
}

TEST_F(CopySheetData, ANewTargetInAMissingFolderKeepsOneSheetNamedAsAsked) {
  const fs::path folder = TestFolder("new-target");
  CopyCall call = North(folder);
  call.target = (folder / "deep" / "er" / "new.xls").string();
  call.sheet_target = "Data";
  const CopyOutcome out = RunCopy(warm(), call);
  ASSERT_EQ(out.code, 0) << out.error;
  const auto book = Read(call.target);
  ASSERT_EQ(book.size(), 1u);
  EXPECT_EQ(book[0], (SheetCells{"Data", kNorth}));
  // Saved in the normal workbook format: a binary workbook, not a zip.
  EXPECT_EQ(testing::ReadBytes(call.target).substr(0, 4), "\xD0\xCF\x11\xE0");
}

TEST_F(CopySheetData, ANewTargetWithoutASheetNameGetsTheSheetAdded) {
  const fs::path folder = TestFolder("new-unnamed");
  CopyCall call = North(folder);
  call.target = (folder / "new.xls").string();
  call.sheet_target = "";
  const CopyOutcome refused = RunCopy(warm(), call);
  EXPECT_EQ(refused.code, -205);
  // The new target was written at once and stays, as one empty sheet.
  ASSERT_EQ(Read(call.target).size(), 1u);
  fs::remove(call.target);
  call.add_sheets = true;
  ASSERT_EQ(RunCopy(warm(), call).code, 0);
  const auto book = Read(call.target);
  ASSERT_EQ(book.size(), 2u);
  EXPECT_EQ(book[0].cells, kNorth);  // the added sheet comes before the active one
}

struct SheetCase {
  const char* original;
  const char* target;
  const char* expected_sheet;  // of the target, that received the cells
  Block expected;
};

TEST_F(CopySheetData, SheetsAreFoundByNameThenByNumber) {
  const SheetCase cases[] = {
      {"2", "2", "B", {{"x", "y"}, {1.0, 2.0}}},               // no sheet is named "2": the second sheet
      {"3", "3", "3", {{"named three"}}},                      // the sheet named "3" wins over the third
      {"\"Third\"", "\"C\"", "C", {{"third"}}},                // quotes are removed
      {"north", "a", "A", kNorth},                             // names without regard to case
  };
  for (const SheetCase& t : cases) {
    const fs::path folder = TestFolder("lookup");
    CopyCall call = North(folder);
    call.sheet_original = t.original;
    call.sheet_target = t.target;
    call.from = "";
    const CopyOutcome out = RunCopy(warm(), call);
    ASSERT_EQ(out.code, 0) << t.original << ": " << out.error;
    std::string unquoted = t.original;
    std::erase(unquoted, '"');
    EXPECT_EQ(out.after.sheet_original, unquoted);
    EXPECT_EQ(SheetOf(Read(call.target), t.expected_sheet).cells, t.expected) << t.original << " -> " << t.target;
  }
}

struct RangeCase {
  const char* sheet;
  const char* from;
  const char* to;
  Block expected;  // sheet A of the target, from A1
};

TEST_F(CopySheetData, RangesAndDestinations) {
  const RangeCase cases[] = {
      // ":*" runs to the last used cell; "" puts the cells at their own address.
      {"North", "B2:*", "", {{kEmpty, kEmpty}, {kEmpty, 3.0}, {kEmpty, 4.0}}},
      // An empty range is the used range, wherever it starts.
      {"Offset", "", "", {{kEmpty, kEmpty, kEmpty}, {kEmpty, "b2", "c2"}, {kEmpty, "b3", "c3"}}},
      {"Offset", "$B$2:*", "A1", {{"b2", "c2"}, {"b3", "c3"}}},
      // Of a destination range only the top-left cell counts.
      {"North", "A1:B2", "B2:Z99", {{kEmpty, kEmpty, kEmpty}, {kEmpty, "name", "qty"}, {kEmpty, "pens", 3.0}}},
      // Areas go one after the other: under the used range, the first at the
      // empty sheet's one cell ...
      {"North", "A1:A3,B1:B3", "below", {{"name"}, {"pens"}, {"ink"}, {"qty"}, {3.0}, {4.0}}},
      // ... or to its right, without regard to case.
      {"North", "A1:A2,B1:B2", "Right", {{"name", "qty"}, {"pens", 3.0}}},
  };
  for (const RangeCase& t : cases) {
    const fs::path folder = TestFolder("ranges");
    CopyCall call = North(folder, t.to);
    call.sheet_original = t.sheet;
    call.from = t.from;
    const CopyOutcome out = RunCopy(warm(), call);
    ASSERT_EQ(out.code, 0) << t.from << " -> " << t.to << ": " << out.error;
    EXPECT_EQ(out.after.from, t.from);  // never rewritten
    EXPECT_EQ(SheetOf(Read(call.target), "A").cells, t.expected) << t.from << " -> " << t.to;
  }
}

TEST_F(CopySheetData, BelowAndRightAreMeasuredOnTheTargetsUsedRange) {
  const fs::path folder = TestFolder("stacking");
  CopyCall call = North(folder, "BELOW");
  call.from = "A2:B3";
  call.sheet_target = "Used";  // A1:B10
  ASSERT_EQ(RunCopy(warm(), call).code, 0);
  call.to = "right";  // the used range is A1:B12 now
  ASSERT_EQ(RunCopy(warm(), call).code, 0);
  const Block cells = SheetOf(Read(call.target), "Used").cells;
  ASSERT_EQ(cells.size(), 12u);
  EXPECT_EQ(cells[9], (std::vector<Cell>{"r10", 10.0, kEmpty, kEmpty}));
  EXPECT_EQ(cells[10], (std::vector<Cell>{"pens", 3.0, kEmpty, kEmpty}));
  EXPECT_EQ(cells[11], (std::vector<Cell>{"ink", 4.0, kEmpty, kEmpty}));
  EXPECT_EQ(cells[0], (std::vector<Cell>{"r1", 1.0, "pens", 3.0}));
  EXPECT_EQ(cells[1], (std::vector<Cell>{"r2", 2.0, "ink", 4.0}));
}

TEST_F(CopySheetData, FormulasTravelInExcelSyntaxAndValuesAsValues) {
  const fs::path folder = TestFolder("formulas");
  CopyCall call = North(folder, "A1");
  call.sheet_original = "Formulas";
  call.from = "A1:D1";
  call.formulas = true;
  ASSERT_EQ(RunCopy(warm(), call).code, 0);
  call.formulas = false;
  call.to = "A2";
  ASSERT_EQ(RunCopy(warm(), call).code, 0);
  const Block formulas = SheetOf(Read(call.target, true), "A").cells;
  EXPECT_EQ(formulas, (Block{{"1", "2", "=SUM(A1:B1)", "=A1*10"}, {"1", "2", "3", "10"}}));
  const Block values = SheetOf(Read(call.target), "A").cells;
  EXPECT_EQ(values, (Block{{1.0, 2.0, 3.0, 10.0}, {1.0, 2.0, 3.0, 10.0}}));
}

TEST_F(CopySheetData, TheOriginalsNameIsGivenToTheTargetSheetUnlessTaken) {
  const fs::path folder = TestFolder("copy-name");
  CopyCall call = North(folder);
  call.copy_name = true;
  ASSERT_EQ(RunCopy(warm(), call).code, 0);
  EXPECT_EQ(SheetNames(Read(call.target)), (Names{"North", "B", "C", "3", "Used"}));
  const std::string saved = testing::ReadBytes(call.target);

  // "North" is taken now: the cells are copied into B, but nothing is saved.
  call.sheet_target = "B";
  const CopyOutcome out = RunCopy(warm(), call);
  EXPECT_EQ(out.code, -206);
  EXPECT_EQ(out.error,
            "Target Workbook cannot have two similarly named sheets. Original sheet name already exists in Target.");
  EXPECT_TRUE(out.events.empty());
  EXPECT_EQ(testing::ReadBytes(call.target), saved);
}

TEST_F(CopySheetData, TheWildcardTestComesBeforeTheFolderAndOnlyAnAsteriskFailsIt) {
  const fs::path folder = TestFolder("wildcard");
  const std::string file = (folder / "file").string();
  testing::CopyOf(Fixtures().source, folder, "file");
  // The folder cannot be made: a file stands where it would go.
  CopyCall call = North(folder);
  call.target = file + "/sub/*.xls";
  CopyOutcome out = RunCopy(warm(), call);
  EXPECT_EQ(out.code, -207);
  EXPECT_EQ(out.error, "Target path file cannot have a wild card (i.e. *.XLS)");
  call.target = file + "/sub/?.xls";
  out = RunCopy(warm(), call);
  EXPECT_EQ(out.code, -208);
  EXPECT_EQ(out.error, "Target path folder does not exist");
  // A missing original is found first of all.
  call.original = (folder / "none.xlsx").string();
  call.target = file + "/sub/*.xls";
  out = RunCopy(warm(), call);
  EXPECT_EQ(out.code, -202);
  EXPECT_EQ(out.error, "Original File does not exist");
  EXPECT_TRUE(out.events.empty());

  call.original = Fixtures().source;
  call.target = (folder / "?.xls").string();
  ASSERT_EQ(RunCopy(warm(), call).code, 0);
  EXPECT_EQ(Read(call.target)[0], (SheetCells{"A", kNorth}));
}

TEST_F(CopySheetData, TheSameFileIsOpenedTwiceWithoutReadOnly) {
  const fs::path folder = TestFolder("same-file");
  CopyCall call = North(folder);
  call.original = call.target;
  call.sheet_original = "Used";
  call.from = "A1:B2";
  ASSERT_EQ(RunCopy(warm(), call).code, 0);
  auto& opens = testing::WarmSpy().opens;
  ASSERT_EQ(opens.size(), 2u);
  EXPECT_EQ(opens[0].second.read_only, false);
  EXPECT_FALSE(opens[1].second.read_only.has_value());
  EXPECT_EQ(opens[1].first, call.target);
  EXPECT_EQ(SheetOf(Read(call.target), "A").cells, (Block{{"r1", 1.0}, {"r2", 2.0}}));

  // The same path in other letters is the same file to the method (not to
  // this file system: the target is new here).
  opens.clear();
  std::string upper = call.target;
  upper.replace(upper.size() - 10, 10, "TARGET.XLS");
  call.target = upper;
  ASSERT_EQ(RunCopy(warm(), call).code, 0);
  ASSERT_EQ(opens.size(), 1u);
  EXPECT_EQ(opens[0].first, call.original);
  EXPECT_FALSE(opens[0].second.read_only.has_value());
  EXPECT_EQ(Read(upper)[0], (SheetCells{"A", {{"r1", 1.0}, {"r2", 2.0}}}));
}

struct FailureCase {
  const char* what;
  int32_t code;
  const char* error;
  bool event;
  std::function<void(CopyCall&)> change;
};

// Every failure leaves no office running and an existing target as it was.
TEST_F(CopySheetData, FailuresLeaveNoOfficeAndTheTargetUntouched) {
  const fs::path folder = TestFolder("failures");
  const std::string blocked = testing::CopyOf(Fixtures().source, folder, "blocked");
  const FailureCase cases[] = {
      {"original missing", -202, "Original File does not exist", false,
       [&](CopyCall& c) { c.original = (folder / "none.xlsx").string(); }},
      {"wildcard", -207, "Target path file cannot have a wild card (i.e. *.XLS)", false,
       [&](CopyCall& c) { c.target = (folder / "*.xls").string(); }},
      {"folder", -208, "Target path folder does not exist", false,
       [&](CopyCall& c) { c.target = blocked + "/t.xls"; }},
      {"original sheet", -204, "Original Sheet does not exist", false, [](CopyCall& c) { c.sheet_original = "9"; }},
      {"target sheet", -205,
       "Target Sheet does not exist, be sure the 'Add sheets if necessary option' is set to True", false,
       [](CopyCall& c) { c.sheet_target = "Nope"; }},
      {"sheet name", -206,
       "Target Workbook cannot have two similarly named sheets. Original sheet name already exists in Target.", false,
       [](CopyCall& c) {
         c.sheet_original = "3";
         c.copy_name = true;
       }},
      {"office error", kAutomationError, nullptr, true, [](CopyCall& c) { c.from = "no such range"; }},
      {"outside the sheet", kAutomationError, nullptr, true, [](CopyCall& c) { c.to = "A1048576"; }},
  };
  testing::ColdControl cold;
  const auto before = Sorted(testing::ChildOfficePids());
  for (const FailureCase& t : cases) {
    CopyCall call = North(folder);
    const std::string target = call.target;
    const std::string saved = testing::ReadBytes(target);
    t.change(call);
    const CopyOutcome out = RunCopy(*cold.control, call);
    EXPECT_EQ(out.code, t.code) << t.what;
    if (t.error != nullptr) {
      EXPECT_EQ(out.error, t.error) << t.what;
    }
    EXPECT_EQ(out.events.size(), t.event ? 1u : 0u) << t.what;
    if (t.event && !out.events.empty()) {
      EXPECT_EQ(out.events[0], std::make_pair(out.code, out.error)) << t.what;
    }
    EXPECT_EQ(Sorted(testing::ChildOfficePids()), before) << t.what;
    EXPECT_EQ(testing::ReadBytes(target), saved) << t.what;
  }
  EXPECT_FALSE(fs::exists(folder / "*.xls"));

  testing::ColdControl dead;
  dead.spy().fail_create = true;
  CopyCall call = North(folder);
  const CopyOutcome out = RunCopy(*dead.control, call);
  EXPECT_EQ(out.code, -3);
  EXPECT_EQ(out.events, (std::vector<std::pair<int32_t, std::string>>{
                            {-3, "Unable to create Excel Application. Is it installed?"}}));
  EXPECT_EQ(Sorted(testing::ChildOfficePids()), before);
}

TEST_F(CopySheetData, AFailedQuitReplacesTheResultWithMinusFour) {
  const fs::path folder = TestFolder("failed-quit");
  testing::ColdControl cold;
  CopyCall call = North(folder);
  ASSERT_EQ(RunCopy(*cold.control, call).code, 0);  // settles the office probe
  const auto before = Sorted(testing::ChildOfficePids());
  cold.spy().fail_quit = true;

  call.to = "D1";
  CopyOutcome out = RunCopy(*cold.control, call);
  EXPECT_EQ(out.code, -4);
  EXPECT_EQ(out.error, "Unable to destroy Excel application. Is it installed?");
  EXPECT_TRUE(out.events.empty());
  // The copy itself was done and saved.
  EXPECT_EQ(SheetOf(Read(call.target), "A").cells[0], (std::vector<Cell>{"name", "qty", kEmpty, "name", "qty"}));

  call.sheet_original = "Nope";
  out = RunCopy(*cold.control, call);
  EXPECT_EQ(out.code, -4);
  EXPECT_EQ(out.error, "Unable to destroy Excel application. Is it installed?");
  EXPECT_EQ(Sorted(testing::ChildOfficePids()), before);
}

TEST_F(CopySheetData, ABigAreaMovesInBlocks) {
  const fs::path folder = TestFolder("big");
  const std::string source = (folder / "big.xlsx").string();
  Block rows;
  for (int r = 0; r < 20000; ++r) {
    std::vector<Cell> row;
    for (int c = 0; c < 10; ++c) row.push_back(c % 2 == 0 ? Cell(r * 10.0 + c) : Cell("t" + std::to_string(r)));
    rows.push_back(std::move(row));
  }
  testing::SaveBook(testing::Reader(), source, {{"Big", rows}});
  CopyCall call = North(folder);
  call.original = source;
  call.sheet_original = "Big";
  auto timed = [&](const char* from) {
    call.target = CopyOf(Fixtures().target, folder, std::string(from) == "A1" ? "small.xls" : "big.xls");
    call.from = from;
    const auto start = std::chrono::steady_clock::now();
    const int32_t code = RunCopy(warm(), call).code;
    EXPECT_EQ(code, 0) << from;
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  const double one_cell = timed("A1");
  const double whole = timed("A1:J20000");
  std::cout << "CopySheetData on a warm office: one cell " << one_cell << " s, 20,000 x 10 cells " << whole
            << " s (the cells alone: " << whole - one_cell << " s)\n";
  RecordProperty("one_cell_seconds", std::to_string(one_cell));
  RecordProperty("big_area_seconds", std::to_string(whole));
  // Cell by cell, 200,000 cells would take half a minute and more.
  EXPECT_LT(whole - one_cell, 10.0);
  const Block copied = SheetOf(Read(call.target), "A").cells;
  ASSERT_EQ(copied.size(), 20000u);
  EXPECT_EQ(copied.front(), rows.front());
  EXPECT_EQ(copied.back(), rows.back());
  EXPECT_EQ(copied[12345], rows[12345]);
}

class CopySheetDataEx : public CopySheetData {};

TEST_F(CopySheetDataEx, TargetsOutsideOriginalsInsideAndTheFirstFailureEnds) {
  const fs::path folder = TestFolder("ex-order");
  CopyCall call = North(folder, "below");
  call.sheet_original = "1,2";  // North, South
  call.from = "A1:B2";
  call.sheet_target = "A,B";
  ASSERT_EQ(RunCopyEx(warm(), call).code, 0);
  const Block stacked = {{"name", "qty"}, {"pens", 3.0}, {"x", "y"}, {1.0, 2.0}};
  auto book = Read(call.target);
  EXPECT_EQ(SheetOf(book, "A").cells, stacked);
  EXPECT_EQ(SheetOf(book, "B").cells, stacked);

  // A missing second target sheet: both originals went into C before the
  // first copy into it failed, so the target loop is the outer one.
  call.sheet_target = "C,Nope";
  const CopyOutcome out = RunCopyEx(warm(), call);
  EXPECT_EQ(out.code, -205);
  EXPECT_EQ(out.error, "Target Sheet does not exist, be sure the 'Add sheets if necessary option' is set to True");
  book = Read(call.target);
  EXPECT_EQ(SheetOf(book, "C").cells, stacked);
  EXPECT_EQ(SheetNames(book), (Names{"A", "B", "C", "3", "Used"}));
}

TEST_F(CopySheetDataEx, AMissingTargetIsWrittenWithTheNewWorkbookSheetsOnly) {
  const fs::path folder = TestFolder("ex-missing");
  // The sheets a new workbook of the office has.
  office::Workbook& fresh = testing::Reader().GetWorkbooks().Add();
  Names defaults;
  for (int32_t i = 1; i <= fresh.GetWorksheets().Count(); ++i) defaults.push_back(fresh.GetWorksheets().Item(i)->Name());
  fresh.Close(false);

  CopyCall call = North(folder, "below");
  call.target = (folder / "made" / "new.xls").string();
  call.sheet_target = "Data";
  const CopyOutcome refused = RunCopyEx(warm(), call);
  EXPECT_EQ(refused.code, -205);
  EXPECT_EQ(SheetNames(Read(call.target)), defaults);

  // The copy adds a sheet for it, under the office's own name: only
  // bCopyNameOfSheet renames a target sheet.
  fs::remove(call.target);
  call.add_sheets = true;
  ASSERT_EQ(RunCopyEx(warm(), call).code, 0);
  const auto book = Read(call.target);
  ASSERT_EQ(book.size(), defaults.size() + 1);
  const auto added = std::find_if(book.begin(), book.end(), [&](const SheetCells& sheet) {
    return std::find(defaults.begin(), defaults.end(), sheet.name) == defaults.end();
  });
  ASSERT_NE(added, book.end());
  EXPECT_NE(added->name, "Data");
  EXPECT_EQ(added->cells, kNorth);
}

TEST_F(CopySheetDataEx, ResolverFailuresComeFirstAndWriteNothing) {
  const fs::path folder = TestFolder("ex-failures");
  CopyCall call = North(folder);
  call.target = (folder / "never.xls").string();
  call.sheet_original = "Nope";
  CopyOutcome out = RunCopyEx(warm(), call);
  EXPECT_EQ(out.code, -11);
  EXPECT_EQ(out.error, "Invalid Sheet Specified.");
  EXPECT_FALSE(fs::exists(call.target));

  call.sheet_original = "North";
  call.target = (folder / "*.xls").string();
  out = RunCopyEx(warm(), call);
  EXPECT_EQ(out.code, -207);
  EXPECT_FALSE(fs::exists(call.target));
}

TEST_F(CopySheetDataEx, WithoutOptimizeForSpeedNoOfficeIsLeft) {
  const fs::path folder = TestFolder("ex-cold");
  testing::ColdControl cold;
  const auto before = Sorted(testing::ChildOfficePids());
  CopyCall call = North(folder, "below");
  call.sheet_original = "\"North\", \"South\"";
  call.from = "A1:B2";
  call.target = (folder / "new.xls").string();
  call.sheet_target = "1";  // the first of the new workbook's sheets
  const CopyOutcome out = RunCopyEx(*cold.control, call);
  ASSERT_EQ(out.code, 0) << out.error;
  EXPECT_EQ(out.after.sheet_original, "\"North\",\"South\"");  // the list is normalised in place
  const auto book = Read(call.target);
  EXPECT_EQ(book[0].cells, (Block{{"name", "qty"}, {"pens", 3.0}, {"x", "y"}, {1.0, 2.0}}));
  EXPECT_EQ(Sorted(testing::ChildOfficePids()), before);

  call.sheet_original = "North";
  call.sheet_target = book[0].name + ",Missing";
  call.add_sheets = false;
  EXPECT_EQ(RunCopyEx(*cold.control, call).code, -205);
  EXPECT_EQ(Sorted(testing::ChildOfficePids()), before);
}

}  // namespace
}  // namespace tabulon
