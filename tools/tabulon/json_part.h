// What `convert --json-part` prints for the one file it converts, so that
// convert -j can join the files' results into the one JSON object that a
// conversion of all of them prints (convert_parallel.h).
#pragma once

#include <string>

namespace tabulon::cli {

// Printed last, a line each: the code of the file's conversion ("-" when it
// never got that far), then the JSON arrays of the files written, the sheets
// converted and the failures.
struct JsonPart {
  std::string code = "-";
  std::string files = "[]", sheets = "[]", failures = "[]";
};
std::string FormatJsonPart(const JsonPart& part);
// Splits a file's standard output into what it printed first and its part;
// false when no part ends it.
bool SplitJsonPart(const std::string& out, std::string& before, JsonPart& part);

// "[a,b]" joined with "[c]" as "[a,b,c]" in `all`.
void AppendJsonArray(std::string& all, const std::string& array);

}  // namespace tabulon::cli
