#include "tabulon/property_bag.h"

#include <cstdio>
#include <fstream>
#include <sstream>

namespace tabulon {

std::optional<PropertyValue> MemoryPropertyBag::ReadProperty(const std::string& name) {
  const auto it = entries_.find(name);
  if (it == entries_.end()) return std::nullopt;
  return it->second;
}

void MemoryPropertyBag::WriteProperty(const std::string& name, const PropertyValue& value) { entries_[name] = value; }

namespace {
constexpr const char* kSection = "[Tabulon]";
}

bool IniPropertyBag::Load() {
  std::ifstream in(path_, std::ios::binary);
  if (!in) return true;  // no file yet: an empty bag
  bool in_section = false;
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!line.empty() && line.front() == '[') {
      in_section = line == kSection;
      continue;
    }
    const auto eq = line.find('=');
    if (!in_section || eq == std::string::npos) continue;
    std::string name = line.substr(0, eq);
    std::string text = line.substr(eq + 1);
    // Booleans come back as Booleans; everything else stays text (the
    // control converts as it reads).
    if (text == "True" || text == "False") {
      WriteProperty(name, text == "True");
    } else {
      WriteProperty(name, text);
    }
  }
  return !in.bad();
}

bool IniPropertyBag::Save() const {
  std::ostringstream out;
  out << kSection << "\r\n";
  for (const auto& [name, value] : entries()) {
    out << name << '=';
    if (const auto* s = std::get_if<std::string>(&value)) out << *s;
    if (const auto* b = std::get_if<bool>(&value)) out << (*b ? "True" : "False");
    if (const auto* n = std::get_if<int32_t>(&value)) out << *n;
    out << "\r\n";
  }
  const std::string temp = path_ + ".tmp";
  {
    std::ofstream file(temp, std::ios::binary | std::ios::trunc);
    if (!file) return false;
    file << out.str();
    file.flush();
    if (!file) {
      std::remove(temp.c_str());
      return false;
    }
  }
  if (std::rename(temp.c_str(), path_.c_str()) != 0) {
    std::remove(temp.c_str());
    return false;
  }
  return true;
}

}  // namespace tabulon
