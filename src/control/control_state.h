// The fields of one control and the small operations every method shares:
// storing a failure, raising OnError, the result lists.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "office/session.h"
#include "tabulon/tabulon_ctrl.h"
#include "textproc/ravelin_loader.h"

namespace tabulon {

struct TabulonCtrl::State {
  explicit State(ControlOptions options);

  // Properties. A loaded instance starts from these zero values; a new one
  // gets ResetProperties.
  int32_t delimiter_code = 0;
  bool multi_file_output = false;
  std::string range_text;
  std::string state_file;
  bool use_state_file = false;
  bool skip_empty_sheets = false;
  std::string input_password;
  std::string input_password_tw;
  std::string output_password;
  std::string output_password_tw;
  bool multifile_processing = false;
  std::string multifile_text;
  std::string error_text;
  // verbose, optimise and ExcelKnownInstalled live with the session.
  office::SessionFlags session_flags;

  std::vector<std::string> files_just_created;
  std::vector<std::string> sheets_just_processed;

  std::map<uint32_t, OnErrorSink> sinks;
  uint32_t next_cookie = 1;

  office::Session session;
  RavelinLibrary text_library;
  // Where the sheet selection dialog's plug-in is looked for; empty: beside
  // libtabulon.so.
  std::string dialog_plugin_folder;
  // OptimizeForSpeed leaves the target application to the first method
  // that needs it.
  bool second_application_on_demand = false;

  // Sets every property to its new-instance default.
  void ResetProperties();

  // Stores `message` in ErrorString; returns `code` for the caller to keep.
  int32_t Fail(int32_t code, std::string_view message);
  // Calls every OnError sink, in the order they were added, with the code and
  // ErrorString.
  void RaiseOnError(int32_t code);
  // Fail, then raise.
  int32_t FailAndRaise(int32_t code, std::string_view message);
};

// The default state file: "<settings folder>/Brevant, Inc/Tabu.INI".
std::string DefaultStateFilePath();

}  // namespace tabulon
