// A factory that forwards to the real office and lets a test watch and break
// what the real office cannot be made to do: count the applications started,
// record the arguments workbooks were opened with, make Quit fail.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "office/office.h"

namespace tabulon::testing {

struct OfficeSpy {
  std::atomic<int> excel_created{0};
  std::atomic<int> word_created{0};
  std::atomic<int> quits{0};
  bool fail_quit = false;          // Quit throws (after quitting for real)
  bool fail_create = false;        // CreateExcel throws
  std::vector<std::pair<std::string, office::OpenOptions>> opens;
  std::vector<std::string> switches;  // "DisplayAlerts=1", in the order set
};

class SpyWorkbooks : public office::Workbooks {
 public:
  SpyWorkbooks(office::Workbooks& real, OfficeSpy& spy) : real_(real), spy_(spy) {}
  office::Workbook& Open(const std::string& filename, const office::OpenOptions& options) override {
    spy_.opens.emplace_back(filename, options);
    return real_.Open(filename, options);
  }
  office::Workbook& Add() override { return real_.Add(); }
  office::Workbook& Item(int32_t index) override { return real_.Item(index); }
  int32_t Count() override { return real_.Count(); }
  void Close() override { real_.Close(); }

 private:
  office::Workbooks& real_;
  OfficeSpy& spy_;
};

class SpyApplication : public office::Application {
 public:
  SpyApplication(std::unique_ptr<office::Application> real, std::shared_ptr<OfficeSpy> spy)
      : real_(std::move(real)), spy_(std::move(spy)), workbooks_(real_->GetWorkbooks(), *spy_) {}

  void SetDisplayAlerts(bool v) override {
    spy_->switches.push_back("DisplayAlerts=" + std::to_string(v));
    real_->SetDisplayAlerts(v);
  }
  void SetEnableEvents(bool v) override {
    spy_->switches.push_back("EnableEvents=" + std::to_string(v));
    real_->SetEnableEvents(v);
  }
  void SetVisible(bool v) override {
    spy_->switches.push_back("Visible=" + std::to_string(v));
    real_->SetVisible(v);
  }
  void SetAskToUpdateLinks(bool v) override {
    spy_->switches.push_back("AskToUpdateLinks=" + std::to_string(v));
    real_->SetAskToUpdateLinks(v);
  }
  void SetAlertBeforeOverwriting(bool v) override {
    spy_->switches.push_back("AlertBeforeOverwriting=" + std::to_string(v));
    real_->SetAlertBeforeOverwriting(v);
  }
  void SetPromptForSummaryInfo(bool v) override {
    spy_->switches.push_back("PromptForSummaryInfo=" + std::to_string(v));
    real_->SetPromptForSummaryInfo(v);
  }
  std::string Version() override { return real_->Version(); }
  int32_t Build() override { return real_->Build(); }
  office::Workbooks& GetWorkbooks() override { return workbooks_; }
  office::Workbook& ActiveWorkbook() override { return real_->ActiveWorkbook(); }
  std::unique_ptr<office::Worksheet> ActiveSheet() override { return real_->ActiveSheet(); }
  void SetDisplayFormulas(bool v) override { real_->SetDisplayFormulas(v); }
  std::unique_ptr<office::Range> Selection() override { return real_->Selection(); }
  void Run(const std::string& m, const std::vector<std::string>& a) override { real_->Run(m, a); }
  void Quit() override {
    ++spy_->quits;
    real_->Quit();
    if (spy_->fail_quit) throw office::Error(office::ErrorKind::kAutomation, "injected: Quit failed");
  }
  bool IsAlive() override { return real_->IsAlive(); }
  std::string Finding() override { return real_->Finding(); }

  office::Application& real() { return *real_; }

 private:
  std::unique_ptr<office::Application> real_;
  std::shared_ptr<OfficeSpy> spy_;
  SpyWorkbooks workbooks_;
};

class SpyFactory : public office::Factory {
 public:
  explicit SpyFactory(std::shared_ptr<office::Factory> real, std::shared_ptr<OfficeSpy> spy = nullptr)
      : real_(std::move(real)), spy_(spy ? std::move(spy) : std::make_shared<OfficeSpy>()) {}
  std::unique_ptr<office::Application> CreateExcel() override {
    if (spy_->fail_create) throw office::Error(office::ErrorKind::kAutomation, "injected: cannot start");
    auto app = std::make_unique<SpyApplication>(real_->CreateExcel(), spy_);
    ++spy_->excel_created;
    return app;
  }
  std::unique_ptr<office::WordApplication> CreateWord() override {
    auto app = real_->CreateWord();
    ++spy_->word_created;
    return app;
  }
  OfficeSpy& spy() { return *spy_; }

 private:
  std::shared_ptr<office::Factory> real_;
  std::shared_ptr<OfficeSpy> spy_;
};

}  // namespace tabulon::testing
