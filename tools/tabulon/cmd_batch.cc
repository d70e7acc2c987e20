// tabulon batch: many calls on one warm office. Each line of the file (or of
// standard input) is one command line without the program's name, split into
// words as a shell would (blanks, '...' and "..." quoting, backslash
// escapes); blank lines and lines starting with "#" are skipped. Every line
// runs on the same control, with OptimizeForSpeed on, so the office starts
// once for the whole batch.
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "command.h"

namespace tabulon::cli {

namespace {

// The words of one line; nullopt when a quote is left open.
std::optional<std::vector<std::string>> SplitWords(const std::string& line) {
  std::vector<std::string> words;
  std::string word;
  bool in_word = false;
  char quote = 0;
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (quote != 0) {
      if (c == quote) {
        quote = 0;
      } else if (c == '\\' && quote == '"' && i + 1 < line.size()) {
        word += line[++i];
      } else {
        word += c;
      }
    } else if (c == '\'' || c == '"') {
      quote = c;
      in_word = true;
    } else if (c == '\\' && i + 1 < line.size()) {
      word += line[++i];
      in_word = true;
    } else if (c == ' ' || c == '\t' || c == '\r') {
      if (in_word) words.push_back(word);
      word.clear();
      in_word = false;
    } else {
      word += c;
      in_word = true;
    }
  }
  if (quote != 0) return std::nullopt;
  if (in_word) words.push_back(word);
  return words;
}

struct BatchOptions {
  std::string file = "-";
  bool stop_on_error = false;
};

int RunBatch(TabulonCtrl& control, const BatchOptions& o) {
  std::ifstream file;
  std::istream* in = &In();
  if (o.file != "-") {
    file.open(o.file);
    if (!file) {
      Err() << "tabulon: batch: cannot read " << o.file << "\n";
      return kExitUsage;
    }
    in = &file;
  }
  const bool warm_before = control.get_OptimizeForSpeed();
  if (!warm_before) control.put_OptimizeForSpeed(true);
  int status = kExitSuccess;
  int failed = 0;
  int run = 0;
  std::string line;
  for (int number = 1; std::getline(*in, line); ++number) {
    const size_t first = line.find_first_not_of(" \t\r");
    if (first == std::string::npos || line[first] == '#') continue;
    const auto words = SplitWords(line);
    int line_status = kExitUsage;
    if (!words) {
      Err() << "tabulon: batch: line " << number << ": a quote is not closed\n";
    } else if (!words->empty() && (*words)[0] == "batch") {
      Err() << "tabulon: batch: line " << number << ": a batch cannot run another batch\n";
    } else {
      line_status = RunCommandLine(*words, control);
    }
    ++run;
    if (line_status != kExitSuccess) {
      ++failed;
      if (status == kExitSuccess) status = line_status;
      if (o.stop_on_error) break;
    }
  }
  if (!warm_before) control.put_OptimizeForSpeed(false);
  if (failed > 0) Err() << "tabulon: batch: " << failed << " of " << run << " commands failed\n";
  return status;
}

void AddBatchCommand(CLI::App& parser, std::vector<Command>& commands) {
  auto options = std::make_shared<BatchOptions>();
  CLI::App* batch = parser.add_subcommand(
      "batch",
      "Run many commands on one warm office: one command line per line of FILE (or standard input), "
      "without the word tabulon; # starts a comment line. Exit status: that of the first command that failed.");
  batch->add_option("file", options->file, "File of command lines; - or nothing: standard input");
  batch->add_flag("--stop-on-error", options->stop_on_error, "Stop at the first command that fails");
  commands.push_back({batch, [options](TabulonCtrl& control) { return RunBatch(control, *options); }});
}

const CommandGroup kBatch(900, AddBatchCommand);

}  // namespace

}  // namespace tabulon::cli
