// ShowSheetSelectionDialog through the control, on real workbooks: the
// names come from a real office, the window is driven with QTest on the
// offscreen platform, and no office may outlive a call.
#include <gtest/gtest.h>
#include <unistd.h>

#include <QApplication>
#include <QLabel>
#include <filesystem>
#include <fstream>

#include "control/translator.h"
#include "dialog_driver.h"
#include "office/uno/uno_factory.h"
#include "support/books.h"
#include "support/office_wrappers.h"
#include "support/processes.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon::testing {
namespace {

namespace fs = std::filesystem;

struct Books {
  fs::path dir;
  std::string plain;      // Sheet1, Sheet2, Sheet3, Totals
  std::string protected_; // the same, .xls with an opening password
};

Books* g_books = nullptr;

class DialogEnv : public ::testing::Environment {
 public:
  void SetUp() override {
    g_books = new Books;
    g_books->dir = fs::temp_directory_path() / ("tabulon-dialog-" + std::to_string(getpid()));
    fs::create_directories(g_books->dir);
    g_books->plain = (g_books->dir / "book.xlsx").string();
    g_books->protected_ = (g_books->dir / "locked.xls").string();
    auto app = office::uno::MakeUnoFactory()->CreateExcel();
    const std::vector<SheetCells> sheets = {{"Sheet1", {{"a"}}}, {"Sheet2", {{"b"}}}, {"Sheet3", {{"c"}}},
                                            {"Totals", {{1.0}}}};
    SaveBook(*app, g_books->plain, sheets);
    office::Workbook& book = app->GetWorkbooks().Add();
    office::SaveAsOptions locked;
    locked.file_format = -4143;
    locked.password = "secret";
    book.SaveAs(g_books->protected_, locked);
    book.Close(false);
    app->Quit();
  }
  void TearDown() override {
    fs::remove_all(g_books->dir);
    delete g_books;
  }
};

const auto* const kEnv = ::testing::AddGlobalTestEnvironment(new DialogEnv);

// One call of the method on a control of its own that counts the offices it
// starts, and what it left.
struct Outcome {
  std::string result;
  std::string error;
  std::vector<std::pair<int32_t, std::string>> events;
  int offices_started = 0;
  int offices_quit = 0;
  std::vector<office::OpenOptions> opens;
};

ControlOptions WithPlugIn() {
  ControlOptions options;
  options.dialog_plugin_folder = TABULON_DIALOG_PLUGIN_DIR;
  return options;
}

Outcome Show(std::string path, bool multiple, ControlOptions options = WithPlugIn()) {
  auto factory = std::make_shared<SpyFactory>(office::uno::MakeUnoFactory());
  options.office = factory;
  TabulonCtrl control(options);
  Outcome o;
  control.AdviseOnError([&](int32_t& code, std::string& text) { o.events.emplace_back(code, text); });
  o.result = control.ShowSheetSelectionDialog(path, multiple);
  o.error = control.get_ErrorString();
  o.offices_started = factory->spy().excel_created;
  o.offices_quit = factory->spy().quits;
  for (const auto& [file, open] : factory->spy().opens) o.opens.push_back(open);
  EXPECT_TRUE(ChildOfficePids().empty()) << "an office outlived the call";
  return o;
}

TEST(SheetSelectionDialog, ReturnsTwoPickedSheetsQuotedAndJoined) {
  QStringList listed;
  WhenShown drive([&](QWidget& form) {
    listed = Items(List(form, "listSheets"));
    EXPECT_FALSE(List(form, "listSheet")->isVisible());
    ClickItem(List(form, "listSheets"), "Sheet1");
    ClickItem(List(form, "listSheets"), "Sheet3");
    Click(form, "cmdSelect");
  });
  const Outcome o = Show(g_books->plain, true);
  EXPECT_TRUE(drive.shown());
  EXPECT_EQ(listed, QStringList({"Sheet1", "Sheet2", "Sheet3", "Totals"}));
  EXPECT_EQ(o.result, "\"Sheet1\",\"Sheet3\"");
  EXPECT_TRUE(o.events.empty());
  EXPECT_EQ(o.error, " ");
  // An office of the dialog's own, opened read-only without passwords, quit.
  EXPECT_EQ(o.offices_started, 1);
  EXPECT_EQ(o.offices_quit, 1);
  ASSERT_EQ(o.opens.size(), 1u);
  EXPECT_EQ(o.opens[0].read_only, std::optional<bool>(true));
  EXPECT_FALSE(o.opens[0].password.has_value());
  EXPECT_FALSE(o.opens[0].write_res_password.has_value());
}

TEST(SheetSelectionDialog, ReturnsOneSheetInSingleSelectMode) {
  WhenShown drive([&](QWidget& form) {
    EXPECT_FALSE(List(form, "listSheets")->isVisible());
    ClickItem(List(form, "listSheet"), "Totals");
    Click(form, "cmdSelect");
  });
  const Outcome o = Show(g_books->plain, false);
  EXPECT_TRUE(drive.shown());
  EXPECT_EQ(o.result, "\"Totals\"");
  EXPECT_TRUE(o.events.empty());
}

TEST(SheetSelectionDialog, CancelReturnsNothingAndSetsNoError) {
  WhenShown drive([&](QWidget& form) {
    ClickItem(List(form, "listSheets"), "Sheet2");
    Click(form, "cmdCancel");
  });
  const Outcome o = Show(g_books->plain, true);
  EXPECT_TRUE(drive.shown());
  EXPECT_EQ(o.result, "");
  EXPECT_TRUE(o.events.empty());
  EXPECT_EQ(o.error, " ");
}

TEST(SheetSelectionDialog, MissingWorkbookFailsBeforeAnyOfficeStarts) {
  WhenShown drive([](QWidget& form) { Click(form, "cmdCancel"); });
  const std::string missing = (g_books->dir / "missing.xlsx").string();
  const Outcome o = Show(missing, true);
  EXPECT_FALSE(drive.shown());
  EXPECT_EQ(o.result, "");
  EXPECT_EQ(o.error, "Source file does not exist: " + missing);
  ASSERT_EQ(o.events.size(), 1u);
  EXPECT_EQ(o.events[0], std::make_pair(int32_t{-10}, o.error));
  EXPECT_EQ(o.offices_started, 0);
}

// No password is passed, so a protected workbook cannot be listed; the
// window's error text was never set, so the message is empty.
TEST(SheetSelectionDialog, ProtectedWorkbookFailsWithoutShowingTheWindow) {
  WhenShown drive([](QWidget& form) { Click(form, "cmdCancel"); });
  const Outcome o = Show(g_books->protected_, false);
  EXPECT_FALSE(drive.shown());
  EXPECT_EQ(o.result, "");
  EXPECT_EQ(o.error, "");
  ASSERT_EQ(o.events.size(), 1u);
  EXPECT_EQ(o.events[0], std::make_pair(int32_t{-10}, std::string()));
  EXPECT_EQ(o.offices_started, 1);
}

TEST(SheetSelectionDialog, MissingPlugInFailsWithoutStartingAnOffice) {
  ControlOptions options;
  options.dialog_plugin_folder = (g_books->dir / "no-plugins").string();
  const Outcome o = Show(g_books->plain, true, options);
  EXPECT_EQ(o.result, "");
  EXPECT_NE(o.error.find("is not installed"), std::string::npos) << o.error;
  ASSERT_EQ(o.events.size(), 1u);
  EXPECT_EQ(o.events[0].first, -10);
  EXPECT_EQ(o.offices_started, 0);
}

TEST(SheetSelectionDialog, WearsTheLanguageFileGivenToInitTranslator) {
  const fs::path settings = g_books->dir / "host" / "host.ini";
  fs::create_directories(settings.parent_path() / "Languages");
  fs::copy_file(fs::path(TABULON_LANGUAGES_DIR) / "German.lng", settings.parent_path() / "Languages" / "German.lng",
                fs::copy_options::overwrite_existing);
  {
    TabulonCtrl translator_host(ControlOptions{});
    std::string parent = settings.string();
    std::string language = "German.lng";
    EXPECT_FALSE(translator_host.InitTranslator(parent, language));
  }
  QString caption, select, cancel, prompt, tip;
  WhenShown drive([&](QWidget& form) {
    caption = form.windowTitle();
    select = Button(form, "cmdSelect")->text();
    cancel = Button(form, "cmdCancel")->text();
    tip = Button(form, "cmdSelect")->toolTip();
    prompt = form.findChild<QLabel*>("lblPrompt")->text();
    ClickItem(List(form, "listSheet"), "Sheet2");
    Click(form, "cmdSelect");
  });
  const Outcome o = Show(g_books->plain, false);
  std::string none;
  TabulonCtrl().InitTranslator(none, none);  // back to the built-in texts
  EXPECT_TRUE(drive.shown());
  EXPECT_EQ(o.result, "\"Sheet2\"");
  EXPECT_EQ(caption, "Tabellenblätter auswählen");
  EXPECT_EQ(select, "&Auswählen");
  EXPECT_EQ(cancel, "Abbre&chen");
  EXPECT_EQ(tip, "Die gewählten Tabellenblätter übernehmen");
  EXPECT_EQ(prompt, "Wählen Sie das Tabellenblatt:");
}

}  // namespace
}  // namespace tabulon::testing

int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
