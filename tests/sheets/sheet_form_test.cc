// frmSelectSheet on its own, without an office: what each way of closing the
// window leaves as the selected-sheets text, which list is in use, and the
// texts a language file puts on it. Runs on the offscreen platform.
#include <gtest/gtest.h>
#include <unistd.h>

#include <QApplication>
#include <QLabel>
#include <filesystem>
#include <fstream>
#include <set>

#include "control/translator.h"
#include "dialog_driver.h"
#include "frm_select_sheet.h"

namespace tabulon::testing {
namespace {

using dialog::FrmSelectSheet;

const QStringList kSheets = {"Sheet1", "Sheet2", "Sheet3", "Q1, \"North\"", "Übersicht"};

struct Pick {
  const char* name;
  bool multiple;
  QStringList clicks;  // items clicked in this order (a second click on the same item toggles it)
  const char* button;  // nullptr: Escape
  QString expected;
  QDialog::DialogCode code;
};

class PickTest : public ::testing::TestWithParam<Pick> {};

TEST_P(PickTest, LeavesTheSelectedSheetsText) {
  const Pick& p = GetParam();
  FrmSelectSheet form(kSheets, p.multiple, {});
  WhenShown drive([&](QWidget& shown) {
    QListWidget* list = List(shown, p.multiple ? "listSheets" : "listSheet");
    for (const QString& item : p.clicks) ClickItem(list, item);
    if (p.button != nullptr) {
      Click(shown, p.button);
    } else {
      QTest::keyClick(&shown, Qt::Key_Escape);
    }
  });
  const int code = form.exec();
  EXPECT_TRUE(drive.shown());
  EXPECT_EQ(form.SelectedSheets(), p.expected);
  EXPECT_EQ(code, p.code);
}

INSTANTIATE_TEST_SUITE_P(
    Form, PickTest,
    ::testing::Values(
        Pick{"TwoOfMany", true, {"Sheet1", "Sheet3"}, "cmdSelect", "\"Sheet1\",\"Sheet3\"", QDialog::Accepted},
        // Workbook order, not click order.
        Pick{"InWorkbookOrder", true, {"Sheet3", "Sheet1"}, "cmdSelect", "\"Sheet1\",\"Sheet3\"", QDialog::Accepted},
        Pick{"SecondClickLeavesOut", true, {"Sheet1", "Sheet2", "Sheet1"}, "cmdSelect", "\"Sheet2\"",
             QDialog::Accepted},
        // Names go out as they are, quotes and commas included.
        Pick{"OddNames", true, {"Q1, \"North\"", "Übersicht"}, "cmdSelect", "\"Q1, \"North\"\",\"Übersicht\"",
             QDialog::Accepted},
        Pick{"SingleKeepsTheLastClick", false, {"Sheet2", "Sheet3"}, "cmdSelect", "\"Sheet3\"", QDialog::Accepted},
        Pick{"NothingPicked", true, {}, "cmdSelect", "", QDialog::Accepted},
        Pick{"Cancelled", true, {"Sheet1", "Sheet3"}, "cmdCancel", "", QDialog::Rejected},
        Pick{"CancelledSingle", false, {"Sheet2"}, "cmdCancel", "", QDialog::Rejected},
        Pick{"Escape", false, {"Sheet2"}, nullptr, "", QDialog::Rejected}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Form, ShowsOnlyTheListInUseWithTheNamesInOrder) {
  for (const bool multiple : {false, true}) {
    FrmSelectSheet form(kSheets, multiple, {});
    form.show();
    QListWidget* used = List(form, multiple ? "listSheets" : "listSheet");
    QListWidget* other = List(form, multiple ? "listSheet" : "listSheets");
    ASSERT_NE(used, nullptr);
    ASSERT_NE(other, nullptr);
    EXPECT_TRUE(used->isVisible());
    EXPECT_FALSE(other->isVisible());
    EXPECT_EQ(Items(used), kSheets);
    EXPECT_EQ(other->count(), 0);
    EXPECT_TRUE(form.isModal());
    EXPECT_EQ(form.objectName(), "frmSelectSheet");
  }
}

TEST(Form, TakesItsTextsAndFontFromTheLanguageFile) {
  const std::map<QString, QString> german = {
      {"Caption", "Tabellenblätter auswählen"},
      {"lblPromptMultiple.Caption", "Wählen Sie die Tabellenblätter:"},
      {"cmdSelect.Caption", "&Auswählen"},
      {"cmdCancel.ToolTipText", "Schließen"},
      {"listSheets.ToolTipText", "Klicken"},
      {"cmdSelect.ToolTipText", ""},  // empty: the English text stays
      {"Font.Name", "DejaVu Serif"},
      {"Font.Size", "13"},
  };
  FrmSelectSheet form(kSheets, true, german);
  EXPECT_EQ(form.windowTitle(), "Tabellenblätter auswählen");
  EXPECT_EQ(form.findChild<QLabel*>("lblPrompt")->text(), "Wählen Sie die Tabellenblätter:");
  EXPECT_EQ(Button(form, "cmdSelect")->text(), "&Auswählen");
  EXPECT_EQ(Button(form, "cmdCancel")->toolTip(), "Schließen");
  EXPECT_EQ(List(form, "listSheets")->toolTip(), "Klicken");
  // Not given, or given empty: English.
  EXPECT_EQ(Button(form, "cmdCancel")->text(), "&Cancel");
  EXPECT_EQ(Button(form, "cmdSelect")->toolTip(), "Use the picked sheets");
  EXPECT_EQ(form.font().family(), "DejaVu Serif");
  EXPECT_EQ(form.font().pointSizeF(), 13.0);
  EXPECT_EQ(Button(form, "cmdSelect")->font().family(), "DejaVu Serif");
}

TEST(Form, KeepsTheDesktopFontForAnUnusableSize) {
  const QFont desktop = FrmSelectSheet(kSheets, false, {}).font();
  for (const QString size : {"", "big", "0", "-4"}) {
    FrmSelectSheet form(kSheets, false, {{"Font.Size", size}});
    EXPECT_EQ(form.font().pointSizeF(), desktop.pointSizeF()) << size.toStdString();
  }
}

// Every shipped language file gives every text of the window, and nothing
// the window does not read (a misspelt key would silently stay English).
TEST(LanguageFiles, GiveExactlyTheTextsOfTheWindow) {
  namespace fs = std::filesystem;
  std::set<std::string> known;
  for (const dialog::FormText& text : FrmSelectSheet::Texts()) known.insert(text.key);
  std::set<std::string> languages;
  for (const auto& entry : fs::directory_iterator(TABULON_LANGUAGES_DIR)) {
    if (entry.path().extension() != ".lng") continue;
    languages.insert(entry.path().filename().string());
    const fs::path parent = fs::path(TABULON_LANGUAGES_DIR).parent_path() / "settings.ini";
    SetTranslatorSettings(parent.string(), entry.path().filename().string());
    InitializeTranslator();
    std::set<std::string> given;
    for (const auto& [key, value] : TranslatedTexts("frmSelectSheet")) given.insert(key);
    EXPECT_EQ(given, known) << entry.path();
    EXPECT_NE(Translate("Language.Name", ""), "") << entry.path();
  }
  EXPECT_TRUE(languages.count("English.lng"));
  EXPECT_TRUE(languages.count("German.lng"));
  SetTranslatorSettings("", "");
  InitializeTranslator();
}

// The English file is the window's built-in texts, so that translators can
// start from it.
TEST(LanguageFiles, EnglishIsTheBuiltInText) {
  const std::filesystem::path parent = std::filesystem::path(TABULON_LANGUAGES_DIR).parent_path() / "settings.ini";
  SetTranslatorSettings(parent.string(), "English.lng");
  InitializeTranslator();
  for (const dialog::FormText& text : FrmSelectSheet::Texts()) {
    EXPECT_EQ(Translate(std::string("frmSelectSheet.") + text.key, "<missing>"), text.english) << text.key;
  }
  SetTranslatorSettings("", "");
  InitializeTranslator();
}

TEST(LanguageFiles, SectionsCommentsAndSpacesAreRead) {
  namespace fs = std::filesystem;
  const fs::path dir = fs::temp_directory_path() / ("tabulon-lang-" + std::to_string(getpid()));
  fs::create_directories(dir / "Languages");
  {
    std::ofstream out(dir / "Languages" / "Test.lng", std::ios::binary);
    out << "\xEF\xBB\xBF"
           "Caption=outside any section\r\n"
           "; Caption=commented out\r\n"
           "[frmSelectSheet]\r\n"
           "  Caption =  Blätter  \r\n"
           "# cmdSelect.Caption=commented\r\n"
           "cmdSelect.Caption=first\r\n"
           "cmdSelect.Caption=a=b\r\n"
           "no equals sign\r\n"
           "[Other]\r\n"
           "Caption=other dialog\r\n";
  }
  SetTranslatorSettings((dir / "parent.ini").string(), "Test.lng");
  InitializeTranslator();
  const auto texts = TranslatedTexts("frmSelectSheet");
  const std::vector<std::pair<std::string, std::string>> expected = {{"Caption", "Blätter"},
                                                                     {"cmdSelect.Caption", "a=b"}};
  EXPECT_EQ(texts, expected);
  EXPECT_EQ(Translate("Caption", ""), "outside any section");
  EXPECT_EQ(Translate("Other.Caption", ""), "other dialog");
  // A missing file leaves no texts at all.
  SetTranslatorSettings((dir / "parent.ini").string(), "Missing.lng");
  InitializeTranslator();
  EXPECT_TRUE(TranslatedTexts("frmSelectSheet").empty());
  fs::remove_all(dir);
}

}  // namespace
}  // namespace tabulon::testing

int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
