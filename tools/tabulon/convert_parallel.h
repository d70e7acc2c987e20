// convert -j N: the files of one conversion run on N workers (worker.h) at
// once, each with its own warm office. What each file prints goes out as
// the one-by-one conversion prints it: the results on standard output in
// the order of the sources (as soon as the files before them are done), the
// failures on standard error after the last file, the exit status 1 when
// any file failed. With --json, the one JSON object of the whole run.
#pragma once

#include <string>
#include <vector>

namespace tabulon::cli {

struct ParallelConvert {
  // The convert command line of each file (one source, the target folder),
  // with --json-part when `json` is set.
  std::vector<std::vector<std::string>> command_lines;
  // Each file's source, as its messages name it.
  std::vector<std::string> sources;
  // The name of each file's outputs: two files of one name never run at
  // once, and the later one writes last, as one after another they would.
  std::vector<std::string> output_names;
  // Settings for the workers (passwords), "NAME=value".
  std::vector<std::string> env;
  int jobs = 2;
  bool json = false;
  // A progress line on standard error.
  bool progress = false;
};

int RunParallelConvert(const ParallelConvert& run);

}  // namespace tabulon::cli
