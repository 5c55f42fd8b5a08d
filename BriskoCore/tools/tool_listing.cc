#include "tools/tool_listing.h"

#include <algorithm>

#include "base/path_components.h"
#include "tools/tool_files.h"

namespace brisko {

void setCommands(CommandLineTool& tool, std::vector<std::string> paths) {
  std::sort(paths.begin(), paths.end());
  tool.commands.clear();
  for (const std::string& path : paths)
    tool.commands.push_back(lastPathComponent(path));
  tool.commandPaths = std::move(paths);
}

void lockIfNotWritable(CommandLineTool& tool) {
  if (!tool.lockedReason && !tool_files::isWritableFolder(parentPath(tool.id)))
    tool.lockedReason = LockReason::notWritable;
}

}  // namespace brisko
