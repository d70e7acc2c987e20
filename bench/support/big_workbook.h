// The big workbook of the benchmarks: 5 sheets ("Sheet1" to "Sheet5") x
// 20,000 rows x 10 columns, every third column text, the others numbers;
// written by the office as .xlsx.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "office/office.h"

namespace tabulon::bench {

inline void SaveBigWorkbook(office::Application& app, const std::string& path) {
  auto& book = app.GetWorkbooks().Add();
  office::Block block(20000, std::vector<office::Cell>(10));
  std::unique_ptr<office::Worksheet> previous;
  for (int s = 0; s < 5; ++s) {
    auto sheet = s == 0 ? book.GetWorksheets().Item(1)
                        : book.GetWorksheets().Add(nullptr, previous.get(), office::kXlWorksheet);
    sheet->SetName("Sheet" + std::to_string(s + 1));
    for (int r = 0; r < 20000; ++r) {
      for (int c = 0; c < 10; ++c) {
        if (c % 3 == 0) {
          block[r][c] = "text " + std::to_string(r) + "," + std::to_string(c);
        } else {
          block[r][c] = r * 10.0 + c + s / 10.0;
        }
      }
    }
    sheet->GetRange("A1:J20000")->SetValue(block);
    previous = std::move(sheet);
  }
  office::SaveAsOptions o;
  o.file_format = 51;
  book.SaveAs(path, o);
  book.Close(false);
}

}  // namespace tabulon::bench
