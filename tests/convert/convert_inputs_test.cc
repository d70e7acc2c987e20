// OpenXLSSaveAs on what a careless caller gives it: typed cells, sources
// whose content is not what their name says, relative paths. Checked by
// reading the written files back and listing the folders.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "workbooks.h"

namespace tabulon {
namespace {

namespace fs = std::filesystem;
using testing::GetFixtures;
using testing::OutputFolder;
using testing::ReadFile;
using testing::ResetSharedControl;
using testing::SharedControl;

using Names = std::vector<std::string>;

int32_t Convert(std::string source, std::string sheets, std::string target, int32_t type) {
  bool formulas = false;
  return SharedControl().OpenXLSSaveAs(source, sheets, target, type, formulas);
}

Names FilesJustCreated() {
  Names files;
  for (int32_t i = 1; i <= SharedControl().get_FilesJustCreatedCount(); ++i)
    files.push_back(SharedControl().get_FilesJustCreated(i));
  return files;
}

std::set<std::string> Listing(const fs::path& dir) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(dir)) names.insert(entry.path().filename().string());
  return names;
}

void Write(const fs::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// The text of a text output as lines joined by "\n": byte-order marks and
// UTF-16 taken off (the fixture's text is ASCII), any line end one "\n".
std::string Lines(std::string bytes) {
  if (bytes.compare(0, 3, "\xEF\xBB\xBF") == 0) bytes.erase(0, 3);
  if (bytes.compare(0, 2, "\xFF\xFE") == 0) {
    std::string narrow;
    for (size_t i = 2; i + 1 < bytes.size(); i += 2) narrow += bytes[i];
    bytes = narrow;
  }
  std::string out;
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (bytes[i] == '\r') {
      out += '\n';
      if (i + 1 < bytes.size() && bytes[i + 1] == '\n') ++i;
    } else {
      out += bytes[i];
    }
  }
  return out;
}

std::string CollapseSpaces(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == ' ' && !out.empty() && (out.back() == ' ' || out.back() == '\n')) continue;
    if (c == '\n' && !out.empty() && out.back() == ' ') out.pop_back();
    out += c;
  }
  return out;
}

class ConvertInputs : public ::testing::Test {
 protected:
  void SetUp() override { ResetSharedControl(); }
};

// Dates, times, currency and logical values arrive as Excel's Value carries
// them and are written in the en-US forms; percent, fixed decimals and text
// as they are.
constexpr const char* kTypedCsv =
    "date,1/15/2024\n"
    "time,2:30:00 PM\n"
    "datetime,1/15/2024 12:00\n"
    "currency,\"$1,234.50\"\n"
    "debit,($5.00)\n"
    "percent,0.25\n"
    "fixed,3.14159\n"
    "plain,42\n"
    "text,1/2\n"
    "none,\n"
    "logical,TRUE\n"
    "end,1\n";
constexpr const char* kTypedTabs =
    "date\t1/15/2024\n"
    "time\t2:30:00 PM\n"
    "datetime\t1/15/2024 12:00\n"
    "currency\t$1,234.50\n"
    "debit\t($5.00)\n"
    "percent\t0.25\n"
    "fixed\t3.14159\n"
    "plain\t42\n"
    "text\t1/2\n"
    "none\t\n"
    "logical\tTRUE\n"
    "end\t1\n";

TEST_F(ConvertInputs, DatesTimesAndCurrencyKeepTheirFormInEveryTextFormat) {
  struct Case {
    int32_t type;
    const char* extension;
    const char* expected;  // nullptr: the printer layout, compared space-collapsed
  };
  const Case cases[] = {
      {6, "csv", kTypedCsv},    {22, "csv", kTypedCsv},   {23, "csv", kTypedCsv},   {24, "csv", kTypedCsv},
      {62, "csv", kTypedCsv},   {20, "txt", kTypedTabs},  {21, "txt", kTypedTabs},  {19, "txt", kTypedTabs},
      {-4158, "txt", kTypedTabs}, {42, "txt", kTypedTabs}, {36, "prn", nullptr},
  };
  const auto dir = OutputFolder("typed");
  for (const Case& t : cases) {
    const fs::path target = dir / ("typed" + std::to_string(t.type) + "." + t.extension);
    ASSERT_EQ(Convert(GetFixtures().typed_cells, "1", target.string(), t.type), 0) << t.type;
    const std::string text = Lines(ReadFile(target));
    if (t.expected != nullptr) {
      EXPECT_EQ(text, t.expected) << t.type;
    } else {
      std::string tabs = kTypedTabs;
      for (char& c : tabs)
        if (c == '\t') c = ' ';
      EXPECT_EQ(CollapseSpaces(text), CollapseSpaces(tabs)) << t.type;
    }
  }
}

TEST_F(ConvertInputs, TypedCellsOfSeveralSheetsAreJoinedInTheirForms) {
  const auto dir = OutputFolder("typed-joined");
  const std::string target = (dir / "two.csv").string();
  SharedControl().put_CO_Range("A1:B4");
  ASSERT_EQ(Convert(GetFixtures().typed_cells, "1,1", target, 6), 0);
  const std::string first_four = "date,1/15/2024\ntime,2:30:00 PM\ndatetime,1/15/2024 12:00\ncurrency,\"$1,234.50\"\n";
  EXPECT_EQ(Lines(ReadFile(target)), first_four + first_four);
}

TEST_F(ConvertInputs, ADateCarriedIntoAWorkbookStaysADate) {
  const auto dir = OutputFolder("typed-book");
  const std::string book = (dir / "one.xlsx").string();
  ASSERT_EQ(Convert(GetFixtures().typed_cells, "1", book, 51), 0);
  // Read back through the office: its own text export shows the looks the
  // copy gave the cells.
  const std::string csv = (dir / "back.csv").string();
  ASSERT_EQ(Convert(book, "1", csv, 6), 0);
  EXPECT_EQ(Lines(ReadFile(csv)), kTypedCsv);
}

// A file whose name promises a workbook format its content does not have is
// not opened, and the target keeps what it held.
TEST_F(ConvertInputs, ContentThatDoesNotMatchItsExtensionIsRefusedAndTheTargetKept) {
  std::mt19937 random(8);
  std::string noise(4096, '\0');
  for (char& c : noise) c = static_cast<char>(random() & 0xFF);
  struct Case {
    const char* name;
    std::string bytes;
  };
  const Case cases[] = {
      {"empty.xlsx", ""},           {"noise.xlsx", noise},           {"text.xlsx", "a,b\r\n1,2\r\n"},
      {"empty.xls", ""},            {"noise.xls", noise},            {"empty.ods", ""},
      {"noise.ods", noise},         {"compound.ods", "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1" + noise},
      {"noise.xlsm", noise},        {"text.xml", "just words\r\n"},
  };
  const auto dir = OutputFolder("mismatch");
  const fs::path target = dir / "kept.csv";
  for (const Case& t : cases) {
    Write(dir / t.name, t.bytes);
    Write(target, "old,content\r\n");
    EXPECT_EQ(Convert((dir / t.name).string(), "*", target.string(), 6), 0) << t.name;
    EXPECT_EQ(ReadFile(target), "old,content\r\n") << t.name;
    EXPECT_TRUE(FilesJustCreated().empty()) << t.name;
    EXPECT_EQ(SharedControl().get_SheetsJustProcessedCount(), 0) << t.name;
    fs::remove(dir / t.name);
  }
  EXPECT_EQ(Listing(dir), std::set<std::string>{"kept.csv"});
}

TEST_F(ConvertInputs, TextNamedAsABinaryWorkbookStillOpensAsText) {
  const auto dir = OutputFolder("text-xls");
  Write(dir / "list.xls", "a,b\r\n1,2\r\n");
  const std::string target = (dir / "list.csv").string();
  ASSERT_EQ(Convert((dir / "list.xls").string(), "1", target, 6), 0);
  EXPECT_EQ(ReadFile(target), "a,b\r\n1,2\r\n");
}

// Changes the working folder for one test.
class InFolder {
 public:
  explicit InFolder(const fs::path& dir) : before_(fs::current_path()) { fs::current_path(dir); }
  ~InFolder() { fs::current_path(before_); }

 private:
  fs::path before_;
};

TEST_F(ConvertInputs, RelativePathsAreTakenFromTheWorkingFolder) {
  const auto dir = OutputFolder("relative");
  fs::copy_file(GetFixtures().three_sheets, dir / "three.xlsx");
  const InFolder here(dir);
  // Two sheets joined into one text file; the pieces named after it.
  ASSERT_EQ(Convert("three.xlsx", "2-3", "one.csv", 6), 0);
  EXPECT_EQ(FilesJustCreated(), Names{"one.csv"});
  EXPECT_EQ(ReadFile(dir / "one.csv"), "x,y\r\n1,2\r\ntotal\r\n7\r\n");
  // Kept apart, and one sheet to one file.
  SharedControl().put_CO_MultiFileOutput(true);
  ASSERT_EQ(Convert("three.xlsx", "2-3", "apart.csv", 6), 0);
  EXPECT_EQ(FilesJustCreated(), (Names{"apart-2.csv", "apart-3.csv"}));
  EXPECT_EQ(ReadFile(dir / "apart-3.csv"), "total\r\n7\r\n");
  // The whole workbook in one save, into a folder below.
  SharedControl().put_CO_MultiFileOutput(false);
  fs::create_directory(dir / "sub");
  ASSERT_EQ(Convert("three.xlsx", "*", "sub/../sub/copy.xlsx", 51), 0);
  EXPECT_EQ(ReadFile(dir / "sub" / "copy.xlsx").substr(0, 2), "PK");
  // Nothing but the outputs: no pieces or temporaries beside them.
  EXPECT_EQ(Listing(dir), (std::set<std::string>{"three.xlsx", "one.csv", "apart-2.csv", "apart-3.csv", "sub"}));
  EXPECT_EQ(Listing(dir / "sub"), std::set<std::string>{"copy.xlsx"});
}

}  // namespace
}  // namespace tabulon
