#include "space/space_folding.h"

#include <array>

namespace brisko {
namespace {

constexpr std::array<std::string_view, 13> kFoldedNames = {
    "node_modules", ".git",    "venv",   ".hg",   ".svn",   "Pods",       ".venv",
    ".tox",         ".gradle", ".build", ".next", ".turbo", ".pnpm-store"};

}  // namespace

bool SpaceFolding::isFolded(std::string_view name, std::optional<std::string_view> parentName) {
  for (auto folded : kFoldedNames) {
    if (name == folded) return true;
  }
  return name == "cache" && parentName && *parentName == ".yarn";
}

}  // namespace brisko
