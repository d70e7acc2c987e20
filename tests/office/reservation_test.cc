// Write reservations of every workbook format in a real office: opened
// writable with the password, read-only without it and not at all with a
// wrong one; kept, made anew or refused on save. What the files hold is read
// and what the tests reserve is written by tests/support/reservation_files.py
// (openpyxl, ElementTree and hashlib, not this backend's code).
#include <cstdio>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>

#include "office_test_env.h"

namespace tabulon::office::uno::testing {
namespace {

namespace fs = std::filesystem;
using ReservationTest = OfficeTest;

constexpr int32_t kXls = 56, kXlsx = 51, kOds = 60, kCsv = 6;

std::string Shell(const std::string& command) {
  std::string out;
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return out;
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
  pclose(pipe);
  return out;
}

std::string Quote(const std::string& text) { return "'" + text + "'"; }

std::string Script() { return std::string("/usr/bin/python3 ") + TABULON_RESERVATION_FILES; }

// What the independent reader finds: kind, algorithm, count, salt,
// read_only and, with a password, "password" (accepted or rejected).
std::map<std::string, std::string> Found(const fs::path& file, const std::string& password = "") {
  std::string command = Script() + " read " + Quote(file.string());
  if (!password.empty()) command += " " + Quote(password);
  std::map<std::string, std::string> found;
  std::istringstream words(Shell(command));
  for (std::string word; words >> word;) {
    const size_t eq = word.find('=');
    found[word.substr(0, eq)] = eq == std::string::npos ? "?" : word.substr(eq + 1);
  }
  return found;
}

// A copy of `source` reserved for `password` by the independent writer.
void Reserve(const fs::path& source, const fs::path& target, const std::string& password,
             const std::string& options = "") {
  const std::string out = Shell(Script() + " reserve " + Quote(source.string()) + " " + Quote(target.string()) + " " +
                                Quote(password) + " " + options);
  ASSERT_TRUE(out.empty()) << out;
}

const Block kData{{Cell(std::string("name")), Cell(std::string("qty"))}, {Cell(std::string("pens")), Cell(3.0)}};

SaveAsOptions Format(int32_t number) {
  SaveAsOptions options;
  options.file_format = number;
  return options;
}

SaveAsOptions Reserved(int32_t number, const std::string& password) {
  SaveAsOptions options = Format(number);
  options.write_res_password = password;
  return options;
}

OpenOptions WithPassword(const std::string& password) {
  OpenOptions options;
  options.write_res_password = password;
  return options;
}

// A plain workbook of the format, written by the office.
fs::path Plain(Application& app, const fs::path& path, int32_t number) {
  Workbook& book = app.GetWorkbooks().Add();
  book.GetWorksheets().Item(1)->GetRange("A1:B2")->SetValue(kData);
  book.SaveAs(path.string(), Format(number));
  book.Close(false);
  return path;
}

std::string MessageOfOpen(Application& app, const fs::path& path, const OpenOptions& options) {
  try {
    app.GetWorkbooks().Open(path.string(), options).Close(false);
  } catch (const Error& e) {
    return e.what();
  }
  return "opened";
}

// The three ways to open a reserved workbook, checked on `path`: a wrong
// password fails the open, none opens it read-only (saving over it is
// refused and leaves it as it was, a copy stays reserved with the same
// hash), the right one opens it writable, and saving over it keeps the
// reservation as it was.
void CheckOpens(Application& app, const fs::path& path, int32_t number, const std::string& password) {
  SCOPED_TRACE(path.filename().string());
  const auto before = Found(path, password);
  ASSERT_EQ(before.at("password"), "accepted");
  const std::string bytes = ReadFile(path);

  for (const std::string& wrong : {std::string("wr2"), std::string("WR1"), password + " "}) {
    EXPECT_NE(MessageOfOpen(app, path, WithPassword(wrong)).find("write reservation password is not correct"),
              std::string::npos)
        << wrong;
    EXPECT_EQ(app.GetWorkbooks().Count(), 0) << wrong;
  }

  Workbook& read_only = app.GetWorkbooks().Open(path.string(), {});
  try {
    read_only.SaveAs(path.string(), Format(number));
    ADD_FAILURE() << "saved over a workbook opened read-only";
  } catch (const Error& e) {
    EXPECT_NE(std::string(e.what()).find("opened read-only"), std::string::npos) << e.what();
  }
  EXPECT_TRUE(ReadFile(path) == bytes);
  const fs::path copy = path.parent_path() / ("copy-" + path.filename().string());
  read_only.SaveAs(copy.string(), Format(number));
  read_only.Close(false);
  auto copied = Found(copy, password);
  EXPECT_EQ(copied["password"], "accepted");
  EXPECT_EQ(copied["salt"], before.at("salt"));
  EXPECT_EQ(copied["read_only"], "0");

  Workbook& writable = app.GetWorkbooks().Open(path.string(), WithPassword(password));
  writable.GetWorksheets().Item(1)->GetRange("C1")->SetValue(Block{{Cell(std::string("changed"))}});
  writable.SaveAs(path.string(), Format(number));
  writable.Close(false);
  auto after = Found(path, password);
  EXPECT_EQ(after["password"], "accepted");
  EXPECT_EQ(after["algorithm"], before.at("algorithm"));
  EXPECT_EQ(after["salt"], before.at("salt"));
  EXPECT_EQ(after["read_only"], "0");
  Workbook& back = app.GetWorkbooks().Open(path.string(), WithPassword(password));
  EXPECT_EQ(back.GetWorksheets().Item(1)->GetRange("C1")->Value()[0][0], Cell(std::string("changed")));
  back.Close(false);
}

// SaveAs with a write reservation password writes the kind Excel and the
// office write for the format, which then guards the file.
TEST_F(ReservationTest, ANewWritePasswordReservesOpenXmlAndOpenDocumentWorkbooks) {
  auto& app = SharedExcel();
  struct Case {
    int32_t number;
    const char* name;
    const char* algorithm;
  };
  for (const Case& c : {Case{kXlsx, "reserved.xlsx", "SHA-512"}, Case{kOds, "reserved.ods", "PBKDF2"}}) {
    Workbook& book = app.GetWorkbooks().Add();
    book.GetWorksheets().Item(1)->GetRange("A1:B2")->SetValue(kData);
    book.SaveAs(Path(c.name).string(), Reserved(c.number, "wr1"));
    book.Close(false);
    auto found = Found(Path(c.name), "wr1");
    EXPECT_EQ(found["kind"], "salted") << c.name;
    EXPECT_EQ(found["algorithm"], c.algorithm) << c.name;
    EXPECT_EQ(found["count"], "100000") << c.name;
    CheckOpens(app, Path(c.name), c.number, "wr1");
  }
}

// Reservations written by another program, as Excel writes them into
// Open XML (SHA-512 spun 100000 times, or the older SHA-1) and the office
// into OpenDocument (PBKDF2), with passwords beyond ASCII too.
TEST_F(ReservationTest, ReservationsWrittenElsewhereAreCheckedAndKept) {
  auto& app = SharedExcel();
  const fs::path xlsx = Plain(app, Path("plain.xlsx"), kXlsx);
  const fs::path ods = Plain(app, Path("plain.ods"), kOds);
  const std::string unicode = "p\xC3\xA4ss \xE2\x82\xAC \xF0\x9F\x98\x80";
  struct Case {
    fs::path source;
    const char* name;
    int32_t number;
    std::string password;
    std::string options;
  };
  const Case cases[] = {
      {xlsx, "sha512.xlsx", kXlsx, "wr1", ""},
      {xlsx, "sha1.xlsx", kXlsx, "wr1", "--algorithm SHA-1 --spin 1000"},
      {xlsx, "unicode.xlsx", kXlsx, unicode, "--spin 10"},
      {ods, "pbkdf2.ods", kOds, "wr1", ""},
      {ods, "unicode.ods", kOds, unicode, "--spin 1000"},
      {ods, "sha256.ods", kOds, "wr1", "--algorithm SHA-256 --spin 10"},
  };
  for (const Case& c : cases) {
    Reserve(c.source, Path(c.name), c.password, c.options);
    CheckOpens(app, Path(c.name), c.number, c.password);
  }
}

// A reservation whose password cannot be checked here still reserves the
// workbook: none opens it read-only, and a password fails the open with
// the reason rather than passing unchecked (nor is a file that asks for
// two billion rounds given the time).
TEST_F(ReservationTest, AKindThatCannotBeCheckedOpensReadOnlyAndRefusesPasswords) {
  auto& app = SharedExcel();
  const fs::path xlsx = Plain(app, Path("plain.xlsx"), kXlsx);
  struct Case {
    const char* name;
    const char* options;
    const char* why;
  };
  for (const Case& c : {Case{"md5.xlsx", "--algorithm MD5 --spin 10", "(hash algorithm MD5)"},
                        Case{"endless.xlsx", "--spin 1 --claimed-spin 2000000000", "more than 10000000"}}) {
    Reserve(xlsx, Path(c.name), "wr1", c.options);
    const std::string bytes = ReadFile(Path(c.name));
    const std::string message = MessageOfOpen(app, Path(c.name), WithPassword("wr1"));
    EXPECT_NE(message.find("its write reservation is of a kind whose password cannot be checked here"),
              std::string::npos)
        << message;
    EXPECT_NE(message.find(c.why), std::string::npos) << message;
    EXPECT_EQ(app.GetWorkbooks().Count(), 0);
    Workbook& read_only = app.GetWorkbooks().Open(Path(c.name).string(), {});
    EXPECT_THROW(read_only.SaveAs(Path(c.name).string(), Format(kXlsx)), Error);
    read_only.Close(false);
    EXPECT_TRUE(ReadFile(Path(c.name)) == bytes);
  }
}

// A save without a write password of its own keeps the reservation the
// workbook was opened with where the target format holds that kind; where
// it does not, the password the workbook was opened with makes one of the
// target's kind, and without it the save is refused and writes nothing.
// Formats without reservations carry none.
TEST_F(ReservationTest, ASaveKeepsTheReservationOrRefusesToDropIt) {
  auto& app = SharedExcel();
  std::map<int32_t, fs::path> sources;
  for (int32_t number : {kXls, kXlsx, kOds}) {
    const std::string name = std::string("reserved.") + (number == kXls ? "xls" : number == kXlsx ? "xlsx" : "ods");
    Workbook& book = app.GetWorkbooks().Add();
    book.GetWorksheets().Item(1)->GetRange("A1:B2")->SetValue(kData);
    book.SaveAs(Path(name).string(), Reserved(number, "wr1"));
    book.Close(false);
    sources[number] = Path(name);
  }
  struct Case {
    int32_t from, to;
    const char* kept;  // the kind the target keeps without the password; nullptr: refused
    const char* anew;  // the kind written when opened with the password
  };
  const Case cases[] = {
      {kXls, kXls, "verifier", "verifier"}, {kXls, kXlsx, "verifier", "verifier"}, {kXls, kOds, nullptr, "PBKDF2"},
      {kXlsx, kXls, nullptr, "verifier"},   {kXlsx, kXlsx, "SHA-512", "SHA-512"},  {kXlsx, kOds, "SHA-512", "SHA-512"},
      {kOds, kXls, nullptr, "verifier"},    {kOds, kXlsx, nullptr, "SHA-512"},     {kOds, kOds, "PBKDF2", "PBKDF2"},
  };
  int n = 0;
  for (const Case& c : cases) {
    const std::string trace = sources[c.from].filename().string() + " as " + std::to_string(c.to);
    SCOPED_TRACE(trace);
    auto kind = [](const std::map<std::string, std::string>& f) {
      return f.count("algorithm") ? f.at("algorithm") : f.count("kind") ? f.at("kind") : "?";
    };
    const fs::path without = Path("without-" + std::to_string(++n));
    Workbook& read_only = app.GetWorkbooks().Open(sources[c.from].string(), {});
    if (c.kept == nullptr) {
      try {
        read_only.SaveAs(without.string(), Format(c.to));
        ADD_FAILURE() << "the reservation was dropped";
      } catch (const Error& e) {
        EXPECT_NE(std::string(e.what()).find("cannot keep the write reservation"), std::string::npos) << e.what();
      }
      EXPECT_FALSE(fs::exists(without));
    } else {
      read_only.SaveAs(without.string(), Format(c.to));
      const auto found = Found(without, "wr1");
      EXPECT_EQ(kind(found), c.kept);
      EXPECT_EQ(found.count("password") ? found.at("password") : "", "accepted");
      EXPECT_EQ(found.count("read_only") ? found.at("read_only") : "", "0");
    }
    // Text carries no reservation, as in Excel.
    read_only.SaveAs(Path("text.csv").string(), Format(kCsv));
    EXPECT_TRUE(fs::exists(Path("text.csv")));
    read_only.Close(false);

    const fs::path with = Path("with-" + std::to_string(n));
    Workbook& writable = app.GetWorkbooks().Open(sources[c.from].string(), WithPassword("wr1"));
    writable.SaveAs(with.string(), Format(c.to));
    writable.Close(false);
    const auto found = Found(with, "wr1");
    EXPECT_EQ(kind(found), c.anew);
    EXPECT_EQ(found.count("password") ? found.at("password") : "", "accepted");
    EXPECT_EQ(found.count("read_only") ? found.at("read_only") : "", "0");
  }
}

// A new write password replaces the reservation, an empty one removes it,
// and a format without reservations refuses one rather than writing the
// file unreserved.
TEST_F(ReservationTest, ANewPasswordReplacesTheReservationAndAnEmptyOneRemovesIt) {
  auto& app = SharedExcel();
  const fs::path ods = Path("reserved.ods");
  Reserve(Plain(app, Path("plain.ods"), kOds), ods, "wr1");
  for (int32_t number : {kXlsx, kOds}) {
    Workbook& book = app.GetWorkbooks().Open(ods.string(), {});
    const fs::path replaced = Path("replaced-" + std::to_string(number));
    book.SaveAs(replaced.string(), Reserved(number, "new"));
    EXPECT_EQ(Found(replaced, "new")["password"], "accepted");
    EXPECT_EQ(Found(replaced, "wr1")["password"], "rejected");
    // The workbook now has the new reservation: a further save keeps it.
    const fs::path again = Path("again-" + std::to_string(number));
    book.SaveAs(again.string(), Format(number));
    EXPECT_EQ(Found(again, "new")["password"], "accepted");
    const fs::path freed = Path("freed-" + std::to_string(number));
    book.SaveAs(freed.string(), Reserved(number, ""));
    book.Close(false);
    auto found = Found(freed);
    EXPECT_EQ(found["kind"], "none") << number;
    EXPECT_EQ(found["read_only"], "0") << number;
    Workbook& open = app.GetWorkbooks().Open(freed.string(), {});
    open.SaveAs(freed.string(), Format(number));  // not read-only
    open.Close(false);
  }
  Workbook& book = app.GetWorkbooks().Open(ods.string(), WithPassword("wr1"));
  for (int32_t number : {kCsv, 46, 57}) {
    const fs::path target = Path("refused-" + std::to_string(number));
    EXPECT_THROW(book.SaveAs(target.string(), Reserved(number, "w")), Error) << number;
    EXPECT_FALSE(fs::exists(target)) << number;
  }
  book.Close(false);
}

// The office's Open XML import recommends opening read-only every workbook
// with a salted reservation; the copies carry that recommendation only
// where the file itself made it.
TEST_F(ReservationTest, ACopyRecommendsReadOnlyOnlyWhereTheWorkbookDid) {
  auto& app = SharedExcel();
  const fs::path xlsx = Plain(app, Path("plain.xlsx"), kXlsx);
  Reserve(xlsx, Path("plain-reserved.xlsx"), "wr1", "--spin 10");
  Reserve(xlsx, Path("recommending.xlsx"), "wr1", "--spin 10 --read-only-recommended");
  EXPECT_EQ(Found(Path("recommending.xlsx"))["read_only"], "1");
  for (const char* name : {"plain-reserved.xlsx", "recommending.xlsx"}) {
    const bool recommends = std::string(name) == "recommending.xlsx";
    Workbook& book = app.GetWorkbooks().Open(Path(name).string(), WithPassword("wr1"));
    book.SaveAs(Path("copy.ods").string(), Format(kOds));
    book.SaveAs(Path("copy.xls").string(), Reserved(kXls, ""));
    book.Close(false);
    EXPECT_EQ(Found(Path("copy.ods"))["read_only"], recommends ? "1" : "0") << name;
    EXPECT_EQ(Found(Path("copy.xls"))["read_only"], recommends ? "1" : "0") << name;
  }
}

}  // namespace
}  // namespace tabulon::office::uno::testing
