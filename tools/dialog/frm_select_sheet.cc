#include "frm_select_sheet.h"

#include <QFont>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

namespace tabulon::dialog {

const std::vector<FormText>& FrmSelectSheet::Texts() {
  static const std::vector<FormText> texts = {
      {"Caption", "Select Sheets"},
      {"lblPrompt.Caption", "Pick the sheet to use:"},
      {"lblPromptMultiple.Caption", "Pick the sheets to use:"},
      {"listSheet.ToolTipText", "Click the sheet you want"},
      {"listSheets.ToolTipText", "Click each sheet you want; click it again to leave it out"},
      {"cmdSelect.Caption", "&Select"},
      {"cmdSelect.ToolTipText", "Use the picked sheets"},
      {"cmdCancel.Caption", "&Cancel"},
      {"cmdCancel.ToolTipText", "Close without picking a sheet"},
      {"Font.Name", ""},
      {"Font.Size", ""},
  };
  return texts;
}

namespace {

QString Text(const std::map<QString, QString>& texts, const char* key) {
  const auto it = texts.find(QString::fromUtf8(key));
  if (it != texts.end() && !it->second.isEmpty()) return it->second;
  for (const FormText& text : FrmSelectSheet::Texts()) {
    if (qstrcmp(text.key, key) == 0) return QString::fromUtf8(text.english);
  }
  return {};
}

QListWidget* MakeList(const char* name, QAbstractItemView::SelectionMode mode, const QString& tip, QWidget* parent) {
  auto* list = new QListWidget(parent);
  list->setObjectName(QString::fromLatin1(name));
  list->setSelectionMode(mode);
  list->setToolTip(tip);
  return list;
}

QPushButton* MakeButton(const char* name, const QString& caption, const QString& tip, QWidget* parent) {
  auto* button = new QPushButton(caption, parent);
  button->setObjectName(QString::fromLatin1(name));
  button->setToolTip(tip);
  return button;
}

}  // namespace

FrmSelectSheet::FrmSelectSheet(const QStringList& sheet_names, bool multiple_select,
                               const std::map<QString, QString>& texts, QWidget* parent)
    : QDialog(parent), multiple_select_(multiple_select) {
  setObjectName(QStringLiteral("frmSelectSheet"));
  setWindowTitle(Text(texts, "Caption"));
  setModal(true);

  QFont font = this->font();
  if (const QString family = Text(texts, "Font.Name"); !family.isEmpty()) font.setFamily(family);
  bool size_ok = false;
  const double size = Text(texts, "Font.Size").toDouble(&size_ok);
  if (size_ok && size > 0) font.setPointSizeF(size);
  setFont(font);

  lblPrompt_ = new QLabel(Text(texts, multiple_select ? "lblPromptMultiple.Caption" : "lblPrompt.Caption"), this);
  lblPrompt_->setObjectName(QStringLiteral("lblPrompt"));
  // Multiple selection toggles an item per click, so picking several sheets
  // needs no modifier keys.
  listSheet_ = MakeList("listSheet", QAbstractItemView::SingleSelection, Text(texts, "listSheet.ToolTipText"), this);
  listSheets_ =
      MakeList("listSheets", QAbstractItemView::MultiSelection, Text(texts, "listSheets.ToolTipText"), this);
  cmdSelect_ = MakeButton("cmdSelect", Text(texts, "cmdSelect.Caption"), Text(texts, "cmdSelect.ToolTipText"), this);
  cmdCancel_ = MakeButton("cmdCancel", Text(texts, "cmdCancel.Caption"), Text(texts, "cmdCancel.ToolTipText"), this);
  cmdSelect_->setDefault(true);
  lblPrompt_->setBuddy(multiple_select ? listSheets_ : listSheet_);

  auto* buttons = new QHBoxLayout;
  buttons->addStretch();
  buttons->addWidget(cmdSelect_);
  buttons->addWidget(cmdCancel_);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(lblPrompt_);
  layout->addWidget(listSheet_);
  layout->addWidget(listSheets_);
  layout->addLayout(buttons);

  // The preparation: the names go into the list in use, which alone is shown.
  listSheet_->clear();
  listSheets_->clear();
  (multiple_select ? listSheets_ : listSheet_)->addItems(sheet_names);
  listSheets_->setVisible(multiple_select);
  listSheet_->setVisible(!multiple_select);

  connect(cmdSelect_, &QPushButton::clicked, this, [this] { cmdSelect_Click(); });
  connect(cmdCancel_, &QPushButton::clicked, this, [this] { cmdCancel_Click(); });
}

void FrmSelectSheet::cmdSelect_Click() {
  selected_sheets_.clear();
  const QListWidget* list = multiple_select_ ? listSheets_ : listSheet_;
  for (int i = 0; i < list->count(); ++i) {
    const QListWidgetItem* item = list->item(i);
    if (!item->isSelected()) continue;
    if (multiple_select_ && !selected_sheets_.isEmpty()) selected_sheets_ += QLatin1Char(',');
    selected_sheets_ += QLatin1Char('"') + item->text() + QLatin1Char('"');
    if (!multiple_select_) break;
  }
  accept();
}

void FrmSelectSheet::cmdCancel_Click() {
  selected_sheets_.clear();
  reject();
}

}  // namespace tabulon::dialog
