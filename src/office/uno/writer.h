// The word-processor side of the backend: documents and their tables in a
// Writer of its own. Internal to the backend.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include <com/sun/star/lang/XComponent.hpp>
#include <com/sun/star/text/XTextTable.hpp>

#include "office/office.h"
#include "office/uno/session.h"
#include "office/uno/uno_factory.h"

namespace tabulon::office::uno {

class WriterApplication;

class WriterDocument : public Document {
 public:
  WriterDocument(WriterApplication* app, Reference<css::lang::XComponent> component)
      : app_(app), component_(std::move(component)) {}
  int32_t TablesCount() override;
  std::unique_ptr<Table> Tables(int32_t index) override;
  void Close(std::optional<bool> save_changes) override;

  template <typename F>
  auto Call(const char* what, F&& f) -> decltype(f());
  bool closed() const { return closed_; }
  const Reference<css::lang::XComponent>& component() const { return component_; }
  void CloseDocument();

 private:
  WriterApplication* app_;
  Reference<css::lang::XComponent> component_;
  bool closed_ = false;
};

class WriterTable : public Table {
 public:
  WriterTable(WriterDocument* document, Reference<css::text::XTextTable> table)
      : document_(document), table_(std::move(table)) {}
  int32_t RowsCount() override;
  int32_t ColumnsCount() override;
  void RowDelete(int32_t row) override;
  void ColumnDelete(int32_t column) override;
  void RangeCopy() override;
  Block Cells() override;

 private:
  Block Read();
  std::string Html();
  WriterDocument* document_;
  Reference<css::text::XTextTable> table_;
};

class WriterApplication : public UnoWordApplication {
 public:
  explicit WriterApplication(const UnoOptions& options);
  ~WriterApplication() override;

  std::string Version() override;
  void SetDisplayAlerts(int16_t value) override { switches_.push_back({"DisplayAlerts", value}); }
  void SetVisible(bool value) override { switches_.push_back({"Visible", value ? 1 : 0}); }
  Document& Open(const std::string& filename, const DocumentOpenOptions& options) override;
  Document& ActiveDocument() override;
  void Quit() override;

  int32_t ProcessId() override { return static_cast<int32_t>(session_->pid()); }
  std::vector<SwitchRecord> Switches() override { return switches_; }
  void SetCallTimeLimit(std::chrono::milliseconds limit) override { session_->SetCallTimeLimit(limit); }
  bool IsAlive() override { return session_->Alive(); }
  void SaveCopyAs(Document& document, const std::string& filename) override;
  std::string Finding() override { return session_->finding(); }

  template <typename F>
  auto Call(const char* what, F&& f) -> decltype(f()) {
    return session_->Call(what, std::forward<F>(f));
  }
  void Forget(WriterDocument* document);

 private:
  std::unique_ptr<Session> session_;
  std::deque<std::unique_ptr<WriterDocument>> all_;  // closed ones stay valid objects
  std::vector<WriterDocument*> open_;
  std::vector<SwitchRecord> switches_;
};

template <typename F>
auto WriterDocument::Call(const char* what, F&& f) -> decltype(f()) {
  if (closed_) throw Error(ErrorKind::kAutomation, std::string(what) + ": the document is closed");
  return app_->Call(what, std::forward<F>(f));
}

}  // namespace tabulon::office::uno
