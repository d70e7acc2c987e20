// The end of the offices a test binary shares between its tests: the warm
// control quits its office, the test's own office (if any) quits, the
// scratch folder goes, and no office of this process may be left.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "office/office.h"
#include "support/processes.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon::testing {

inline void EndSharedOffices(std::unique_ptr<TabulonCtrl>& warm, office::Application* reader,
                             const std::filesystem::path& dir, const std::string& tests) {
  warm->put_OptimizeForSpeed(false);
  warm.reset();
  if (reader != nullptr) reader->Quit();
  std::filesystem::remove_all(dir);
  EXPECT_TRUE(ChildOfficePids().empty()) << "the " << tests << " tests left an office running";
}

}  // namespace tabulon::testing
