#include "office/uno/uno_factory.h"

#include <cstdlib>

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

// TABULON_CALL_TIME_LIMIT (seconds) sets the watchdog's limit for hosts that
// cannot reach the backend's options, such as scripts around the command line.
std::shared_ptr<Factory> DefaultFactory() {
  uno::UnoOptions options;
  if (const char* text = std::getenv("TABULON_CALL_TIME_LIMIT"); text != nullptr && *text != '\0') {
    char* end = nullptr;
    const double seconds = std::strtod(text, &end);
    if (*end == '\0' && seconds > 0 && seconds <= 86400)
      options.call_time_limit = std::chrono::milliseconds(static_cast<int64_t>(seconds * 1000));
  }
  return uno::MakeUnoFactory(options);
}

void KillEveryOffice() { uno::KillEveryOffice(); }

}  // namespace tabulon::office
