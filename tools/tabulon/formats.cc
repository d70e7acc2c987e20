#include "formats.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>

namespace tabulon::cli {

namespace {

constexpr Format kFormats[] = {
    {"csv", 6, "csv", true},        {"csv-utf8", 62, "csv", true}, {"csv-windows", 23, "csv", true},
    {"csv-msdos", 24, "csv", true}, {"csv-mac", 22, "csv", true},  {"txt", 20, "txt", true},
    {"tsv", 20, "txt", true},       {"unicode", 42, "txt", true},  {"prn", 36, "prn", true},
    {"xlsx", 51, "xlsx", false},    {"xlsm", 52, "xlsm", false},   {"xltx", 54, "xltx", false},
    {"xls", 56, "xls", false},      {"xlt", 17, "xlt", false},     {"ods", 60, "ods", false},
    {"html", 44, "html", false},    {"xml", 46, "xml", false},     {"pdf", 57, "pdf", false},
    {"slk", 2, "slk", false},       {"dif", 9, "dif", false},      {"dbf", 11, "dbf", false},
};

// Every XlFileFormat value, with the extension of the outputs the command
// line names for it; whether the office can write it is the method's to say.
struct Number {
  int32_t number;
  const char* extension;
  bool text;
};
constexpr Number kNumbers[] = {
    {-4158, "txt", true}, {-4143, "xls", false}, {2, "slk", false},   {4, "wks", false},   {5, "wk1", false},
    {6, "csv", true},     {7, "dbf", false},     {8, "dbf", false},   {9, "dif", false},   {11, "dbf", false},
    {14, "wj2", false},   {15, "wk3", false},    {16, "xls", false},  {17, "xlt", false},  {18, "xla", false},
    {19, "txt", true},    {20, "txt", true},     {21, "txt", true},   {22, "csv", true},   {23, "csv", true},
    {24, "csv", true},    {27, "xls", false},    {28, "wks", false},  {29, "xls", false},  {30, "wk1", false},
    {31, "wk1", false},   {32, "wk3", false},    {33, "xls", false},  {34, "wq1", false},  {35, "xls", false},
    {36, "prn", true},    {38, "wk4", false},    {39, "xls", false},  {40, "wj3", false},  {41, "wj3", false},
    {42, "txt", true},    {43, "xls", false},    {44, "html", false}, {45, "mht", false},  {46, "xml", false},
    {50, "xlsb", false},  {51, "xlsx", false},   {52, "xlsm", false}, {53, "xltm", false}, {54, "xltx", false},
    {55, "xlam", false},  {56, "xls", false},    {57, "pdf", false},  {60, "ods", false},  {61, "xlsx", false},
    {62, "csv", true},
};

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

}  // namespace

std::optional<Format> FindFormat(const std::string& text) {
  const std::string lower = Lower(text);
  for (const Format& f : kFormats) {
    if (lower == f.name) return f;
  }
  if (text.empty() || text.size() > 6) return std::nullopt;
  char* end = nullptr;
  const long number = std::strtol(text.c_str(), &end, 10);
  if (*end != '\0' || number < INT32_MIN || number > INT32_MAX) return std::nullopt;
  for (const Number& n : kNumbers) {
    if (n.number == number) return Format{"", n.number, n.extension, n.text};
  }
  return std::nullopt;
}

std::optional<Format> FormatOfExtension(const std::string& extension) {
  std::string name = Lower(extension);
  if (!name.empty() && name[0] == '.') name.erase(0, 1);
  if (name == "htm") name = "html";
  if (name.rfind("csv", 0) == 0 && name != "csv") return std::nullopt;
  if (name == "unicode") return std::nullopt;
  for (const Format& f : kFormats) {
    if (name == f.name) return f;
  }
  return std::nullopt;
}

std::string FormatNames() {
  std::string out;
  for (const Format& f : kFormats) {
    if (!out.empty()) out += ", ";
    out += std::string(f.name) + " (" + std::to_string(f.number) + ")";
  }
  return out + ", or another XlFileFormat number";
}

}  // namespace tabulon::cli
