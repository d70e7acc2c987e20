// What the sheet-data copy tests share: workbooks written once by a real
// office, that office kept to read results back (independently of the
// controls under test), and one warm control (OptimizeForSpeed) whose
// applications every test may reuse.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "office/office.h"
#include "support/books.h"
#include "support/office_wrappers.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon::testing {

struct CopyFixtures {
  std::filesystem::path dir;
  // North (name,qty / pens,3 / ink,4), South (x,y / 1,2), Third (third),
  // "3" (named three), Offset (b2,c2 / b3,c3 at B2:C3), Formulas (1, 2,
  // =SUM(A1:B1), =A1*10 in A1:D1).
  std::string source;
  // A, B, C, "3": four empty sheets; Used: A1:B10 filled (r1..r10, 1..10).
  std::string target;
};

const CopyFixtures& Fixtures();
// The office that wrote the fixtures; it reads results back.
office::Application& Reader();
std::vector<SheetCells> Read(const std::string& path, bool formulas = false);
// The sheet of that name in what Read gives; an empty sheet when missing.
SheetCells SheetOf(const std::vector<SheetCells>& book, const std::string& name);

// The warm control and the spy on its office.
TabulonCtrl& WarmControl();
OfficeSpy& WarmSpy();
// Properties back to a new instance's (OptimizeForSpeed stays on), the
// spy's records emptied.
void ResetWarmControl();

// A control of its own without OptimizeForSpeed, on a spy of its own.
struct ColdControl {
  ColdControl();
  std::shared_ptr<SpyFactory> factory;
  std::unique_ptr<TabulonCtrl> control;
  OfficeSpy& spy() { return factory->spy(); }
};

// A fresh empty folder for one test's files.
std::filesystem::path TestFolder(const std::string& name);
// A copy of a fixture in `folder`, under `name`.
std::string CopyOf(const std::string& fixture, const std::filesystem::path& folder, const std::string& name);
std::string ReadBytes(const std::string& path);

// The arguments of one call, and what it gave back.
struct CopyCall {
  std::string original, sheet_original, from, target, sheet_target, to;
  bool formulas = false;
  bool copy_name = false;
  bool add_sheets = false;
};
struct CopyOutcome {
  int32_t code = 0;
  std::string error;
  std::vector<std::pair<int32_t, std::string>> events;
  CopyCall after;  // the arguments as the method left them
};
CopyOutcome RunCopy(TabulonCtrl& control, CopyCall call);
CopyOutcome RunCopyEx(TabulonCtrl& control, CopyCall call);

}  // namespace tabulon::testing
