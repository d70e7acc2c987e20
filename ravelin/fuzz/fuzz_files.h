// Scratch files for the fuzz targets: the library works on files, so each
// input is written to a folder in memory (/dev/shm when there is one).
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "support.h"

namespace ravelin_fuzz {

inline const std::string& Folder() {
  static const std::string folder = [] {
    std::string pattern = std::filesystem::is_directory("/dev/shm") ? "/dev/shm/ravelin-fuzz-XXXXXX"
                                                                     : "/tmp/ravelin-fuzz-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    static const std::string keep = pattern;
    std::atexit([] {
      std::error_code ec;
      std::filesystem::remove_all(keep, ec);
    });
    return pattern;
  }();
  return folder;
}

inline std::string Path(const std::string& name) { return Folder() + "/" + name; }

// Stops the run with a message: libFuzzer saves the input that did it.
[[noreturn]] inline void Fail(const char* what) {
  std::fprintf(stderr, "invariant broken: %s\n", what);
  std::abort();
}

inline void Check(bool ok, const char* what) {
  if (!ok) Fail(what);
}

}  // namespace ravelin_fuzz
