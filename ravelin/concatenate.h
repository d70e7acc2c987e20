// Joining text files: appending one file to another in place, and writing
// one file from many.
#pragma once

#include <string>
#include <vector>

#include "status.h"

namespace ravelin {

// Appends the text of `target` to `source` (see ConcatenateTwoTextFilesEx
// in the public header).
Status AppendFile(const char* source, const char* target, bool page_break, bool place_path);

enum class JoinMode {
  kWhole,               // every file whole
  kSkipFirstRecord,     // all but the first file without their first record
  kSkipRepeatedHeader,  // later first records equal to the first one left out
  kAddFileName,         // kSkipRepeatedHeader plus a field naming the file
};

struct JoinOptions {
  JoinMode mode = JoinMode::kWhole;
  // kAddFileName: the header's new field; empty means there is no header.
  std::string column_title;
};

// The paths an input list names ('|'-separated paths and patterns), leaving
// out `out` where a pattern matches it.
Status ExpandInputList(const char* inputs, const char* out, std::vector<std::string>* paths);

Status JoinFiles(const std::vector<std::string>& paths, const char* out, const JoinOptions& options);

}  // namespace ravelin
