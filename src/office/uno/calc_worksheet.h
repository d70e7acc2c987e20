// The sheets of a workbook and one sheet. Internal to the backend.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "office/office.h"
#include "office/uno/calc_internal.h"

namespace tabulon::office::uno {

class CalcWorkbook;

class CalcWorksheet : public Worksheet {
 public:
  // Without a sheet, the first sheet of an unborn workbook, which takes its
  // office object at birth.
  CalcWorksheet(CalcWorkbook* book, SheetRef sheet);

  std::string Name() override;
  void SetName(const std::string& name) override;
  int32_t Index() override;
  void Activate() override;
  void Delete() override;
  void MoveBefore(Worksheet& before) override;
  void MoveAfter(Worksheet& after) override;
  std::unique_ptr<Worksheet> Copy(Worksheet* before, Worksheet* after) override;
  std::unique_ptr<Range> UsedRange() override;
  std::unique_ptr<Range> Cells() override;
  std::unique_ptr<Range> Cells(int32_t row, int32_t column) override;
  std::unique_ptr<Range> GetRange(const std::string& address) override;
  void Paste() override;
  void PasteSpecialValues() override;
  void PrintOut(const PrintOutOptions& options) override;

  const SheetRef& sheet();  // inside a call

 private:
  template <typename F>
  auto Call(const char* what, F&& f) -> decltype(f());
  void MoveTo(Worksheet& other, int32_t offset, const char* what);
  void PasteAtSelection(const char* what, int32_t kind);

  CalcWorkbook* book_;
  SheetRef sheet_;
};

class CalcWorksheets : public Worksheets {
 public:
  explicit CalcWorksheets(CalcWorkbook* book) : book_(book) {}
  int32_t Count() override;
  std::unique_ptr<Worksheet> Item(int32_t index) override;
  std::unique_ptr<Worksheet> Item(const std::string& name) override;
  std::unique_ptr<Worksheet> Add(Worksheet* before, Worksheet* after,
                                 std::optional<int32_t> type) override;

 private:
  CalcWorkbook* book_;
};

}  // namespace tabulon::office::uno
