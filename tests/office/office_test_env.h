// Shared pieces of the backend's office tests: one warm office for the tests
// that leave it working, a record of every office process the tests started
// (none may be left when a test ends), scratch folders and file helpers.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "office/uno/uno_factory.h"

namespace tabulon::office::uno::testing {

// The warm office shared by the tests that do not end it. Started on first
// use; quit when the test program ends.
UnoApplication& SharedExcel();

// Starts an office of its own for a test that ends or breaks it; its process
// is recorded and checked to be gone after the test.
std::unique_ptr<UnoApplication> OwnExcel(UnoOptions options = {});
std::unique_ptr<UnoWordApplication> OwnWord(UnoOptions options = {});
void RecordStarted(pid_t pid);

bool ProcessGone(pid_t pid);
// Stops a process (SIGSTOP) and waits until every thread of it has
// stopped: a busy machine can let its threads answer a call or two before
// the stop reaches them.
bool Stop(pid_t pid);
// Waits briefly for a process to disappear (reaping is done by the backend).
bool EventuallyGone(pid_t pid);

std::string ReadFile(const std::filesystem::path& path);
void WriteFile(const std::filesystem::path& path, const std::string& bytes);

// A fresh folder per test, removed afterwards; checks that no office process
// started during the test outlives it, except the shared one.
class OfficeTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  std::filesystem::path Path(const std::string& name) const { return dir_ / name; }
  std::filesystem::path dir_;
};

}  // namespace tabulon::office::uno::testing
