// The plug-in's two entry points (src/sheets/sheet_dialog_plugin.h). The host
// may or may not run a widget application of its own: the window uses the
// host's when there is one, else the plug-in starts one and keeps it for the
// life of the process.
//
// The toolkit ends the process when it cannot reach the display it was told
// to use; the probe below checks, without starting the toolkit, that at
// least one of the platforms it would try can start.
#include <dlfcn.h>

#include <QApplication>
#include <QByteArray>
#include <QCoreApplication>
#include <QFileInfo>
#include <QString>
#include <QStringList>
#include <clocale>
#include <cstdlib>
#include <exception>
#include <map>
#include <string>

#include "frm_select_sheet.h"
#include "sheets/sheet_dialog_plugin.h"

namespace {

// The toolkit's own default platform on this system when QT_QPA_PLATFORM is
// not set.
QString DefaultPlatforms() {
  if (qgetenv("XDG_SESSION_TYPE") == "wayland") return QStringLiteral("wayland;xcb");
  return QStringLiteral("xcb");
}

bool PlatformPluginInstalled(const QString& name) {
  QStringList folders;
  const QString own = qEnvironmentVariable("QT_QPA_PLATFORM_PLUGIN_PATH");
  if (!own.isEmpty()) folders << own;
  for (const QString& path : QCoreApplication::libraryPaths()) folders << path + QStringLiteral("/platforms");
  for (const QString& folder : folders) {
    if (QFileInfo::exists(folder + QStringLiteral("/libq") + name + QStringLiteral(".so"))) return true;
  }
  return false;
}

// Connects to the X display the way the toolkit's X platform would, through
// the X protocol library it loads itself, and disconnects again.
bool XDisplayAnswers(const QByteArray& display) {
  void* xcb = dlopen("libxcb.so.1", RTLD_NOW | RTLD_LOCAL);
  if (xcb == nullptr) return false;
  using Connect = void* (*)(const char*, int*);
  using HasError = int (*)(void*);
  using Disconnect = void (*)(void*);
  auto connect = reinterpret_cast<Connect>(dlsym(xcb, "xcb_connect"));
  auto has_error = reinterpret_cast<HasError>(dlsym(xcb, "xcb_connection_has_error"));
  auto disconnect = reinterpret_cast<Disconnect>(dlsym(xcb, "xcb_disconnect"));
  bool answers = false;
  if (connect != nullptr && has_error != nullptr && disconnect != nullptr) {
    void* connection = connect(display.constData(), nullptr);
    if (connection != nullptr) {
      answers = has_error(connection) == 0;
      disconnect(connection);
    }
  }
  dlclose(xcb);
  return answers;
}

// Empty when `platform` can start; otherwise why not.
QString PlatformProblem(const QString& platform) {
  const QString name = platform.section(QLatin1Char(':'), 0, 0);
  if (!PlatformPluginInstalled(name)) return QStringLiteral("the platform \"%1\" is not installed").arg(name);
  if (name == QLatin1String("xcb")) {
    const QByteArray display = qgetenv("DISPLAY");
    if (display.isEmpty()) return QStringLiteral("DISPLAY is not set");
    if (!XDisplayAnswers(display)) {
      return QStringLiteral("the X display %1 does not answer").arg(QString::fromLocal8Bit(display));
    }
  } else if (name.startsWith(QLatin1String("wayland"))) {
    if (qgetenv("WAYLAND_DISPLAY").isEmpty()) return QStringLiteral("WAYLAND_DISPLAY is not set");
  }
  return {};
}

void Report(const tabulon_sheet_dialog_request* request, const QString& text) {
  if (request->on_error != nullptr) request->on_error(request->context, text.toUtf8().constData());
}

int Probe(const tabulon_sheet_dialog_request* request) {
  if (QCoreApplication* app = QCoreApplication::instance()) {
    if (qobject_cast<QApplication*>(app) != nullptr) return 0;
    Report(request, QStringLiteral("The sheet selection dialog cannot be shown: the host's application has no "
                                   "widgets"));
    return 1;
  }
  const QString asked = qEnvironmentVariable("QT_QPA_PLATFORM");
  const QString platforms = asked.isEmpty() ? DefaultPlatforms() : asked;
  QStringList problems;
  for (const QString& platform : platforms.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
    const QString problem = PlatformProblem(platform.trimmed());
    if (problem.isEmpty()) return 0;
    problems << problem;
  }
  Report(request, QStringLiteral("No display to show the sheet selection dialog on: %1 "
                                 "(QT_QPA_PLATFORM=offscreen shows it without one)")
                      .arg(problems.join(QStringLiteral("; "))));
  return 1;
}

// The toolkit's chatter (a missing runtime folder, what the platform cannot
// do) is of no use to the host and would mix into a command line's error
// stream; only its critical messages get through.
QtMessageHandler g_toolkit_handler = nullptr;

void QuietMessages(QtMsgType type, const QMessageLogContext& context, const QString& message) {
  if ((type == QtCriticalMsg || type == QtFatalMsg) && g_toolkit_handler != nullptr) {
    g_toolkit_handler(type, context, message);
  }
}

// The host's application, or one of the plug-in's own. The toolkit sets the
// process's locale from the environment when it starts; the host's locale is
// put back, since the host's number formatting must not change under it.
void EnsureApplication() {
  if (QCoreApplication::instance() != nullptr) return;
  g_toolkit_handler = qInstallMessageHandler(QuietMessages);
  static int argc = 1;
  static char name[] = "tabulon";
  static char* argv[] = {name, nullptr};
  const std::string locale = std::setlocale(LC_ALL, nullptr);
  new QApplication(argc, argv);  // kept for the life of the process
  std::setlocale(LC_ALL, locale.c_str());
}

bool Usable(const tabulon_sheet_dialog_request* request) {
  return request != nullptr && request->interface_version == TABULON_SHEET_DIALOG_INTERFACE;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int tabulon_sheet_dialog_probe(
    const tabulon_sheet_dialog_request* request) {
  if (!Usable(request)) return 2;
  try {
    return Probe(request);
  } catch (const std::exception& e) {
    Report(request, QString::fromUtf8(e.what()));
    return 1;
  }
}

extern "C" __attribute__((visibility("default"))) int tabulon_sheet_dialog_show(
    const tabulon_sheet_dialog_request* request) {
  if (!Usable(request)) return 2;
  try {
    if (Probe(request) != 0) return 1;
    EnsureApplication();
    QStringList names;
    for (int i = 0; i < request->sheet_count; ++i) names << QString::fromUtf8(request->sheet_names[i]);
    std::map<QString, QString> texts;
    for (int i = 0; i < request->text_count; ++i) {
      texts[QString::fromUtf8(request->text_keys[i])] = QString::fromUtf8(request->text_values[i]);
    }
    QByteArray selected;
    {
      tabulon::dialog::FrmSelectSheet form(names, request->multiple_select != 0, texts);
      form.exec();
      selected = form.SelectedSheets().toUtf8();
    }
    if (request->on_selected != nullptr) request->on_selected(request->context, selected.constData());
    return 0;
  } catch (const std::exception& e) {
    Report(request, QStringLiteral("The sheet selection dialog failed: %1").arg(QString::fromUtf8(e.what())));
    return 1;
  }
}
