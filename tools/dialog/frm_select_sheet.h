// frmSelectSheet: the modal window in which an end user picks one sheet
// (listSheet) or several (listSheets) of a workbook. It gets the names ready
// read; cmdSelect builds the selected-sheets text and closes the window,
// cmdCancel (or Escape, or closing the window) leaves that text empty.
#pragma once

#include <QDialog>
#include <QString>
#include <QStringList>
#include <map>
#include <vector>

class QLabel;
class QListWidget;
class QPushButton;

namespace tabulon::dialog {

// One text of the window a language file may give: its key in the
// [frmSelectSheet] section and its built-in English text.
struct FormText {
  const char* key;
  const char* english;
};

class FrmSelectSheet : public QDialog {
 public:
  // `texts`: the language file's texts by key; a key that is missing or
  // empty keeps its English text. "Font.Name" and "Font.Size" (points) set
  // the window's font.
  FrmSelectSheet(const QStringList& sheet_names, bool multiple_select, const std::map<QString, QString>& texts,
                 QWidget* parent = nullptr);

  // The picked names, each in double quotes, joined by ","; empty until
  // cmdSelect was pressed.
  const QString& SelectedSheets() const { return selected_sheets_; }

  // Every key the window reads from a language file, in the order the
  // shipped files list them.
  static const std::vector<FormText>& Texts();

 private:
  void cmdSelect_Click();
  void cmdCancel_Click();

  QString selected_sheets_;
  bool multiple_select_;
  QLabel* lblPrompt_;
  QListWidget* listSheet_;
  QListWidget* listSheets_;
  QPushButton* cmdSelect_;
  QPushButton* cmdCancel_;
};

}  // namespace tabulon::dialog
