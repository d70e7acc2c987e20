#include "office/uno/calc_workbooks.h"

#include <filesystem>
#include <optional>

#include "office/uno/calc_application.h"
#include "office/uno/calc_workbook.h"

namespace tabulon::office::uno {

namespace fs = std::filesystem;

Workbook& CalcWorkbooks::Open(const std::string& given_name, const OpenOptions& options) {
  app_->RecycleIfDue();
  // A relative name is the host's: the office has a working folder of its own.
  const std::string filename = AbsolutePath(given_name);
  return app_->Call("Workbooks.Open", [&]() -> Workbook& {
    WorkbookLoader::Loaded loaded = app_->loader().Load(app_->session(), filename, options);
    CalcWorkbook& book = app_->Adopt(std::move(loaded.component), fs::path(filename).filename().string(),
                                     filename, loaded.format);
    book.set_read_only(options.read_only.value_or(false) || loaded.reserved);
    book.set_reservation(std::move(loaded.reservation), std::move(loaded.reservation_password));
    return book;
  });
}

Workbook& CalcWorkbooks::Add() {
  app_->RecycleIfDue();
  // The document is made when the workbook is first used (UnbornState::Bear).
  return app_->CallKeepingCopy("Workbooks.Add", [&]() -> Workbook& {
    CalcWorkbook& book = app_->Adopt(nullptr, app_->NextBookName(), "", 0);
    book.set_plain(true);
    return book;
  });
}

Workbook& CalcWorkbooks::Item(int32_t index) {
  return app_->CallKeepingCopy("Workbooks.Item", [&]() -> Workbook& {
    auto& books = app_->open_books();
    if (index < 1 || index > static_cast<int32_t>(books.size()))
      throw Error(ErrorKind::kNotFound, "no workbook number " + std::to_string(index));
    return *books[index - 1];
  });
}

int32_t CalcWorkbooks::Count() {
  return app_->CallKeepingCopy("Workbooks.Count",
                               [&] { return static_cast<int32_t>(app_->open_books().size()); });
}

void CalcWorkbooks::Close() {
  // Every workbook is closed even if one of them fails; the first failure
  // is reported.
  std::optional<Error> first_error;
  while (!app_->open_books().empty()) {
    CalcWorkbook* book = app_->open_books().back();
    try {
      app_->Call("Workbooks.Close", [&] { book->CloseDocument(); });
    } catch (const Error& e) {
      if (!first_error) first_error = e;
      if (e.kind() == ErrorKind::kDied || e.kind() == ErrorKind::kTimeout) {
        app_->open_books().clear();
        app_->SetActive(nullptr);
        break;
      }
    }
    app_->Forget(book);
  }
  if (first_error) throw *first_error;
}

}  // namespace tabulon::office::uno
