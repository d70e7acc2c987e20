// Small, stateless file and folder helpers that the methods use before they
// start an office: does the source exist, where does the target go, create
// that folder, replace one file by another. None of them reports through the
// control's result code; each returns a plain value and the calling method
// turns a negative answer into its own code and message.
//
// Paths are POSIX paths with "/" as the separator. Text comparisons of paths
// are case-insensitive for ASCII letters.
#pragma once

#include <cstdint>
#include <string>

namespace tabulon {

// True when `path`, with leading and trailing blanks removed, names a file
// that exists (a symbolic link counts as the file it points to; a folder is
// never a file; hidden dot files are files). The untrimmed `path` must contain
// the found file's bare name, compared case-insensitively.
//
// The last component may hold the wildcards "*" and "?": the search then
// takes the first matching file in name order, and the answer is true only if
// that file's name occurs literally in `path`. So "/data/*.xls" counts as not
// existing even when .xls files are there. Every other character, "[" and "\"
// included, is taken literally. An empty path is false without touching the
// disk; a path holding a NUL character is false. Never throws.
bool FileExists(const std::string& path);

// The folder part of `path`: everything up to and including the last "/"
// ("/a/b.xls" gives "/a/"; "/a/b/" gives itself), or "" when there is no "/".
// Text only; the disk is not consulted.
std::string GetFolderOfPath(const std::string& path);

// Automation error number FolderExists raises: "Path/File access error".
inline constexpr int32_t kPathFileAccessError = 75;

// True when `folder` names an existing folder (or a link to one). A name that
// does not lead to a folder (missing, a file, an unreadable parent, too long,
// empty, holding NUL) is false. Throws tabulon::AutomationError
// kPathFileAccessError only when the file system itself fails to answer
// (an I/O error, for instance); callers let that reach their own error
// handling.
bool FolderExists(const std::string& folder);

// Creates `folder` and each of its missing ancestors, the outermost first, so
// "/a/b/c/" creates /a, then /a/b, then /a/b/c. Every failure (an existing
// folder, the root, a parent that cannot be created, no permission) is
// ignored: there is no result, and callers test FolderExists afterwards.
void MakeFolderPath(const std::string& folder);

// Copies `source` over `destination` (an existing destination file is
// replaced), then deletes `source`, read-only or not. A copy and a delete
// rather than a rename, so that an existing destination is replaced across
// file systems too. Returns false when any step fails: a missing source, a
// folder as source or destination, source and destination being the same
// file (nothing is touched then), a destination that cannot be written. When
// only the delete fails, the copy stays in place and the result is false.
bool MoveFileOverwriting(const std::string& source, const std::string& destination);

// The parent folder of `path`, worked out from the text alone: trailing "/"
// are ignored, then everything before the last "/" is the parent.
// "/a/b/c" and "/a/b/c/" give "/a/b"; "/a" gives "/"; "/" and "name" give "".
// The result is always shorter than `path`, so walking up always ends at "".
std::string GetParentFolderName(const std::string& path);

// The text of a buffer that the operating system filled: the characters before
// the first NUL, and never the buffer's last character, which is padding in
// every buffer passed here ("ab" gives "a"; "/tmp\0\0" gives "/tmp"). An empty
// buffer gives "".
std::string TrimAtNull(const std::string& buffer);

// `text` with every double-quote character (") removed.
std::string RemoveDoubleQuotes(const std::string& text);

// True when `a` and `b` are the same text apart from the case of ASCII
// letters; how a method decides whether its target is its source.
bool SamePathText(const std::string& a, const std::string& b);

// The path of one of several outputs made from `target`: its folder, its
// base name, "-", `item`, then "." and its extension when it has one
// ("/out/book.xls" and "2" give "/out/book-2.xls"; "/out/book" gives
// "/out/book-2"). Text only.
std::string NumberedOutputPath(const std::string& target, const std::string& item);

}  // namespace tabulon
