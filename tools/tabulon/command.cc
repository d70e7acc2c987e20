#include "command.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <utility>

namespace tabulon::cli {

namespace {

std::vector<std::pair<int, AddCommands>>& Registry() {
  static std::vector<std::pair<int, AddCommands>> groups;
  return groups;
}

}  // namespace

CommandGroup::CommandGroup(int order, AddCommands add) { Registry().emplace_back(order, add); }

std::vector<AddCommands> CommandGroups() {
  auto groups = Registry();
  std::stable_sort(groups.begin(), groups.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<AddCommands> adds;
  for (const auto& [order, add] : groups) adds.push_back(add);
  return adds;
}

int Report(const std::string& command, int32_t code, const std::string& message) {
  std::cerr << "tabulon: " << command << ": " << code << " " << message << "\n";
  return kExitFailure;
}

std::string Absolute(const std::string& path) {
  if (path.empty()) return path;
  std::error_code ec;
  auto absolute = std::filesystem::absolute(path, ec);
  return ec ? path : absolute.lexically_normal().string();
}

}  // namespace tabulon::cli
