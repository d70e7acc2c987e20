#include "util/file_helpers.h"

#include <glob.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "tabulon/automation_error.h"

namespace tabulon {
namespace {

namespace fs = std::filesystem;

bool HasNul(const std::string& text) { return text.find('\0') != std::string::npos; }

char LowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

std::string LowerAscii(const std::string& text) {
  std::string lower = text;
  for (char& c : lower) c = LowerAscii(c);
  return lower;
}

// Leading and trailing spaces go; tabs and other characters are part of the name.
std::string TrimBlanks(const std::string& text) {
  const size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) return std::string();
  const size_t last = text.find_last_not_of(' ');
  return text.substr(first, last - first + 1);
}

std::string BareName(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// True for anything that exists and is not a folder, following links, so a
// link to a file is a file and a dangling link is nothing.
bool IsNonFolder(const char* path) {
  struct stat st;
  return ::stat(path, &st) == 0 && !S_ISDIR(st.st_mode);
}

// A glob(3) pattern that matches what the file search matches: "*" and "?"
// are wildcards in the last component only; everything else, the folders
// included, is literal.
std::string SearchPattern(const std::string& path) {
  const size_t slash = path.rfind('/');
  const size_t name_start = slash == std::string::npos ? 0 : slash + 1;
  std::string pattern;
  pattern.reserve(path.size() * 2);
  for (size_t i = 0; i < path.size(); ++i) {
    const char c = path[i];
    const bool wildcard = (c == '*' || c == '?') && i >= name_start;
    if (!wildcard && (c == '*' || c == '?' || c == '[' || c == '\\')) pattern += '\\';
    pattern += c;
  }
  return pattern;
}

// The bare name of the first file (never a folder) that `path` matches, or ""
// when there is none or the search fails.
std::string FirstMatchingFile(const std::string& path) {
  // A trailing "/" names a folder, never a file; glob(3) would drop it and
  // report the file in front of it.
  if (path.back() == '/') return std::string();

  // A path that names a file outright needs no search, and its name may hold
  // characters that a search would take for wildcards.
  if (IsNonFolder(path.c_str())) return BareName(path);

  std::string found;
  glob_t matches{};
  // GLOB_PERIOD lets wildcards match hidden dot files, which count as files.
  if (::glob(SearchPattern(path).c_str(), GLOB_PERIOD, nullptr, &matches) == 0) {
    for (size_t i = 0; i < matches.gl_pathc; ++i) {
      if (IsNonFolder(matches.gl_pathv[i])) {
        found = BareName(matches.gl_pathv[i]);
        break;
      }
    }
  }
  ::globfree(&matches);
  return found;
}

}  // namespace

bool FileExists(const std::string& path) {
  if (path.empty() || HasNul(path)) return false;
  const std::string trimmed = TrimBlanks(path);
  if (trimmed.empty()) return false;
  const std::string found = FirstMatchingFile(trimmed);
  // The found name must be in the path as given: a wildcard pattern finds a
  // file but does not name it, and so does not count as an existing file.
  return !found.empty() && LowerAscii(path).find(LowerAscii(found)) != std::string::npos;
}

std::string GetFolderOfPath(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

bool FolderExists(const std::string& folder) {
  if (folder.empty() || HasNul(folder)) return false;
  struct stat st;
  if (::stat(folder.c_str(), &st) == 0) return S_ISDIR(st.st_mode);
  switch (errno) {
    case ENOENT:
    case ENOTDIR:
    case EACCES:
    case ELOOP:
    case ENAMETOOLONG:
      return false;
    default:
      throw AutomationError(kPathFileAccessError, "Path/File access error");
  }
}

void MakeFolderPath(const std::string& folder) {
  if (HasNul(folder)) return;
  const std::string parent = GetParentFolderName(folder);
  if (!parent.empty()) MakeFolderPath(parent);
  if (folder.empty()) return;
  std::error_code ignored;
  fs::create_directory(folder, ignored);
}

bool MoveFileOverwriting(const std::string& source, const std::string& destination) {
  if (HasNul(source) || HasNul(destination)) return false;
  std::error_code ec;
  // copy_file refuses a source and destination that are the same file, so the
  // delete below can never remove the only copy.
  if (!fs::copy_file(source, destination, fs::copy_options::overwrite_existing, ec) || ec) {
    return false;
  }
  // Deleting needs no write permission on the file itself, so read-only
  // sources go too.
  return fs::remove(source, ec) && !ec;
}

std::string GetParentFolderName(const std::string& path) {
  const size_t end = path.find_last_not_of('/');
  if (end == std::string::npos) return std::string();  // "" or the root
  const size_t slash = path.rfind('/', end);
  if (slash == std::string::npos) return std::string();  // a bare name
  const size_t parent_end = path.find_last_not_of('/', slash);
  if (parent_end == std::string::npos) return "/";
  return path.substr(0, parent_end + 1);
}

std::string TrimAtNull(const std::string& buffer) {
  if (buffer.empty()) return std::string();
  return buffer.substr(0, std::min(buffer.find('\0'), buffer.size() - 1));
}

std::string RemoveDoubleQuotes(const std::string& text) {
  std::string result;
  result.reserve(text.size());
  for (char c : text) {
    if (c != '"') result += c;
  }
  return result;
}

bool SamePathText(const std::string& a, const std::string& b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return LowerAscii(x) == LowerAscii(y); });
}

std::string NumberedOutputPath(const std::string& target, const std::string& item) {
  const std::string folder = GetFolderOfPath(target);
  const std::string name = target.substr(folder.size());
  const size_t dot = name.rfind('.');
  if (dot == std::string::npos) return folder + name + "-" + item;
  const std::string extension = name.substr(dot + 1);
  return folder + name.substr(0, dot) + "-" + item + (extension.empty() ? "" : "." + extension);
}

}  // namespace tabulon
