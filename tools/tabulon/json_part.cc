#include "json_part.h"

#include <sstream>

namespace tabulon::cli {

std::string FormatJsonPart(const JsonPart& part) {
  return part.code + "\n" + part.files + "\n" + part.sheets + "\n" + part.failures + "\n";
}

bool SplitJsonPart(const std::string& out, std::string& before, JsonPart& part) {
  if (out.empty() || out.back() != '\n') return false;
  // The start of each of the last four lines, from the end.
  size_t start = out.size();
  for (int line = 0; line < 4; ++line) {
    if (start == 0) return false;
    const size_t newline = start >= 2 ? out.rfind('\n', start - 2) : std::string::npos;
    start = newline == std::string::npos ? 0 : newline + 1;
  }
  std::istringstream lines(out.substr(start));
  std::string code, arrays[3];
  std::getline(lines, code);
  for (std::string& array : arrays) {
    std::getline(lines, array);
    if (array.size() < 2 || array.front() != '[' || array.back() != ']') return false;
  }
  if (code != "-" && (code.empty() || code.find_first_not_of("-0123456789") != std::string::npos)) return false;
  before = out.substr(0, start);
  part.code = code;
  part.files = arrays[0];
  part.sheets = arrays[1];
  part.failures = arrays[2];
  return true;
}

void AppendJsonArray(std::string& all, const std::string& array) {
  if (array.size() <= 2) return;
  all = all.size() <= 2 ? array : all.substr(0, all.size() - 1) + "," + array.substr(1);
}

}  // namespace tabulon::cli
