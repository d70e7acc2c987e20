#include "office/uno/excel_search.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace tabulon::office::uno {
namespace {

TEST(ExcelPatternToRegex, KeepsTextLiteralAndTranslatesTheWildcards) {
  EXPECT_EQ(ExcelPatternToRegex("a.b(c)", false), "a\\.b\\(c\\)");
  EXPECT_EQ(ExcelPatternToRegex("a*b?", false), "a[\\s\\S]*b[\\s\\S]");
  EXPECT_EQ(ExcelPatternToRegex("~*~?~~x", true), "\\A\\*\\?\\~x\\z");
  EXPECT_EQ(ExcelPatternToRegex("~a", false), "\\~a");  // "~" escapes only * ? ~
  EXPECT_EQ(ExcelPatternToRegex("é$", false), "é\\$");
}

TEST(LiteralRegexReplacement, EscapesWhatTheReplaceWouldRead) {
  EXPECT_EQ(LiteralRegexReplacement("a&b$1\\n"), "a\\&b\\$1\\\\n");
}

struct ReplaceCase {
  const char* text;
  const char* what;
  const char* with;
  bool whole;
  bool match_case;
  std::optional<std::string> expected;
};

TEST(ReplaceExcelPattern, MatchesAsTheSpreadsheetsReplace) {
  const ReplaceCase cases[] = {
      {"=SUM(A1:A2)", "sum", "MAX", false, false, "=MAX(A1:A2)"},
      {"=SUM(A1:A2)", "sum", "MAX", false, true, std::nullopt},
      {"=SUM(A1:A2)", "SUM", "MAX", true, false, std::nullopt},  // whole: the text is longer
      {"=A1*2", "=A1~*2", "=B1*3", true, false, "=B1*3"},
      {"=A1*2", "=A1*", "=C1", true, false, "=C1"},
      {"x(1)y(2)z", "(*)", "[]", false, false, "x[]z"},  // "*" takes as much as it can
      {"banana", "an", "AN", false, false, "bANANa"},
      {"banana", "a?a", "_", false, false, "b_na"},
      {"abc", "", "x", false, false, std::nullopt},
      {"Ärger", "ä", "a", false, false, std::nullopt},  // beyond ASCII, case counts
      {"Ärger", "Ä", "A", false, false, "Arger"},
  };
  for (const ReplaceCase& c : cases) {
    EXPECT_EQ(ReplaceExcelPattern(c.text, c.what, c.with, c.whole, c.match_case), c.expected)
        << c.text << " / " << c.what;
  }
}

}  // namespace
}  // namespace tabulon::office::uno
