// The encoding of text sources given to the office. The office reads text
// as UTF-8; the files users bring are often in their system's 8-bit code
// page instead, which UTF-8 would turn into replacement characters. A
// source that is not valid UTF-8 is read as Windows-1252, as a spreadsheet
// program on an en-US Windows system reads it; --encoding names
// another. The file is transcoded into a private copy; the user's file is
// never touched.
#pragma once

#include <string>

namespace tabulon::cli {

// "auto" (UTF-8 when the file is valid UTF-8 or starts with a byte-order
// mark, Windows-1252 otherwise), "utf-8", "windows-1252", or any name
// iconv knows ("latin1", "cp850", "shift_jis", ...).
bool KnownEncoding(const std::string& name);

// True when `path` is valid UTF-8 (an ASCII file is) or starts with a
// byte-order mark. False also when it cannot be read (the method says so).
bool IsUtf8OrMarked(const std::string& path);

// Writes `from` decoded from `encoding` as UTF-8 into `to`. False with
// `error` set on failure (a byte the encoding does not define).
bool TranscodeToUtf8(const std::string& from, const std::string& to, const std::string& encoding, std::string& error);

// Whether a source is text the office reads through its text filter (by
// the extension, as the office's loader tells it).
bool IsTextSource(const std::string& path);

}  // namespace tabulon::cli
