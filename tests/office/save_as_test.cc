// SaveAs through the file-format table: every number, checked by the bytes
// written (delimiter, character set, byte-order mark, line ends, signatures)
// and by reading workbooks back.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include "office/uno/file_formats.h"
#include "office_test_env.h"

namespace tabulon::office::uno::testing {
namespace {

namespace fs = std::filesystem;
using SaveAsTest = OfficeTest;

Cell S(const char* s) { return Cell(std::string(s)); }
Cell N(double d) { return Cell(d); }

// The small workbook every format is written from.
const Block kData{{S("café"), N(1.5), S("a,b")}, {S("x"), N(2), Cell()}};

Workbook& MakeBook(Application& app) {
  Workbook& book = app.GetWorkbooks().Add();
  book.GetWorksheets().Item(1)->GetRange("A1:C2")->SetValue(kData);
  return book;
}

std::string Utf16Le(const std::u16string& text) {
  std::string out = "\xFF\xFE";
  for (char16_t c : text) {
    out += static_cast<char>(c & 0xFF);
    out += static_cast<char>(c >> 8);
  }
  return out;
}

bool StartsWith(const std::string& s, const std::string& prefix) {
  return s.compare(0, prefix.size(), prefix) == 0;
}

// Names of the entries of a zip file, from its central directory.
std::vector<std::string> ZipEntries(const std::string& zip) {
  std::vector<std::string> names;
  for (size_t at = zip.find("PK\x01\x02"); at != std::string::npos && at + 46 <= zip.size();
       at = zip.find("PK\x01\x02", at + 4)) {
    const auto u16 = [&](size_t off) {
      return static_cast<size_t>(static_cast<unsigned char>(zip[at + off])) |
             static_cast<size_t>(static_cast<unsigned char>(zip[at + off + 1])) << 8;
    };
    names.push_back(zip.substr(at + 46, u16(28)));
  }
  return names;
}

bool Has(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

const std::string kOle2("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8);

struct Expected {
  int32_t number;
  const char* file;
  std::function<void(const std::string&)> check;
  bool reads_back;
  bool needs_database_drivers = false;
};

// dBase files are written by the office's database drivers, a package of
// their own; without it the backend refuses those numbers.
bool HaveDatabaseDrivers() {
  return fs::exists("/usr/lib/libreoffice/program/libdbaselo.so");
}

void Exactly(const std::string& bytes, const std::string& expected) {
  EXPECT_EQ(bytes, expected);
}

std::vector<Expected> Table() {
  const auto xls = [](const std::string& b) { EXPECT_TRUE(StartsWith(b, kOle2)); };
  const auto ooxml = [](const std::string& b) {
    ASSERT_TRUE(StartsWith(b, "PK\x03\x04"));
    const auto names = ZipEntries(b);
    EXPECT_TRUE(Has(names, "[Content_Types].xml"));
    EXPECT_TRUE(Has(names, "xl/workbook.xml"));
  };
  const auto ods = [](const std::string& b) {
    EXPECT_EQ(b.substr(30, 47), "mimetypeapplication/vnd.oasis.opendocument.spre");
  };
  const std::string utf8 = "caf\xC3\xA9,1.5,\"a,b\"\r\nx,2,\r\n";
  const std::string utf8_tab = "caf\xC3\xA9\t1.5\ta,b\r\nx\t2\t\r\n";
  std::vector<Expected> rows;
  for (int32_t n : {-4143, 56, 43, 39, 16, 27, 29, 33, 35}) rows.push_back({n, "b.xls", xls, true});
  rows.push_back({17, "b.xlt", xls, true});
  rows.push_back({51, "b.xlsx", ooxml, true});
  rows.push_back({52, "b.xlsm", ooxml, true});
  rows.push_back({53, "b.xltm", ooxml, true});
  rows.push_back({54, "b.xltx", ooxml, true});
  rows.push_back({61, "b.xlsx", ooxml, true});
  rows.push_back({60, "b.ods", ods, true});
  rows.push_back({6, "b.csv", [=](auto& b) { Exactly(b, utf8); }, true});
  rows.push_back({62, "b.csv", [=](auto& b) { Exactly(b, "\xEF\xBB\xBF" + utf8); }, false});
  rows.push_back({23, "b.csv", [](auto& b) { Exactly(b, "caf\xE9,1.5,\"a,b\"\r\nx,2,\r\n"); }, false});
  rows.push_back({24, "b.csv", [](auto& b) { Exactly(b, "caf\x82,1.5,\"a,b\"\r\nx,2,\r\n"); }, false});
  rows.push_back({22, "b.csv", [](auto& b) { Exactly(b, "caf\x8E,1.5,\"a,b\"\rx,2,\r"); }, false});
  rows.push_back({20, "b.txt", [=](auto& b) { Exactly(b, utf8_tab); }, false});
  rows.push_back({-4158, "b.txt", [=](auto& b) { Exactly(b, utf8_tab); }, false});
  rows.push_back({21, "b.txt", [](auto& b) { Exactly(b, "caf\x82\t1.5\ta,b\r\nx\t2\t\r\n"); }, false});
  rows.push_back({19, "b.txt", [](auto& b) { Exactly(b, "caf\x8E\t1.5\ta,b\rx\t2\t\r"); }, false});
  rows.push_back({42, "b.txt", [](auto& b) { Exactly(b, Utf16Le(u"café\t1.5\ta,b\r\nx\t2\t\r\n")); }, false});
  // Columns padded to at least the sheet's default width of 8 characters;
  // numbers right-aligned.
  rows.push_back({36, "b.prn",
                  [](auto& b) { Exactly(b, "caf\xC3\xA9          1.5 a,b\r\nx               2\r\n"); },
                  false});
  rows.push_back({44, "b.htm", [](auto& b) {
                    std::string lower = b;
                    for (auto& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
                    EXPECT_NE(lower.find("<table"), std::string::npos);
                    EXPECT_NE(b.find("a,b"), std::string::npos);
                  }, false});
  rows.push_back({46, "b.xml", [](auto& b) {
                    EXPECT_NE(b.find("urn:schemas-microsoft-com:office:spreadsheet"), std::string::npos);
                  }, true});
  rows.push_back({2, "b.slk", [](auto& b) { EXPECT_TRUE(StartsWith(b, "ID;")); }, true});
  rows.push_back({9, "b.dif", [](auto& b) { EXPECT_TRUE(StartsWith(b, "TABLE")); }, true});
  for (int32_t n : {7, 8, 11})
    rows.push_back({n, "b.dbf", [](auto& b) { ASSERT_FALSE(b.empty()); EXPECT_EQ(b[0], '\x03'); }, false,
                    /*needs_database_drivers=*/true});
  rows.push_back({57, "b.pdf", [](auto& b) { EXPECT_TRUE(StartsWith(b, "%PDF-")); }, false});
  return rows;
}

TEST_F(SaveAsTest, EveryNumberOfTheTableWritesItsFormat) {
  auto& app = SharedExcel();
  const auto table = Table();
  // Every writable number of the backend's table is checked here.
  for (const auto& f : FileFormats()) {
    if (f.filter == nullptr) continue;
    EXPECT_TRUE(std::any_of(table.begin(), table.end(), [&](auto& e) { return e.number == f.number; }))
        << "format " << f.number << " has no check";
  }
  for (const auto& row : table) {
    SCOPED_TRACE("format " + std::to_string(row.number));
    const fs::path folder = Path(std::to_string(row.number));
    fs::create_directories(folder);
    const fs::path target = folder / row.file;
    Workbook& book = MakeBook(app);
    SaveAsOptions options;
    options.file_format = row.number;
    options.access_mode = 1;
    options.conflict_resolution = 2;
    if (row.needs_database_drivers && !HaveDatabaseDrivers()) {
      EXPECT_THROW(book.SaveAs(target, options), Error);
      EXPECT_TRUE(fs::is_empty(folder));
      book.Close(false);
      continue;
    }
    book.SaveAs(target, options);
    EXPECT_EQ(book.Name(), row.file);
    EXPECT_TRUE(book.Saved());
    book.Close(false);
    row.check(ReadFile(target));
    // Nothing but the target is left in the folder.
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 1);
    if (row.reads_back) {
      Workbook& back = app.GetWorkbooks().Open(target, {});
      EXPECT_EQ(back.GetWorksheets().Item(1)->GetRange("A1:B1")->Value(),
                (Block{{S("café"), N(1.5)}}));
      back.Close(false);
    }
  }
}

TEST_F(SaveAsTest, NumbersNothingHereCanWriteAreRefusedAndWriteNothing) {
  auto& app = SharedExcel();
  Workbook& book = MakeBook(app);
  std::vector<int32_t> refused{0, 1, 3, 99, 12345, -1};
  for (const auto& f : FileFormats())
    if (f.filter == nullptr) refused.push_back(f.number);
  EXPECT_TRUE(std::count(refused.begin(), refused.end(), 50) == 1);
  WriteFile(Path("old.xlsx"), "old content");
  for (int32_t n : refused) {
    SCOPED_TRACE(n);
    SaveAsOptions options;
    options.file_format = n;
    try {
      book.SaveAs(Path("out.bin"), options);
      FAIL() << "format " << n << " was written";
    } catch (const Error& e) {
      EXPECT_EQ(e.kind(), ErrorKind::kAutomation);
    }
    // A refused save over an existing file leaves it as it was.
    EXPECT_THROW(book.SaveAs(Path("old.xlsx"), options), Error);
  }
  EXPECT_FALSE(fs::exists(Path("out.bin")));
  EXPECT_EQ(ReadFile(Path("old.xlsx")), "old content");
  EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator()), 1);
  book.Close(false);
}

TEST_F(SaveAsTest, PasswordsProtectOrAreRefused) {
  auto& app = SharedExcel();
  Workbook& book = MakeBook(app);
  SaveAsOptions ods;
  ods.file_format = 60;
  ods.password = "s3cret";
  book.SaveAs(Path("p.ods"), ods);
  // Formats the office writes without protection are refused, not written
  // unprotected.
  for (int32_t n : {51, 52, 61, 6, 42, 57}) {
    SaveAsOptions options;
    options.file_format = n;
    options.password = "s3cret";
    EXPECT_THROW(book.SaveAs(Path("p" + std::to_string(n)), options), Error) << n;
    EXPECT_FALSE(fs::exists(Path("p" + std::to_string(n))));
  }
  // A write reservation goes into the workbook formats only; any other
  // format asked for one is refused, not written unreserved
  // (reservation_test.cc checks what the workbook formats hold).
  SaveAsOptions write_reserved;
  write_reserved.file_format = 56;
  write_reserved.write_res_password = "w";
  book.SaveAs(Path("w.xls"), write_reserved);
  EXPECT_TRUE(fs::exists(Path("w.xls")));
  write_reserved.file_format = 6;
  EXPECT_THROW(book.SaveAs(Path("w.csv"), write_reserved), Error);
  EXPECT_FALSE(fs::exists(Path("w.csv")));
  // Empty passwords mean none.
  SaveAsOptions empty;
  empty.file_format = 51;
  empty.password = "";
  empty.write_res_password = "";
  book.SaveAs(Path("open.xlsx"), empty);
  book.Close(false);

  EXPECT_THROW(app.GetWorkbooks().Open(Path("p.ods"), {}), Error);
  OpenOptions right;
  right.password = "s3cret";
  Workbook& back = app.GetWorkbooks().Open(Path("p.ods"), right);
  EXPECT_EQ(back.GetWorksheets().Item(1)->GetRange("A1")->Value()[0][0], S("café"));
  back.Close(false);
  Workbook& plain = app.GetWorkbooks().Open(Path("open.xlsx"), {});
  plain.Close(false);
}

TEST_F(SaveAsTest, TextOutputsWriteTheActiveSheetAsShown) {
  auto& app = SharedExcel();
  Workbook& book = MakeBook(app);
  auto second = book.GetWorksheets().Add(nullptr, book.GetWorksheets().Item(1).get(), std::nullopt);
  second->GetRange("A1:B1")->SetValue(Block{{S("second"), N(0.5)}});
  second->GetRange("B1")->SetNumberFormat("0.00");
  SaveAsOptions csv;
  csv.file_format = 6;
  book.SaveAs(Path("second.csv"), csv);
  EXPECT_EQ(ReadFile(Path("second.csv")), "second,0.50\r\n");
  book.GetWorksheets().Item(1)->Activate();
  book.SaveAs(Path("first.csv"), csv);
  EXPECT_EQ(ReadFile(Path("first.csv")), "caf\xC3\xA9,1.5,\"a,b\"\r\nx,2,\r\n");
  book.Close(false);
}

TEST_F(SaveAsTest, DisplayedFormulasAreWrittenInExcelSyntax) {
  auto& app = SharedExcel();
  Workbook& book = app.GetWorkbooks().Add();
  auto sheet = book.GetWorksheets().Item(1);
  sheet->GetRange("A1:B1")->SetValue(Block{{N(1), N(2)}});
  sheet->GetRange("C1")->SetFormula("=SUM(A1:B1)");
  sheet->GetRange("D1")->SetFormula("=IF(A1>1,\"x\",\"y\")");
  SaveAsOptions csv;
  csv.file_format = 6;
  book.SaveAs(Path("values.csv"), csv);
  EXPECT_EQ(ReadFile(Path("values.csv")), "1,2,3,y\r\n");
  app.SetDisplayFormulas(true);
  EXPECT_TRUE(app.DisplayFormulas());
  book.SaveAs(Path("formulas.csv"), csv);
  EXPECT_EQ(ReadFile(Path("formulas.csv")), "1,2,=SUM(A1:B1),\"=IF(A1>1,\"\"x\"\",\"\"y\"\")\"\r\n");
  SaveAsOptions tab;
  tab.file_format = -4158;
  book.SaveAs(Path("formulas.txt"), tab);
  EXPECT_EQ(ReadFile(Path("formulas.txt")), "1\t2\t=SUM(A1:B1)\t\"=IF(A1>1,\"\"x\"\",\"\"y\"\")\"\r\n");
  book.Close(false);
}

TEST_F(SaveAsTest, CloseWithSaveChangesWritesTheSameFileAgain) {
  auto& app = SharedExcel();
  Workbook& book = MakeBook(app);
  SaveAsOptions xlsx;
  xlsx.file_format = 51;
  book.SaveAs(Path("again.xlsx"), xlsx);
  book.GetWorksheets().Item(1)->GetRange("A3")->SetValue(S("later"));
  EXPECT_FALSE(book.Saved());
  book.Close(true);
  Workbook& back = app.GetWorkbooks().Open(Path("again.xlsx"), {});
  EXPECT_EQ(back.GetWorksheets().Item(1)->GetRange("A3")->Value()[0][0], S("later"));
  back.Close(false);
  // A new workbook that was never saved has nowhere to go.
  Workbook& fresh = app.GetWorkbooks().Add();
  fresh.GetWorksheets().Item(1)->GetRange("A1")->SetValue(N(1));
  EXPECT_THROW(fresh.Close(true), Error);
  fresh.Close(false);
}

}  // namespace
}  // namespace tabulon::office::uno::testing

namespace tabulon::office::uno::testing {
namespace {

// The profile folder of an office process, from its command line.
fs::path ProfileOf(pid_t pid) {
  const std::string cmdline = ReadFile("/proc/" + std::to_string(pid) + "/cmdline");
  const std::string key = "-env:UserInstallation=file://";
  const size_t at = cmdline.find(key);
  if (at == std::string::npos) return {};
  return cmdline.substr(at + key.size(), cmdline.find('\0', at) - at - key.size());
}

// An office killed while it writes leaves nothing beside the target, and
// the target as it was: the office writes only into its own folder.
TEST_F(SaveAsTest, AnOfficeKilledWhileSavingLeavesTheTargetAsItWas) {
  auto app = OwnExcel();
  const pid_t pid = app->ProcessId();
  const fs::path saves = ProfileOf(pid) / "saves";
  ASSERT_FALSE(saves.parent_path().empty());
  Workbook& book = app->GetWorkbooks().Add();
  Block rows(20000, std::vector<Cell>(5));
  for (size_t r = 0; r < rows.size(); ++r)
    for (size_t c = 0; c < 5; ++c) rows[r][c] = N(static_cast<double>(r * 5 + c) + 0.25);
  book.GetWorksheets().Item(1)->GetRange("A1:E20000")->SetValue(rows);
  WriteFile(Path("kept.ods"), "old content");

  // Killed as soon as the office's file appears in its own folder.
  std::atomic<bool> killed{false};
  std::thread killer([&] {
    for (int i = 0; i < 20000 && !killed; ++i) {
      std::error_code ec;
      if (fs::exists(saves, ec) && !fs::is_empty(saves, ec)) {
        killed = kill(pid, SIGKILL) == 0;
        return;
      }
      std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
  });
  SaveAsOptions ods;
  ods.file_format = 60;
  bool saved = true;
  try {
    book.SaveAs(Path("kept.ods"), ods);
  } catch (const Error&) {
    saved = false;
  }
  killer.join();
  ASSERT_TRUE(killed) << "the office wrote nothing into its own folder";
  // Either the save was complete before the kill, or the target is as it was.
  if (!saved) EXPECT_EQ(ReadFile(Path("kept.ods")), "old content");
  EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator()), 1);
}

// On another file system than the office's folder the finished file is
// copied beside the target under a hidden name and renamed over it.
TEST_F(SaveAsTest, ATargetOnAnotherFileSystemIsReplacedWhole) {
  const fs::path other = fs::path("/dev/shm") / ("tabulon-save-" + std::to_string(getpid()));
  std::error_code ec;
  fs::create_directories(other, ec);
  struct stat here {}, there {};
  if (ec || stat(fs::temp_directory_path().c_str(), &here) != 0 || stat(other.c_str(), &there) != 0 ||
      here.st_dev == there.st_dev) {
    fs::remove_all(other, ec);
    GTEST_SKIP() << "no second file system to write to";
  }
  auto& app = SharedExcel();
  Workbook& book = MakeBook(app);
  WriteFile(other / "out.csv", "old content");
  SaveAsOptions csv;
  csv.file_format = 6;
  book.SaveAs((other / "out.csv").string(), csv);
  book.Close(false);
  EXPECT_EQ(ReadFile(other / "out.csv"), "caf\xC3\xA9,1.5,\"a,b\"\r\nx,2,\r\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(other), fs::directory_iterator()), 1);
  fs::remove_all(other, ec);
}

}  // namespace
}  // namespace tabulon::office::uno::testing
