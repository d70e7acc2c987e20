// Finishing of text outputs so that they match what Excel writes for a
// format number: record ends, character set, byte-order mark and the
// space-padded columns of .prn. Plain C++; no UNO.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "office/office.h"
#include "office/uno/file_formats.h"

namespace tabulon::office::uno {

// Reads `source`: UTF-8 delimited text (fields separated by `delimiter`,
// quoted with '"' where needed, records ending in LF or CR LF outside
// quotes) and writes `target` in the format's layout, character set and line
// ends. For kPrinter the source is tab-delimited without quoting, and each
// column is padded to the larger of its widest field and `min_widths[c]`
// (numbers right-aligned, text left-aligned). Characters the target
// character set lacks become "?", as Excel writes them. Returns false with a
// reason when a file cannot be read or written. The files are read and
// written `buffer_bytes` at a time.
bool FinishText(const std::string& source, const std::string& target, const FileFormat& format,
                const std::vector<int>& min_widths, std::string* error,
                size_t buffer_bytes = size_t{1} << 20);

// UTF-8 delimited text of a block as Excel writes it: fields quoted only when
// they hold the delimiter, a quote or a line break; records end in LF.
std::string DelimitedText(const Block& block, char delimiter, bool quote);

}  // namespace tabulon::office::uno
