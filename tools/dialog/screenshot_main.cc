// sheet_dialog_screenshot: pictures of the sheet selection dialog for the
// documentation, taken through the control exactly as a host shows it (the
// sheet names read by the office, the language file given to
// InitTranslator). The window is drawn offscreen, the sheets given with
// --pick are picked, the picture is saved and the window cancelled. An
// offscreen window has no frame, so its caption is drawn above it in a
// plain title bar.
//
//   sheet_dialog_screenshot [--language .../Languages/German.lng] [--single]
//                           [--pick North,Notes] BOOK OUT.png
#include <QApplication>
#include <QListWidget>
#include <QPainter>
#include <QPixmap>
#include <QTimer>
#include <filesystem>
#include <iostream>
#include <string>

#include "tabulon/tabulon_ctrl.h"

int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  std::string language, book, out;
  QStringList picks;
  bool multiple = true;
  const QStringList args = QApplication::arguments().mid(1);
  for (int i = 0; i < args.size(); ++i) {
    if (args[i] == "--language" && i + 1 < args.size()) {
      language = args[++i].toStdString();
    } else if (args[i] == "--pick" && i + 1 < args.size()) {
      picks = args[++i].split(',');
    } else if (args[i] == "--single") {
      multiple = false;
    } else if (book.empty()) {
      book = std::filesystem::absolute(args[i].toStdString()).string();
    } else {
      out = args[i].toStdString();
    }
  }
  if (book.empty() || out.empty()) {
    std::cerr << "usage: sheet_dialog_screenshot [--language FILE.lng] [--single] [--pick A,B] BOOK OUT.png\n";
    return 2;
  }

  tabulon::TabulonCtrl control;
  if (!language.empty()) {
    // The file is in a Languages folder; the settings file sits beside it.
    const std::filesystem::path file(language);
    std::string parent = (file.parent_path().parent_path() / "settings.ini").string();
    std::string name = file.filename().string();
    control.InitTranslator(parent, name);
  }

  bool saved = false;
  QTimer timer;
  timer.setInterval(20);
  QObject::connect(&timer, &QTimer::timeout, [&] {
    QWidget* form = QApplication::activeModalWidget();
    if (form == nullptr || form->objectName() != "frmSelectSheet") return;
    timer.stop();
    auto* list = form->findChild<QListWidget*>(multiple ? "listSheets" : "listSheet");
    for (const QString& pick : picks) {
      for (QListWidgetItem* item : list->findItems(pick, Qt::MatchExactly)) item->setSelected(true);
    }
    list->setFocus();
    form->resize(320, 260);
    const QPixmap body = form->grab();
    const int bar = form->fontMetrics().height() + 12;
    QPixmap picture(body.width(), body.height() + bar);
    picture.fill(QColor(0x3c, 0x3f, 0x41));
    QPainter painter(&picture);
    painter.setPen(Qt::white);
    painter.setFont(form->font());
    painter.drawText(QRect(10, 0, body.width() - 20, bar), Qt::AlignVCenter | Qt::AlignLeft, form->windowTitle());
    painter.drawPixmap(0, bar, body);
    painter.end();
    saved = picture.save(QString::fromStdString(out));
    form->close();
  });
  timer.start();
  const std::string picked = control.ShowSheetSelectionDialog(book, multiple);
  if (!saved) {
    std::cerr << "sheet_dialog_screenshot: no picture: " << control.get_ErrorString() << "\n";
    return 1;
  }
  return 0;
}
