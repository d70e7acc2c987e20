// Turning a sheet list into the workbook's own sheet names.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "control/control_state.h"

namespace tabulon {

// Writes the names of the listed sheets of `path` into `names`, from its
// first element, in visiting order; the array is the caller's and is never
// resized: a full array ends the walk. `input_passwords` chooses the input
// password pair to open the workbook (false: the output pair, for a caller
// that reads a workbook it is about to write). Returns the number of names,
// or -202, -11, -3, -4. Name lists are normalised in `list` itself.
int32_t ResolveSheetNames(TabulonCtrl::State& state, const std::string& path, std::string& list,
                          std::vector<std::string>& names, bool input_passwords);

}  // namespace tabulon
