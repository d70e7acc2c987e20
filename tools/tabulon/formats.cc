#include "formats.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace tabulon::cli {

namespace {

constexpr Format kFormats[] = {
    {"csv", 6, "csv"},         {"csv-utf8", 62, "csv"},  {"csv-windows", 23, "csv"}, {"csv-msdos", 24, "csv"},
    {"csv-mac", 22, "csv"},    {"txt", 20, "txt"},        {"tsv", 20, "txt"},         {"unicode", 42, "txt"},
    {"prn", 36, "prn"},        {"xlsx", 51, "xlsx"},      {"xlsm", 52, "xlsm"},       {"xltx", 54, "xltx"},
    {"xls", 56, "xls"},        {"xlt", 17, "xlt"},        {"ods", 60, "ods"},         {"html", 44, "html"},
    {"xml", 46, "xml"},        {"pdf", 57, "pdf"},        {"slk", 2, "slk"},          {"dif", 9, "dif"},
    {"dbf", 11, "dbf"},
};

// Outputs named from a bare number get the extension of its first name.
const char* ExtensionOf(int32_t number) {
  for (const Format& f : kFormats) {
    if (f.number == number) return f.extension;
  }
  if (number == -4143) return "xls";
  return "out";
}

}  // namespace

std::optional<Format> FindFormat(const std::string& text) {
  std::string lower = text;
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  for (const Format& f : kFormats) {
    if (lower == f.name) return f;
  }
  if (text.empty()) return std::nullopt;
  char* end = nullptr;
  const long number = std::strtol(text.c_str(), &end, 10);
  if (*end != '\0') return std::nullopt;
  return Format{"", static_cast<int32_t>(number), ExtensionOf(static_cast<int32_t>(number))};
}

std::string FormatNames() {
  std::string out;
  for (const Format& f : kFormats) {
    if (!out.empty()) out += ", ";
    out += std::string(f.name) + " (" + std::to_string(f.number) + ")";
  }
  return out + ", or any XlFileFormat number";
}

}  // namespace tabulon::cli
