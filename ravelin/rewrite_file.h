// Runs one rewrite from an input file to an output file: the byte-order mark
// is carried over, UTF-16 text is rewritten through a UTF-8 copy, and the
// output appears in one rename or not at all.
#pragma once

#include <functional>

#include "io.h"
#include "status.h"

namespace ravelin {

using TextRewrite = std::function<Status(Input& in, Output& out)>;

Status RewriteFile(const char* in_path, const char* out_path, const TextRewrite& rewrite);

// For UTF-16 text: decodes [begin, end of file) of `fd` into a scratch file
// in `folder` holding UTF-8.
Status DecodeToScratch(int fd, uint64_t begin, bool big_endian, const std::string& folder, Fd* scratch);

}  // namespace ravelin
