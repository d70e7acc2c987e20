// Format names the command line accepts for XlFileFormat numbers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tabulon::cli {

struct Format {
  const char* name;
  int32_t number;
  const char* extension;  // of outputs named by the command line
  bool text;              // delimited or fixed-width text, fit for standard output
};

// A name ("csv", "xlsx", ...) or an XlFileFormat number ("6", "-4143");
// nullopt for anything else, a number that is no format included.
std::optional<Format> FindFormat(const std::string& text);
// The format a target's extension (".xlsx", "CSV") stands for, as the
// spreadsheet programs save it; nullopt for an extension that names none.
std::optional<Format> FormatOfExtension(const std::string& extension);
// "csv (6), xlsx (51), ..." for the usage text.
std::string FormatNames();

}  // namespace tabulon::cli
