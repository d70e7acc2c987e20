#include "control/translator.h"

#include <fstream>
#include <mutex>

namespace tabulon {

namespace {

struct TranslatorSettings {
  std::mutex mutex;
  std::string parent_ini_file;
  std::string language_file;
  std::map<std::string, std::string> texts;
};

TranslatorSettings& Settings() {
  static TranslatorSettings settings;
  return settings;
}

std::string Trim(const std::string& text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return {};
  const auto last = text.find_last_not_of(" \t");
  return text.substr(first, last - first + 1);
}

}  // namespace

void SetTranslatorSettings(const std::string& parent_ini_file, const std::string& language_file) {
  TranslatorSettings& s = Settings();
  std::lock_guard lock(s.mutex);
  s.parent_ini_file = parent_ini_file;
  s.language_file = language_file;
}

void InitializeTranslator() {
  TranslatorSettings& s = Settings();
  std::lock_guard lock(s.mutex);
  s.texts.clear();
  if (s.language_file.empty()) return;
  std::string folder;
  if (const auto slash = s.parent_ini_file.find_last_of('/'); slash != std::string::npos) {
    folder = s.parent_ini_file.substr(0, slash + 1);
  }
  std::ifstream in(folder + "Languages/" + s.language_file);
  std::string line;
  std::string section;
  bool first_line = true;
  while (std::getline(in, line)) {
    if (first_line && line.rfind("\xEF\xBB\xBF", 0) == 0) line.erase(0, 3);
    first_line = false;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    line = Trim(line);
    if (line.empty() || line[0] == ';' || line[0] == '#') continue;
    if (line[0] == '[') {
      const auto close = line.find(']');
      section = close == std::string::npos ? std::string() : Trim(line.substr(1, close - 1));
      continue;
    }
    const auto eq = line.find('=');
    if (eq == std::string::npos) continue;
    const std::string key = Trim(line.substr(0, eq));
    if (key.empty()) continue;
    s.texts[section.empty() ? key : section + "." + key] = Trim(line.substr(eq + 1));
  }
}

std::string Translate(const std::string& key, const std::string& fallback) {
  TranslatorSettings& s = Settings();
  std::lock_guard lock(s.mutex);
  const auto it = s.texts.find(key);
  return it == s.texts.end() ? fallback : it->second;
}

std::vector<std::pair<std::string, std::string>> TranslatedTexts(const std::string& section) {
  TranslatorSettings& s = Settings();
  std::lock_guard lock(s.mutex);
  const std::string prefix = section + ".";
  std::vector<std::pair<std::string, std::string>> texts;
  for (auto it = s.texts.lower_bound(prefix); it != s.texts.end() && it->first.rfind(prefix, 0) == 0; ++it) {
    texts.emplace_back(it->first.substr(prefix.size()), it->second);
  }
  return texts;
}

}  // namespace tabulon
