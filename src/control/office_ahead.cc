#include "control/office_ahead.h"

#include <system_error>
#include <utility>

namespace tabulon {

OfficeAhead::OfficeAhead(std::function<void()> work) : work_(std::move(work)) {
  try {
    done_ = std::async(std::launch::async, work_);
  } catch (const std::system_error&) {
    done_ = std::async(std::launch::deferred, work_);
  }
}

OfficeAhead::~OfficeAhead() {
  if (!done_.valid()) return;
  try {
    done_.get();
  } catch (...) {
    // Dropped: the method went another way before it needed the result.
  }
}

void OfficeAhead::Wait() { done_.get(); }

}  // namespace tabulon
