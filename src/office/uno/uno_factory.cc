#include "office/uno/uno_factory.h"

#include "office/uno/calc_application.h"
#include "office/uno/clipboard.h"
#include "office/uno/office_process.h"
#include "office/uno/writer.h"

namespace tabulon::office {
namespace uno {
namespace {

class Factory final : public UnoFactory {
 public:
  explicit Factory(UnoOptions options) : options_(std::move(options)) {}
  std::unique_ptr<UnoApplication> CreateUnoExcel() override {
    return std::make_unique<CalcApplication>(options_);
  }
  std::unique_ptr<UnoWordApplication> CreateUnoWord() override {
    return std::make_unique<WriterApplication>(options_);
  }

 private:
  UnoOptions options_;
};

}  // namespace

Clipboard& Clipboard::Get() {
  static Clipboard* clipboard = new Clipboard();  // outlives every application object
  return *clipboard;
}

void Clipboard::Set(ClipboardContent content) {
  std::lock_guard<std::mutex> lock(mutex_);
  content_ = std::move(content);
}

ClipboardContent Clipboard::Content() {
  std::lock_guard<std::mutex> lock(mutex_);
  return content_;
}

std::shared_ptr<UnoFactory> MakeUnoFactory(UnoOptions options) {
  return std::make_shared<Factory>(std::move(options));
}

}  // namespace uno

std::shared_ptr<Factory> DefaultFactory() { return uno::MakeUnoFactory(); }

void KillEveryOffice() { uno::KillEveryOffice(); }

}  // namespace tabulon::office
