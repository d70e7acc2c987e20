#include "control/translator.h"

#include <fstream>
#include <mutex>

namespace tabulon {

namespace {

struct TranslatorSettings {
  std::mutex mutex;
  std::string parent_ini_file;
  std::string language_file;
  std::map<std::string, std::string> captions;
};

TranslatorSettings& Settings() {
  static TranslatorSettings settings;
  return settings;
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
  s.captions.clear();
  if (s.language_file.empty()) return;
  std::string folder;
  if (const auto slash = s.parent_ini_file.find_last_of('/'); slash != std::string::npos) {
    folder = s.parent_ini_file.substr(0, slash + 1);
  }
  std::ifstream in(folder + "Languages/" + s.language_file);
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const auto eq = line.find('=');
    if (eq == std::string::npos || line[0] == ';' || line[0] == '[') continue;
    s.captions[line.substr(0, eq)] = line.substr(eq + 1);
  }
}

std::string Translate(const std::string& key, const std::string& fallback) {
  TranslatorSettings& s = Settings();
  std::lock_guard lock(s.mutex);
  const auto it = s.captions.find(key);
  return it == s.captions.end() ? fallback : it->second;
}

}  // namespace tabulon
