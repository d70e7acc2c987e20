// The target workbook of the sheet-data copy methods: the checks of its path
// before any office starts, and the new workbook made when it is missing.
#pragma once

#include <cstdint>
#include <string>

#include "control/control_state.h"
#include "office/office.h"

namespace tabulon {

// -207 when the target path holds "*" (only the asterisk: "?" passes), then
// the target's folder made with its missing ancestors, or -208. Both store
// their text without the event.
int32_t CheckCopyTarget(TabulonCtrl::State& state, const std::string& target);

// A new workbook on `app` (Workbooks.Add), saved at once as `target` in the
// normal workbook format. If the file is then not there: -203 stored, no
// event. Otherwise, with alerts off, the workbook is cut down to its last
// worksheet and, when `sheet_name` is not empty, that sheet is named so (a
// name the office refuses is an office error); alerts go back to Verbose.
// These changes stay in the open, active workbook: only a later save takes
// them to the disk.
int32_t AddTargetWorkbook(TabulonCtrl::State& state, office::Application& app, const std::string& target,
                          const std::string& sheet_name);

}  // namespace tabulon
