#pragma once

// The few questions the tool inventory asks of the disk. Every one of them
// absorbs errors: a folder that can't be read lists nothing, a file that
// can't be read or parsed gives none.

#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/date.h"

namespace brisko::tool_files {

// Names in `folder` that don't begin with ".", sorted.
std::vector<std::string> visibleEntries(const std::string& folder);
bool isFolderOrLink(const std::string& path);
bool isFolder(const std::string& path);  // following links
bool exists(const std::string& path);    // lstat
bool isExecutableFile(const std::string& path);
bool isWritableFolder(const std::string& path);
// The statx birth time of the path itself; none where the file system keeps none.
std::optional<Date> birthTime(const std::string& path);
std::optional<std::string> linkTarget(const std::string& path);
// The whole file as a JSON object; none for a missing, unreadable, damaged or
// non-object file.
std::optional<nlohmann::json> readJsonObject(const std::string& path);
// The text of a JSON string member, else none.
std::optional<std::string> stringMember(const nlohmann::json& object, const char* key);

// The symbolic links in `folder` whose target, made absolute against the
// folder and standardised, lies below `base` + "/", grouped by `keyOf` of the
// path components behind `base`; a key of "" leaves the link out. Link paths
// come sorted.
std::map<std::string, std::vector<std::string>> linksBelow(
    const std::string& folder, const std::string& base,
    const std::function<std::string(const std::vector<std::string>& rest)>& keyOf);

// "1.10.0" after "1.9.2": runs of digits compare as numbers.
bool numericallyBefore(const std::string& left, const std::string& right);

}  // namespace brisko::tool_files
