// Where a host keeps the control's persisted state between loads. The control
// writes exactly two entries, "msStateFile" (text) and "bUseStateFile"
// (Boolean), and reads them back without defaults: a missing entry reads as
// an empty text or False.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <variant>

#include "tabulon/export.h"

namespace tabulon {

using PropertyValue = std::variant<std::string, bool, int32_t>;

class TABULON_EXPORT PropertyBag {
 public:
  virtual ~PropertyBag() = default;
  // nullopt when the bag has no such entry.
  virtual std::optional<PropertyValue> ReadProperty(const std::string& name) = 0;
  virtual void WriteProperty(const std::string& name, const PropertyValue& value) = 0;
};

// A bag held in memory; what a container that serialises by itself uses.
class TABULON_EXPORT MemoryPropertyBag : public PropertyBag {
 public:
  std::optional<PropertyValue> ReadProperty(const std::string& name) override;
  void WriteProperty(const std::string& name, const PropertyValue& value) override;
  const std::map<std::string, PropertyValue>& entries() const { return entries_; }

 private:
  std::map<std::string, PropertyValue> entries_;
};

// A bag kept in an INI file, section [Tabulon], one "name=value" line per
// entry; Booleans are written True/False. Load() of a missing file gives an
// empty bag. Save() writes the file beside itself and renames it into place,
// so a failed save never leaves a half-written file. Both return false on an
// I/O failure.
class TABULON_EXPORT IniPropertyBag : public MemoryPropertyBag {
 public:
  explicit IniPropertyBag(std::string path) : path_(std::move(path)) {}
  bool Load();
  bool Save() const;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace tabulon
