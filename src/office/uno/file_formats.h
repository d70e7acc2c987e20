// The one table from Excel's XlFileFormat numbers to what this backend writes
// for them: the office's export filter and its options, and the finishing
// that makes a text output match what Excel writes for that number. Plain
// C++; no UNO.
#pragma once

#include <cstdint>
#include <span>

namespace tabulon::office::uno {

enum class TextLayout {
  kNone,       // not a text format: the filter's file is the result
  kDelimited,  // delimited fields
  kPrinter,    // space-padded columns (.prn)
};

enum class Charset {
  kUtf8,        // the system's character set here
  kWindows1252,
  kCp437,       // MS-DOS
  kMacRoman,
  kUtf8Bom,
  kUtf16LeBom,
};

enum class LineEnd { kCrLf, kCr };

struct FileFormat {
  int32_t number;
  const char* filter;     // the office's filter name; nullptr: refused here
  const char* extension;  // what Excel would give the file, for messages and tests
  TextLayout layout;
  char delimiter;         // for kDelimited: ',' or '\t'
  Charset charset;
  LineEnd line_end;
  bool encrypts;          // a Password on SaveAs really protects the file
};

// Every number the table knows, refused ones included.
std::span<const FileFormat> FileFormats();
// The row for a number, or nullptr when the number is unknown. A row with a
// null filter is a number Excel knows that nothing here can write.
const FileFormat* FindFileFormat(int32_t number);
// The format number for an office filter name (the format a loaded workbook
// keeps when saved without a FileFormat), or 0 when unknown.
int32_t FormatOfFilter(const char* filter);

}  // namespace tabulon::office::uno
