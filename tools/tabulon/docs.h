// The manual page and the bash completion of the command line, written
// from the same command table the parser uses, so that neither can fall
// behind a command or an option.
#pragma once

#include <CLI/CLI.hpp>
#include <iosfwd>
#include <string>

namespace tabulon::cli {

// `kind` "man" (roff, section 1) or "bash" (a completion script); returns
// the exit status.
int WriteDocs(CLI::App& app, const std::string& kind, std::ostream& out);

}  // namespace tabulon::cli
