// What the subcommand tests share: a scratch folder, a sheet read back as
// CSV through the conversion, and the check that argument lists are usage
// errors.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

#include "cli_run.h"

namespace tabulon::testing {

class CliTest : public ::testing::Test {
 protected:
  explicit CliTest(const std::string &prefix) : dir_(prefix) {}

  std::string Path(const std::string &name) const { return dir_ / name; }

  // A workbook as CSV text, through the conversion: one sheet by name, or
  // every sheet joined when `sheet` is empty.
  std::string Csv(const std::string &book, const std::string &sheet = "") const {
    const std::string sheets = sheet.empty() ? "" : "-s '\"" + sheet + "\"' ";
    const Result r = Tabulon("convert " + sheets + book + " " + Path("sheet.csv"));
    EXPECT_EQ(r.exit_code, 0) << r.err;
    return Read(Path("sheet.csv"));
  }

  Folder dir_;
};

// Each argument list is a usage error: exit status 2 and nothing on stdout.
inline void ExpectUsageErrors(std::initializer_list<const char *> cases) {
  for (const char *args : cases) {
    const Result r = Tabulon(args);
    EXPECT_EQ(r.exit_code, 2) << args;
    EXPECT_TRUE(r.out.empty()) << args;
  }
}

}  // namespace tabulon::testing
