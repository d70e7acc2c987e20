// PrintExcelContents, ExecuteMacro and ChangePassword on real workbooks in a
// real office. What was printed is read from the produced PDF files
// (pdfinfo, pdftotext), what a macro did from the saved workbook, and what a
// password did by the office and by independent readers (msoffcrypto-tool,
// python3-olefile). Workbooks with VBA code are made at the start by
// tests/support/make_vba_workbook.py from workbooks the office wrote.
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include "office/uno/uno_factory.h"
#include "support/books.h"
#include "support/processes.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon {
namespace {

namespace fs = std::filesystem;
using office::Block;
using office::Cell;
using testing::SheetCells;

constexpr const char* kQueue = "TabulonPDF";

struct Shell {
  int status;
  std::string out;
};

Shell RunShell(const std::string& command) {
  Shell r{-1, {}};
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return r;
  std::array<char, 4096> buffer;
  size_t n;
  while ((n = fread(buffer.data(), 1, buffer.size(), pipe)) > 0) r.out.append(buffer.data(), n);
  const int status = pclose(pipe);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

std::string Quote(const std::string& text) { return "'" + text + "'"; }

int PdfPages(const std::string& pdf) {
  const Shell info = RunShell("pdfinfo " + Quote(pdf));
  const size_t at = info.out.find("Pages:");
  return at == std::string::npos ? -1 : std::atoi(info.out.c_str() + at + 6);
}

std::string PdfText(const std::string& pdf) { return RunShell("pdftotext " + Quote(pdf) + " -").out; }

// A flat OpenDocument spreadsheet with a Basic module and one module of VBA
// code (the office runs both; Excel workbooks bring theirs as VBA).
std::string MacroBook() {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<office:document xmlns:office="urn:oasis:names:tc:opendocument:xmlns:office:1.0" xmlns:table="urn:oasis:names:tc:opendocument:xmlns:table:1.0" xmlns:text="urn:oasis:names:tc:opendocument:xmlns:text:1.0" xmlns:script="urn:oasis:names:tc:opendocument:xmlns:script:1.0" xmlns:ooo="http://openoffice.org/2004/office" office:version="1.2" office:mimetype="application/vnd.oasis.opendocument.spreadsheet"><office:scripts><office:script script:language="ooo:Basic"><ooo:libraries><ooo:library-embedded ooo:name="Standard"><ooo:module ooo:name="Tools"><ooo:source-code>Sub Put(a As String, b As String)
  ThisComponent.getSheets().getByIndex(0).getCellByPosition(1, 0).setString(a &amp; "|" &amp; b)
End Sub
Sub NoArguments()
  ThisComponent.getSheets().getByIndex(0).getCellByPosition(2, 0).setString("ran")
End Sub
Sub Divide(a As String)
  Dim n As Integer
  n = Len(a) - Len(a)
  n = 1 / n
End Sub
Sub Forever()
  Do
  Loop
End Sub
</ooo:source-code></ooo:module><ooo:module ooo:name="Excelish"><ooo:source-code>Option VBASupport 1
Sub VbaPut(value As String)
  Worksheets(1).Range("D1").Value = value &amp; "!"
End Sub
</ooo:source-code></ooo:module></ooo:library-embedded></ooo:libraries></office:script></office:scripts><office:body><office:spreadsheet><table:table table:name="Sheet1"><table:table-row><table:table-cell office:value-type="string"><text:p>x</text:p></table:table-cell></table:table-row></table:table></office:spreadsheet></office:body></office:document>
)";
}

// The VBA code of the Excel workbooks the tests make: a standard module
// with macros of every kind a caller may name, and a second module.
constexpr const char* kModule1 = R"(Sub MyMacro(a As String, b As String)
  Worksheets(1).Range("C1").Value = a & "|" & b
End Sub
Public Sub NoArguments()
  ThisWorkbook.Worksheets("North").Range("D1").Value = "ran"
End Sub
Private Sub Divide()
  Dim n As Integer
  n = 1 / n
End Sub
Sub Refuse(reason As String)
  Err.Raise 1004, , "refused: " & reason
End Sub
)";
constexpr const char* kModule2 = R"(Sub Other(a As String)
  Worksheets("North").Range("E1").Value = a & "!"
End Sub
)";

struct Shared {
  fs::path dir;
  std::string book;      // Pages (page-one, page-two, page-three, a page each), Second
  std::string plain;     // North (name,qty / pens,3), an .xls without passwords
  std::string macros;    // MacroBook()
  std::string vba_xls;   // plain with kModule1 and kModule2 as its VBA project
  std::string vba_xlsm;  // the same as a macro-enabled Open XML workbook
  std::string spool;   // where the queue writes this user's jobs
  std::unique_ptr<office::Application> reader;
  std::unique_ptr<TabulonCtrl> warm;
};
Shared* g = nullptr;

class Environment : public ::testing::Environment {
 public:
  void TearDown() override {
    if (g == nullptr) return;
    g->warm->put_OptimizeForSpeed(false);
    g->warm.reset();
    g->reader->Quit();
    fs::remove_all(g->dir);
    delete g;
    g = nullptr;
    EXPECT_TRUE(testing::ChildOfficePids().empty()) << "an office was left running";
  }
};

Shared& Get() {
  if (g != nullptr) return *g;
  g = new Shared;
  ::testing::AddGlobalTestEnvironment(new Environment);
  g->dir = fs::temp_directory_path() / ("tabulon-print-macro-" + std::to_string(getpid()));
  fs::create_directories(g->dir / "fixtures");
  g->reader = office::uno::MakeUnoFactory()->CreateExcel();
  office::Application& app = *g->reader;

  Block pages(120, std::vector<Cell>{Cell()});
  pages[0][0] = Cell(std::string("page-one"));
  pages[59][0] = Cell(std::string("page-two"));
  pages[119][0] = Cell(std::string("page-three"));
  g->book = (g->dir / "fixtures" / "book.xlsx").string();
  testing::SaveBook(app, g->book, {{"Pages", pages}, {"Second", {{"second-a", Cell(), "second-c"}}}});
  g->plain = (g->dir / "fixtures" / "plain.xls").string();
  testing::SaveBook(app, g->plain, {{"North", {{"name", "qty"}, {"pens", 3.0}}}}, office::kXlWorkbookNormal);
  g->macros = (g->dir / "fixtures" / "macros.fods").string();
  std::ofstream(g->macros) << MacroBook();

  // The office keeps the VBA code of the workbooks it loads but cannot make
  // such a workbook: the generator puts the project into ones it wrote.
  const std::string xlsx = (g->dir / "fixtures" / "plain.xlsx").string();
  testing::SaveBook(app, xlsx, {{"North", {{"name", "qty"}, {"pens", 3.0}}}});
  const fs::path module1 = g->dir / "fixtures" / "Module1.bas", module2 = g->dir / "fixtures" / "Module2.bas";
  std::ofstream(module1) << kModule1;
  std::ofstream(module2) << kModule2;
  g->vba_xls = (g->dir / "fixtures" / "vba.xls").string();
  g->vba_xlsm = (g->dir / "fixtures" / "vba.xlsm").string();
  for (const auto& [from, to] : {std::pair{g->plain, g->vba_xls}, std::pair{xlsx, g->vba_xlsm}}) {
    const Shell made = RunShell("python3 " + Quote(TABULON_VBA_WORKBOOK) + " " + Quote(from) + " " + Quote(to) +
                                " --module Module1=" + Quote(module1.string()) +
                                " --module Module2=" + Quote(module2.string()));
    EXPECT_EQ(made.status, 0) << made.out;
  }

  g->warm = std::make_unique<TabulonCtrl>();
  g->warm->put_OptimizeForSpeed(true);
  return *g;
}

// The printer set-up of the README, run by the tests themselves: CUPS is
// started where it is not running and the PDF queue added.
const std::string& Spool() {
  static const std::string spool = [] {
    const Shell setup = RunShell(TABULON_SETUP_PRINTER);
    EXPECT_EQ(setup.status, 0) << setup.out;
    std::string folder = setup.out.substr(0, setup.out.find('\n'));
    fs::create_directories(folder);
    return folder;
  }();
  return spool;
}

// Waits until the queue has finished every job (the office hands a job over
// and returns; the PDF is written afterwards).
void WaitForQueue() {
  for (int i = 0; i < 600; ++i) {
    if (RunShell(std::string("lpstat -o ") + kQueue).out.empty()) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  ADD_FAILURE() << "the print queue did not finish";
}

std::set<std::string> SpoolFiles() {
  std::set<std::string> files;
  for (const auto& entry : fs::directory_iterator(Spool())) files.insert(entry.path().string());
  return files;
}

std::vector<std::string> NewFiles(const std::set<std::string>& before) {
  WaitForQueue();
  std::vector<std::string> added;
  for (const std::string& file : SpoolFiles())
    if (!before.count(file)) added.push_back(file);
  std::sort(added.begin(), added.end(), [](const std::string& a, const std::string& b) {
    // job_<n>-...: in the order the jobs were made
    return std::atoi(fs::path(a).filename().c_str() + 4) < std::atoi(fs::path(b).filename().c_str() + 4);
  });
  return added;
}

fs::path Folder(const std::string& name) {
  const fs::path folder = Get().dir / "tests" / name;
  fs::remove_all(folder);
  fs::create_directories(folder);
  return folder;
}

struct Events {
  explicit Events(TabulonCtrl& control) : control_(control) {
    cookie_ = control.AdviseOnError([this](int32_t& code, std::string& text) { list.emplace_back(code, text); });
  }
  ~Events() { control_.UnadviseOnError(cookie_); }
  std::vector<std::pair<int32_t, std::string>> list;

 private:
  TabulonCtrl& control_;
  uint32_t cookie_;
};

struct Print {
  std::string path{}, file{}, sheets{}, ranges{}, printer = kQueue;
  int32_t copies = 1, from = 0, to = 0;
  bool collate = true, to_file = false;
};

int32_t PrintWith(TabulonCtrl& control, Print& p) {
  return control.PrintExcelContents(p.path, p.file, p.sheets, p.ranges, p.printer, p.copies, p.from, p.to, p.collate,
                                    p.to_file);
}

// ---------------------------------------------------------------- printing

TEST(PrintExcelContents, PrintsEachListedSheetAsOneJobOnTheQueueWithItsCopiesAndPages) {
  TabulonCtrl& control = *Get().warm;
  struct Case {
    const char* sheets;
    int32_t copies, from, to;
    std::vector<int> pages;  // of each job, in order
  };
  const Case cases[] = {
      {"Pages,Second", 1, 0, 0, {3, 1}}, {"1", 2, 0, 0, {6}},      // two copies of three pages
      {"Pages", 1, 2, 3, {2}},           {"Pages", 1, 0, 2, {2}},  // no first page given: from the first
      {"Pages", 1, 3, 0, {1}},                                     // no last page given: to the end
  };
  for (const Case& c : cases) {
    const auto before = SpoolFiles();
    Print p{Get().book, "", c.sheets};
    p.copies = c.copies;
    p.from = c.from;
    p.to = c.to;
    ASSERT_EQ(PrintWith(control, p), 0) << control.get_ErrorString();
    const auto jobs = NewFiles(before);
    std::vector<int> pages;
    for (const std::string& job : jobs) pages.push_back(PdfPages(job));
    EXPECT_EQ(pages, c.pages) << c.sheets << " " << c.copies << " " << c.from << "-" << c.to;
    for (const std::string& job : jobs) fs::remove(job);
  }
}

TEST(PrintExcelContents, TheDefaultPrinterIsTheQueueWhenTheSystemHasNoOther) {
  const Shell default_printer = RunShell("lpstat -d");
  if (default_printer.out.find(kQueue) == std::string::npos) GTEST_SKIP() << default_printer.out;
  const auto before = SpoolFiles();
  Print p{Get().book, "", "Second"};
  p.printer = "";
  ASSERT_EQ(PrintWith(*Get().warm, p), 0) << Get().warm->get_ErrorString();
  const auto jobs = NewFiles(before);
  ASSERT_EQ(jobs.size(), 1u);
  EXPECT_EQ(PdfPages(jobs[0]), 1);
  fs::remove(jobs[0]);
}

TEST(PrintExcelContents, PrintsToFilesTheSheetsRangesAndPagesAsked) {
  TabulonCtrl& control = *Get().warm;
  const fs::path folder = Folder("to-file");
  Spool();
  struct Case {
    const char* sheets;
    const char* ranges;
    int32_t from, to;
    std::vector<std::string> files;               // written, in job order
    std::vector<std::vector<std::string>> texts;  // on each file
    std::vector<std::string> absent;              // on none of them
  };
  const Case cases[] = {
      {"Pages", "", 0, 0, {"out.pdf"}, {{"page-one", "page-two", "page-three"}}, {"second-a"}},
      {"Pages", "", 2, 2, {"out.pdf"}, {{"page-two"}}, {"page-one", "page-three"}},
      {"\"Second\"", "A1,C1:C1", 0, 0, {"out.pdf", "out-2.pdf"}, {{"second-a"}, {"second-c"}}, {"page-one"}},
      {"*", "A1", 0, 0, {"out.pdf", "out-2.pdf"}, {{"page-one"}, {"second-a"}}, {"page-two", "second-c"}},
  };
  for (const Case& c : cases) {
    const fs::path out = folder / "more" / "out.pdf";  // the folder is made
    Print p{Get().book, out.string(), c.sheets, c.ranges, ""};
    p.from = c.from;
    p.to = c.to;
    p.to_file = true;
    ASSERT_EQ(PrintWith(control, p), 0) << control.get_ErrorString();
    std::set<std::string> written;
    for (const auto& entry : fs::directory_iterator(out.parent_path()))
      written.insert(entry.path().filename().string());
    EXPECT_EQ(written, std::set<std::string>(c.files.begin(), c.files.end())) << c.sheets << " " << c.ranges;
    for (size_t i = 0; i < c.files.size() && i < c.texts.size(); ++i) {
      const std::string text = PdfText((out.parent_path() / c.files[i]).string());
      for (const std::string& want : c.texts[i]) EXPECT_NE(text.find(want), std::string::npos) << want;
      for (const std::string& not_there : c.absent) EXPECT_EQ(text.find(not_there), std::string::npos) << not_there;
    }
    fs::remove_all(out.parent_path());
  }
}

TEST(PrintExcelContents, FailuresGiveTheirCodesAndPrintNothingWrong) {
  TabulonCtrl& control = *Get().warm;
  const fs::path folder = Folder("print-failures");
  std::ofstream(folder / "a-file") << "x";
  const std::string quoted_book = "\"" + Get().book + "\"";
  struct Case {
    Print p;
    int32_t code;
    std::string text;  // ErrorString, or a part of it for office errors
    bool event;
  };
  const Case cases[] = {
      {{(folder / "none.xlsx").string(), "", "*"}, kFileMissing, "Source File does not exist", false},
      {{Get().book, "", "Nope"}, kSheetMissing, "Source Sheet does not exist.", true},
      {{Get().book, (folder / "a-file" / "x.pdf").string(), "*", "", "", 1, 0, 0, true, true},
       kTargetFolderMissing,
       "Target path folder does not exist",
       false},
      {{Get().book, (folder / "bad.pdf").string(), "Second", "A1,NotARange", "", 1, 0, 0, true, true},
       kInvalidSheets,
       "Invalid or missing sheets specified.",
       true},
      {{Get().book, "", "Second", "", "NoSuchQueue"}, kAutomationError, "NoSuchQueue", true},
  };
  for (Case c : cases) {
    Events events(control);
    const int32_t code = PrintWith(control, c.p);
    EXPECT_EQ(code, c.code) << c.text;
    EXPECT_NE(control.get_ErrorString().find(c.text), std::string::npos) << control.get_ErrorString();
    EXPECT_EQ(!events.list.empty(), c.event) << c.text;
  }
  // The valid range of the sheet was still printed; the missing one was not.
  EXPECT_TRUE(fs::exists(folder / "bad.pdf"));
  EXPECT_FALSE(fs::exists(folder / "bad-2.pdf"));
  EXPECT_NE(PdfText((folder / "bad.pdf").string()).find("second-a"), std::string::npos);

  // Quotes are taken out of the path and the sheet list, which are rewritten.
  Print quoted{quoted_book, (folder / "q.pdf").string(), "\"Second\"", "", "", 1, 0, 0, true, true};
  ASSERT_EQ(PrintWith(control, quoted), 0) << control.get_ErrorString();
  EXPECT_EQ(quoted.path, Get().book);
  EXPECT_EQ(quoted.sheets, "Second");
  EXPECT_TRUE(fs::exists(folder / "q.pdf"));
}

// ------------------------------------------------------------------ macros

struct Macro {
  std::string source{}, target{}, name{};
  bool save = false;
  std::array<std::string, 8> args{};
};

int32_t RunMacro(TabulonCtrl& control, Macro& m) {
  auto& a = m.args;
  return control.ExecuteMacro(m.source, m.target, m.name, m.save, a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7]);
}

std::string Bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

TEST(ExecuteMacro, RunsTheMacroOnTheWorkbookAndSavesOnlyWhenAsked) {
  TabulonCtrl& control = *Get().warm;
  const fs::path folder = Folder("macros");
  const std::string source = (folder / "macros.fods").string();
  fs::copy_file(Get().macros, source);
  const std::string original = Bytes(source);
  struct Case {
    std::string name;
    std::array<std::string, 8> args;
    const char* cell;  // what the macro writes
    Cell value;
  };
  const Case cases[] = {
      // An empty first argument is passed as "", so the macro gets both.
      {"Tools.Put", {"", "two"}, "B1", Cell(std::string("|two"))},
      {"Put", {"one", "two"}, "B1", Cell(std::string("one|two"))},
      {"Standard.Tools.Put", {"a", "b"}, "B1", Cell(std::string("a|b"))},
      // No arguments at all: a macro without parameters runs.
      {"NoArguments", {}, "C1", Cell(std::string("ran"))},
      {"'macros.fods'!NoArguments", {}, "C1", Cell(std::string("ran"))},
      // VBA code, on Excel's object model.
      {"\"VbaPut\"", {"vba"}, "D1", Cell(std::string("vba!"))},
  };
  for (const Case& c : cases) {
    const std::string target = (folder / "out" / "saved.xls").string();
    Macro m{source, target, c.name, true, c.args};
    ASSERT_EQ(RunMacro(control, m), 0) << c.name << ": " << control.get_ErrorString();
    EXPECT_EQ(m.name.find('"'), std::string::npos);
    const auto book = testing::ReadBook(*Get().reader, target);
    ASSERT_EQ(book.size(), 1u);
    const int column = c.cell[0] - 'A';
    ASSERT_GT(book[0].cells[0].size(), static_cast<size_t>(column)) << c.name;
    EXPECT_EQ(book[0].cells[0][column], c.value) << c.name;
    // The normal workbook format, whatever the target's name.
    EXPECT_EQ(Bytes(target).substr(0, 4), "\xD0\xCF\x11\xE0");
    fs::remove(target);
  }
  // Without the save, nothing is written and the source is as it was.
  Macro unsaved{source, (folder / "unsaved.xls").string(), "Put", false, {"x", "y"}};
  ASSERT_EQ(RunMacro(control, unsaved), 0) << control.get_ErrorString();
  EXPECT_FALSE(fs::exists(folder / "unsaved.xls"));
  EXPECT_EQ(Bytes(source), original);
}

TEST(ExecuteMacro, AMacroThatIsMissingOrFailsFailsTheCallAndWritesNothing) {
  TabulonCtrl& control = *Get().warm;
  const fs::path folder = Folder("macro-failures");
  struct Case {
    std::string name;
    std::array<std::string, 8> args;
    std::string text;
  };
  const Case cases[] = {
      {"Nope", {}, "cannot be found"},
      {"Tools.Divide", {"x"}, "Division by zero"},
      {"'other.xlsm'!Put", {"a", "b"}, "cannot be found"},
  };
  for (const Case& c : cases) {
    Events events(control);
    Macro m{Get().macros, (folder / "out.xls").string(), c.name, true, c.args};
    EXPECT_EQ(RunMacro(control, m), kAutomationError) << c.name;
    EXPECT_NE(control.get_ErrorString().find(c.text), std::string::npos) << control.get_ErrorString();
    ASSERT_EQ(events.list.size(), 1u);
    EXPECT_EQ(events.list[0].first, kAutomationError);
    EXPECT_FALSE(fs::exists(folder / "out.xls")) << c.name;
  }
  // A library with a module that does not compile runs none of its macros.
  std::string broken = MacroBook();
  broken.replace(broken.find("Sub Forever()"), 0, "Sub Crash()\n  Dim n As Integer\n  n = 1 / 0\nEnd Sub\n");
  std::ofstream(folder / "broken.fods") << broken;
  for (const char* name : {"Crash", "NoArguments"}) {
    Macro m{(folder / "broken.fods").string(), (folder / "out.xls").string(), name, true, {}};
    EXPECT_EQ(RunMacro(control, m), kAutomationError) << name;
    EXPECT_NE(control.get_ErrorString().find("cannot be compiled"), std::string::npos) << control.get_ErrorString();
    EXPECT_FALSE(fs::exists(folder / "out.xls"));
  }
  Macro missing{(folder / "none.ods").string(), (folder / "out.xls").string(), "Put", true, {}};
  EXPECT_EQ(RunMacro(control, missing), kFileMissing);
  EXPECT_EQ(control.get_ErrorString(), "Source File does not exist");
}

// The first sheet of a saved workbook, read back by the test's own office.
Block FirstSheet(const std::string& path) {
  const auto book = testing::ReadBook(*Get().reader, path);
  return book.empty() ? Block{} : book[0].cells;
}

// A cell of a block read back ("" when the block does not reach it).
Cell At(const Block& cells, size_t row, size_t column) {
  return row < cells.size() && column < cells[row].size() ? cells[row][column] : Cell(std::string());
}

// The VBA project of Excel workbooks in both formats, under every name a
// caller may give a macro; each run is saved and its cell read back.
TEST(ExecuteMacro, RunsTheVbaCodeOfExcelWorkbooksUnderTheNamesUsersWrite) {
  TabulonCtrl& control = *Get().warm;
  for (const std::string kind : {"xls", "xlsm"}) {
    const fs::path folder = Folder("vba-" + kind);
    const std::string source = (folder / ("book." + kind)).string();
    fs::copy_file(kind == "xls" ? Get().vba_xls : Get().vba_xlsm, source);
    struct Case {
      std::string name;
      std::array<std::string, 8> args;
      size_t column;  // of the cell in the first row the macro writes
      std::string value;
    };
    const Case cases[] = {
        {"MyMacro", {"one", "two"}, 2, "one|two"},
        {"Module1.MyMacro", {"", "two"}, 2, "|two"},  // an empty first argument is passed
        {"'book." + kind + "'!MyMacro", {"a", "b"}, 2, "a|b"},
        {"book." + kind + "!Module1.MyMacro", {"c", "d"}, 2, "c|d"},
        {"VBAProject.Module1.MyMacro", {"p", "q"}, 2, "p|q"},  // the project is the library
        {"Module2.Other", {"x"}, 4, "x!"},
        {"NoArguments", {}, 3, "ran"},  // ThisWorkbook is the workbook opened
    };
    const std::string target = (folder / "out" / "saved.xls").string();
    for (const Case& c : cases) {
      Macro m{source, target, c.name, true, c.args};
      ASSERT_EQ(RunMacro(control, m), 0) << kind << " " << c.name << ": " << control.get_ErrorString();
      const Block cells = FirstSheet(target);
      EXPECT_EQ(At(cells, 0, c.column), Cell(c.value)) << kind << " " << c.name;
      EXPECT_EQ(At(cells, 1, 0), Cell(std::string("pens"))) << kind << " " << c.name;
    }
    // The saved workbook keeps its VBA project (the office's profile saves
    // the code it loaded), so its macros still run.
    Macro again{target, (folder / "again.xls").string(), "Module2.Other", true, {"again"}};
    ASSERT_EQ(RunMacro(control, again), 0) << kind << ": " << control.get_ErrorString();
    EXPECT_EQ(At(FirstSheet(again.target), 0, 4), Cell(std::string("again!"))) << kind;
  }
}

TEST(ExecuteMacro, AVbaRunTimeErrorOrAMissingMacroFailsTheCallAndWritesNothing) {
  TabulonCtrl& control = *Get().warm;
  const fs::path folder = Folder("vba-failures");
  struct Case {
    std::string name;
    std::array<std::string, 8> args;
    std::string text;
  };
  const Case cases[] = {
      {"Divide", {}, "Division by zero"},  // a private procedure runs too
      {"Module1.Refuse", {"no"}, "refused: no"},
      {"Nope", {}, "cannot be found"},
      {"Module1.Other", {"x"}, "cannot be found"},  // the module named is the one searched
  };
  for (const std::string& book : {Get().vba_xls, Get().vba_xlsm}) {
    const std::string original = Bytes(book);
    for (const Case& c : cases) {
      Events events(control);
      Macro m{book, (folder / "out.xls").string(), c.name, true, c.args};
      EXPECT_EQ(RunMacro(control, m), kAutomationError) << book << " " << c.name;
      EXPECT_NE(control.get_ErrorString().find(c.text), std::string::npos) << control.get_ErrorString();
      EXPECT_EQ(events.list.size(), 1u) << c.name;
      EXPECT_FALSE(fs::exists(folder / "out.xls")) << book << " " << c.name;
    }
    EXPECT_TRUE(Bytes(book) == original) << book << " was written";
  }
}

TEST(ExecuteMacro, AMacroThatNeverEndsIsStoppedWithItsOffice) {
  office::uno::UnoOptions options;
  options.call_time_limit = std::chrono::seconds(5);
  ControlOptions control_options;
  control_options.office = office::uno::MakeUnoFactory(options);
  TabulonCtrl control(control_options);
  Get();
  auto pids = testing::ChildOfficePids();
  const std::set<int> before(pids.begin(), pids.end());
  const fs::path folder = Folder("runaway");
  Events events(control);
  Macro m{Get().macros, (folder / "out.xls").string(), "Forever", true, {}};
  // The office was stopped, so it cannot be closed either: -4 comes last.
  EXPECT_EQ(RunMacro(control, m), kExcelNotDestroyed);
  ASSERT_EQ(events.list.size(), 1u);
  EXPECT_EQ(events.list[0].first, kOfficeUnavailable);
  EXPECT_FALSE(fs::exists(folder / "out.xls"));
  pids = testing::ChildOfficePids();
  EXPECT_EQ(std::set<int>(pids.begin(), pids.end()), before);
}

// --------------------------------------------------------------- passwords

// The write reservation verifier Excel keeps in the FILESHARING record of
// the workbook stream, or "none", read by the system's OLE reader.
std::string WriteReservation(const std::string& xls) {
  const std::string script = xls + ".py";
  std::ofstream(script) << "import olefile,struct,sys\n"
                           "d=olefile.OleFileIO(sys.argv[1]).openstream('Workbook').read()\n"
                           "i=0\n"
                           "r='none'\n"
                           "while i+4<=len(d):\n"
                           "  t,l=struct.unpack('<HH',d[i:i+4])\n"
                           "  if t==0x5B: r='%04x'%struct.unpack('<H',d[i+6:i+8])[0]\n"
                           "  i+=4+l\n"
                           "print(r)\n";
  const std::string found = RunShell("/usr/bin/python3 " + Quote(script) + " " + Quote(xls)).out;
  fs::remove(script);
  return found;
}

// Excel's verifier of a write reservation password, computed here on its own.
std::string Verifier(const std::string& password) {
  uint16_t v = 0;
  for (size_t i = password.size(); i-- > 0;)
    v = static_cast<uint16_t>((((v >> 14) & 1) | ((v << 1) & 0x7FFF)) ^ password[i]);
  v = static_cast<uint16_t>((((v >> 14) & 1) | ((v << 1) & 0x7FFF)) ^ 0xCE4B ^ password.size());
  char text[8];
  snprintf(text, sizeof text, "%04x\n", v);
  return text;
}

int32_t Change(TabulonCtrl& control, std::string source, std::string target, std::string old_pw, std::string old_tw,
               std::string new_pw, std::string new_tw) {
  return control.ChangePassword(source, target, old_pw, old_tw, new_pw, new_tw);
}

TEST(ChangePassword, TheCopyIsReallyEncryptedAndReservedAndAnEmptyPasswordUnprotectsIt) {
  TabulonCtrl& control = *Get().warm;
  const fs::path folder = Folder("passwords");
  // The control's own password properties play no part.
  control.put_InputFile_PassWord("not-this");
  const std::string locked = (folder / "locked.xlsx").string();  // written as .xls all the same
  ASSERT_EQ(Change(control, Get().plain, locked, "", "", "open sesame", "wr1"), 0) << control.get_ErrorString();
  control.put_InputFile_PassWord("");
  EXPECT_EQ(Bytes(locked).substr(0, 4), "\xD0\xCF\x11\xE0");

  // Encrypted: the independent reader says so and decrypts it only with the
  // password; the office refuses it without and opens it with.
  EXPECT_EQ(RunShell("msoffcrypto-tool --test " + Quote(locked)).status, 0);
  const std::string decrypted = (folder / "decrypted.xls").string();
  EXPECT_NE(RunShell("msoffcrypto-tool -p wrong " + Quote(locked) + " " + Quote(decrypted)).status, 0);
  ASSERT_EQ(RunShell("msoffcrypto-tool -p 'open sesame' " + Quote(locked) + " " + Quote(decrypted)).status, 0);
  EXPECT_EQ(WriteReservation(decrypted), Verifier("wr1"));
  EXPECT_THROW(Get().reader->GetWorkbooks().Open(locked, {}), office::Error);
  Get().reader->GetWorkbooks().Close();
  office::OpenOptions with;
  with.password = "open sesame";
  with.read_only = true;
  office::Workbook& book = Get().reader->GetWorkbooks().Open(locked, with);
  EXPECT_EQ(book.GetWorksheets().Item(1)->GetRange("A1:B2")->Value(), (Block{{"name", "qty"}, {"pens", 3.0}}));
  book.Close(false);

  // Back without protection, opened with the old pair.
  const std::string open = (folder / "open.xls").string();
  ASSERT_EQ(Change(control, locked, open, "open sesame", "wr1", "", ""), 0) << control.get_ErrorString();
  EXPECT_EQ(RunShell("msoffcrypto-tool --test " + Quote(open)).status, 1);
  EXPECT_EQ(WriteReservation(open), "none\n");
  EXPECT_EQ(testing::ReadBook(*Get().reader, open)[0].cells, (Block{{"name", "qty"}, {"pens", 3.0}}));
}

TEST(ChangePassword, AWrongOldPasswordFailsAndWritesNothing) {
  TabulonCtrl& control = *Get().warm;
  const fs::path folder = Folder("wrong-password");
  const std::string locked = (folder / "locked.xls").string();
  ASSERT_EQ(Change(control, Get().plain, locked, "", "", "right", ""), 0) << control.get_ErrorString();
  for (const char* wrong : {"", "wrong"}) {
    Events events(control);
    EXPECT_EQ(Change(control, locked, (folder / "copy.xls").string(), wrong, "", "", ""), kAutomationError);
    EXPECT_EQ(events.list.size(), 1u);
    EXPECT_FALSE(fs::exists(folder / "copy.xls"));
  }
  EXPECT_EQ(Change(control, (folder / "none.xls").string(), (folder / "copy.xls").string(), "", "", "", ""),
            kFileMissing);
  EXPECT_EQ(Change(control, Get().plain, (folder / "a" / "copy.xls").string(), "", "", "", ""), 0);
  EXPECT_TRUE(fs::exists(folder / "a" / "copy.xls"));
}

// A copy reserved for writing, as the office's API and an independent
// reader see it: read-only without the password (a save over the file is
// refused, a copy elsewhere stays reserved), refused with a wrong one,
// writable with the right one, and still reserved after saving over itself.
TEST(ChangePassword, AReservedCopyOpensReadOnlyWithoutItsWritePasswordAndWritableWithIt) {
  TabulonCtrl& control = *Get().warm;
  const fs::path folder = Folder("reserved");
  const std::string reserved = (folder / "reserved.xls").string();
  ASSERT_EQ(Change(control, Get().plain, reserved, "", "", "", "wr1"), 0) << control.get_ErrorString();
  EXPECT_EQ(RunShell("msoffcrypto-tool --test " + Quote(reserved)).status, 1);  // not encrypted
  EXPECT_EQ(WriteReservation(reserved), Verifier("wr1"));
  office::Workbooks& books = Get().reader->GetWorkbooks();
  office::SaveAsOptions xls;
  xls.file_format = office::kXlWorkbookNormal;

  office::Workbook& read_only = books.Open(reserved, {});
  EXPECT_THROW(read_only.SaveAs(reserved, xls), office::Error);
  const std::string copy = (folder / "copy.xls").string();
  read_only.SaveAs(copy, xls);
  read_only.Close(false);
  EXPECT_EQ(WriteReservation(copy), Verifier("wr1"));

  for (const char* wrong : {"wr2", "WR1"}) {
    office::OpenOptions with_wrong;
    with_wrong.write_res_password = wrong;
    try {
      books.Open(reserved, with_wrong);
      ADD_FAILURE() << wrong << " opened the workbook";
    } catch (const office::Error& e) {
      EXPECT_NE(std::string(e.what()).find("write reservation password is not correct"), std::string::npos)
          << e.what();
    }
    EXPECT_EQ(books.Count(), 0) << wrong;
  }

  office::OpenOptions with_right;
  with_right.write_res_password = "wr1";
  office::Workbook& writable = books.Open(reserved, with_right);
  writable.GetWorksheets().Item(1)->GetRange("C1")->SetValue(Block{{"changed"}});
  writable.SaveAs(reserved, xls);
  writable.Close(false);
  EXPECT_EQ(At(FirstSheet(reserved), 0, 2), Cell(std::string("changed")));
  EXPECT_EQ(WriteReservation(reserved), Verifier("wr1"));

  // The old write password of ChangePassword is checked the same way.
  Events events(control);
  EXPECT_EQ(Change(control, reserved, (folder / "freed.xls").string(), "", "wrong", "", ""), kAutomationError);
  EXPECT_EQ(events.list.size(), 1u);
  EXPECT_FALSE(fs::exists(folder / "freed.xls"));
  ASSERT_EQ(Change(control, reserved, (folder / "freed.xls").string(), "", "wr1", "", ""), 0)
      << control.get_ErrorString();
  EXPECT_EQ(WriteReservation((folder / "freed.xls").string()), "none\n");
}

// ExecuteMacro opens its workbook with the input write password: a reserved
// workbook with VBA code is saved over itself only with the right one, and
// stays reserved.
TEST(ExecuteMacro, AReservedWorkbookIsSavedOverItselfOnlyWithItsWritePassword) {
  TabulonCtrl& control = *Get().warm;
  const fs::path folder = Folder("reserved-macro");
  const std::string book = (folder / "book.xls").string();
  ASSERT_EQ(Change(control, Get().vba_xls, book, "", "", "", "wr1"), 0) << control.get_ErrorString();
  const std::string original = Bytes(book);
  struct Case {
    const char* password;
    std::string text;
  };
  const Case refused[] = {{"", "opened read-only"}, {"wrong", "write reservation password is not correct"}};
  for (const Case& c : refused) {
    control.put_InputFile_PassWord_TW(c.password);
    Events events(control);
    Macro m{book, book, "MyMacro", true, {"a", "b"}};
    EXPECT_EQ(RunMacro(control, m), kAutomationError) << c.password;
    EXPECT_NE(control.get_ErrorString().find(c.text), std::string::npos) << control.get_ErrorString();
    EXPECT_EQ(events.list.size(), 1u);
    EXPECT_TRUE(Bytes(book) == original) << c.password << ": the workbook was written";
  }
  control.put_InputFile_PassWord_TW("wr1");
  Macro m{book, book, "MyMacro", true, {"a", "b"}};
  const int32_t code = RunMacro(control, m);
  control.put_InputFile_PassWord_TW("");
  ASSERT_EQ(code, 0) << control.get_ErrorString();
  EXPECT_EQ(At(FirstSheet(book), 0, 2), Cell(std::string("a|b")));
  EXPECT_EQ(WriteReservation(book), Verifier("wr1"));
}

}  // namespace
}  // namespace tabulon
