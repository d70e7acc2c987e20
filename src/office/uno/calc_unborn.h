// The deferred document of a new workbook. Internal to the backend.
#pragma once

#include <optional>

#include "office/uno/a1.h"
#include "office/uno/calc_internal.h"

namespace tabulon::office::uno {

class CalcWorkbook;

// A workbook made by Workbooks.Add has no office document until something
// needs one (it is "unborn"): a new workbook that only receives another
// range's values and is saved as text is written straight from that range's
// sheet (see CalcWorkbook::SaveCopyDirectly), which spares making, filling
// and closing a document. This is that state of one workbook. While the
// workbook is open and unborn, it answers what needs no document (its name,
// Saved, its one sheet, ranges of that sheet) and keeps the values copied
// into it; anything else makes the document first (Bear). The application
// bears the one workbook waiting with copied values before any other office
// call, so that the values are copied before anything can change them.
class UnbornState {
 public:
  // Values to be copied at birth: `from` of `sheet` in `source` to the same
  // cells of the first sheet.
  struct PendingCopy {
    CalcWorkbook* source;
    SheetRef sheet;
    CellRect from;
  };

  // `unborn`: the workbook has no document yet.
  UnbornState(CalcWorkbook* book, bool unborn) : book_(book), unborn_(unborn) {}
  UnbornState(const UnbornState&) = delete;
  UnbornState& operator=(const UnbornState&) = delete;

  // Whether the workbook still has no document.
  bool unborn() const { return unborn_; }
  // Whether the workbook is open and unborn: what needs no document is then
  // answered without making one.
  bool OpenUnborn() const;
  // Saved of an unborn workbook.
  bool saved() const { return saved_; }
  void set_saved(bool saved) { saved_ = saved; }

  // Whether the workbook can wait with copied values: it is open and unborn,
  // and no other workbook waits so.
  bool CanTakeCopy() const;
  // The workbook waits with `copy`, which makes it unsaved.
  void TakeCopy(PendingCopy copy);
  const std::optional<PendingCopy>& copy() const { return copy_; }

  // Makes the workbook's document and copies the waiting values into it;
  // nothing when it has one (inside a call).
  void Bear();
  // The sheet an unborn workbook has; after birth its office object (inside
  // a call; an unborn workbook is born).
  SheetRef FirstSheet();
  // The workbook is closing: it waits with nothing any more.
  void Abandon();

 private:
  CalcWorkbook* book_;
  bool unborn_;
  bool saved_ = true;
  std::optional<PendingCopy> copy_;
  SheetRef first_sheet_;
};

}  // namespace tabulon::office::uno
