#include "office/uno/file_formats.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace tabulon::office::uno {
namespace {

TEST(FileFormats, EveryNumberAppearsOnce) {
  std::set<int32_t> seen;
  for (const auto& f : FileFormats()) EXPECT_TRUE(seen.insert(f.number).second) << f.number;
}

TEST(FileFormats, MapsNumbersToFiltersAndTextRules) {
  struct Row {
    int32_t number;
    const char* filter;
    TextLayout layout;
    char delimiter;
    Charset charset;
    LineEnd line_end;
  };
  const char* text = "Text - txt - csv (StarCalc)";
  const Row rows[] = {
      {-4143, "MS Excel 97", TextLayout::kNone, 0, Charset::kUtf8, LineEnd::kCrLf},
      {56, "MS Excel 97", TextLayout::kNone, 0, Charset::kUtf8, LineEnd::kCrLf},
      {17, "MS Excel 97 Vorlage/Template", TextLayout::kNone, 0, Charset::kUtf8, LineEnd::kCrLf},
      {51, "Calc MS Excel 2007 XML", TextLayout::kNone, 0, Charset::kUtf8, LineEnd::kCrLf},
      {52, "Calc MS Excel 2007 VBA XML", TextLayout::kNone, 0, Charset::kUtf8, LineEnd::kCrLf},
      {53, "Calc MS Excel 2007 XML Template", TextLayout::kNone, 0, Charset::kUtf8, LineEnd::kCrLf},
      {61, "Calc Office Open XML", TextLayout::kNone, 0, Charset::kUtf8, LineEnd::kCrLf},
      {60, "calc8", TextLayout::kNone, 0, Charset::kUtf8, LineEnd::kCrLf},
      {6, text, TextLayout::kDelimited, ',', Charset::kUtf8, LineEnd::kCrLf},
      {22, text, TextLayout::kDelimited, ',', Charset::kMacRoman, LineEnd::kCr},
      {23, text, TextLayout::kDelimited, ',', Charset::kWindows1252, LineEnd::kCrLf},
      {24, text, TextLayout::kDelimited, ',', Charset::kCp437, LineEnd::kCrLf},
      {62, text, TextLayout::kDelimited, ',', Charset::kUtf8Bom, LineEnd::kCrLf},
      {20, text, TextLayout::kDelimited, '\t', Charset::kUtf8, LineEnd::kCrLf},
      {21, text, TextLayout::kDelimited, '\t', Charset::kCp437, LineEnd::kCrLf},
      {19, text, TextLayout::kDelimited, '\t', Charset::kMacRoman, LineEnd::kCr},
      {-4158, text, TextLayout::kDelimited, '\t', Charset::kUtf8, LineEnd::kCrLf},
      {42, text, TextLayout::kDelimited, '\t', Charset::kUtf16LeBom, LineEnd::kCrLf},
      {36, text, TextLayout::kPrinter, ' ', Charset::kUtf8, LineEnd::kCrLf},
      {44, "HTML (StarCalc)", TextLayout::kNone, 0, Charset::kUtf8, LineEnd::kCrLf},
      {46, "MS Excel 2003 XML", TextLayout::kNone, 0, Charset::kUtf8, LineEnd::kCrLf},
      {2, "SYLK", TextLayout::kNone, 0, Charset::kUtf8, LineEnd::kCrLf},
      {9, "DIF", TextLayout::kNone, 0, Charset::kUtf8, LineEnd::kCrLf},
      {7, "dBase", TextLayout::kNone, 0, Charset::kUtf8, LineEnd::kCrLf},
      {57, "calc_pdf_Export", TextLayout::kNone, 0, Charset::kUtf8, LineEnd::kCrLf},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.number);
    const FileFormat* f = FindFileFormat(r.number);
    ASSERT_NE(f, nullptr);
    ASSERT_NE(f->filter, nullptr);
    EXPECT_EQ(std::string(f->filter), r.filter);
    EXPECT_EQ(f->layout, r.layout);
    if (r.layout == TextLayout::kDelimited) EXPECT_EQ(f->delimiter, r.delimiter);
    EXPECT_EQ(f->charset, r.charset);
    EXPECT_EQ(f->line_end, r.line_end);
  }
}

TEST(FileFormats, RefusesWhatNothingHereWrites) {
  for (int32_t n : {50, 18, 55, 5, 15, 38, 34}) {
    const FileFormat* f = FindFileFormat(n);
    ASSERT_NE(f, nullptr) << n;
    EXPECT_EQ(f->filter, nullptr) << n;
  }
  EXPECT_EQ(FindFileFormat(12345), nullptr);
}

TEST(FileFormats, OnlyFormatsTheOfficeEncryptsTakeAPassword) {
  for (const auto& f : FileFormats()) {
    const bool expected = f.filter != nullptr && (std::string(f.filter).rfind("MS Excel 97", 0) == 0 ||
                                                  std::string(f.filter) == "calc8");
    EXPECT_EQ(f.encrypts, expected) << f.number;
  }
}

TEST(FileFormats, KnowsTheFormatOfALoadedFilter) {
  EXPECT_EQ(FormatOfFilter("Calc MS Excel 2007 XML"), 51);
  EXPECT_EQ(FormatOfFilter("MS Excel 97"), 56);
  EXPECT_EQ(FormatOfFilter("calc8"), 60);
  EXPECT_EQ(FormatOfFilter("Text - txt - csv (StarCalc)"), 6);
  EXPECT_EQ(FormatOfFilter("something else"), 0);
}

}  // namespace
}  // namespace tabulon::office::uno
