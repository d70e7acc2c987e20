// AddSheet, MoveSheet, RenameSheet, DeleteSheet and CopySheet on real
// workbooks in a real office, the results read back through an office of the
// test's own (and, for what a copied sheet looks like, through python3's
// openpyxl on an .xlsx that office made of the result).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>

#include "copy_data_env.h"
#include "support/processes.h"

namespace tabulon {
namespace {

namespace fs = std::filesystem;
using office::Block;
using testing::CopyOf;
using testing::Fixtures;
using testing::Read;
using testing::SheetCells;
using testing::SheetOf;
using testing::TestFolder;

using Names = std::vector<std::string>;
using Events = std::vector<std::pair<int32_t, std::string>>;

// The fixtures' sheets: the source .xlsx and the target .xls.
const Names kSource = {"North", "South", "Third", "3", "Offset", "Formulas"};
const Names kTarget = {"A", "B", "C", "3", "Used"};

Names SheetNames(const std::string& path) {
  Names names;
  for (const SheetCells& sheet : Read(path)) names.push_back(sheet.name);
  return names;
}

std::vector<int> Sorted(std::vector<int> pids) {
  std::sort(pids.begin(), pids.end());
  return pids;
}

// Files the copy's temporary workbooks would leave in the temporary folder.
std::set<std::string> Leftovers() {
  std::set<std::string> found;
  for (const auto& entry : fs::directory_iterator(fs::temp_directory_path())) {
    const std::string name = entry.path().filename().string();
    if (name.rfind("Brevant_", 0) == 0) found.insert(name);
  }
  return found;
}

// One call of a method and what it left.
struct Outcome {
  int32_t code = 0;
  std::string error;
  Events events;
};

Outcome Call(TabulonCtrl& control, const std::function<int32_t(TabulonCtrl&)>& method) {
  Outcome out;
  const uint32_t cookie =
      control.AdviseOnError([&](int32_t& code, std::string& text) { out.events.emplace_back(code, text); });
  out.code = method(control);
  control.UnadviseOnError(cookie);
  out.error = control.get_ErrorString();
  return out;
}

class SheetOps : public ::testing::Test {
 protected:
  void SetUp() override { testing::ResetWarmControl(); }
  TabulonCtrl& warm() { return testing::WarmControl(); }
};

struct MoveCase {
  const char* move;
  const char* before;
  const char* after;
  Names expected;
  const char* before_after_call;  // the arguments as the method left them
  const char* after_after_call;
};

TEST_F(SheetOps, MoveSheetPutsTheSheetAfterElseBefore) {
  const MoveCase cases[] = {
      {"North", "", "lastlast", {"South", "Third", "3", "Offset", "Formulas", "North"}, "", "Formulas"},
      {"Formulas", "FirstFirst", "", {"Formulas", "North", "South", "Third", "3", "Offset"}, "North", ""},
      // sSheetAfter wins; a numeric text that names no sheet is a number.
      {"\"Offset\"", "North", "2", {"North", "South", "Offset", "Third", "3", "Formulas"}, "North", "2"},
      // The sheet named "3" wins over the third sheet.
      {"North", "", "\"3\"", {"South", "Third", "3", "North", "Offset", "Formulas"}, "", "3"},
      {"South", "", "", kSource, "", ""},  // nowhere to go: saved unchanged
  };
  const fs::path folder = TestFolder("move");
  for (const MoveCase& t : cases) {
    std::string original = Fixtures().source, target = (folder / "moved.xls").string();
    std::string move = t.move, before = t.before, after = t.after;
    const Outcome out = Call(warm(), [&](TabulonCtrl& c) { return c.MoveSheet(original, target, move, before, after); });
    ASSERT_EQ(out.code, 0) << t.move << ": " << out.error;
    EXPECT_EQ(SheetNames(target), t.expected) << t.move << " " << t.before << " " << t.after;
    EXPECT_EQ(before, t.before_after_call) << t.move;
    EXPECT_EQ(after, t.after_after_call) << t.move;
    EXPECT_EQ(move.find('"'), std::string::npos);
  }
  // Quotes stay on sSheetBefore, which then names no sheet.
  std::string original = Fixtures().source, target = (folder / "quoted.xls").string();
  std::string move = "North", before = "\"South\"", after;
  const Outcome out = Call(warm(), [&](TabulonCtrl& c) { return c.MoveSheet(original, target, move, before, after); });
  EXPECT_EQ(out.code, -210);
  EXPECT_EQ(out.error, "SheetBefore or SheetAfter does not exist.");
  EXPECT_EQ(out.events, (Events{{-210, "SheetBefore or SheetAfter does not exist."}}));
  EXPECT_EQ(before, "\"South\"");
  EXPECT_FALSE(fs::exists(target));
}

TEST_F(SheetOps, AddSheetPlacesNamesAndOverwrites) {
  const fs::path folder = TestFolder("add");
  const std::string book = CopyOf(Fixtures().target, folder, "book.xls");
  auto add = [&](std::string name, std::string before, std::string after, bool overwrite) {
    std::string original = book, target = book;
    const Outcome out =
        Call(warm(), [&](TabulonCtrl& c) { return c.AddSheet(original, target, name, before, after, overwrite); });
    return std::make_tuple(out, name, before, after);
  };
  // Both positions empty: after the last sheet, and the marker's sheet name
  // is written back.
  auto [appended, name1, before1, after1] = add("Tail", "", "", false);
  ASSERT_EQ(appended.code, 0) << appended.error;
  EXPECT_EQ(after1, "Used");
  EXPECT_EQ(SheetNames(book), (Names{"A", "B", "C", "3", "Used", "Tail"}));

  auto [front, name2, before2, after2] = add("\"Head\"", "firstfirst", "", false);
  ASSERT_EQ(front.code, 0) << front.error;
  EXPECT_EQ(name2, "Head");
  EXPECT_EQ(before2, "A");
  auto [middle, name3, before3, after3] = add("", "C", "", false);  // the office's default name
  ASSERT_EQ(middle.code, 0) << middle.error;
  Names names = SheetNames(book);
  ASSERT_EQ(names.size(), 8u);
  EXPECT_EQ(names[0], "Head");
  EXPECT_EQ(names[4], "C");
  EXPECT_FALSE(names[3].empty());
  EXPECT_EQ(std::count(kTarget.begin(), kTarget.end(), names[3]), 0);

  // A name in use: refused with a position, replaced with bOverwrite.
  const std::string saved = testing::ReadBytes(book);
  auto [refused, name4, before4, after4] = add("B", "", "lastlast", false);
  EXPECT_EQ(refused.code, -212);
  EXPECT_EQ(refused.error, "Target Sheet already exists.  Set overwrite to TRUE to copy over existing sheet.");
  EXPECT_EQ(refused.events.size(), 1u);
  EXPECT_EQ(testing::ReadBytes(book), saved);
  auto [replaced, name5, before5, after5] = add("b", "", "lastlast", true);
  ASSERT_EQ(replaced.code, 0) << replaced.error;
  names = SheetNames(book);
  EXPECT_EQ(names.back(), "b");
  EXPECT_EQ(std::count(names.begin(), names.end(), "B"), 0);
  // Without a position no test is made: the office refuses the name.
  auto [taken, name6, before6, after6] = add("A", "", "", false);
  EXPECT_EQ(taken.code, kAutomationError);
  EXPECT_EQ(taken.events.size(), 1u);
  EXPECT_EQ(SheetNames(book), names);
}

TEST_F(SheetOps, RenameSheetInPlaceAndUnderAPathDifferingInCase) {
  const fs::path folder = TestFolder("rename");
  const std::string book = CopyOf(Fixtures().target, folder, "book.xls");
  std::string original = book, target = book, sheet = "\"B\"", name = "\"Second\"";
  Outcome out = Call(warm(), [&](TabulonCtrl& c) { return c.RenameSheet(original, target, sheet, name); });
  ASSERT_EQ(out.code, 0) << out.error;
  EXPECT_EQ(sheet, "B");
  EXPECT_EQ(name, "Second");
  EXPECT_EQ(SheetNames(book), (Names{"A", "Second", "C", "3", "Used"}));
  ASSERT_FALSE(testing::WarmSpy().opens.empty());
  EXPECT_FALSE(testing::WarmSpy().opens.back().second.read_only.has_value());

  // The same path in other letters is the same file to the method: opened
  // for writing (this file system then makes a second file of it).
  testing::WarmSpy().opens.clear();
  target = (folder / "BOOK.XLS").string();
  sheet = "1";
  name = "First";
  out = Call(warm(), [&](TabulonCtrl& c) { return c.RenameSheet(original, target, sheet, name); });
  ASSERT_EQ(out.code, 0) << out.error;
  ASSERT_EQ(testing::WarmSpy().opens.size(), 1u);
  EXPECT_FALSE(testing::WarmSpy().opens[0].second.read_only.has_value());
  EXPECT_EQ(SheetNames(target), (Names{"First", "Second", "C", "3", "Used"}));

  // A name in use is the office's refusal, with the event; nothing written.
  const std::string saved = testing::ReadBytes(book);
  sheet = "A";
  name = "c";
  target = book;
  out = Call(warm(), [&](TabulonCtrl& c) { return c.RenameSheet(original, target, sheet, name); });
  EXPECT_EQ(out.code, kAutomationError);
  EXPECT_EQ(out.events, (Events{{kAutomationError, out.error}}));
  EXPECT_EQ(testing::ReadBytes(book), saved);
}

struct DeleteCase {
  const char* start;
  const char* end;
  const char* except;
  Names expected;
};

TEST_F(SheetOps, DeleteSheetRunsExceptAndSingleSheets) {
  const DeleteCase cases[] = {
      {"C", "A", "", {"3", "Used"}},             // the ends in either order
      {"A", "C", "", {"3", "Used"}},
      {"\"B\"", "", "", {"A", "C", "3", "Used"}},  // no end: the start alone
      {"B", "Nope", "", {"A", "C", "3", "Used"}},
      {"2", "4", "", {"A", "Used"}},              // "4" is a number; "3" below is the sheet named 3
      {"3", "", "", {"A", "B", "C", "Used"}},
      {"A", "Used", "\"c\"", {"C"}},              // the except sheet wins over the run
  };
  const fs::path folder = TestFolder("delete");
  for (const DeleteCase& t : cases) {
    std::string original = Fixtures().target, target = (folder / "deleted.xls").string();
    std::string start = t.start, end = t.end, except = t.except;
    const Outcome out =
        Call(warm(), [&](TabulonCtrl& c) { return c.DeleteSheet(original, target, start, end, except); });
    ASSERT_EQ(out.code, 0) << t.start << "-" << t.end << " except " << t.except << ": " << out.error;
    EXPECT_EQ(SheetNames(target), t.expected) << t.start << "-" << t.end << " except " << t.except;
    EXPECT_EQ((start + end + except).find('"'), std::string::npos) << "quotes are removed in place";
  }
  // The except sheet keeps its data.
  std::string original = Fixtures().target, target = (folder / "used.xls").string();
  std::string start, end, except = "Used";
  ASSERT_EQ(Call(warm(), [&](TabulonCtrl& c) { return c.DeleteSheet(original, target, start, end, except); }).code, 0);
  const auto kept = Read(target);
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept[0].cells.size(), 10u);
}

// Runs a python3 script (Debian's, which has openpyxl) with `args`; its
// standard output.
std::string Python(const fs::path& folder, const std::string& script, const std::string& args) {
  const fs::path file = folder / "script.py";
  std::ofstream(file) << script;
  std::string text;
  FILE* pipe = popen(("/usr/bin/python3 " + file.string() + " " + args).c_str(), "r");
  char buffer[512];
  while (fgets(buffer, sizeof buffer, pipe) != nullptr) text += buffer;
  pclose(pipe);
  fs::remove(file);
  return text;
}

// A copied sheet as python3's openpyxl sees it: the office that reads the
// results saves the workbook as .xlsx first.
std::string DescribeSheet(const std::string& book, const std::string& sheet) {
  const fs::path xlsx = fs::path(book).replace_extension(".check.xlsx");
  office::Workbook& opened = testing::Reader().GetWorkbooks().Open(book, {});
  office::SaveAsOptions as;
  as.file_format = 51;
  opened.SaveAs(xlsx.string(), as);
  opened.Close(false);
  const std::string script =
      "import sys, openpyxl\n"
      "ws = openpyxl.load_workbook(sys.argv[1])[sys.argv[2]]\n"
      "print(sorted(str(r) for r in ws.merged_cells.ranges), ws['B2'].number_format, ws['C2'].value,"
      " ws['B2'].font.b)\n"
      "print(round(ws.column_dimensions['B'].width))\n";
  const std::string text = Python(xlsx.parent_path(), script, xlsx.string() + " '" + sheet + "'");
  fs::remove(xlsx);
  return text;
}

TEST_F(SheetOps, CopySheetCarriesTheWholeSheet) {
  const fs::path folder = TestFolder("copy-whole");
  const std::string styled = (folder / "styled.xlsx").string();
  const std::string make =
      "import sys, openpyxl\n"
      "from openpyxl.styles import Font\n"
      "wb = openpyxl.Workbook(); ws = wb.active; ws.title = 'Styled'\n"
      "ws['A1'] = 'Title'; ws.merge_cells('A1:C1')\n"
      "ws['B2'] = 0.25; ws['B2'].number_format = '0.00%'; ws['B2'].font = Font(bold=True)\n"
      "ws['C2'] = '=B2*2'; ws.column_dimensions['B'].width = 30\n"
      "wb.create_sheet('Other'); wb.save(sys.argv[1])\n";
  Python(folder, make, styled);
  ASSERT_TRUE(fs::exists(styled));
  const std::string expected = "['A1:C1'] 0.00% =B2*2 True\n";
  ASSERT_EQ(DescribeSheet(styled, "Styled"), expected + "30\n");

  const std::string book = CopyOf(Fixtures().target, folder, "book.xls");
  const auto before = Leftovers();
  std::string original = styled, sheet = "Styled", target = book, name, sheet_before = "C", sheet_after;
  int32_t action = 0;
  const Outcome out = Call(warm(), [&](TabulonCtrl& c) {
    return c.CopySheet(original, sheet, target, name, sheet_before, sheet_after, action);
  });
  ASSERT_EQ(out.code, 0) << out.error;
  EXPECT_EQ(SheetNames(book), (Names{"A", "B", "Styled", "C", "3", "Used"}));
  // Widths are counted in characters of the workbook's default font, which
  // differs between the two workbooks: the same width reads a little
  // differently, and far from the default of about 9.
  const std::string copied = DescribeSheet(book, "Styled");
  ASSERT_EQ(copied.substr(0, expected.size()), expected);
  const int width = std::stoi(copied.substr(expected.size()));
  EXPECT_GE(width, 27);
  EXPECT_LE(width, 34);
  EXPECT_EQ(SheetOf(Read(book), "Styled").cells, (Block{{"Title", {}, {}}, {{}, 0.25, 0.5}}));
  EXPECT_EQ(Leftovers(), before);
  EXPECT_EQ(testing::WarmSpy().opens[0].second.read_only, true);
}

struct CopyCase {
  const char* what;
  const char* sheet_target;
  const char* before;
  const char* after;
  int32_t action;
  Names expected;
};

TEST_F(SheetOps, CopySheetPlacesAndNamesTheCopy) {
  const CopyCase cases[] = {
      {"after the last by default", "", "", "", 0, {"A", "B", "C", "3", "Used", "South"}},
      {"a name of its own, first", "Copy", "firstfirst", "", 0, {"Copy", "A", "B", "C", "3", "Used"}},
      {"after wins", "\"Copy\"", "A", "lastLAST", 0, {"A", "B", "C", "3", "Used", "Copy"}},
      {"replace in place", "B", "", "", 1, {"A", "B", "C", "3", "Used"}},
      {"replace elsewhere", "B", "firstfirst", "", 1, {"B", "A", "C", "3", "Used"}},
      {"keep both", "b", "", "Used", 2, {"A", "B", "C", "3", "Used", "b (2)"}},
  };
  const fs::path folder = TestFolder("copy-place");
  for (const CopyCase& t : cases) {
    const std::string book = CopyOf(Fixtures().target, folder, "book.xls");
    std::string original = Fixtures().source, sheet = "\"South\"", target = book, name = t.sheet_target,
                before = t.before, after = t.after;
    int32_t action = t.action;
    const Outcome out =
        Call(warm(), [&](TabulonCtrl& c) { return c.CopySheet(original, sheet, target, name, before, after, action); });
    ASSERT_EQ(out.code, 0) << t.what << ": " << out.error;
    EXPECT_EQ(sheet, "South");
    const auto result = Read(book);
    Names names;
    for (const SheetCells& s : result) names.push_back(s.name);
    EXPECT_EQ(names, t.expected) << t.what;
    const std::string copy = name.empty() ? "South" : (t.action == 2 ? "b (2)" : name);
    EXPECT_EQ(SheetOf(result, copy).cells, (Block{{"x", "y"}, {1.0, 2.0}})) << t.what;
  }

  // A missing target in a missing folder: the copy alone.
  std::string original = Fixtures().source, sheet = "3", target = (folder / "new" / "er" / "t.xls").string(),
              name, before = "Nope", after;
  int32_t action = 0;
  ASSERT_EQ(Call(warm(), [&](TabulonCtrl& c) {
              return c.CopySheet(original, sheet, target, name, before, after, action);
            }).code,
            0);
  EXPECT_EQ(Read(target), (std::vector<SheetCells>{{"3", {{"named three"}}}}));
  EXPECT_EQ(testing::ReadBytes(target).substr(0, 4), "\xD0\xCF\x11\xE0");

  // The original as the target: a copy within the workbook, kept beside the
  // sheet of its name.
  const std::string book = CopyOf(Fixtures().target, folder, "same.xls");
  original = book;
  target = book;
  sheet = "Used";
  before = "A";
  action = TabulonCtrl::kCopySheetKeepBoth;
  ASSERT_EQ(Call(warm(), [&](TabulonCtrl& c) {
              return c.CopySheet(original, sheet, target, name, before, after, action);
            }).code,
            0);
  const auto same = Read(book);
  ASSERT_EQ(same.size(), 6u);
  EXPECT_EQ(same[0].name, "Used (2)");
  EXPECT_EQ(same[0].cells, same[5].cells);
}

struct FailureCase {
  const char* what;
  int32_t code;
  const char* error;  // null: the office's own text
  bool event;
  std::function<int32_t(TabulonCtrl&, const std::string& book, const std::string& target)> call;
};

// Every failure: the exact code and text, the event where the method raises
// it, nothing written, no office left, no temporary workbook left.
TEST_F(SheetOps, FailuresWriteNothingAndLeaveNoOffice) {
  const fs::path folder = TestFolder("failures");
  const std::string blocked = CopyOf(Fixtures().source, folder, "blocked");
  const std::string missing = (folder / "none.xls").string();
  const std::string in_file = blocked + "/t.xls";
  auto move = [](std::string o, std::string t, std::string m, std::string b, std::string a) {
    return [=](TabulonCtrl& c, const std::string& book, const std::string& target) mutable {
      if (o.empty()) o = book;
      if (t.empty()) t = target;
      return c.MoveSheet(o, t, m, b, a);
    };
  };
  auto add = [](std::string name, std::string b, std::string a) {
    return [=](TabulonCtrl& c, const std::string& book, const std::string& target) mutable {
      std::string o = book, t = target;
      bool overwrite = false;
      return c.AddSheet(o, t, name, b, a, overwrite);
    };
  };
  auto remove = [](std::string s, std::string e, std::string x) {
    return [=](TabulonCtrl& c, const std::string& book, const std::string& target) mutable {
      std::string o = book, t = target;
      return c.DeleteSheet(o, t, s, e, x);
    };
  };
  auto copy = [](std::string sheet, std::string name, std::string b, std::string a) {
    return [=](TabulonCtrl& c, const std::string& book, const std::string& target) mutable {
      // Into the existing book: a missing target would simply be made.
      std::string o = Fixtures().source, t = book;
      (void)target;
      int32_t action = 0;
      return c.CopySheet(o, sheet, t, name, b, a, action);
    };
  };
  const std::vector<FailureCase> cases = {
      {"source missing", -202, "Source File does not exist", false, move(missing, "", "A", "", "")},
      {"folder", -208, "Target path folder does not exist", false, move("", in_file, "A", "", "")},
      {"sheet to move", -215, "Sheet to move does not exist.", true, move("", "", "Nope", "", "lastlast")},
      {"move position", -210, "SheetBefore or SheetAfter does not exist.", true, move("", "", "A", "", "9")},
      {"rename", -216, "Sheet to rename does not exist.", true,
       [](TabulonCtrl& c, const std::string& book, const std::string& target) {
         std::string o = book, t = target, s = "Nope", n = "New";
         return c.RenameSheet(o, t, s, n);
       }},
      {"add exists", -212, "Target Sheet already exists.  Set overwrite to TRUE to copy over existing sheet.", true,
       add("\"Used\"", "firstfirst", "")},
      {"add position", -210, "SheetBefore or SheetAfter does not exist.", true, add("New", "Nope", "")},
      {"delete nothing", -213, "Invalid or missing sheets specified.", true, remove("Nope", "A", "Nope")},
      {"delete every sheet", kAutomationError, nullptr, true, remove("1", "Used", "")},
      {"delete source missing", -202, "Source File does not exist", false,
       [&](TabulonCtrl& c, const std::string&, const std::string& target) {
         std::string o = missing, t = target, s = "A", e, x;
         return c.DeleteSheet(o, t, s, e, x);
       }},
      {"copy sheet", -204, "Source Sheet does not exist.", true, copy("Nope", "", "", "")},
      {"copy position", -210, "SheetBefore or SheetAfter does not exist", true, copy("North", "", "", "Nope")},
      {"copy exists", -212, "Target Sheet already exists.  Set options differently to overwrite.", true,
       copy("North", "used", "", "")},
  };
  // Every case on the warm control; a case of each method's own ending and
  // of the general error path again without OptimizeForSpeed.
  std::vector<std::pair<TabulonCtrl*, const FailureCase*>> runs;
  for (const FailureCase& t : cases) runs.emplace_back(&warm(), &t);
  testing::ColdControl cold;
  for (const char* what : {"sheet to move", "rename", "add exists", "delete nothing", "delete every sheet",
                           "copy exists"}) {
    for (const FailureCase& t : cases) {
      if (std::string(t.what) == what) runs.emplace_back(cold.control.get(), &t);
    }
  }
  // Counted, not listed: a warm office may be replaced by a fresh one after
  // many documents.
  const size_t offices = testing::ChildOfficePids().size();
  const auto leftovers = Leftovers();
  for (const auto& [control, test] : runs) {
    const FailureCase& t = *test;
    const std::string book = CopyOf(Fixtures().target, folder, "book.xls");
    const std::string saved = testing::ReadBytes(book);
    for (const bool same_file : {true, false}) {
      if (control != &warm() && same_file) continue;
      const std::string target = same_file ? book : (folder / "out.xls").string();
      const Outcome out = Call(*control, [&](TabulonCtrl& c) { return t.call(c, book, target); });
      EXPECT_EQ(out.code, t.code) << t.what;
      if (t.error != nullptr) {
        EXPECT_EQ(out.error, t.error) << t.what;
      }
      EXPECT_EQ(out.events, (t.event ? Events{{out.code, out.error}} : Events{})) << t.what;
      EXPECT_EQ(testing::ReadBytes(book), saved) << t.what;
      EXPECT_FALSE(fs::exists(folder / "out.xls")) << t.what;
      EXPECT_EQ(testing::ChildOfficePids().size(), offices) << t.what;
    }
  }
  EXPECT_EQ(Leftovers(), leftovers);

  testing::ColdControl dead;
  dead.spy().fail_create = true;
  const std::string book = CopyOf(Fixtures().target, folder, "book.xls");
  const Outcome out =
      Call(*dead.control, [&](TabulonCtrl& c) { return move("", "", "A", "", "lastlast")(c, book, book); });
  EXPECT_EQ(out.code, -3);
  EXPECT_EQ(out.events, (Events{{-3, "Unable to create Excel Application. Is it installed?"}}));
  EXPECT_EQ(testing::ChildOfficePids().size(), offices);
}

// The -4 of a failed close replaces the method's code, on success (the
// work is saved) and on failure alike, and the office is gone all the same.
TEST_F(SheetOps, AFailedQuitReplacesTheResultWithMinusFour) {
  const fs::path folder = TestFolder("failed-quit");
  const std::string book = CopyOf(Fixtures().target, folder, "book.xls");
  testing::ColdControl cold;
  std::string original = book, target = book, sheet = "A", name = "Renamed";
  ASSERT_EQ(cold.control->RenameSheet(original, target, sheet, name), 0);  // settles the office probe
  const size_t offices = testing::ChildOfficePids().size();
  cold.spy().fail_quit = true;

  sheet = "B";
  name = "Second";
  Outcome out = Call(*cold.control, [&](TabulonCtrl& c) { return c.RenameSheet(original, target, sheet, name); });
  EXPECT_EQ(out.code, -4);
  EXPECT_EQ(out.error, "Unable to destroy Excel application. Is it installed?");
  EXPECT_EQ(SheetNames(book), (Names{"Renamed", "Second", "C", "3", "Used"}));

  std::string move = "Nope", before, after = "lastlast";
  out = Call(*cold.control, [&](TabulonCtrl& c) { return c.MoveSheet(original, target, move, before, after); });
  EXPECT_EQ(out.code, -4);
  EXPECT_EQ(out.error, "Unable to destroy Excel application. Is it installed?");
  // The method's own failure raised its event before the close failed.
  EXPECT_EQ(out.events, (Events{{-215, "Sheet to move does not exist."}}));
  EXPECT_EQ(testing::ChildOfficePids().size(), offices);
}

// With OptimizeForSpeed every method reuses the kept application; without
// it, every call starts one and leaves none.
TEST_F(SheetOps, WarmCallsReuseTheOfficeAndColdCallsLeaveNone) {
  const fs::path folder = TestFolder("warm-cold");
  auto every_method = [&](TabulonCtrl& control) {
    const std::string book = CopyOf(Fixtures().target, folder, "book.xls");
    std::string o = book, t = book, a = "A", b = "B", empty, last = "lastlast", name = "New";
    std::string src = Fixtures().source, north = "North";
    bool overwrite = false;
    int32_t action = 0;
    EXPECT_EQ(control.AddSheet(o, t, name, empty, last, overwrite), 0);
    EXPECT_EQ(control.MoveSheet(o, t, a, empty, last), 0);
    EXPECT_EQ(control.RenameSheet(o, t, b, name = "Bee"), 0);
    EXPECT_EQ(control.CopySheet(src, north, t, empty, empty, empty, action), 0);
    EXPECT_EQ(control.DeleteSheet(o, t, name = "New", empty, empty), 0);
    return SheetNames(book);
  };
  const Names expected = {"Bee", "C", "3", "Used", "A", "North"};
  const int created = testing::WarmSpy().excel_created;
  EXPECT_EQ(every_method(warm()), expected);
  EXPECT_EQ(testing::WarmSpy().excel_created, created);

  testing::ColdControl cold;
  const size_t offices = testing::ChildOfficePids().size();
  EXPECT_EQ(every_method(*cold.control), expected);
  EXPECT_EQ(cold.spy().quits, 5);  // one office per call, each quit
  EXPECT_EQ(testing::ChildOfficePids().size(), offices);
}

}  // namespace
}  // namespace tabulon
