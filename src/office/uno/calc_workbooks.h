// The open workbooks of the spreadsheet application. Internal to the backend.
#pragma once

#include <cstdint>
#include <string>

#include "office/office.h"

namespace tabulon::office::uno {

class CalcApplication;

class CalcWorkbooks : public Workbooks {
 public:
  explicit CalcWorkbooks(CalcApplication* app) : app_(app) {}
  Workbook& Open(const std::string& filename, const OpenOptions& options) override;
  Workbook& Add() override;
  Workbook& Item(int32_t index) override;
  int32_t Count() override;
  void Close() override;

 private:
  CalcApplication* app_;
};

}  // namespace tabulon::office::uno
