// Joining files: the in-place append that the conversion uses to merge its
// per-sheet pieces, and the joins of many CSV files into one.
#include <gtest/gtest.h>

#include "ravelin/ravelin.h"
#include "support.h"

namespace {

using ravelin_test::ReadFile;
using ravelin_test::TempDir;
using ravelin_test::Utf16;
using ravelin_test::WriteFile;

const std::string kBom8 = "\xEF\xBB\xBF";

class Append : public testing::Test {
 protected:
  int32_t Run(const std::string& first, const std::string& second, int32_t page_break = 0, int32_t path = 0) {
    WriteFile(dir_ / "first.txt", first);
    WriteFile(dir_ / "second.txt", second);
    return ConcatenateTwoTextFilesEx(File1().c_str(), File2().c_str(), page_break, path);
  }
  std::string File1() const { return dir_ / "first.txt"; }
  std::string File2() const { return dir_ / "second.txt"; }
  std::string Result() const { return ReadFile(File1()); }
  TempDir dir_;
};

TEST_F(Append, AppendsTheSecondFileToTheFirstWithNothingBetween) {
  struct Case {
    std::string first, second, joined;
  };
  const std::vector<Case> cases = {
      {"a,b\n", "c,d\n", "a,b\nc,d\n"},
      {"no break", "next", "no breaknext"},
      {"", "x", "x"},
      {"x", "", "x"},
      {kBom8 + "a\n", kBom8 + "b\n", kBom8 + "a\nb\n"},
      {"a\n", kBom8 + "b\n", "a\nb\n"},
      {kBom8 + "a\n", "b\n", kBom8 + "a\nb\n"},
      {"", kBom8 + "b", kBom8 + "b"},
      {Utf16("a\n", false), Utf16("b\n", false), Utf16("a\nb\n", false)},
      {Utf16("a", true), Utf16("\xC3\xA9", true), Utf16("a\xC3\xA9", true)},
      {"", Utf16("b", false), Utf16("b", false)},
  };
  for (const Case& c : cases) {
    ASSERT_EQ(Run(c.first, c.second), RAVELIN_OK) << testing::PrintToString(c.first);
    EXPECT_EQ(Result(), c.joined) << testing::PrintToString(c.first);
    EXPECT_EQ(ReadFile(File2()), c.second);
  }
}

TEST_F(Append, RefusesTextsOfDifferentEncodingsAndChangesNothing) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {Utf16("a", false), "b"},
      {Utf16("a", false), Utf16("b", true)},
      {"a", Utf16("b", false)},
      {kBom8 + "a", Utf16("b", true)},
      {Utf16("a", false) + "x", Utf16("b", false)},
  };
  for (const auto& [first, second] : cases) {
    EXPECT_EQ(Run(first, second), RAVELIN_E_ENCODING) << testing::PrintToString(first);
    EXPECT_EQ(Result(), first);
  }
}

TEST_F(Append, JoinsPiecesOneAfterAnotherAndAFileWithItself) {
  WriteFile(dir_ / "p1.csv", "s1\n");
  WriteFile(dir_ / "p2.csv", "s2\n");
  WriteFile(dir_ / "p3.csv", "s3\n");
  for (const char* piece : {"p2.csv", "p3.csv"}) {
    ASSERT_EQ(ConcatenateTwoTextFiles((dir_ / "p1.csv").c_str(), (dir_ / piece).c_str()), RAVELIN_OK);
  }
  EXPECT_EQ(ReadFile(dir_ / "p1.csv"), "s1\ns2\ns3\n");
  ASSERT_EQ(ConcatenateTwoTextFiles((dir_ / "p3.csv").c_str(), (dir_ / "p3.csv").c_str()), RAVELIN_OK);
  EXPECT_EQ(ReadFile(dir_ / "p3.csv"), "s3\ns3\n");
}

TEST_F(Append, ReportsMissingFiles) {
  WriteFile(File1(), "a");
  EXPECT_EQ(ConcatenateTwoTextFiles(File1().c_str(), (dir_ / "none").c_str()), RAVELIN_E_INPUT_MISSING);
  EXPECT_EQ(ConcatenateTwoTextFiles((dir_ / "none").c_str(), File1().c_str()), RAVELIN_E_INPUT_MISSING);
  EXPECT_EQ(ConcatenateTwoTextFiles(nullptr, File1().c_str()), RAVELIN_E_ARGUMENT);
  EXPECT_EQ(ConcatenateTwoTextFilesEx(File1().c_str(), "", 1, 1), RAVELIN_E_ARGUMENT);
  EXPECT_FALSE(std::filesystem::exists(dir_ / "none"));
}

TEST_F(Append, PlacesPageBreakAndPathLineBeforeTheAppendedText) {
  const std::string path = File2();
  struct Case {
    std::string first, second;
    int32_t page_break, place_path;
    std::string joined;
  };
  const std::vector<Case> cases = {
      {"a\n", "b", 1, 0, "a\n\fb"},
      {"a", "b", 1, 0, "a\fb"},
      {"a", "b\r\nc", 0, 1, "a\r\n" + path + "\r\nb\r\nc"},
      {"a\n", "b\n", -1, 2, "a\n\f" + path + "\nb\n"},
      {"a\n", "", 0, 1, "a\n" + path + "\n"},
      {"", kBom8 + "b", 1, 1, kBom8 + "\f" + path + "\nb"},
      {"a\n", "b\n", 0, 0, "a\nb\n"},
  };
  for (const Case& c : cases) {
    ASSERT_EQ(Run(c.first, c.second, c.page_break, c.place_path), RAVELIN_OK);
    EXPECT_EQ(Result(), c.joined) << testing::PrintToString(c.joined);
  }
  ASSERT_EQ(Run(Utf16("a", false), Utf16("b\r\n", false), 1, 1), RAVELIN_OK);
  EXPECT_EQ(Result(), Utf16("a\r\n\f" + path + "\r\nb\r\n", false));
}

class Join : public testing::Test {
 protected:
  void Files(const std::vector<std::pair<std::string, std::string>>& files) {
    for (const auto& [name, text] : files) WriteFile(dir_ / name, text);
  }
  std::string List(const std::vector<std::string>& items) const {
    std::string list;
    for (const std::string& item : items) {
      if (!list.empty()) list += '|';
      list += dir_ / item;
    }
    return list;
  }
  std::string Out() const { return dir_ / "out.csv"; }
  TempDir dir_;
};

TEST_F(Join, ConcatenateAllJoinsWholeFilesAndKeepsRecordsApart) {
  Files({{"b.csv", "h\r\n2\r\n3"}, {"a.csv", "h\n1\n"}, {"c.csv", ""}, {"d.csv", "h\n4"}});
  ASSERT_EQ(ConcatenateAll(List({"b.csv", "c.csv", "a.csv", "d.csv"}).c_str(), Out().c_str()), RAVELIN_OK);
  EXPECT_EQ(ReadFile(Out()), "h\r\n2\r\n3\r\nh\n1\nh\n4");
  // A pattern stands for its files in path order and never for the output.
  ASSERT_EQ(ConcatenateAll((dir_ / "*.csv").c_str(), Out().c_str()), RAVELIN_OK);
  EXPECT_EQ(ReadFile(Out()), "h\n1\nh\r\n2\r\n3\r\nh\n4");
  ASSERT_EQ(ConcatenateAll((List({"a.csv"}) + "||" + (dir_ / "[d].csv")).c_str(), Out().c_str()), RAVELIN_OK);
  EXPECT_EQ(ReadFile(Out()), "h\n1\nh\n4");
}

TEST_F(Join, ReportsEmptyListsPatternsWithoutMatchesAndMissingFiles) {
  Files({{"a.csv", "x\n"}});
  EXPECT_EQ(ConcatenateAll("", Out().c_str()), RAVELIN_E_ARGUMENT);
  EXPECT_EQ(ConcatenateAll("||", Out().c_str()), RAVELIN_E_ARGUMENT);
  EXPECT_EQ(ConcatenateAll(nullptr, Out().c_str()), RAVELIN_E_ARGUMENT);
  EXPECT_EQ(ConcatenateAll((dir_ / "*.txt").c_str(), Out().c_str()), RAVELIN_E_INPUT_MISSING);
  EXPECT_EQ(ConcatenateAll(List({"a.csv", "b.csv"}).c_str(), Out().c_str()), RAVELIN_E_INPUT_MISSING);
  EXPECT_FALSE(std::filesystem::exists(Out()));
}

TEST_F(Join, KeepsTheFirstByteOrderMarkAndRefusesMixedEncodings) {
  Files({{"a.csv", ""}, {"b.csv", kBom8 + "1\n"}, {"c.csv", kBom8 + "2\n"}, {"d.csv", "3\n"}});
  ASSERT_EQ(ConcatenateAll(List({"a.csv", "b.csv", "c.csv", "d.csv"}).c_str(), Out().c_str()), RAVELIN_OK);
  EXPECT_EQ(ReadFile(Out()), kBom8 + "1\n2\n3\n");
  Files({{"u1.csv", Utf16("h\n\xC3\xA9\n", true)}, {"u2.csv", Utf16("h\n2", true)}, {"u3.csv", Utf16("h\n3", true)}});
  ASSERT_EQ(ConcatenateSpreadsheet(List({"u1.csv", "u2.csv", "u3.csv"}).c_str(), Out().c_str()), RAVELIN_OK);
  EXPECT_EQ(ReadFile(Out()), Utf16("h\n\xC3\xA9\n2\n3", true));
  EXPECT_EQ(ConcatenateAll(List({"u1.csv", "d.csv"}).c_str(), Out().c_str()), RAVELIN_E_ENCODING);
}

TEST_F(Join, SkipFirstLineDropsTheFirstRecordOfLaterFiles) {
  Files({{"e.csv", ""}, {"a.csv", "\"h\n1\",h2\nx\n"}, {"b.csv", "\"h\n1\",h2\r\ny\n"}, {"c.csv", "only header\n"}});
  ASSERT_EQ(ConcatenateAllSkipFirstLine(List({"e.csv", "a.csv", "b.csv", "c.csv"}).c_str(), Out().c_str()),
            RAVELIN_OK);
  EXPECT_EQ(ReadFile(Out()), "\"h\n1\",h2\nx\ny\n");
}

TEST_F(Join, SpreadsheetDropsOnlyRepeatedHeaders) {
  Files({{"a.csv", "id,name\n1,x\n"}, {"b.csv", "id,name\r\n2,y\r\n"}, {"c.csv", "3,z\n"}, {"d.csv", "id,name"}});
  ASSERT_EQ(ConcatenateSpreadsheet(List({"a.csv", "b.csv", "c.csv", "d.csv"}).c_str(), Out().c_str()), RAVELIN_OK);
  EXPECT_EQ(ReadFile(Out()), "id,name\n1,x\n2,y\r\n3,z\n");
}

TEST_F(Join, AddColumnNamesTheFileOfEveryRecord) {
  Files({{"a.csv", "id\n1\n\n"}, {"b,2.csv", "id\n\"2\n2\"\n3"}, {"c.csv", "4\n"}});
  const std::string list = List({"a.csv", "b,2.csv", "c.csv"});
  ASSERT_EQ(ConcatenateSpreadsheetAddColumnWithOriginalFileName(list.c_str(), Out().c_str(), "source file"),
            RAVELIN_OK);
  EXPECT_EQ(ReadFile(Out()), "id,source file\n1,a.csv\n\n\"2\n2\",\"b,2.csv\"\n3,\"b,2.csv\"\n4,c.csv\n");
  ASSERT_EQ(ConcatenateSpreadsheetAddColumnWithOriginalFileName(list.c_str(), Out().c_str(), nullptr), RAVELIN_OK);
  EXPECT_EQ(ReadFile(Out()),
            "id,a.csv\n1,a.csv\n\nid,\"b,2.csv\"\n\"2\n2\",\"b,2.csv\"\n3,\"b,2.csv\"\n4,c.csv\n");
}

}  // namespace
