// The clipboard that Copy and Paste share. The office's own clipboard cannot
// be reached from a hidden headless office, and the spreadsheet and the
// word-processor sides run in different office processes, so the backend
// keeps one of its own for the whole program, as the system clipboard is one
// for all applications. Internal to the backend.
#pragma once

#include <cstdint>
#include <mutex>

#include <com/sun/star/uno/XInterface.hpp>

#include "office/office.h"
#include "office/uno/a1.h"
#include "office/uno/session.h"

namespace tabulon::office::uno {

struct ClipboardContent {
  bool has_content = false;
  // A range's values, and its formulas in Excel syntax (a constant cell's
  // formula is its value); formulas is empty for text copied from a table.
  Block values;
  Block formulas;
  bool from_table = false;
  // A word-processor table as the office writes it for others to paste:
  // HTML, with its merged cells and its look. Empty when none was given.
  std::string html;
  // Where the cells came from: relative references move by the distance from
  // there, and a paste into the same workbook can copy cell formatting too.
  uint64_t source_workbook = 0;  // the copying workbook's id, 0 when none
  Reference<css::uno::XInterface> source_sheet;
  CellRect source;
};

class Clipboard {
 public:
  static Clipboard& Get();
  void Set(ClipboardContent content);
  ClipboardContent Content();

 private:
  std::mutex mutex_;
  ClipboardContent content_;
};

}  // namespace tabulon::office::uno
