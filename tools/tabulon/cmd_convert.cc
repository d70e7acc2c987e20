// tabulon convert, sheets and office: the conversion, sheet discovery and the
// office probes.
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>

#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "command.h"
#include "convert_parallel.h"
#include "encoding.h"
#include "formats.h"
#include "json_part.h"
#include "requests.h"
#include "streams.h"
#include "tabulon/tabulon_ctrl.h"
#include "worker.h"
#include "worker_process.h"

extern char** environ;

namespace tabulon::cli {

namespace {

namespace fs = std::filesystem;

struct ConvertOptions {
  std::vector<std::string> paths;
  std::string sheets = "*";
  std::string format;  // empty: from the target's extension
  bool formulas = false;
  bool multi_file = false;
  std::string range;
  std::string delimiter;
  bool skip_empty = false;
  bool report = false;
  bool json = false;
  std::string encoding = "auto";
  std::string input_password, input_password_tw, output_password, output_password_tw;
  std::string jobs;  // empty: one per core (one inside a server's worker)
  // Set by convert -j for each file it hands to a worker: the one file's
  // JSON comes as a part of the whole run's (convert_parallel.h).
  bool json_part = false;
};

// A range the office can take: A1, A1:C10, A:C, 1:3 (with or without $),
// or anything holding "*" (the used range, as the method reads it).
bool IsRange(const std::string& text) {
  if (text.find('*') != std::string::npos || text.find_first_not_of(" \t") == std::string::npos) return true;
  static const std::regex kCell(R"(\$?[A-Za-z]{1,3}\$?[1-9][0-9]{0,6})");
  static const std::regex kColumns(R"(\$?[A-Za-z]{1,3}:\$?[A-Za-z]{1,3})");
  static const std::regex kRows(R"(\$?[1-9][0-9]{0,6}:\$?[1-9][0-9]{0,6})");
  static const std::regex kArea(R"(\$?[A-Za-z]{1,3}\$?[1-9][0-9]{0,6}:\$?[A-Za-z]{1,3}\$?[1-9][0-9]{0,6})");
  return std::regex_match(text, kCell) || std::regex_match(text, kColumns) || std::regex_match(text, kRows) ||
         std::regex_match(text, kArea);
}

void ApplyConvertProperties(TabulonCtrl& control, const ConvertOptions& o, std::optional<int> delimiter) {
  control.put_CO_MultiFileOutput(o.multi_file);
  control.put_CO_Range(o.range);
  control.put_SkipEmptySheets(o.skip_empty);
  control.put_InputFile_PassWord(o.input_password);
  control.put_InputFile_PassWord_TW(o.input_password_tw);
  control.put_OutputFile_PassWord(o.output_password);
  control.put_OutputFile_PassWord_TW(o.output_password_tw);
  if (delimiter) control.put_CO_DelimitationCharacter(*delimiter);
}

// Replaces every `from` in `text` by `to` (a private copy's path by the
// user's).
std::string ReplaceAll(std::string text, const std::string& from, const std::string& to) {
  if (from.empty()) return text;
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// A path no file can have here: a name longer than the file system allows,
// or a path longer than the system takes. Empty when it is fine.
std::string PathProblem(const std::string& path) {
  if (path.size() >= PATH_MAX) return "path too long (" + std::to_string(path.size()) + " bytes)";
  for (const auto& part : std::filesystem::path(path)) {
    if (part.native().size() > NAME_MAX)
      return "file name too long (" + std::to_string(part.native().size()) + " bytes, at most " +
             std::to_string(NAME_MAX) + ")";
  }
  return {};
}

// What a file was before the call: a file counts as written by the call only
// when it is there afterwards and is not the very file it was before (same
// inode, size, modification and change times).
struct Stamp {
  bool exists = false;
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec modified{};
  timespec changed{};

  static Stamp Of(const std::string& path) {
    struct stat st;
    Stamp stamp;
    if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return stamp;
    stamp.exists = true;
    stamp.device = st.st_dev;
    stamp.inode = st.st_ino;
    stamp.size = st.st_size;
    stamp.modified = st.st_mtim;
    stamp.changed = st.st_ctim;
    return stamp;
  }
  bool Same(const Stamp& o) const {
    return exists == o.exists && device == o.device && inode == o.inode && size == o.size &&
           modified.tv_sec == o.modified.tv_sec && modified.tv_nsec == o.modified.tv_nsec &&
           changed.tv_sec == o.changed.tv_sec && changed.tv_nsec == o.changed.tv_nsec;
  }
};

// The files a conversion to `target` may write, as they were before it: the
// target and the per-sheet outputs beside it ("<base>-<sheet>.<ext>").
class OutputsBefore {
 public:
  explicit OutputsBefore(const std::string& target) {
    namespace fs = std::filesystem;
    stamps_[target] = Stamp::Of(target);
    const fs::path path(target);
    const std::string prefix = path.stem().string() + "-";
    std::error_code ec;
    for (fs::directory_iterator it(path.parent_path(), ec), end; !ec && it != end; it.increment(ec)) {
      if (it->path().filename().string().rfind(prefix, 0) == 0) stamps_[it->path().string()] = Stamp::Of(it->path().string());
    }
  }
  bool WrittenSince(const std::string& file) const {
    const Stamp now = Stamp::Of(file);
    if (!now.exists) return false;
    const auto before = stamps_.find(file);
    return before == stamps_.end() || !before->second.Same(now);
  }

 private:
  std::map<std::string, Stamp> stamps_;
};

std::string JsonArray(const std::vector<std::string>& values) {
  std::string array = "[";
  for (size_t i = 0; i < values.size(); ++i) array += (i > 0 ? "," : "") + JsonString(values[i]);
  return array + "]";
}

// The run of convert -j: one convert command line per source, into the
// folder made for them, with the options as given (the passwords as
// settings, out of the command line).
ParallelConvert Parallel(const ConvertOptions& o, const Format& format, const std::vector<std::string>& sources,
                         const std::string& folder, int jobs) {
  std::vector<std::string> words = {"convert", "--sheets=" + o.sheets, "--format=" + std::to_string(format.number),
                                    "--encoding=" + o.encoding};
  if (o.formulas) words.push_back("--formulas");
  if (o.multi_file) words.push_back("--multi-file");
  if (!o.range.empty()) words.push_back("--range=" + o.range);
  if (!o.delimiter.empty()) words.push_back("--delimiter=" + o.delimiter);
  if (o.skip_empty) words.push_back("--skip-empty");
  if (o.report) words.push_back("--report");
  if (o.json) {
    words.push_back("--json");
    words.push_back("--json-part");
  }
  words.push_back("--jobs=1");
  words.push_back("--");
  ParallelConvert run;
  run.jobs = jobs;
  run.json = o.json;
  run.progress = !o.json && isatty(STDERR_FILENO);
  for (char** e = environ; e != nullptr && *e != nullptr; ++e) {
    const std::string entry = *e;
    if (entry.rfind("TABULON_", 0) == 0 && entry.find("PASSWORD") != std::string::npos) continue;
    const size_t equals = entry.find('=');
    if (equals != std::string::npos && IsClientSetting(entry.substr(0, equals))) run.env.push_back(entry);
  }
  if (!o.input_password.empty()) run.env.push_back("TABULON_INPUT_PASSWORD=" + o.input_password);
  if (!o.input_password_tw.empty()) run.env.push_back("TABULON_INPUT_PASSWORD_TW=" + o.input_password_tw);
  for (const std::string& source : sources) {
    std::vector<std::string> line = words;
    line.push_back(Absolute(source));
    line.push_back(folder + "/");
    run.command_lines.push_back(line);
    run.sources.push_back(Absolute(source));
    run.output_names.push_back(fs::path(Absolute(source)).stem().string());
  }
  return run;
}

int RunConvert(TabulonCtrl& control, const ConvertOptions& o) {
  std::optional<Format> format;
  if (!o.format.empty()) {
    format = FindFormat(o.format);
    if (!format)
      return UsageError("convert", "-t: unknown format '" + o.format + "'; the formats are " + FormatNames());
  }
  // OpenXLSSaveAs gives its saves no password, whatever the format, so a
  // protected output cannot be had from it: the options are refused rather
  // than a file being written open.
  for (const auto& [option, value] : {std::pair{"--output-password", &o.output_password},
                                      std::pair{"--output-password-tw", &o.output_password_tw}}) {
    if (!value->empty())
      return UsageError("convert", std::string(option) +
                                       ": the conversion writes its files without passwords; nothing was written");
  }
  const std::vector<std::string> sources(o.paths.begin(), o.paths.end() - 1);
  const std::string& given_target = o.paths.back();
  const bool to_stdout = given_target == "-";
  const bool several = sources.size() > 1;
  // A link is followed to the file it names, so that the office's save
  // replaces that file and the link stays.
  // A device or a pipe (/dev/stdout, a link to one included) gets the
  // result copied into it.
  const bool special = !to_stdout && !several && IsSpecialFile(Absolute(given_target));
  const std::string destination = to_stdout || special ? std::string() : FollowLinks(Absolute(given_target));
  std::error_code ec;
  const bool into_folder =
      !to_stdout && !special && (several || fs::is_directory(destination, ec) || given_target.back() == '/');
  if (to_stdout && several) return UsageError("convert", "only one source can be written to standard output (-)");
  if (to_stdout && o.json) return UsageError("convert", "--json and the target - (standard output) exclude each other");
  if (!format) {
    if (to_stdout || special) {
      format = FindFormat("csv");
    } else if (into_folder) {
      return UsageError("convert", "the format cannot be told from a folder; give it with -t FORMAT");
    } else {
      const std::string extension = fs::path(given_target).extension().string();
      format = FormatOfExtension(extension);
      if (!format) {
        return UsageError("convert", "the format cannot be told from the target's extension '" + extension +
                                         "'; give it with -t FORMAT");
      }
    }
  }
  if ((to_stdout || special) && !format->text)
    return UsageError("convert", "only a text format (csv, txt, prn) can be written to " + given_target);
  std::optional<int> delimiter;
  if (!o.delimiter.empty()) {
    std::string error;
    delimiter = ParseCharacter(o.delimiter, 0, 255, error);
    if (!delimiter) return UsageError("convert", "-d: " + error);
  }
  if (!IsRange(o.range))
    return UsageError("convert", "-r: '" + o.range + "' is not a range such as A1:C10, A:C or 1:3");
  if (!KnownEncoding(o.encoding)) return UsageError("convert", "--encoding: unknown encoding '" + o.encoding + "'");
  std::string jobs_error;
  const auto jobs =
      ParseNumber(o.jobs.empty() ? std::to_string(InWorker() ? 1 : CoreCount()) : o.jobs, 1, 64, jobs_error);
  if (!jobs) return UsageError("convert", "-j: " + jobs_error);
  for (const std::string& path : o.paths) {
    if (path == "-") continue;
    if (const std::string problem = PathProblem(Absolute(path)); !problem.empty())
      return UsageError("convert", Escaped(path) + ": " + problem);
  }
  if (several && !to_stdout && !special) {
    for (const std::string& path : sources) {
      const std::string name = fs::path(Absolute(path)).stem().string() + "." + format->extension;
      if (const std::string problem = PathProblem((fs::path(destination) / name).string()); !problem.empty())
        return UsageError("convert", Escaped(name) + ": " + problem);
    }
  }
  // The folder the outputs go into is made here (the conversion saves only
  // into folders that exist, as Excel does), and removed again when nothing
  // was written into it.
  MadeFolders made;
  if (!to_stdout && !special) {
    std::string error;
    if (!made.Make(into_folder ? destination : fs::path(destination).parent_path().string(), error)) {
      Err() << "tabulon: convert: " << error << "\n";
      return kExitFailure;
    }
  }
  if (several && *jobs > 1) {
    const int status = RunParallelConvert(Parallel(o, *format, sources, destination, static_cast<int>(*jobs)));
    made.RemoveEmpty();
    return status;
  }

  ApplyConvertProperties(control, o, delimiter);
  int32_t last_code = 0;
  bool converted_any = false;
  control.AdviseOnError([](int32_t&, std::string&) {});
  // One warm office for every source (a batch may have one already).
  const bool warm_before = control.get_OptimizeForSpeed();
  if (several && !warm_before) control.put_OptimizeForSpeed(true);

  const bool progress = several && !o.json && isatty(STDERR_FILENO);
  int exit_code = 0;
  std::vector<std::string> all_files, all_sheets;
  std::string failures = "[";
  for (size_t i = 0; i < sources.size(); ++i) {
    TempFolder temp;
    const std::string user_source = Absolute(sources[i]);
    std::string source = user_source;
    std::string error;
    const std::string stem = fs::path(source).stem().string();
    const std::string file_name = stem + "." + format->extension;
    // Text that is not UTF-8 goes to the office as a UTF-8 copy of the
    // same name (the name gives the sheet its name).
    const std::string encoding = o.encoding;
    if (IsTextSource(source) && fs::is_regular_file(source, ec) &&
        (encoding == "auto" ? !IsUtf8OrMarked(source) : !(encoding == "utf-8" || encoding == "UTF-8"))) {
      const std::string folder = temp.Path(error);
      std::string copy = folder.empty() ? "" : folder + "/" + fs::path(source).filename().string();
      if (copy.empty() || !TranscodeToUtf8(source, copy, encoding, error)) {
        exit_code =
            o.json ? ReportJson("convert", 0, error, user_source) : ReportFile("convert", 0, error, user_source);
        continue;
      }
      source = copy;
    }
    std::string target = destination;
    std::string out_folder;
    if (into_folder) {
      target = (fs::path(destination) / file_name).string();
    } else if (to_stdout || special) {
      out_folder = temp.Path(error) + "/out";
      fs::create_directories(out_folder, ec);
      target = out_folder + "/" + file_name;
    }
    if (progress) Err() << "\r[" << i + 1 << "/" << sources.size() << "] " << sources[i] << "\x1b[K" << std::flush;
    std::string sheets = o.sheets;
    int32_t type = format->number;
    bool formulas = o.formulas;
    const OutputsBefore before(target);
    last_code = control.OpenXLSSaveAs(source, sheets, target, type, formulas);
    converted_any = true;
    if (progress) Err() << "\r\x1b[K" << std::flush;
    const auto shown = [&](const std::string& text) {
      std::string t = ReplaceAll(text, source, user_source);
      if (!out_folder.empty()) t = ReplaceAll(t, target, given_target);
      return t;
    };
    if (last_code < 0) {
      const std::string message = shown(control.get_ErrorString());
      ReportFile("convert", last_code, message, user_source);
      ReportFinding("convert", message, control);
      failures += (failures.size() > 1 ? "," : "") +
                  JsonObject().Add("file", user_source).Add("code", last_code).Add("message", message).str();
      exit_code = kExitFailure;
    }
    // What the method lists, or (the whole-workbook save lists nothing) the
    // target; only what this call really wrote counts, and a failed call
    // still shows what it did write.
    std::vector<std::string> expected;
    for (int32_t k = 1; k <= control.get_FilesJustCreatedCount(); ++k) expected.push_back(control.get_FilesJustCreated(k));
    if (expected.empty()) expected.push_back(target);
    std::vector<std::string> files;
    std::vector<std::string> missing;
    for (const std::string& file : expected) (before.WrittenSince(file) ? files : missing).push_back(file);
    if (last_code >= 0 && !missing.empty()) {
      // The method's error trap may keep its code when the office refused
      // to write; the command line never calls that a success.
      const std::string message = "the office did not write " + shown(missing.front());
      ReportFile("convert", last_code, message, user_source);
      ReportFinding("convert", message, control);
      exit_code = kExitFailure;
    }
    if (files.empty()) continue;
    if (!out_folder.empty()) {
      // Every file written, in order, into the stream or the device.
      for (const std::string& f : files) {
        if (!CopyInto(f, to_stdout ? "-" : given_target, error)) {
          exit_code = ReportFile("convert", 0, error, given_target);
          break;
        }
      }
      // The data went where a list of files would go.
      if (to_stdout || !o.json) continue;
      files.assign(1, given_target);
    }
    std::vector<std::string> sheet_names;
    for (int32_t k = 1; k <= control.get_SheetsJustProcessedCount(); ++k) {
      sheet_names.push_back(control.get_SheetsJustProcessed(k));
    }
    all_files.insert(all_files.end(), files.begin(), files.end());
    all_sheets.insert(all_sheets.end(), sheet_names.begin(), sheet_names.end());
    if (o.json) continue;
    if (o.report) {
      Out() << "FilesJustCreated:\n";
      for (const auto& f : files) Out() << "  " << f << "\n";
      Out() << "SheetsJustProcessed:\n";
      for (const auto& s : sheet_names) Out() << "  " << s << "\n";
    } else {
      for (const auto& f : files) Out() << f << "\n";
    }
  }
  if (several && !warm_before) control.put_OptimizeForSpeed(false);
  if (all_files.empty()) made.RemoveEmpty();
  if (o.json_part) {
    JsonPart part;
    part.code = converted_any ? std::to_string(last_code) : "-";
    part.files = JsonArray(all_files);
    part.sheets = JsonArray(all_sheets);
    part.failures = failures + "]";
    Out() << FormatJsonPart(part);
  } else if (o.json) {
    Out() << JsonObject()
                 .Add("command", "convert")
                 .Add("code", exit_code == 0 ? 0 : last_code)
                 .Add("files", all_files)
                 .Add("sheets", all_sheets)
                 .AddRaw("failures", failures + "]")
                 .str()
          << "\n";
  }
  return exit_code;
}

int RunSheets(TabulonCtrl& control, const std::string& book_arg, const std::string& list_arg, bool json) {
  std::string book = Absolute(book_arg);
  std::string sheet_list = list_arg;
  // A workbook has at most a few thousand sheets; the array bounds the walk.
  std::vector<std::string> names(10000);
  const int32_t result = control.GetSheetNames(book, sheet_list, names);
  if (result < 0) {
    if (json) return ReportJson("sheets", result, control.get_ErrorString(), book);
    ReportFile("sheets", result, control.get_ErrorString(), book);
    ReportFinding("sheets", control.get_ErrorString(), control);
    return kExitFailure;
  }
  names.resize(static_cast<size_t>(result));
  if (json) {
    Out() << JsonObject().Add("command", "sheets").Add("code", 0).Add("file", book).Add("sheets", names).str() << "\n";
    return kExitSuccess;
  }
  for (const std::string& name : names) Out() << name << "\n";
  return kExitSuccess;
}

int RunOffice(TabulonCtrl& control, bool json) {
  const bool excel = control.ExcelIsInstalled();
  const std::string excel_finding = control.OfficeFinding();
  const bool word = control.WordIsInstalled();
  std::ostringstream version, build;
  version << (excel ? control.get_ExcelVersion() : 0.0);
  build << (excel ? control.get_ExcelBuild() : 0.0);
  if (json) {
    Out() << JsonObject()
                 .Add("command", "office")
                 .Add("code", excel ? 0 : static_cast<int32_t>(tabulon::kExcelNotCreated))
                 .Add("ExcelIsInstalled", excel)
                 .Add("WordIsInstalled", word)
                 .AddRaw("ExcelVersion", version.str())
                 .AddRaw("ExcelBuild", build.str())
                 .str()
          << "\n";
  } else {
    Out() << "ExcelIsInstalled " << (excel ? "True" : "False") << "\n";
    Out() << "WordIsInstalled " << (word ? "True" : "False") << "\n";
    Out() << "ExcelVersion " << version.str() << "\n";
    Out() << "ExcelBuild " << build.str() << "\n";
  }
  if (!excel) {
    Report("office", tabulon::kExcelNotCreated, std::string(tabulon::msg::kExcelNotCreated));
    if (!excel_finding.empty()) Err() << "tabulon: office: office: " << Escaped(excel_finding) << "\n";
    return kExitFailure;
  }
  return kExitSuccess;
}

void AddConversionCommands(CLI::App& parser, std::vector<Command>& commands) {
  auto convert = std::make_shared<ConvertOptions>();
  CLI::App* convert_cmd = parser.add_subcommand(
      "convert",
      Describe("Convert workbooks or text files to another format, all sheets or the ones named", "OpenXLSSaveAs"));
  convert_cmd->footer(
      "Examples:\n"
      "  tabulon convert book.xlsx out.csv     the format from the target's extension\n"
      "  tabulon convert -t csv book.xlsx -    CSV text on standard output\n"
      "  tabulon convert a.xlsx b.ods FOLDER   each into FOLDER, on one warm office\n"
      "  tabulon convert -t pdf book.xlsx FOLDER/\n"
      "Formats: " +
      FormatNames() + ".");
  convert_cmd->add_option("paths", convert->paths, "Source file(s), then the target file, folder or - (stdout)")
      ->required()
      ->expected(2, -1);
  convert_cmd->add_option("-s,--sheets", convert->sheets,
                          "Sheets to convert: * (all, the default), numbers 1-3,5, or names \"A\",\"B\"");
  convert_cmd
      ->add_option("-t,--format", convert->format,
                   "Format of the output, by name or number (default: from the target's extension)")
      ->type_name("FORMAT");
  convert_cmd->add_flag("-f,--formulas", convert->formulas, "Write the formulas instead of their values");
  convert_cmd->add_flag("-m,--multi-file", convert->multi_file,
                        "Write one file per sheet, named after the sheet, even for formats that hold many");
  convert_cmd->add_option("-r,--range", convert->range, "Only this range of each sheet, e.g. A1:C10");
  convert_cmd
      ->add_option("-d,--delimiter", convert->delimiter,
                   "Field delimiter of a text source: a character, tab, \\t or a code (default ,); "
                   "0 opens the source as the office would")
      ->type_name("CHAR");
  convert_cmd->add_flag("-e,--skip-empty", convert->skip_empty, "Leave out sheets that hold nothing");
  convert_cmd->add_option("--encoding", convert->encoding,
                          "Encoding of text sources: auto (UTF-8, or Windows-1252 where not valid UTF-8; "
                          "the default), utf-8, windows-1252, latin1, or another iconv name");
  convert_cmd->add_option("--input-password", convert->input_password, "Password to open the source")
      ->envname("TABULON_INPUT_PASSWORD");
  convert_cmd->add_option("--input-password-tw", convert->input_password_tw, "Its password to modify")
      ->envname("TABULON_INPUT_PASSWORD_TW");
  convert_cmd->add_option("--output-password", convert->output_password, "Refused unless empty: the conversion writes no passwords")
      ->envname("TABULON_OUTPUT_PASSWORD");
  convert_cmd->add_option("--output-password-tw", convert->output_password_tw, "Refused unless empty: the conversion writes no passwords")
      ->envname("TABULON_OUTPUT_PASSWORD_TW");
  convert_cmd->add_flag("--report", convert->report, "List the files created and the sheets converted");
  AddJsonFlag(*convert_cmd, convert->json);
  convert_cmd
      ->add_option("-j,--jobs", convert->jobs,
                   "Convert several sources on N offices at once (default: one per core; 1: one after another "
                   "on one office)")
      ->type_name("N");
  convert_cmd->add_flag("--json-part", convert->json_part, "")->group("");
  commands.push_back({convert_cmd, [convert](TabulonCtrl& control) { return RunConvert(control, *convert); }});

  auto book = std::make_shared<std::string>();
  auto list = std::make_shared<std::string>("*");
  auto sheets_json = std::make_shared<bool>(false);
  CLI::App* sheets_cmd =
      parser.add_subcommand("sheets", Describe("List the names of a workbook's sheets, one a line", "GetSheetNames"));
  sheets_cmd->add_option("book", *book, "The workbook")->required();
  sheets_cmd->add_option("sheets", *list, "Only these: * (all, the default), numbers 1-3,5, or names \"A\",\"B\"");
  AddJsonFlag(*sheets_cmd, *sheets_json);
  commands.push_back({sheets_cmd, [book, list, sheets_json](TabulonCtrl& control) {
                        return RunSheets(control, *book, *list, *sheets_json);
                      }});

  auto office_json = std::make_shared<bool>(false);
  CLI::App* office_cmd =
      parser.add_subcommand("office", Describe("Tell whether the office suite is installed, and its version",
                                               "ExcelIsInstalled, WordIsInstalled, ExcelVersion, ExcelBuild"));
  AddJsonFlag(*office_cmd, *office_json);
  commands.push_back({office_cmd, [office_json](TabulonCtrl& control) { return RunOffice(control, *office_json); }});
}

const CommandGroup kConversion(10, AddConversionCommands);

}  // namespace

}  // namespace tabulon::cli
