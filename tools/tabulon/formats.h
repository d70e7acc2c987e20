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
};

// A name ("csv", "xlsx", ...) or a number ("6", "-4143").
std::optional<Format> FindFormat(const std::string& text);
// "csv (6), xlsx (51), ..." for the usage text.
std::string FormatNames();

}  // namespace tabulon::cli
