// An office that cannot be started: what a machine without one looks like to
// the control. Counts the attempts.
#pragma once

#include <memory>

#include "office/office.h"

namespace tabulon::testing {

class NoOffice : public office::Factory {
 public:
  int attempts = 0;
  std::unique_ptr<office::Application> CreateExcel() override {
    ++attempts;
    throw office::Error(office::ErrorKind::kAutomation, "no office here");
  }
  std::unique_ptr<office::WordApplication> CreateWord() override {
    ++attempts;
    throw office::Error(office::ErrorKind::kAutomation, "no office here");
  }
};

}  // namespace tabulon::testing
