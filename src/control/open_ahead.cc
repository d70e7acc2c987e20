#include "control/open_ahead.h"

#include <system_error>
#include <utility>

namespace tabulon {

OpenAhead::OpenAhead(office::Application& app, std::string path, office::OpenOptions options)
    : app_(app), path_(std::move(path)), options_(std::move(options)) {
  try {
    opened_ = std::async(std::launch::async, [this] { return &app_.GetWorkbooks().Open(path_, options_); });
  } catch (const std::system_error&) {
    // No thread to be had: Get opens the workbook itself.
  }
}

OpenAhead::~OpenAhead() {
  if (opened_.valid()) opened_.wait();
}

office::Workbook& OpenAhead::Get() {
  if (!opened_.valid()) return app_.GetWorkbooks().Open(path_, options_);
  return *opened_.get();
}

}  // namespace tabulon
