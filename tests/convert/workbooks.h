// Workbooks the conversion tests work on, written by a real office once per
// run, and the one control the tests share (its office stays warm).
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "support/office_wrappers.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon::testing {

struct Fixtures {
  std::filesystem::path dir;
  // North (name,qty / café,3 / "a,b",4), South (x,y / 1,2), Totals (total / 7)
  std::string three_sheets;
  // Data (v / 1), 7 (seven / 7), Blank (nothing)
  std::string named_seven;
  // one sheet: data only at A2:B4 ("top","right" / "mid","middle" / "bottom","last")
  std::string leading_rows;
  // one sheet: A1 1, B1 2, C1 =SUM(A1:B1)
  std::string formulas;
  // a semicolon-separated text file: a;b / 1;2
  std::string semicolons;
  // an OpenDocument workbook opened with the password "pw": Locked (secret)
  std::string protected_book;
  // one sheet, a label in A and a number in B with its own look: a date
  // (2024-01-15 as d-mmm-yy), a time (14:30), a date and time, currency
  // (1234.5 and -5), percent (25%), fixed decimals (3.14159 as 0.00), a
  // plain number (42), a date look on text, an empty date cell, and a
  // logical TRUE
  std::string typed_cells;
};

// Writes the fixtures (once) and gives the shared control, reset to the
// defaults of a new instance but for its warm office.
const Fixtures& GetFixtures();
TabulonCtrl& SharedControl();
OfficeSpy& SharedSpy();
void ResetSharedControl();
// A fresh empty folder for one test's outputs.
std::filesystem::path OutputFolder(const std::string& name);
std::string ReadFile(const std::filesystem::path& path);

}  // namespace tabulon::testing
