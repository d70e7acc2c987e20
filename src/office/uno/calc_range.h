// A range of cells of a sheet. Internal to the backend.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <com/sun/star/table/XCellRange.hpp>

#include "office/office.h"
#include "office/uno/a1.h"
#include "office/uno/calc_internal.h"

namespace tabulon::office::uno {

class CalcWorkbook;

class CalcRange : public Range {
 public:
  // Without a sheet, the range lies on the first sheet of an unborn
  // workbook and takes that sheet's office object at birth.
  CalcRange(CalcWorkbook* book, SheetRef sheet, CellRect rect);

  std::string Address() override;
  int32_t Row() override;
  int32_t Column() override;
  int32_t RowsCount() override;
  int32_t ColumnsCount() override;
  Block Value() override;
  void SetValue(const Block& values) override;
  void SetValue(const Cell& value) override;
  KindBlock ValueKinds() override;
  void SetTypedValue(const Block& values, const KindBlock& kinds) override;
  void CopyValueFrom(Range& source) override;
  Block Formula() override;
  void SetFormula(const Block& formulas) override;
  void SetFormula(const std::string& formula) override;
  void SetNumberFormat(const std::string& format) override;
  std::string NumberFormat() override;
  std::string Text() override;
  void AddComment(const std::string& text) override;
  std::optional<std::string> CommentText() override;
  void Clear() override;
  void ClearFormats() override;
  void ClearContents() override;
  void ClearComments() override;
  void ClearNotes() override;
  void ClearOutline() override;
  bool Replace(const std::string& what, const std::string& replacement,
               const ReplaceOptions& options) override;
  void EntireRowDelete() override;
  void EntireColumnDelete() override;
  void Copy() override;
  void PasteSpecial(const PasteSpecialOptions& options) override;
  std::unique_ptr<Range> Offset(int32_t rows, int32_t columns) override;
  std::unique_ptr<Range> Cells(int32_t row, int32_t column) override;
  void Select() override;
  std::unique_ptr<Range> SpecialCells(int32_t type) override;
  bool MergeCells() override;
  bool FontBold() override;
  void PrintOut(const PrintOutOptions& options) override;

 private:
  template <typename F>
  auto Call(const char* what, F&& f) -> decltype(f());
  Reference<css::table::XCellRange> Cells();
  void ClearFlags(const char* what, int32_t flags);
  void ShowAsTyped(const std::string& text);
  void ReplaceInFormulas(const std::string& what, const std::string& replacement, bool whole, bool match_case);

  CalcWorkbook* book_;
  SheetRef sheet_;
  CellRect rect_;
};

}  // namespace tabulon::office::uno
