// The command line's contract with scripts: data on stdout, "tabulon:
// <command>: <code> <message>" on stderr, exit 0 / 1 / 2.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "cli_run.h"

namespace {

namespace fs = std::filesystem;
using tabulon::testing::Folder;
using tabulon::testing::Read;
using tabulon::testing::Result;
using tabulon::testing::Tabulon;

// One command line and everything a script sees of it. In every string,
// {dir} stands for the test's scratch folder; an expected stderr ending in
// "..." is a prefix.
struct Case {
  const char* args;
  int exit_code;
  const char* out;
  const char* err;
};

std::string Expand(std::string text, const std::string& dir) {
  for (size_t at = text.find("{dir}"); at != std::string::npos; at = text.find("{dir}", at + dir.size())) {
    text.replace(at, 5, dir);
  }
  return text;
}

const std::string kSeeConvert = "Run 'tabulon help convert' for usage.\n";

const Case kCases[] = {
    // Commands and options the parser does not know are named, with the
    // closest known one.
    {"", 2, "", "tabulon: a command is required\nRun 'tabulon help' for the list of commands.\n"},
    {"conver x y", 2, "",
     "tabulon: unknown command 'conver' (did you mean 'convert'?)\nRun 'tabulon help' for the list of commands.\n"},
    {"csvtrim a b", 2, "",
     "tabulon: unknown command 'csvtrim' (did you mean 'csvTrimCSVFile'?)\nRun 'tabulon help' for the list of "
     "commands.\n"},
    {"nosuchcommand", 2, "",
     "tabulon: unknown command 'nosuchcommand'\nRun 'tabulon help' for the list of commands.\n"},
    {"help conver", 2, "",
     "tabulon: unknown command 'conver' (did you mean 'convert'?)\nRun 'tabulon help' for the list of commands.\n"},
    {"--bogus", 2, "", "tabulon: unknown option '--bogus'\nRun 'tabulon help' for usage.\n"},
    {"convert --bogus", 2, "", "tabulon: convert: unknown option '--bogus'\nRun 'tabulon help convert' for usage.\n"},
    {"convert --formt csv a b", 2, "",
     "tabulon: convert: unknown option '--formt' (did you mean '--format'?)\nRun 'tabulon help convert' for "
     "usage.\n"},
    {"convert only-one-path", 2, "",
     "tabulon: convert: paths: At least 2 required but received 1\nRun 'tabulon help convert' for usage.\n"},
    {"csvTrimCSVFile a", 2, "",
     "tabulon: csvTrimCSVFile: output is required\nRun 'tabulon help csvTrimCSVFile' for usage.\n"},
    // Malformed and out-of-range values are usage errors.
    {"convert -d 99999999999 a.xlsx b.csv", 2, "",
     "tabulon: convert: -d: '99999999999': a character code from 0 to 255 is needed\n..."},
    {"convert -d xyz a.xlsx b.csv", 2, "",
     "tabulon: convert: -d: 'xyz' is not one character, a name (tab, space, comma, semicolon, pipe) or a code\n..."},
    {"convert -t 12345 a.xlsx b.csv", 2, "",
     "tabulon: convert: -t: unknown format '12345'; the formats are csv (6), ..."},
    {"convert -r nonsense a.xlsx b.csv", 2, "",
     "tabulon: convert: -r: 'nonsense' is not a range such as A1:C10, A:C or 1:3\n..."},
    {"convert --encoding nosuch a.csv b.xlsx", 2, "", "tabulon: convert: --encoding: unknown encoding 'nosuch'\n..."},
    {"csvPadForFixedLengthFields a b _ '' -l xyz", 2, "",
     "tabulon: csvPadForFixedLengthFields: --length: 'xyz' is not a whole number (1 to 65536)\n..."},
    {"csvPadForFixedLengthFields a b _ '' -l 99999999999", 2, "",
     "tabulon: csvPadForFixedLengthFields: --length: '99999999999' is out of range (1 to 65536)\n..."},
    {"ConcatenateTwoTextFilesEx a b --page-break 99999999999", 2, "",
     "tabulon: ConcatenateTwoTextFilesEx: --page-break: '99999999999' is out of range (-2147483648 to "
     "2147483647)\n..."},
    {"csvChangeDelimitationCharacter {dir}/in.csv {dir}/o.csv xyz", 2, "",
     "tabulon: csvChangeDelimitationCharacter: delimiter: 'xyz' is not one character, a name (tab, space, comma, "
     "semicolon, pipe) or a code\n..."},
    {"csvChangeDelimitationCharacter {dir}/in.csv {dir}/o.csv 200", 2, "",
     "tabulon: csvChangeDelimitationCharacter: delimiter: '200': a character code from 1 to 127 is "
     "needed\n..."},
    // The format: from -t or the target's extension, or a usage error.
    {"convert a.xlsx b.foo", 2, "",
     "tabulon: convert: the format cannot be told from the target's extension '.foo'; give it with -t FORMAT\n..."},
    {"convert a.xlsx {dir}", 2, "",
     "tabulon: convert: the format cannot be told from a folder; give it with -t FORMAT\n..."},
    {"convert -t xlsx a.xlsx -", 2, "",
     "tabulon: convert: only a text format (csv, txt, prn) can be written to -\n..."},
    {"convert --json a.xlsx -", 2, "",
     "tabulon: convert: --json and the target - (standard output) exclude each other\n..."},
    // Delimiters: a character, \t or tab, or a code, alike in every command.
    {"csvChangeDelimitationCharacter {dir}/in.csv - tab", 0, "a\tb\n\" c\"\t d \n", ""},
    {"csvChangeDelimitationCharacter {dir}/in.csv - '\\t'", 0, "a\tb\n\" c\"\t d \n", ""},
    {"csvChangeDelimitationCharacter {dir}/in.csv - 9", 0, "a\tb\n\" c\"\t d \n", ""},
    {"csvChangeDelimitationCharacter {dir}/in.csv - 0x3b", 0, "a;b\n\" c\"; d \n", ""},
    {"csvChangeDelimitationCharacter {dir}/in.csv - ';'", 0, "a;b\n\" c\"; d \n", ""},
    {"txtChangeCharacterIgnoreWithinQuotes {dir}/in.csv - comma pipe", 0, "a|b\n\" c\"| d \n", ""},
    // - reads standard input and writes standard output.
    {"csvTrimCSVFile - - < {dir}/in.csv", 0, "a,b\n\"c\",d\n", ""},
    {"csvTrimCSVFile {dir}/in.csv -", 0, "a,b\n\"c\",d\n", ""},
    {"IsFileUnicode - < {dir}/in.csv", 0, "False\n", ""},
    {"csvTrimCSVFile - - < /dev/null", 0, "", ""},
    // Failures name their file.
    {"csvTrimCSVFile {dir}/none.csv {dir}/o.csv", 1, "",
     "tabulon: csvTrimCSVFile: -1 Input file does not exist or cannot be read: {dir}/none.csv\n"},
    {"csvTrimCSVFile {dir}/in.csv {dir}", 1, "",
     "tabulon: csvTrimCSVFile: -2 Output file cannot be created (is a folder): {dir}\n"},
    {"csvTrimCSVFile {dir}/in.csv {dir}/nofolder/o.csv", 1, "",
     "tabulon: csvTrimCSVFile: -2 Output file cannot be created: {dir}/nofolder/o.csv\n"},
    {"ConcatenateAll {dir}/a.csv {dir}/none.csv -", 1, "",
     "tabulon: ConcatenateAll: -1 Input file does not exist or cannot be read: {dir}/none.csv\n"},
    {"ConcatenateTwoTextFiles - {dir}/a.csv", 2, "",
     "tabulon: ConcatenateTwoTextFiles: the file to append to cannot be - (standard input)\n..."},
    // --json: one object on stdout, for success and failure alike.
    {"IsFileUnicode --json {dir}/in.csv", 0,
     "{\"command\":\"IsFileUnicode\",\"code\":0,\"file\":\"{dir}/in.csv\",\"unicode\":false}\n", ""},
    {"csvTrimCSVFile --json {dir}/in.csv {dir}/o.csv", 0,
     "{\"command\":\"csvTrimCSVFile\",\"code\":0,\"output\":\"{dir}/o.csv\"}\n", ""},
    {"csvTrimCSVFile --json {dir}/none.csv {dir}/o.csv", 1,
     "{\"command\":\"csvTrimCSVFile\",\"code\":-1,\"message\":\"Input file does not exist or cannot be "
     "read\",\"file\":\"{dir}/none.csv\"}\n",
     "tabulon: csvTrimCSVFile: -1 Input file does not exist or cannot be read: {dir}/none.csv\n"},
    // The joins of many files.
    {"ConcatenateAll {dir}/a.csv {dir}/b.csv -", 0, "id\n1\nid\n2\n", ""},
    {"ConcatenateAllSkipFirstLine '{dir}/[ab].csv' -", 0, "id\n1\n2\n", ""},
    {"ConcatenateSpreadsheet {dir}/a.csv {dir}/b.csv {dir}/in.csv -", 0, "id\n1\n2\na,b\n\" c\", d \n", ""},
    {"ConcatenateSpreadsheetAddColumnWithOriginalFileName --column-title source {dir}/a.csv {dir}/b.csv -", 0,
     "id,source\n1,a.csv\n2,b.csv\n", ""},
    {"ConcatenateSpreadsheetAddColumnWithOriginalFileName {dir}/a.csv - - < {dir}/b.csv", 0,
     "id,a.csv\n1,a.csv\nid,stdin.csv\n2,stdin.csv\n", ""},
    {"ConcatenateAll '{dir}/a.csv|{dir}/b.csv' -", 2, "",
     "tabulon: ConcatenateAll: a source name cannot hold '|': {dir}/a.csv|{dir}/b.csv\n..."},
};

TEST(CliContract, EveryCaseGivesItsStatusStdoutAndStderr) {
  Folder dir;
  std::ofstream(dir / "in.csv", std::ios::binary) << "a,b\n\" c\", d \n";
  std::ofstream(dir / "a.csv", std::ios::binary) << "id\n1\n";
  std::ofstream(dir / "b.csv", std::ios::binary) << "id\n2\n";
  const std::string folder = dir / "";
  const std::string base = folder.substr(0, folder.size() - 1);
  for (const Case& c : kCases) {
    const std::string args = Expand(c.args, base);
    const Result r = Tabulon(args);
    EXPECT_EQ(r.exit_code, c.exit_code) << "[" << args << "] " << r.err;
    EXPECT_EQ(r.out, Expand(c.out, base)) << "[" << args << "]";
    std::string err = Expand(c.err, base);
    if (err.size() >= 3 && err.compare(err.size() - 3, 3, "...") == 0) {
      err.resize(err.size() - 3);
      EXPECT_EQ(r.err.substr(0, err.size()), err) << "[" << args << "]";
    } else {
      EXPECT_EQ(r.err, err) << "[" << args << "]";
    }
  }
}

TEST(CliContract, VersionAndHelpExitZeroOnStdout) {
  Result v = Tabulon("--version");
  EXPECT_EQ(v.exit_code, 0);
  EXPECT_EQ(v.out.rfind("tabulon ", 0), 0u) << v.out;
  Result h = Tabulon("help convert");
  EXPECT_EQ(h.exit_code, 0);
  EXPECT_NE(h.out.find("--multi-file"), std::string::npos);
  EXPECT_NE(h.out.find("[OpenXLSSaveAs]"), std::string::npos);
  EXPECT_TRUE(h.err.empty());
  // The hidden writer of the manual page is no command of the list.
  Result list = Tabulon("help");
  EXPECT_EQ(list.exit_code, 0);
  EXPECT_EQ(list.out.find("__docs"), std::string::npos);
  EXPECT_NE(list.out.find("ConcatenateSpreadsheetAddColumnWithOriginalFileName"), std::string::npos);
}

// The manual page and the completion cover every command of the list.
TEST(CliContract, ManPageAndCompletionCoverEveryCommand) {
  const Result man = Tabulon("__docs man");
  const Result bash = Tabulon("__docs bash");
  ASSERT_EQ(man.exit_code, 0);
  ASSERT_EQ(bash.exit_code, 0);
  for (const char* command : {"convert", "sheets", "csvTrimCSVFile", "ConcatenateAll", "batch", "CopySheetData"}) {
    EXPECT_NE(man.out.find(".SS " + std::string(command) + " "), std::string::npos) << command;
    EXPECT_NE(bash.out.find(" " + std::string(command) + ") options="), std::string::npos) << command;
  }
  EXPECT_NE(bash.out.find("complete -o filenames -F _tabulon tabulon"), std::string::npos);

  // The script completes in bash: commands, a command's options, help's topics.
  Folder dir;
  std::ofstream(dir / "tabulon.bash") << bash.out;
  const auto complete = [&](const std::string& words, int index) {
    const std::string script = dir / "complete.sh";
    std::ofstream(script) << "source " << dir / "tabulon.bash" << "\nCOMP_WORDS=(" << words
                          << ")\nCOMP_CWORD=" << index << "\n_tabulon\necho \"${COMPREPLY[*]}\"\n";
    FILE* pipe = popen(("bash " + script).c_str(), "r");
    std::string out;
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
    pclose(pipe);
    return out;
  };
  EXPECT_EQ(complete("tabulon conv", 1), "convert\n");
  EXPECT_EQ(complete("tabulon convert --multi", 2), "--multi-file\n");
  EXPECT_EQ(complete("tabulon help csvTrim", 2), "csvTrimCSVFile\n");
}

// No output is renamed over what is not a regular file: a device or a pipe
// is written in place, a link keeps standing and its file gets the result,
// a folder is refused.
TEST(CliContract, DevicesAndLinksAreWrittenInPlace) {
  Folder dir;
  std::ofstream(dir / "in.csv", std::ios::binary) << " a , b \n";
  const fs::file_status before = fs::symlink_status("/dev/stdout");
  const Result to_stdout = Tabulon("csvTrimCSVFile " + dir / "in.csv" + " /dev/stdout");
  EXPECT_EQ(to_stdout.exit_code, 0) << to_stdout.err;
  EXPECT_EQ(to_stdout.out, "a,b\n");
  EXPECT_EQ(fs::symlink_status("/dev/stdout").type(), before.type());
  EXPECT_TRUE(fs::is_symlink("/dev/stdout") || !fs::is_symlink(before));

  const Result to_null = Tabulon("csvTrimCSVFile " + dir / "in.csv" + " /dev/null");
  EXPECT_EQ(to_null.exit_code, 0) << to_null.err;
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
  EXPECT_EQ(Read("/dev/null"), "");

  std::ofstream(dir / "real.csv") << "old\n";
  fs::create_symlink("real.csv", dir / "link.csv");
  const Result through_link = Tabulon("csvTrimCSVFile " + dir / "in.csv" + " " + dir / "link.csv");
  EXPECT_EQ(through_link.exit_code, 0) << through_link.err;
  EXPECT_TRUE(fs::is_symlink(dir / "link.csv"));
  EXPECT_EQ(Read(dir / "real.csv"), "a,b\n");

  // A link to nothing yet: the file it names is created.
  fs::create_symlink("later.csv", dir / "dangling.csv");
  EXPECT_EQ(Tabulon("csvTrimCSVFile " + dir / "in.csv" + " " + dir / "dangling.csv").exit_code, 0);
  EXPECT_TRUE(fs::is_symlink(dir / "dangling.csv"));
  EXPECT_EQ(Read(dir / "later.csv"), "a,b\n");

  // A pipe that another process reads.
  ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
  const Result to_fifo = Tabulon("csvTrimCSVFile " + dir / "in.csv" + " " + dir / "fifo" + " & cat " + dir / "fifo");
  EXPECT_EQ(to_fifo.out, "a,b\n");
  EXPECT_EQ(fs::status(dir / "fifo").type(), fs::file_type::fifo);
}

TEST(CliContract, AMissingWorkbookIsMinusTwoOnStderr) {
  Folder dir;
  const Result r = Tabulon("convert " + dir / "none.xlsx" + " " + dir / "out.csv");
  EXPECT_EQ(r.exit_code, 1);
  // The message's carriage returns are shown escaped, never raw.
  EXPECT_EQ(r.err, "tabulon: convert: -2 Source file does not exist \\r\\r" + dir / "none.xlsx" + "\n");
  EXPECT_TRUE(r.out.empty());
}

TEST(CliContract, AnUnknownFormatNameIsAUsageError) {
  const Result r = Tabulon(std::string("convert -t nosuchformat ") + TABULON_SAMPLE + " /tmp/x.csv");
  EXPECT_EQ(r.exit_code, 2);
  EXPECT_NE(r.err.find("unknown format"), std::string::npos);
}

TEST(CliContract, OutputPasswordsOfTheConversionAreRefusedBeforeAnythingIsWritten) {
  // The conversion's saves carry no password, so no format can honour one.
  Folder dir;
  const char* targets[] = {"out.xls", "out.xlsx", "out.ods", "out.csv", "out.pdf"};
  for (const char* option : {"--output-password", "--output-password-tw"}) {
    for (const char* target : targets) {
      const Result r = Tabulon(std::string("convert ") + option + " secret " + TABULON_SAMPLE + " " + dir / target);
      EXPECT_EQ(r.exit_code, 2) << option << " " << target;
      EXPECT_NE(r.err.find(std::string("convert: ") + option + ": "), std::string::npos) << r.err;
      EXPECT_TRUE(r.out.empty());
      EXPECT_FALSE(fs::exists(dir / target)) << target;
    }
  }
}

TEST(CliOffice, ConvertPrintsTheCreatedFiles) {
  Folder dir;
  const Result r = Tabulon(std::string("convert -m -s 1-2 ") + TABULON_SAMPLE + " " + dir / "q.csv");
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(r.out, dir / "q-1.csv" + "\n" + dir / "q-2.csv" + "\n");
  EXPECT_EQ(Read(dir / "q-2.csv").substr(0, 21), "Month,Units,Revenue\r\n");

  const Result several =
      Tabulon(std::string("convert -t xlsx ") + TABULON_SAMPLE + " " + TABULON_SAMPLE + " " + dir / "many");
  EXPECT_EQ(several.exit_code, 0) << several.err;
  EXPECT_EQ(several.out, dir / "many/quarterly.xlsx" + "\n" + dir / "many/quarterly.xlsx" + "\n");
}

// The target says the format; a folder takes one source as it takes many;
// "-" and /dev/stdout get the text; --json lists what was written. One
// batch, so that one office serves every line.
TEST(CliOffice, TargetsDecideFormatAndPlace) {
  Folder dir;
  const std::string sample = TABULON_SAMPLE;
  fs::create_directories(dir / "out");
  std::ofstream(dir / "lines") << "convert -s 1 " << sample << " " << dir / "one.xlsx"
                               << "\n"
                               << "convert -t csv -m " << sample << " " << dir / "out"
                               << "\n"
                               << "convert -s 2 -r A1:B2 " << sample << " -\n"
                               << "convert -s 2 -r A2:B2 " << sample << " /dev/stdout\n"
                               << "convert --json -m -s 1-2 " << sample << " " << dir / "j.csv"
                               << "\n"
                               << "sheets --json " << sample << "\n";
  const Result r = Tabulon("batch " + dir / "lines");
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(r.out, dir / "one.xlsx\n" +                                                         //
                       dir / "out/quarterly-North.csv\n" + dir / "out/quarterly-South.csv\n" +  //
                       dir / "out/quarterly-Notes.csv\n" +                                      //
                       "Month,Units\r\nJanuary,87\r\n" +                                        //
                       ",\r\nJanuary,87\r\n" +  // the range keeps its place: row 1 is empty
                       "{\"command\":\"convert\",\"code\":0,\"files\":[\"" + dir / "j-1.csv" + "\",\"" +
                       dir / "j-2.csv" + "\"],\"sheets\":[\"North\",\"South\"],\"failures\":[]}\n" +
                       "{\"command\":\"sheets\",\"code\":0,\"file\":\"" + sample +
                       "\",\"sheets\":[\"North\",\"South\",\"Notes\"]}\n");
  EXPECT_EQ(Read(dir / "one.xlsx").substr(0, 2), "PK");
  EXPECT_TRUE(fs::is_symlink("/dev/stdout") || !fs::exists("/dev/stdout"));
}

// A text source that is not UTF-8 is read as Windows-1252, or in the
// encoding named; valid UTF-8 is left alone; the user's file stays as it was.
TEST(CliOffice, TextSourcesNotInUtf8AreReadAsWindows1252) {
  Folder dir;
  const std::string latin = "name,city\nJos\xe9,M\xfcnchen \x80\n";
  std::ofstream(dir / "latin.csv", std::ios::binary) << latin;
  std::ofstream(dir / "utf8.csv", std::ios::binary) << "name\nJos\xc3\xa9\n";
  std::ofstream(dir / "lines") << "convert " << dir / "latin.csv"
                               << " -\n"
                               << "convert --encoding cp850 -r A2 " << dir / "latin.csv"
                               << " -\n"
                               << "convert " << dir / "utf8.csv"
                               << " -\n";
  const Result r = Tabulon("batch " + dir / "lines");
  EXPECT_EQ(r.exit_code, 0) << r.err;
  // In code page 850, E9 is U+00DA.
  EXPECT_EQ(r.out,
            "name,city\r\nJos\xc3\xa9,M\xc3\xbcnchen \xe2\x82\xac\r\n"
            "\r\nJos\xc3\x9a\r\n"  // A2 keeps its place below an empty row
            "name\r\nJos\xc3\xa9\r\n");
  EXPECT_EQ(Read(dir / "latin.csv"), latin);
}

TEST(CliOffice, SheetsAndOffice) {
  const Result sheets = Tabulon(std::string("sheets ") + TABULON_SAMPLE);
  EXPECT_EQ(sheets.exit_code, 0);
  EXPECT_EQ(sheets.out, "North\nSouth\nNotes\n");
  const Result missing = Tabulon(std::string("sheets ") + TABULON_SAMPLE + " Nowhere");
  EXPECT_EQ(missing.exit_code, 1);
  EXPECT_EQ(missing.err, "tabulon: sheets: -11 Invalid Sheet Specified.: " + std::string(TABULON_SAMPLE) + "\n");
  const Result office = Tabulon("office");
  EXPECT_EQ(office.exit_code, 0);
  EXPECT_EQ(office.out, "ExcelIsInstalled True\nWordIsInstalled True\nExcelVersion 7.4\nExcelBuild 2\n");
}

TEST(CliOffice, BatchRunsEveryLineAndReportsTheFirstFailure) {
  Folder dir;
  {
    std::ofstream lines(dir / "jobs.txt");
    lines << "# two listings, a failure, a conversion\n\n"
          << "sheets " << TABULON_SAMPLE << "\n"
          << "sheets '" << TABULON_SAMPLE << "' \"South\"\n"
          << "sheets " << dir / "missing.xlsx" << "\n"
          << "convert -s 2 " << TABULON_SAMPLE << " " << dir / "s.csv" << "\n";
  }
  const Result r = Tabulon("batch " + dir / "jobs.txt");
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.out, "North\nSouth\nNotes\nSouth\n" + dir / "s.csv" + "\n");
  EXPECT_EQ(r.err, "tabulon: sheets: -202 Original File does not exist: " + dir / "missing.xlsx" +
                       "\ntabulon: batch: 1 of 4 commands failed\n");
  EXPECT_EQ(Read(dir / "s.csv").substr(0, 21), "Month,Units,Revenue\r\n");

  std::ofstream(dir / "open.txt") << "sheets 'book\nsheets " << TABULON_SAMPLE << "\n";
  const Result open_quote = Tabulon("batch --stop-on-error - < " + dir / "open.txt");
  EXPECT_EQ(open_quote.exit_code, 2);
  EXPECT_EQ(open_quote.err, "tabulon: batch: line 1: a quote is not closed\ntabulon: batch: 1 of 1 commands failed\n");
}

}  // namespace
