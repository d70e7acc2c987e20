#include "office/uno/file_formats.h"

#include <cstring>

namespace tabulon::office::uno {
namespace {

constexpr const char* kXls = "MS Excel 97";
constexpr const char* kText = "Text - txt - csv (StarCalc)";
constexpr TextLayout kNo = TextLayout::kNone;
constexpr TextLayout kDelim = TextLayout::kDelimited;
constexpr Charset kU8 = Charset::kUtf8;
constexpr LineEnd kCrLf = LineEnd::kCrLf;

// clang-format off
constexpr FileFormat kFormats[] = {
  // Excel binary workbooks (every number Excel maps to its binary writer)
  {-4143, kXls, "xls", kNo, 0, kU8, kCrLf, true},
  {56, kXls, "xls", kNo, 0, kU8, kCrLf, true},
  {43, kXls, "xls", kNo, 0, kU8, kCrLf, true},
  {39, kXls, "xls", kNo, 0, kU8, kCrLf, true},
  {16, kXls, "xls", kNo, 0, kU8, kCrLf, true},
  {27, kXls, "xls", kNo, 0, kU8, kCrLf, true},
  {29, kXls, "xls", kNo, 0, kU8, kCrLf, true},
  {33, kXls, "xls", kNo, 0, kU8, kCrLf, true},
  {35, kXls, "xls", kNo, 0, kU8, kCrLf, true},
  {17, "MS Excel 97 Vorlage/Template", "xlt", kNo, 0, kU8, kCrLf, true},
  // Open XML and OpenDocument
  {51, "Calc MS Excel 2007 XML", "xlsx", kNo, 0, kU8, kCrLf, false},
  {52, "Calc MS Excel 2007 VBA XML", "xlsm", kNo, 0, kU8, kCrLf, false},
  {53, "Calc MS Excel 2007 XML Template", "xltm", kNo, 0, kU8, kCrLf, false},
  {54, "Calc MS Excel 2007 XML Template", "xltx", kNo, 0, kU8, kCrLf, false},
  {61, "Calc Office Open XML", "xlsx", kNo, 0, kU8, kCrLf, false},
  {60, "calc8", "ods", kNo, 0, kU8, kCrLf, true},
  // CSV
  {6, kText, "csv", kDelim, ',', kU8, kCrLf, false},
  {22, kText, "csv", kDelim, ',', Charset::kMacRoman, LineEnd::kCr, false},
  {23, kText, "csv", kDelim, ',', Charset::kWindows1252, kCrLf, false},
  {24, kText, "csv", kDelim, ',', Charset::kCp437, kCrLf, false},
  {62, kText, "csv", kDelim, ',', Charset::kUtf8Bom, kCrLf, false},
  // tab-delimited text
  {20, kText, "txt", kDelim, '\t', kU8, kCrLf, false},
  {21, kText, "txt", kDelim, '\t', Charset::kCp437, kCrLf, false},
  {19, kText, "txt", kDelim, '\t', Charset::kMacRoman, LineEnd::kCr, false},
  {-4158, kText, "txt", kDelim, '\t', kU8, kCrLf, false},
  {42, kText, "txt", kDelim, '\t', Charset::kUtf16LeBom, kCrLf, false},
  // printer text
  {36, kText, "prn", TextLayout::kPrinter, ' ', kU8, kCrLf, false},
  // other exports
  {44, "HTML (StarCalc)", "htm", kNo, 0, kU8, kCrLf, false},
  {46, "MS Excel 2003 XML", "xml", kNo, 0, kU8, kCrLf, false},
  {2, "SYLK", "slk", kNo, 0, kU8, kCrLf, false},
  {9, "DIF", "dif", kNo, 0, kU8, kCrLf, false},
  {7, "dBase", "dbf", kNo, 0, kU8, kCrLf, false},
  {8, "dBase", "dbf", kNo, 0, kU8, kCrLf, false},
  {11, "dBase", "dbf", kNo, 0, kU8, kCrLf, false},
  {57, "calc_pdf_Export", "pdf", kNo, 0, kU8, kCrLf, false},
  // Numbers Excel knows that nothing here writes: binary workbook (50),
  // add-ins (18, 55), web archive (45), Lotus, Quattro and Works formats.
  {50, nullptr, "xlsb", kNo, 0, kU8, kCrLf, false},
  {18, nullptr, "xla", kNo, 0, kU8, kCrLf, false},
  {55, nullptr, "xlam", kNo, 0, kU8, kCrLf, false},
  {45, nullptr, "mht", kNo, 0, kU8, kCrLf, false},
  {4, nullptr, "wks", kNo, 0, kU8, kCrLf, false},
  {5, nullptr, "wk1", kNo, 0, kU8, kCrLf, false},
  {14, nullptr, "wj2", kNo, 0, kU8, kCrLf, false},
  {15, nullptr, "wk3", kNo, 0, kU8, kCrLf, false},
  {28, nullptr, "wks", kNo, 0, kU8, kCrLf, false},
  {30, nullptr, "wk1", kNo, 0, kU8, kCrLf, false},
  {31, nullptr, "wk1", kNo, 0, kU8, kCrLf, false},
  {32, nullptr, "wk3", kNo, 0, kU8, kCrLf, false},
  {34, nullptr, "wq1", kNo, 0, kU8, kCrLf, false},
  {38, nullptr, "wk4", kNo, 0, kU8, kCrLf, false},
  {40, nullptr, "wj3", kNo, 0, kU8, kCrLf, false},
  {41, nullptr, "wj3", kNo, 0, kU8, kCrLf, false},
};
// clang-format on

}  // namespace

std::span<const FileFormat> FileFormats() { return kFormats; }

const FileFormat* FindFileFormat(int32_t number) {
  for (const auto& f : kFormats)
    if (f.number == number) return &f;
  return nullptr;
}

int32_t FormatOfFilter(const char* filter) {
  // The first row of a filter is the number Excel reports for such a file.
  static constexpr struct {
    const char* filter;
    int32_t number;
  } kLoaded[] = {
      {"MS Excel 97", 56},
      {"MS Excel 97 Vorlage/Template", 17},
      {"Calc MS Excel 2007 XML", 51},
      {"Calc MS Excel 2007 VBA XML", 52},
      {"Calc MS Excel 2007 XML Template", 54},
      {"Calc Office Open XML", 61},
      {"calc8", 60},
      {"Text - txt - csv (StarCalc)", 6},
      {"HTML (StarCalc)", 44},
      {"MS Excel 2003 XML", 46},
      {"SYLK", 2},
      {"DIF", 9},
      {"dBase", 11},
  };
  for (const auto& l : kLoaded)
    if (std::strcmp(l.filter, filter) == 0) return l.number;
  return 0;
}

}  // namespace tabulon::office::uno
