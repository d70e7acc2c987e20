// The spreadsheet's search text, as its Find and Replace read it: literal
// characters, "*" for any run of characters, "?" for one character, and "~"
// before "*", "?" or "~" for that character itself. Internal to the backend,
// which hands constants to the office's own replace as a regular expression
// and searches formulas, in their Excel-syntax text, here.
#pragma once

#include <optional>
#include <string>

namespace tabulon::office::uno {

// The pattern as an ICU regular expression (UTF-8). `whole`: it must match
// a cell's whole text.
std::string ExcelPatternToRegex(const std::string& what, bool whole);

// Replacement text for the office's regular-expression replace: its "&",
// "$" and "\" escaped, so the text lands as given.
std::string LiteralRegexReplacement(const std::string& replacement);

// `text` with the pattern replaced as the spreadsheet's Replace does it:
// `whole`, the whole text must match; otherwise every match, from the left,
// "*" taking as much as it can. Letters compare without regard to case
// unless `match_case` (ASCII letters only). nullopt when nothing matched.
std::optional<std::string> ReplaceExcelPattern(const std::string& text, const std::string& what,
                                               const std::string& replacement, bool whole, bool match_case);

}  // namespace tabulon::office::uno
