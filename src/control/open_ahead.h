// A workbook opened by one application on a thread of its own while the
// method goes on with another application, so that two office processes work
// at the same time. The open is the one the method would make itself; its
// office error comes out of Get, where the method takes the workbook.
#pragma once

#include <future>
#include <string>

#include "office/office.h"

namespace tabulon {

class OpenAhead {
 public:
  // Starts `app.Workbooks.Open(path, options)`. Nothing else may use `app`
  // until Get has returned or the object is gone.
  OpenAhead(office::Application& app, std::string path, office::OpenOptions options);
  // Waits for the open; its outcome is dropped when Get was not called (the
  // workbook stays open in `app`).
  ~OpenAhead();
  OpenAhead(const OpenAhead&) = delete;
  OpenAhead& operator=(const OpenAhead&) = delete;

  // The opened workbook, once the open is done; throws what the open threw.
  // Only once.
  office::Workbook& Get();

 private:
  office::Application& app_;
  std::string path_;
  office::OpenOptions options_;
  std::future<office::Workbook*> opened_;
};

}  // namespace tabulon
