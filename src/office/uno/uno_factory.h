// The LibreOffice backend of the office object model (office.h).
//
// What it does
// - Every application object (CreateExcel, CreateWord) is one soffice.bin of
//   its own, started here with a profile folder of its own, its own pipe
//   name and its own process group, under LANG/LC_ALL=en_US.UTF-8 (C.UTF-8
//   when the system has no en_US.UTF-8; filters and number formats still get
//   en-US explicitly, and the office treats that locale as en-US).
//   The profile is a copy of the one prepared once per office installation
//   in the profile cache (profile_cache.h); without a usable cache it is set
//   up by a first start without a pipe (which may exit with 81, asking to be
//   started again). Only then does the office start with its pipe, so the
//   bridge never meets an office about to restart. The office is reached over a UNO bridge on that pipe; SIGPIPE
//   is blocked in the bridge's threads and around every office call, so a
//   pipe the office closed never ends the program.
// - The office's temporary files live in its profile folder, which is named
//   after the owning process (pid and start time) and removed with the
//   office; profiles of a killed program are swept by the next one.
// - Nothing is ever left running: Quit asks the office to terminate, waits a
//   bounded time, then kills its process group; the destructor of an
//   application object kills whatever is left and removes the profile. The
//   office is also killed by the kernel if this program dies (it is forked
//   from a launcher thread that lives as long as the program).
// - Every office call runs under a watchdog: when it has not returned within
//   the call time limit, the office is killed and the call throws
//   Error(kTimeout). This does not depend on the office answering (a stopped
//   office fails the same way). A call to an office that died throws
//   Error(kDied); that application is never used again (IsAlive() false).
// - A long-lived application restarts its office after `recycle_after`
//   documents opened or added, at the next Workbooks.Open/Add that finds no
//   workbook open, so the office's memory growth stays bounded.
// - Formulas cross this backend in Excel syntax (A1, English names, ","),
//   converted both ways through the office's formula parser.
// - SaveAs maps every XlFileFormat number through one table (file_formats.h)
//   and finishes text outputs itself (delimiter, character set, byte-order
//   mark, line ends, .prn padding) in a temporary file beside the target that
//   is renamed into place, so a failed save leaves nothing half written.
//
// Limits (deviations from the Excel object model)
// - Value set with text never parses it: "00123" stays text, "=1" stays text.
// - UsedRange is the office's used area: cells with content or visible
//   formatting. A cell that has only a number format does not count (Excel
//   counts it).
// - New workbooks have one sheet, "Sheet1"; new sheets are named SheetN with
//   the first free N above the sheet count.
// - SetName with a duplicate or invalid name leaves the old name (read back).
//   SetNumberFormat accepts whatever code the office accepts; it rejects few.
// - Copy/Paste use the backend's own clipboard: values and formulas (with
//   relative references moved), transposition; cell formatting is kept only
//   for a whole-range paste inside the same workbook without transposition.
//   A Word table moves as the HTML the word processor gives other programs,
//   read by this office's HTML import: merged cells stay merged, numbers
//   become numbers, text (a leading "=" too) stays text, and the cells keep
//   the table's look unless values alone are pasted; a paste replaces what
//   the cells held. Transposed or skip-blanks pastes of a table take its
//   cell text only. PasteSpecial with an Operation, or a Paste type other
//   than all, values, formulas (and their number-format variants), throws.
// - SaveAs with a password writes only formats the office can encrypt (.xls,
//   .xlt, .ods); any other format asked for a password throws. A write
//   reservation password on SaveAs is written into the workbook formats, of
//   the kind Excel and the office write there: the 16-bit verifier into
//   .xls/.xlt, SHA-512 spun 100000 times into the Open XML formats, PBKDF2
//   into .ods; any other format asked for one throws. A save without one
//   keeps the reservation the workbook was opened with where the target
//   holds that kind (the verifier: .xls and Open XML; a spun hash: Open XML
//   and .ods; PBKDF2: .ods only), else makes one of the target's kind from
//   the write reservation password the workbook was opened with, else
//   throws ("cannot keep the write reservation"); an empty one removes it;
//   formats without reservations (text, HTML, PDF, ...) carry none. On
//   Open, a reserved workbook opens writable with its write reservation
//   password, read-only without one (edits stay possible, a save over its
//   own file throws) and throws with a wrong one, for every kind: the
//   verifier, Open XML's spun SHA-1/256/384/512 and .ods's PBKDF2 (checked
//   as the office's own SHA-1 computes it). Another hash algorithm, or more
//   than 10,000,000 rounds, cannot be checked: a password given then throws.
// - dBase (7, 8, 11) needs the office's database drivers
//   (libreoffice-base-drivers); without them SaveAs refuses those numbers.
// - Text outputs with DisplayFormulas on are written from the cells'
//   formulas in Excel syntax (values of constant cells unformatted).
// - Application.Run runs the Basic and VBA macros of open documents
//   (Lib.Module.Sub, Module.Sub or Sub, optionally after "'Book'!"; a VBA
//   project's name is the library's, "VBAProject.Module1.Sub"); the
//   profile lets documents' macros and Excel workbooks' VBA code run without
//   asking. A Basic or VBA error inside the macro, or code that cannot be
//   compiled (a library with a module that does not compile runs nothing),
//   makes Run throw with the office's error text.
// - Worksheet.PrintOut and Range.PrintOut print that sheet (that range)
//   alone through the office's printing, to a named printer (one the system
//   lacks throws) or, with PrintToFile, to PrToFileName as PDF. Preview
//   throws "not supported".
// - Workbooks.Add is the only way to a new workbook; templates are not used.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "office/office.h"

namespace tabulon::office::uno {

struct UnoOptions {
  // The office's program folder or the path of soffice/soffice.bin in it.
  // Empty: the environment variable TABULON_OFFICE, else
  // /usr/lib/libreoffice/program.
  std::string program_dir;
  // Longest time one office call may take before the office is killed and
  // the call throws Error(kTimeout).
  std::chrono::milliseconds call_time_limit{60000};
  // Longest time from starting the office to a working connection.
  std::chrono::milliseconds start_time_limit{60000};
  // Longest wait for the office to exit after Quit before it is killed. Its
  // exit takes well under 0.1 s, but now and then two seconds more, spent
  // waiting on its own idle threads: not worth waiting for.
  std::chrono::milliseconds quit_time_limit{300};
  // Documents opened or added before the office is restarted at the next
  // moment it has no open workbook; 0 never restarts.
  int32_t recycle_after = 200;
};

// One recorded alert or prompt switch, in the order the switches were set.
struct SwitchRecord {
  std::string name;  // "DisplayAlerts", "EnableEvents", "Visible", ...
  int32_t value;     // True = 1, False = 0; Word's DisplayAlerts as given
  bool operator==(const SwitchRecord&) const = default;
};

// What the backend's spreadsheet application offers beyond office.h, for
// tests and for the control's diagnostics.
class UnoApplication : public Application {
 public:
  virtual int32_t ProcessId() = 0;  // the current office process (changes on recycling)
  virtual std::vector<SwitchRecord> Switches() = 0;
  virtual bool DisplayFormulas() = 0;  // of the active workbook's window
  virtual void SetCallTimeLimit(std::chrono::milliseconds limit) = 0;
  virtual int32_t OfficeStarts() = 0;  // 1 after creation, +1 per recycling
  // Text files written straight from a sheet for a new workbook that had
  // only taken that sheet's values (Range.CopyValueFrom then SaveAs).
  virtual int32_t DirectTextExports() = 0;
};

class UnoWordApplication : public WordApplication {
 public:
  virtual int32_t ProcessId() = 0;
  virtual std::vector<SwitchRecord> Switches() = 0;
  virtual void SetCallTimeLimit(std::chrono::milliseconds limit) = 0;
  virtual bool IsAlive() = 0;
  // Writes a copy of the document in the format its extension names: .doc,
  // .docx, .odt or .rtf (tests make their documents so).
  virtual void SaveCopyAs(Document& document, const std::string& filename) = 0;
};

class UnoFactory : public Factory {
 public:
  std::unique_ptr<Application> CreateExcel() override { return CreateUnoExcel(); }
  std::unique_ptr<WordApplication> CreateWord() override { return CreateUnoWord(); }
  virtual std::unique_ptr<UnoApplication> CreateUnoExcel() = 0;
  virtual std::unique_ptr<UnoWordApplication> CreateUnoWord() = 0;
};

std::shared_ptr<UnoFactory> MakeUnoFactory(UnoOptions options = {});

}  // namespace tabulon::office::uno
