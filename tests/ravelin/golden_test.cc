// Golden input/expected pairs for every rewrite, run through the exported
// functions. Each pair is also run as UTF-8 with BOM and as UTF-16 in both
// byte orders: the result must be the expected text in the same encoding.
#include <functional>

#include <gtest/gtest.h>

#include "ravelin/ravelin.h"
#include "support.h"

namespace {

using ravelin_test::ReadFile;
using ravelin_test::TempDir;
using ravelin_test::Utf16;
using ravelin_test::WriteFile;

struct Golden {
  std::string input;
  std::string expected;
};

using Rewrite = std::function<int32_t(const char* in, const char* out)>;

// With RAVELIN_SEED_DIR set, the golden inputs are also written there: they
// seed the fuzzers' corpus (tests/data/ravelin/seeds, scripts/fuzz.sh).
void SaveSeed(const std::string& input) {
  const char* folder = std::getenv("RAVELIN_SEED_DIR");
  if (folder == nullptr || input.empty()) return;
  WriteFile(std::string(folder) + "/golden-" + std::to_string(std::hash<std::string>{}(input) % 1000000) + ".csv",
            input);
}

void CheckGolden(const Rewrite& rewrite, const std::vector<Golden>& cases) {
  TempDir dir;
  for (const Golden& c : cases) {
    SaveSeed(c.input);
    const std::vector<std::pair<std::string, std::function<std::string(const std::string&)>>> encodings = {
        {"8-bit", [](const std::string& s) { return s; }},
        {"UTF-8 BOM", [](const std::string& s) { return std::string("\xEF\xBB\xBF") + s; }},
        {"UTF-16LE", [](const std::string& s) { return Utf16(s, false); }},
        {"UTF-16BE", [](const std::string& s) { return Utf16(s, true); }},
    };
    for (const auto& [name, encode] : encodings) {
      SCOPED_TRACE(name + " input: " + testing::PrintToString(c.input));
      WriteFile(dir / "in.csv", encode(c.input));
      ASSERT_EQ(rewrite((dir / "in.csv").c_str(), (dir / "out.csv").c_str()), RAVELIN_OK);
      EXPECT_EQ(ReadFile(dir / "out.csv"), encode(c.expected));
    }
  }
}

TEST(ChangeDelimiter, WritesSemicolonsAndQuotesFieldsThatHoldOne) {
  CheckGolden([](const char* in, const char* out) { return CSVFileChangeDelimitationChar(in, out, ";"); },
              {
                  {"", ""},
                  {"a,b,c\n1,2,3\n", "a;b;c\n1;2;3\n"},
                  {"a,b\r\nc,d\r\n", "a;b\r\nc;d\r\n"},
                  {"a,b", "a;b"},
                  {",,\n", ";;\n"},
                  {"\"a,b\",c\n", "\"a,b\";c\n"},
                  {"\"say \"\"hi\"\", ok\",x\n", "\"say \"\"hi\"\", ok\";x\n"},
                  {"\"line1\nline2,\",b\r\n", "\"line1\nline2,\";b\r\n"},
                  {"\"a;b\",c\n", "\"a;b\";c\n"},
                  {"1;5,x\n", "\"1;5\";x\n"},
                  {"a,b;c\r\n", "a;\"b;c\"\r\n"},
                  {"a,b;c", "a;\"b;c\""},
                  {";", "\";\""},
                  {"a;b\rx,c\n", "\"a;b\rx\";c\n"},
                  {"a;b\r", "\"a;b\r\""},
                  {"\"ab\";c,d\n", "\"\"\"ab\"\";c\";d\n"},
                  {"\"abc,d\n", "\"abc,d\n"},
                  {std::string(100, 'x') + ";" + std::string(100, 'y') + ",z\n",
                   "\"" + std::string(100, 'x') + ";" + std::string(100, 'y') + "\";z\n"},
                  {"\xC3\xA9,\xE2\x82\xAC\n", "\xC3\xA9;\xE2\x82\xAC\n"},
              });
}

TEST(ChangeCharacter, ReplacesOutsideQuotesOnlyAndQuotesNothing) {
  auto with = [](const char* from, const char* to) {
    return [from, to](const char* in, const char* out) { return TXTFileChangeDelimitationChar(in, out, from, to); };
  };
  CheckGolden(with(",", "\t"), {{"a,\"b,c\",d\n", "a\t\"b,c\"\td\n"}, {"a\tb,c", "a\tb\tc"}, {"", ""}});
  CheckGolden(with(";", ","), {{"\"1;5\";x\r\n", "\"1;5\",x\r\n"}});
  CheckGolden(with("\n", " "), {{"a\n\"b\nc\"\n", "a \"b\nc\" "}});
  CheckGolden(with("x", "x"), {{"x\"x\"", "x\"x\""}});
}

TEST(EncaseEachField, QuotesEveryFieldNotQuotedYet) {
  CheckGolden(EncaseEachFieldWithQuotes, {
                                             {"", ""},
                                             {"a,\"b\",,c\"d", "\"a\",\"b\",\"\",\"c\"\"d\""},
                                             {"x\"y\"z,w\n", "\"x\"\"y\"\"z\",\"w\"\n"},
                                             {"a\n\nb\n", "\"a\"\n\n\"b\"\n"},
                                             {"a,b\r\n", "\"a\",\"b\"\r\n"},
                                             {"a,\n", "\"a\",\"\"\n"},
                                             {"a", "\"a\""},
                                             {",", "\"\",\"\""},
                                             {"\"x\ny\",z", "\"x\ny\",\"z\""},
                                         });
}

TEST(PadWithSpaces, GivesEmptyFieldsOneSpace) {
  CheckGolden(PadCSVFileWithASpaces, {
                                         {"a,,\"\",b,\n", "a, ,\" \",b, \n"},
                                         {"\n", "\n"},
                                         {",\r\n", " , \r\n"},
                                         {"\"\"x,y", "\"\"x,y"},
                                         {"\"\"\"\"", "\"\"\"\""},
                                         {"a,", "a, "},
                                         {"", ""},
                                     });
}

TEST(RemoveEmptyCsvLines, DropsRecordsWhoseFieldsAreAllEmpty) {
  CheckGolden(RemoveEmptyLinesFromCSVFile, {
                                               {"a\n\n,,\n\"\",\"\"\nb\n", "a\nb\n"},
                                               {" \n", " \n"},
                                               {"\"\n\n\",x\n\n", "\"\n\n\",x\n"},
                                               {"a\r\n\r\n,\r\nb", "a\r\nb"},
                                               {"a\n,,", "a\n"},
                                               {"\n\n", ""},
                                               {"\"\"\"\"\n", "\"\"\"\"\n"},
                                               {",,x\n", ",,x\n"},
                                           });
}

TEST(CropRows, KeepsListedRecordsInFileOrder) {
  auto rows = [](const char* list) {
    return [list](const char* in, const char* out) { return CropCSVFileToSpecificRows(in, out, list); };
  };
  CheckGolden(rows("2,4-5"), {{"r1\nr2\nr3\nr4\nr5\nr6\n", "r2\nr4\nr5\n"}});
  CheckGolden(rows("1,3"), {{"\"a\nb\"\nr2\nr3", "\"a\nb\"\nr3"}});
  CheckGolden(rows("5"), {{"r1\n", ""}});
  CheckGolden(rows("2-3"), {{"a\n\nc\n", "\nc\n"}});
  CheckGolden(rows("3-2, 2"), {{"a\nb\nc\n", "b\nc\n"}});
  CheckGolden(rows("2"), {{"a\r\nb\r\n", "b\r\n"}});
}

TEST(CropColumns, KeepsListedFieldsOfEveryRecord) {
  auto cols = [](const char* list) {
    return [list](const char* in, const char* out) { return CropCSVFileToSpecificColumns(in, out, list); };
  };
  CheckGolden(cols("1,3"), {
                               {"a,b,c,d\n1,2,3,4\n", "a,c\n1,3\n"},
                               {"a,b\nx\n", "a\nx\n"},
                               {"\"a,1\",b,\"c\nd\"\n", "\"a,1\",\"c\nd\"\n"},
                               {"a,b,c\n\n", "a,c\n\n"},
                               {"a,b,c\r\nd,e,f", "a,c\r\nd,f"},
                           });
  CheckGolden(cols("3"), {{"a,b\nx,y,z\n", "\nz\n"}});
  CheckGolden(cols("2"), {{",x,\n", "x\n"}});
  // A CR that would come to stand before the line break is kept in quotes.
  CheckGolden(cols("1"), {{"a\r,b\n", "\"a\r\"\n"}, {"x\"\"y\r,b\n", "\"x\"\"\"\"y\r\"\n"}, {"a\r,b", "a\r"}});
  CheckGolden(cols("1,3"), {{"a\r,b,c\n", "a\r,c\n"}});
}

TEST(FixedLength, PadsListedColumnsInsideQuotesAndNeverCuts) {
  auto fixed = [](int32_t length, const char* pad, int32_t left, const char* cols) {
    return [=](const char* in, const char* out) {
      return PadCSVFileForFixedLengthFields(in, out, length, pad, left, cols);
    };
  };
  CheckGolden(fixed(4, "_", 0, ""), {
                                        {"a,\"bc\",defgh\n", "a___,\"bc__\",defgh\n"},
                                        {",\n", "____,____\n"},
                                        {"\n", "\n"},
                                        {"\"a\"\"b\"\n", "\"a\"\"b_\"\n"},
                                        {"\"a\nb\"\n", "\"a\nb_\"\n"},
                                        {"\xC3\xA9\xE2\x82\xAC", "\xC3\xA9\xE2\x82\xAC__"},
                                    });
  CheckGolden(fixed(4, "_", 1, " "), {{"a,\"bc\",defgh\n", "___a,\"__bc\",defgh\n"}, {",", "____,____"}});
  CheckGolden(fixed(4, "_", 0, "2"), {{"a,b,c\n", "a,b___,c\n"}});
  CheckGolden(fixed(3, "0", 7, "1"), {{"ab\r\n", "0ab\r\n"}});
}

TEST(RemoveQuotedControls, RemovesControlsInsideQuotesOnly) {
  CheckGolden(RemoveControlCharactersFromFileInQuotesOnly,
              {
                  {"\"a\nb\",c\n", "\"ab\",c\n"},
                  {"\"a\tb\r\nc\"\r\n", "\"abc\"\r\n"},
                  {"a\tb,\"x\"\n", "a\tb,\"x\"\n"},
                  {"\"\xC3\xA9\x01\x7F\"", "\"\xC3\xA9\""},
                  {std::string("\"a\0b\"", 5), "\"ab\""},
              });
}

TEST(Trim, RemovesSpacesAtBothEndsOfValues) {
  CheckGolden(TrimCSVFile, {
                               {" a ,  \"  b  \" , c  \n", "a,\"b\",c\n"},
                               {"\ta\t,b\n", "\ta\t,b\n"},
                               {"\"   \"\n", "\"\"\n"},
                               {"a b , c d\n", "a b,c d\n"},
                               {"\" \"\"x\"\" \"\n", "\"\"\"x\"\"\"\n"},
                               {" a \r\n", "a\r\n"},
                               {"a,b  ", "a,b"},
                               {"   \n", "\n"},
                               {"a \r \n", "a \r \n"},
                               {"x, a\r ,y\n", "x,a\r,y\n"},
                           });
}

TEST(DeleteEmptyTextLines, DropsBlankLinesAndIgnoresQuotes) {
  CheckGolden(DeleteEmptyLinesFromTextFile, {
                                                {"a\n\n  \n\t\nb\n", "a\nb\n"},
                                                {"a\r\n\r\n \r\nb\r\n", "a\r\nb\r\n"},
                                                {"\"x\n\ny\"\n", "\"x\ny\"\n"},
                                                {"a\n   ", "a\n"},
                                                {"a\n\nb", "a\nb"},
                                                {"\n\na", "a"},
                                                {"", ""},
                                            });
}

}  // namespace
