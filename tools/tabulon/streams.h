// Where a command reads and writes text the user named: "-" for the
// standard streams, and targets that are not regular files (a device, a
// pipe, a symbolic link). The methods of the control write a result beside
// its target and rename it over the target; that must never replace a
// device or a link, so such targets get the result copied into them in
// place, or have the link followed to the file it names.
#pragma once

#include <string>
#include <vector>

namespace tabulon::cli {

// A private folder in the temporary folder, made on first use and removed
// with everything in it.
class TempFolder {
 public:
  TempFolder() = default;
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  // The folder's path; empty (with `error` set) when it cannot be made.
  std::string Path(std::string& error);

 private:
  std::string path_;
};

// The folders made for a target whose folder was not there yet, so that
// they can be removed again when nothing was written into them.
class MadeFolders {
 public:
  // Makes `folder` with its missing parents. False with `error` set when
  // it cannot be made.
  bool Make(const std::string& folder, std::string& error);
  // Removes the folders made, deepest first, as long as they are empty.
  void RemoveEmpty();

 private:
  std::vector<std::string> made_;  // outermost first
};

// The source of a text command: "-" is standard input, saved to a file
// named `name` in `temp` (the methods read files); anything else is the
// absolute path. Empty, with `error` set, on failure.
std::string TextSource(const std::string& given, TempFolder& temp, const std::string& name, std::string& error);

// How a text output the user named is written.
class TextOutput {
 public:
  // `given`: the user's path or "-"; `name`: the file name to use for a
  // result that goes through `temp` first.
  TextOutput(const std::string& given, TempFolder& temp, const std::string& name);
  // The path to give the method; empty when the target is refused
  // (RefusalMessage says why).
  const std::string& path() const { return path_; }
  const std::string& refusal() const { return refusal_; }
  bool to_stdout() const { return kind_ == Kind::kStdout; }
  // After the method wrote path(): copies it to stdout or into the target.
  // False with `error` set when that fails.
  bool Finish(std::string& error);

 private:
  enum class Kind { kDirect, kStdout, kInPlace };
  Kind kind_ = Kind::kDirect;
  std::string given_;
  std::string path_;
  std::string refusal_;
};

// Where an office output goes, for a target that is not a regular file or
// a missing one: the link's file for a link, nothing for the rest (the
// caller writes through a temporary file and CopyInto). Returns `path`
// itself when it can be written directly.
std::string FollowLinks(const std::string& path);
// True for a device, pipe or socket (after following links).
bool IsSpecialFile(const std::string& path);
// Copies a file's bytes into `target` opened in place (never created,
// truncated or renamed), or onto stdout when `target` is "-".
bool CopyInto(const std::string& file, const std::string& target, std::string& error);

}  // namespace tabulon::cli
