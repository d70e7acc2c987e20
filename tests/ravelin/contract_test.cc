// The contract around the rewrites: result codes for bad arguments and
// files, outputs that replace their files whole or not at all, the item
// lists, the encoding test and the message table.
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>

#include <gtest/gtest.h>

#include "ravelin/ravelin.h"
#include "support.h"

namespace {

using ravelin_test::ReadFile;
using ravelin_test::TempDir;
using ravelin_test::WriteFile;

using Call = std::function<int32_t(const char* in, const char* out)>;

// Every rewrite, with valid extra arguments.
const std::vector<std::pair<const char*, Call>>& Rewrites() {
  static const std::vector<std::pair<const char*, Call>> kRewrites = {
      {"TXTFileChangeDelimitationChar",
       [](const char* i, const char* o) { return TXTFileChangeDelimitationChar(i, o, ",", ";"); }},
      {"CSVFileChangeDelimitationChar",
       [](const char* i, const char* o) { return CSVFileChangeDelimitationChar(i, o, ";"); }},
      {"EncaseEachFieldWithQuotes", EncaseEachFieldWithQuotes},
      {"PadCSVFileWithASpaces", PadCSVFileWithASpaces},
      {"RemoveEmptyLinesFromCSVFile", RemoveEmptyLinesFromCSVFile},
      {"CropCSVFileToSpecificRows", [](const char* i, const char* o) { return CropCSVFileToSpecificRows(i, o, "1-99999"); }},
      {"CropCSVFileToSpecificColumns",
       [](const char* i, const char* o) { return CropCSVFileToSpecificColumns(i, o, "1"); }},
      {"PadCSVFileForFixedLengthFields",
       [](const char* i, const char* o) { return PadCSVFileForFixedLengthFields(i, o, 3, " ", 0, ""); }},
      {"RemoveControlCharactersFromFileInQuotesOnly", RemoveControlCharactersFromFileInQuotesOnly},
      {"TrimCSVFile", TrimCSVFile},
      {"DeleteEmptyLinesFromTextFile", DeleteEmptyLinesFromTextFile},
      {"ConcatenateAll", ConcatenateAll},
  };
  return kRewrites;
}

TEST(Rewrites, ReportMissingInputsBadPathsAndUnwritableOutputs) {
  TempDir dir;
  WriteFile(dir / "in.csv", "a,b\n");
  ::mkdir((dir / "folder").c_str(), 0755);
  for (const auto& [name, call] : Rewrites()) {
    SCOPED_TRACE(name);
    EXPECT_EQ(call((dir / "none.csv").c_str(), (dir / "out.csv").c_str()), RAVELIN_E_INPUT_MISSING);
    EXPECT_EQ(call(nullptr, (dir / "out.csv").c_str()), RAVELIN_E_ARGUMENT);
    EXPECT_EQ(call((dir / "in.csv").c_str(), nullptr), RAVELIN_E_ARGUMENT);
    EXPECT_EQ(call((dir / "in.csv").c_str(), ""), RAVELIN_E_ARGUMENT);
    EXPECT_EQ(call((dir / "in.csv").c_str(), (dir / "no/such/out.csv").c_str()), RAVELIN_E_OUTPUT);
    EXPECT_EQ(call((dir / "in.csv").c_str(), (dir / "folder").c_str()), RAVELIN_E_OUTPUT);
  }
  EXPECT_EQ(CSVFileChangeDelimitationChar((dir / "folder").c_str(), (dir / "out.csv").c_str(), ";"),
            RAVELIN_E_INPUT_MISSING);
  EXPECT_EQ(ReadFile(dir / "in.csv"), "a,b\n");
}

TEST(Rewrites, RefuseBadCharacterAndNumberArguments) {
  TempDir dir;
  WriteFile(dir / "in.csv", "a,b\n");
  const std::string in = dir / "in.csv", out = dir / "out.csv";
  for (const char* bad : {"", "\"", "\n", "\r", ";;", "\xC3\xA9", "\xA7"}) {
    SCOPED_TRACE(testing::PrintToString(bad));
    EXPECT_EQ(CSVFileChangeDelimitationChar(in.c_str(), out.c_str(), bad), RAVELIN_E_ARGUMENT);
    EXPECT_EQ(PadCSVFileForFixedLengthFields(in.c_str(), out.c_str(), 4, bad, 0, ""), RAVELIN_E_ARGUMENT);
  }
  for (const char* bad : {"", "\"", "ab", "\xFF"}) {
    EXPECT_EQ(TXTFileChangeDelimitationChar(in.c_str(), out.c_str(), bad, ";"), RAVELIN_E_ARGUMENT);
    EXPECT_EQ(TXTFileChangeDelimitationChar(in.c_str(), out.c_str(), ";", bad), RAVELIN_E_ARGUMENT);
  }
  EXPECT_EQ(CSVFileChangeDelimitationChar(in.c_str(), out.c_str(), nullptr), RAVELIN_E_ARGUMENT);
  EXPECT_EQ(PadCSVFileForFixedLengthFields(in.c_str(), out.c_str(), 4, ",", 0, ""), RAVELIN_E_ARGUMENT);
  for (int32_t length : {0, -1, 65537}) {
    EXPECT_EQ(PadCSVFileForFixedLengthFields(in.c_str(), out.c_str(), length, "_", 0, ""), RAVELIN_E_ARGUMENT);
  }
  ASSERT_EQ(PadCSVFileForFixedLengthFields(in.c_str(), out.c_str(), 65536, "_", 0, "1"), RAVELIN_OK);
  EXPECT_EQ(ReadFile(out), "a" + std::string(65535, '_') + ",b\n");
  EXPECT_EQ(PadCSVFileForFixedLengthFields(in.c_str(), out.c_str(), 4, "_", 0, nullptr), RAVELIN_E_ARGUMENT);
  EXPECT_EQ(CropCSVFileToSpecificRows(in.c_str(), out.c_str(), nullptr), RAVELIN_E_ARGUMENT);
}

TEST(Rewrites, RefuseMalformedRowAndColumnLists) {
  TempDir dir;
  WriteFile(dir / "in.csv", "a,b\n");
  const std::string in = dir / "in.csv", out = dir / "out.csv";
  for (const char* list : {"", " ", ",", "0", "1,0", "abc", "-5", "5-", "1-2-3", "Sales-2023", "1.5", "+3",
                           "2147483648"}) {
    SCOPED_TRACE(list);
    EXPECT_EQ(CropCSVFileToSpecificRows(in.c_str(), out.c_str(), list), RAVELIN_E_LIST);
    EXPECT_EQ(CropCSVFileToSpecificColumns(in.c_str(), out.c_str(), list), RAVELIN_E_LIST);
  }
  EXPECT_EQ(PadCSVFileForFixedLengthFields(in.c_str(), out.c_str(), 4, "_", 0, "2-x"), RAVELIN_E_LIST);
  EXPECT_FALSE(std::filesystem::exists(out));
}

TEST(Rewrites, CanRewriteAFileInPlace) {
  TempDir dir;
  const std::string path = dir / "data.csv";
  WriteFile(path, "a;b,\"c,d\"\n");
  ASSERT_EQ(CSVFileChangeDelimitationChar(path.c_str(), path.c_str(), ";"), RAVELIN_OK);
  EXPECT_EQ(ReadFile(path), "\"a;b\";\"c,d\"\n");
  ASSERT_EQ(EncaseEachFieldWithQuotes(path.c_str(), path.c_str()), RAVELIN_OK);
  EXPECT_EQ(ReadFile(path), "\"a;b\";\"c,d\"\n");
  EXPECT_EQ(dir.List().size(), 1u) << "no temporary file may stay behind";
}

TEST(Rewrites, KeepPermissionsOfAReplacedOutputAndRefuseAReadOnlyOne) {
  TempDir dir;
  WriteFile(dir / "in.csv", "a\n");
  WriteFile(dir / "out.csv", "old");
  ::chmod((dir / "out.csv").c_str(), 0640);
  ASSERT_EQ(TrimCSVFile((dir / "in.csv").c_str(), (dir / "out.csv").c_str()), RAVELIN_OK);
  struct stat st;
  ASSERT_EQ(::stat((dir / "out.csv").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  if (::geteuid() != 0) {  // root may write anything
    ::chmod((dir / "out.csv").c_str(), 0444);
    EXPECT_EQ(TrimCSVFile((dir / "in.csv").c_str(), (dir / "out.csv").c_str()), RAVELIN_E_OUTPUT);
    EXPECT_EQ(ReadFile(dir / "out.csv"), "a\n");
  }
}

TEST(Rewrites, WriteThroughASymbolicLinkToItsFile) {
  TempDir dir;
  WriteFile(dir / "in.csv", "a,b\n");
  WriteFile(dir / "real.csv", "old");
  ASSERT_EQ(::symlink("real.csv", (dir / "link.csv").c_str()), 0);
  ASSERT_EQ(EncaseEachFieldWithQuotes((dir / "in.csv").c_str(), (dir / "link.csv").c_str()), RAVELIN_OK);
  EXPECT_TRUE(std::filesystem::is_symlink(dir / "link.csv"));
  EXPECT_EQ(ReadFile(dir / "real.csv"), "\"a\",\"b\"\n");
}

// Runs `call` in a child whose files may not grow beyond `limit` bytes and
// returns its result code.
int32_t WithFileSizeLimit(rlim_t limit, const std::function<int32_t()>& call) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::signal(SIGXFSZ, SIG_IGN);
    struct rlimit rl = {limit, limit};
    ::setrlimit(RLIMIT_FSIZE, &rl);
    ::_exit(-call());
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? -WEXITSTATUS(status) : 1;
}

TEST(Rewrites, LeaveTheOldOutputWhenWritingFails) {
  TempDir dir;
  std::string big;
  for (int i = 0; i < 20000; ++i) big += "field,\"quoted, text\",123\n";
  WriteFile(dir / "in.csv", big);
  WriteFile(dir / "out.csv", "previous result\n");
  for (const auto& [name, call] : Rewrites()) {
    SCOPED_TRACE(name);
    const std::string in = dir / "in.csv", out = dir / "out.csv";
    EXPECT_EQ(WithFileSizeLimit(4096, [&, c = call] { return c(in.c_str(), out.c_str()); }), RAVELIN_E_WRITE);
    EXPECT_EQ(ReadFile(out), "previous result\n");
    EXPECT_EQ(dir.List().size(), 2u) << "the temporary file must be removed";
  }
}

TEST(Concatenate, FailedAppendLeavesTheFirstFileAsItWas) {
  TempDir dir;
  WriteFile(dir / "first.csv", "header\n1\n");
  WriteFile(dir / "second.csv", std::string(100000, 'x'));
  EXPECT_EQ(WithFileSizeLimit(50000,
                              [&] {
                                return ConcatenateTwoTextFilesEx((dir / "first.csv").c_str(),
                                                                 (dir / "second.csv").c_str(), 1, 1);
                              }),
            RAVELIN_E_WRITE);
  EXPECT_EQ(ReadFile(dir / "first.csv"), "header\n1\n");
}

TEST(IsUnicode, TellsTheEncodingByTheByteOrderMark) {
  TempDir dir;
  const std::vector<std::pair<std::string, int32_t>> cases = {
      {"\xFF\xFE"
       "a\0",
       RAVELIN_TEXT_UTF16LE},
      {"\xFE\xFF", RAVELIN_TEXT_UTF16BE},
      {"\xEF\xBB\xBF"
       "abc",
       RAVELIN_TEXT_UTF8_BOM},
      {"", RAVELIN_TEXT_8BIT},
      {"ab", RAVELIN_TEXT_8BIT},
      {"\xEF\xBB", RAVELIN_TEXT_8BIT},
      {"\xC3\xA9t\xC3\xA9", RAVELIN_TEXT_8BIT},
  };
  for (const auto& [bytes, kind] : cases) {
    WriteFile(dir / "f.txt", bytes);
    EXPECT_EQ(IsUnicodeFile((dir / "f.txt").c_str()), kind) << testing::PrintToString(bytes);
  }
  EXPECT_EQ(IsUnicodeFile((dir / "none.txt").c_str()), RAVELIN_E_INPUT_MISSING);
  EXPECT_EQ(IsUnicodeFile(dir.path().c_str()), RAVELIN_E_INPUT_MISSING);
  ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(IsUnicodeFile((dir / "fifo").c_str()), RAVELIN_E_INPUT_MISSING);
  EXPECT_EQ(IsUnicodeFile(nullptr), RAVELIN_E_ARGUMENT);
}

TEST(Utf16, OddLengthIsRefusedAndSurrogatesSurvive) {
  TempDir dir;
  WriteFile(dir / "odd.csv", std::string("\xFF\xFE" "a\0,", 5));
  EXPECT_EQ(TrimCSVFile((dir / "odd.csv").c_str(), (dir / "out.csv").c_str()), RAVELIN_E_ENCODING);
  EXPECT_FALSE(std::filesystem::exists(dir / "out.csv"));
  // A lone high surrogate, a lone low one and a pair, around a comma.
  const std::string units("\xFF\xFE" "\x00\xD8" ",\0" "\x00\xDC" "\x3D\xD8\x00\xDE" "\n\0", 14);
  WriteFile(dir / "wide.csv", units);
  ASSERT_EQ(CSVFileChangeDelimitationChar((dir / "wide.csv").c_str(), (dir / "out.csv").c_str(), ";"), RAVELIN_OK);
  std::string expected = units;
  expected[4] = ';';
  EXPECT_EQ(ReadFile(dir / "out.csv"), expected);
}

struct ItemCase {
  const char* list;
  std::vector<int32_t> pairs;
};

TEST(FillToDoItems, WritesPairsOfItemsThatFitTheGrammar) {
  const std::vector<ItemCase> cases = {
      {"", {}},
      {"1-3", {1, 3}},
      {"3,1,2", {3, 3, 1, 1, 2, 2}},
      {"5-3", {3, 5}},
      {" 7 - 9 ,\t4\t", {7, 9, 4, 4}},
      {"1,1", {1, 1, 1, 1}},
      {"0", {0, 0}},
      {"1,,2,", {1, 1, 2, 2}},
      {"Sales-2023,2", {2, 2}},
      {"abc,-5,5-,1-2-3,+1,1.5,1 2", {}},
      {"2147483647,2147483648", {2147483647, 2147483647}},
      {"007", {7, 7}},
  };
  for (const ItemCase& c : cases) {
    std::vector<int32_t> array(1001, -7);
    const int32_t n = FillToDoItemsArray(c.list, array.data(), 1000);
    EXPECT_EQ(n * 2, static_cast<int32_t>(c.pairs.size())) << c.list;
    EXPECT_EQ(std::vector<int32_t>(array.begin(), array.begin() + static_cast<long>(c.pairs.size())), c.pairs)
        << c.list;
    EXPECT_EQ(array[c.pairs.size()], -7) << c.list;
  }
}

TEST(FillToDoItems, NeverWritesAtOrBeyondCapacity) {
  std::string list;
  for (int i = 1; i <= 700; ++i) list += std::to_string(i) + ",";
  for (int32_t capacity : {1000, 7, 2, 1, 0}) {
    std::vector<int32_t> array(1100, -7);
    const int32_t n = FillToDoItemsArray(list.c_str(), array.data(), capacity);
    EXPECT_EQ(n, capacity / 2) << capacity;
    for (int32_t i = 0; i < 2 * n; ++i) ASSERT_EQ(array[static_cast<size_t>(i)], i / 2 + 1);
    for (size_t i = static_cast<size_t>(2 * n); i < array.size(); ++i) ASSERT_EQ(array[i], -7) << capacity;
  }
  int32_t one = -7;
  EXPECT_EQ(FillToDoItemsArray("1", &one, -1), RAVELIN_E_ARGUMENT);
  EXPECT_EQ(FillToDoItemsArray(nullptr, &one, 2), RAVELIN_E_ARGUMENT);
  EXPECT_EQ(FillToDoItemsArray("1", nullptr, 2), RAVELIN_E_ARGUMENT);
  EXPECT_EQ(one, -7);
}

TEST(ResultText, PinsEveryMessage) {
  const std::vector<std::pair<int32_t, const char*>> texts = {
      {RAVELIN_OK, "Success"},
      {RAVELIN_E_INPUT_MISSING, "Input file does not exist or cannot be read"},
      {RAVELIN_E_OUTPUT, "Output file cannot be created"},
      {RAVELIN_E_ARGUMENT, "Invalid argument"},
      {RAVELIN_E_LIST, "Invalid row or column list"},
      {RAVELIN_E_READ, "Error reading input file"},
      {RAVELIN_E_WRITE, "Error writing output file"},
      {RAVELIN_E_ENCODING, "Text encoding cannot be processed"},
      {RAVELIN_E_MEMORY, "Out of memory"},
      {RAVELIN_E_INTERNAL, "Internal error"},
  };
  for (const auto& [code, text] : texts) EXPECT_STREQ(RavelinResultText(code), text) << code;
  EXPECT_EQ(texts.size(), 10u);
  EXPECT_EQ(RavelinResultText(1), nullptr);
  EXPECT_EQ(RavelinResultText(-10), nullptr);
}

}  // namespace
