// Translation of the control's dialog captions. The settings are process-wide:
// every control of the process shares them.
#pragma once

#include <map>
#include <string>

namespace tabulon {

void SetTranslatorSettings(const std::string& parent_ini_file, const std::string& language_file);
// Loads "<folder of the parent settings file>/Languages/<language file>" when
// it exists: "key=caption" lines. A missing file leaves the built-in captions.
void InitializeTranslator();
// The caption for `key`, or `fallback` when no language file gives one.
std::string Translate(const std::string& key, const std::string& fallback);

}  // namespace tabulon
