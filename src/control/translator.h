// Translation of the control's dialogs. The settings are process-wide: every
// control of the process shares them.
//
// A language file lives in the "Languages" folder beside the parent settings
// file given to InitTranslator. It is UTF-8 text (a byte-order mark is
// skipped) of "key=text" lines; blank lines and lines starting with ";" or
// "#" are comments. A "[Section]" line names the dialog the keys below it
// belong to: "cmdSelect.Caption" under "[frmSelectSheet]" is the key
// "frmSelectSheet.cmdSelect.Caption". Spaces around keys and texts are
// dropped; a key given twice keeps its last text.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace tabulon {

void SetTranslatorSettings(const std::string& parent_ini_file, const std::string& language_file);
// Loads "<folder of the parent settings file>/Languages/<language file>" when
// it exists. A missing or unreadable file leaves the built-in texts.
void InitializeTranslator();
// The text for `key`, or `fallback` when no language file gives one.
std::string Translate(const std::string& key, const std::string& fallback);
// Every text of one dialog's section, keyed without the section's name.
std::vector<std::pair<std::string, std::string>> TranslatedTexts(const std::string& section);

}  // namespace tabulon
