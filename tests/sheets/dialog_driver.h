// Drives the modal sheet selection window from inside its own event loop:
// the test arranges what to do before the call that shows the window, and
// the action runs once the window is up.
#pragma once

#include <gtest/gtest.h>

#include <QApplication>
#include <QListWidget>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <functional>
#include <memory>
#include <string>

namespace tabulon::testing {

inline QListWidget* List(QWidget& form, const char* name) { return form.findChild<QListWidget*>(name); }
inline QPushButton* Button(QWidget& form, const char* name) { return form.findChild<QPushButton*>(name); }

inline QStringList Items(QListWidget* list) {
  QStringList items;
  for (int i = 0; i < list->count(); ++i) items << list->item(i)->text();
  return items;
}

// Clicks the item with this text the way a person would.
inline void ClickItem(QListWidget* list, const QString& text) {
  const auto found = list->findItems(text, Qt::MatchExactly);
  ASSERT_EQ(found.size(), 1) << text.toStdString();
  list->scrollToItem(found[0]);
  QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(found[0]).center());
}

inline void Click(QWidget& form, const char* button) {
  QPushButton* b = Button(form, button);
  ASSERT_NE(b, nullptr) << button;
  QTest::mouseClick(b, Qt::LeftButton);
}

// Runs `act` on frmSelectSheet once it is shown modally. The window must be
// closed by `act`; if it is not, it is cancelled and the test fails. The
// watch ends with this object, shown or not.
class WhenShown {
 public:
  explicit WhenShown(std::function<void(QWidget& form)> act) : timer_(std::make_unique<QTimer>()) {
    timer_->setInterval(20);
    QObject::connect(timer_.get(), &QTimer::timeout, [this, act] {
      QWidget* form = QApplication::activeModalWidget();
      if (form == nullptr || form->objectName() != QLatin1String("frmSelectSheet") || !form->isVisible()) return;
      timer_->stop();
      shown_ = true;
      act(*form);
      if (form->isVisible()) {
        ADD_FAILURE() << "the window was left open";
        form->close();
      }
    });
    timer_->start();
  }
  bool shown() const { return shown_; }

 private:
  std::unique_ptr<QTimer> timer_;
  bool shown_ = false;
};

}  // namespace tabulon::testing
