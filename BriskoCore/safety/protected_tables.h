#pragma once

// Brisko's own protected lists: compiled in, never changed by the user.
// The process-wide tables are built once, on first use, under the one-time
// guard of a function-local static, and only read afterwards.

#include <array>
#include <string_view>

#include "safety/path_safety_policy.h"

namespace brisko::protected_tables {

// Below the lower-cased home. The program's own data folder is one of them,
// in its Linux place as well.
inline constexpr std::array<std::string_view, 10> kProtectedUserRootSuffixes{
    "/library/accounts",
    "/library/calendars",
    "/library/contacts",
    "/library/keychains",
    "/library/mail",
    "/library/mobile documents",
    "/library/application support/brisko",
    "/library/application support/codex",
    "/.codex/sessions",
    "/.local/share/brisko",
};

inline constexpr std::array<std::string_view, 10> kHighRiskCacheRootSuffixes{
    "/library/caches/ms-playwright",
    "/library/caches/app.cotypist.cotypist",
    "/library/caches/com.displaylink.displaylinkuseragent",
    "/library/caches/com.lasersoft-imaging.silverfast9",
    "/library/caches/com.apple.containermanagerd",
    "/library/caches/com.apple.homed",
    "/library/caches/com.apple.ap.adprivacyd",
    "/library/caches/familycircle",
    "/library/caches/com.apple.homekit",
    // Playwright's browsers on Linux.
    "/.cache/ms-playwright",
};

// Plain prefixes: they end in a partial file name.
inline constexpr std::array<std::string_view, 3> kPreferencePrefixSuffixes{
    "/library/preferences/com.paceap.",
    "/library/preferences/com.native-instruments",
    "/library/preferences/com.avid.mediacomposer",
};

// Where a bare-word application name counts. The last four are Linux's:
// not ~/.local/share, where tools keep the versions that a rule removes.
inline constexpr std::array<std::string_view, 10> kAppDataRootSuffixes{
    "/library/application support",
    "/library/caches",
    "/library/containers",
    "/library/group containers",
    "/library/preferences",
    "/library/saved application state",
    "/.config",
    "/.cache",
    "/.var/app",
    "/snap",
};

// Inside the per-user temporary area.
inline constexpr std::array<std::string_view, 9> kEndpointSecurityMarkers{
    "com.crowdstrike.",
    "com.sentinelone.",
    "com.sentinel-labs.",
    "com.eset.",
    "com.jamf.",
    "com.jamfsoftware.",
    "com.paloaltonetworks.",
    "com.cisco.anyconnect",
    "com.cisco.secureclient",
};
inline constexpr std::array<std::string_view, 3> kTemporaryAreaMarkers{
    "/c/com.native-instruments",
    "/c/com.avid.mediacomposer",
    "/c/com.paceap.eden.iloklicensemanager",
};

// Fixed system places, not below the home.
inline constexpr std::array<std::string_view, 5> kAudioAndImagingRoots{
    "/library/audio/plug-ins/components",
    "/library/audio/plug-ins/vst",
    "/library/audio/plug-ins/vst3",
    "/library/application support/izotope",
    "/library/application support/lasersoft imaging",
};

// Matched anywhere in the whole path text, deliberately blunt.
inline constexpr std::array<std::string_view, 13> kSystemSettingsMarkers{
    "systemsettings",
    "systempreferences",
    "controlcenter",
    "com.apple.settings",
    "com.apple.notes",
    "com.apple.systempreferences.cache",
    "com.apple.settings.cache",
    "com.apple.controlcenter.cache",
    "com.apple.finder.cache",
    "com.apple.dock.cache",
    "com.apple.coreaudio",
    "com.apple.audio.",
    "coreaudiod",
};

// The path itself is critical, not what lies below it. The last six are
// Linux's own: its system folders, and /var/tmp and /var/folders, which are
// not spelled with "/private" here.
inline constexpr std::array<std::string_view, 30> kCriticalExactPaths{
    "/",
    "/Applications",
    "/Library",
    "/Library/Application Support",
    "/Network",
    "/Users",
    "/Users/Shared",
    "/Volumes",
    "/cores",
    "/etc",
    "/home",
    "/net",
    "/opt",
    "/opt/homebrew",
    "/private",
    "/private/tmp",
    "/private/var",
    "/private/var/folders",
    "/private/var/tmp",
    "/tmp",
    "/usr/local",
    "/usr/share",
    "/usr/libexec",
    "/var",
    "/root",
    "/srv",
    "/mnt",
    "/media",
    "/var/tmp",
    "/var/folders",
};

// The path and everything below it are critical. The last nine are Linux's own.
inline constexpr std::array<std::string_view, 28> kCriticalTrees{
    "/Applications/Finder.app",
    "/Applications/Safari.app",
    "/Library/Apple",
    "/Library/Extensions",
    "/Library/Keychains",
    "/System",
    "/Users/Guest",
    "/bin",
    "/dev",
    "/etc",
    "/private/etc",
    "/private/var/audit",
    "/private/var/db",
    "/private/var/root",
    "/sbin",
    "/usr",
    "/var/audit",
    "/var/db",
    "/var/root",
    "/boot",
    "/proc",
    "/sys",
    "/run",
    "/lib",
    "/lib32",
    "/lib64",
    "/libx32",
    "/snap",
};

// The protected application names, as written; lower-cased when compiled.
inline constexpr std::array<std::string_view, 52> kProtectedApplicationNames{
    "com.apple.finder*",
    "com.apple.dock*",
    "com.apple.systempreferences*",
    "com.apple.systemsettings*",
    "com.apple.settings*",
    "com.apple.controlcenter*",
    "com.apple.notes*",
    "com.apple.keychain*",
    "com.apple.security*",
    "com.apple.mobilesoftwareupdate*",
    "com.apple.softwareupdate*",
    "com.1password.*",
    "com.agilebits.*",
    "com.lastpass.*",
    "com.dashlane.*",
    "com.bitwarden.*",
    "org.keepassx*",
    "org.keepassxc*",
    "com.authy.*",
    "com.yubico.*",
    "com.jetbrains.*",
    "com.microsoft.vscode*",
    "com.visualstudio.code.*",
    "com.sublimetext.*",
    "com.sublimehq.*",
    "com.apple.dt.xcode",
    "cursor*",
    "claude*",
    "chatgpt*",
    "com.openai.*",
    "codex*",
    "ollama*",
    "com.docker.*",
    "dev.orbstack.*",
    "com.vmware.fusion*",
    "com.parallels.desktop.*",
    "org.virtualbox.*",
    "com.nssurge.*",
    "com.clash.*",
    "clash*",
    "*clash-verge*",
    "*tailscale*",
    "*zerotier*",
    "*wireguard*",
    "*nordvpn*",
    "*expressvpn*",
    "*protonvpn*",
    "*surfshark*",
    "*mullvad*",
    "com.native-instruments*",
    "com.paceap.*",
    "com.avid.mediacomposer*",
};

// One row of the application name table. A row without a "." is a bare word
// (such as claude*) and counts only below an app data root, so that it can't
// catch an unrelated project folder.
struct ProtectedNameMatcher {
  PathSafetyPolicy::CompiledMatcher matcher;
  bool appDataOnly = false;
};

// The compiled table, in row order.
const std::vector<ProtectedNameMatcher>& protectedNameMatchers();

// The critical tables test for a normalised, lower-cased path. The home of a
// particular policy is added by the policy.
bool isCriticalSystemPath(std::string_view lower);

bool containsSystemSettingsMarker(std::string_view lower);

// Some component of `lower` matches a row; bare-word rows count only when
// `insideAppData`.
bool matchesProtectedApplicationName(std::string_view lower, bool insideAppData);

}  // namespace brisko::protected_tables
