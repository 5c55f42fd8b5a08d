#include "testing/sample_home.h"

#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "testing/temporary_directory.h"

namespace brisko::testing {

namespace {

constexpr std::int64_t kKiB = 1024;
constexpr std::int64_t kDay = 24 * 60 * 60;

class Builder {
 public:
  Builder(std::string home, std::int64_t scale) : home_(std::move(home)), scale_(scale) {}

  std::string path(std::string_view relative) const { return home_ + "/" + std::string(relative); }

  void folder(std::string_view relative) const {
    std::error_code error;
    std::filesystem::create_directories(path(relative), error);
    if (error) throw std::runtime_error("Cannot create " + path(relative) + ": " + error.message());
  }

  // A file of `kib` KiB times the scale, divided by 8, written with real bytes; `ageDays`
  // sets its modification date that many days back.
  void file(std::string_view relative, std::int64_t kib, std::int64_t ageDays = 0) const {
    const std::string full = path(relative);
    folder(std::filesystem::path(relative).parent_path().string());
    const int descriptor = ::open(full.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (descriptor < 0)
      throw std::runtime_error("Cannot write " + full + ": " + std::strerror(errno));
    static const std::vector<char> block = [] {
      std::vector<char> bytes(64 * kKiB);
      for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>('a' + i % 26);
      return bytes;
    }();
    std::int64_t left = kib * kKiB * scale_ / 8;
    while (left > 0) {
      const ssize_t written = ::write(descriptor, block.data(),
                                      static_cast<size_t>(std::min<std::int64_t>(left, 64 * kKiB)));
      if (written <= 0) {
        ::close(descriptor);
        throw std::runtime_error("Cannot write " + full);
      }
      left -= written;
    }
    ::close(descriptor);
    if (ageDays > 0) age(relative, ageDays);
  }

  // A small file with exactly these bytes, not scaled.
  void text(std::string_view relative, std::string_view contents) const {
    const std::string full = path(relative);
    folder(std::filesystem::path(relative).parent_path().string());
    const int descriptor = ::open(full.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (descriptor < 0 || ::write(descriptor, contents.data(), contents.size()) !=
                              static_cast<ssize_t>(contents.size())) {
      if (descriptor >= 0) ::close(descriptor);
      throw std::runtime_error("Cannot write " + full);
    }
    ::close(descriptor);
  }

  void age(std::string_view relative, std::int64_t days) const {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const std::int64_t seconds = std::chrono::duration_cast<std::chrono::seconds>(now).count();
    const struct timespec times[2] = {{seconds - days * kDay, 0}, {seconds - days * kDay, 0}};
    ::utimensat(AT_FDCWD, path(relative).c_str(), times, AT_SYMLINK_NOFOLLOW);
  }

  void link(std::string_view relative, const std::string& target) const {
    folder(std::filesystem::path(relative).parent_path().string());
    ::unlink(path(relative).c_str());
    if (::symlink(target.c_str(), path(relative).c_str()) != 0) {
      throw std::runtime_error("Cannot link " + path(relative) + ": " + std::strerror(errno));
    }
  }

 private:
  std::string home_;
  std::int64_t scale_;
};

// A service worker's per-origin folder: named by a hash, its origin written
// in its index (binary, with the origin as plain text inside).
void serviceWorkerOrigin(const Builder& b, const std::string& cacheStorage, const char* hash,
                         const std::string& origin, std::int64_t kib) {
  const std::string folder = cacheStorage + "/" + hash;
  b.file(folder + "/7c4f-cache/index", 2);
  b.file(folder + "/7c4f-cache/92c306cfcad096dd_0", kib);
  b.text(folder + "/index.txt", std::string("\n9\n\x03swc\x12$7c4f-cache\x18") + "\x12\x1d" +
                                    origin + "\x1a\x1d" + origin);
}

// What a Linux home holds: browser profiles with their caches in ~/.cache,
// Electron and Flatpak and Snap applications, thumbnails, a game and its
// shader cache, old logs, tools kept by the whitelist, keyrings and
// documents that nothing may touch.
void buildLinuxHalf(const Builder& b) {
  // Chromium and Chrome: the disk caches below ~/.cache, the rest in the
  // profile below ~/.config beside the history and logins, which stay.
  b.file(".cache/chromium/Default/Cache/Cache_Data/data_0", 300);
  b.file(".cache/chromium/Default/Code Cache/js/index", 120);
  b.file(".config/chromium/Default/GPUCache/data_0", 80);
  b.file(".config/chromium/Default/DawnWebGPUCache/data_0", 40);
  b.file(".config/chromium/Default/History", 60);
  b.file(".config/chromium/Default/Login Data", 30);
  b.file(".config/chromium/component_crx_cache/hfnkpimlhhgieaddgfemjhofmfblmnib_1.crx3", 70);
  b.file(".config/chromium/Crash Reports/completed/a1b2.dmp", 20);
  const std::string storage = ".config/chromium/Default/Service Worker/CacheStorage";
  serviceWorkerOrigin(b, storage, "c37a80b68feffc6077248fb3c9436b74151561b5",
                      "https://docs.google.com/", 150);
  serviceWorkerOrigin(b, storage, "5e1d0f2a9b8c7d6e5f4a3b2c1d0e9f8a7b6c5d4e",
                      "https://news.example.com/", 90);
  b.file(".cache/google-chrome/Profile 1/Cache/Cache_Data/f_000001", 400);
  b.file(".config/google-chrome/Profile 1/GPUCache/data_1", 60);
  b.file(".config/google-chrome/OptGuideOnDeviceModel/2024.6.5/weights.bin", 500);
  b.file(".config/google-chrome/Profile 1/Bookmarks", 10);

  // Firefox: its profile in ~/.mozilla, its disk cache in ~/.cache.
  b.file(".cache/mozilla/firefox/ab12cd34.default-esr/cache2/entries/0A1B2C3D", 350);
  b.file(".mozilla/firefox/ab12cd34.default-esr/places.sqlite", 100);
  b.file(".mozilla/firefox/Crash Reports/submitted/bp-5e6f.txt", 5, 30);
  b.file(".mozilla/firefox/Crash Reports/pending/3c4d.dmp", 50, 10);
  b.file(".mozilla/firefox/Crash Reports/pending/fresh.dmp", 40, 1);

  // Electron applications: chromium caches go, data stays; a protected
  // editor's caches stay too.
  b.file(".config/Slack/Code Cache/js/index", 150);
  b.file(".config/Slack/GPUCache/data_0", 30);
  b.file(".config/Slack/Cache/Cache_Data/f_000002", 90);
  b.file(".config/Slack/storage/root-state.json", 20);
  b.file(".config/Code/Code Cache/js/index", 40);
  b.file(".config/Code/CachedExtensionVSIXs/ms-python.python-2024.8.0", 200);
  b.file(".config/Code/logs/20240601T101010/main.log", 10);
  b.file(".config/Code/User/settings.json", 2);
  b.file(".config/Cursor/Code Cache/js/index", 60);
  b.file(".config/Cursor/GPUCache/data_0", 10);

  // Flatpak applications: each one's cache (its temporary folder inside),
  // an Electron application's caches in its config; data stays.
  b.file(".var/app/org.gnome.Maps/cache/tiles/12/2048.png", 250);
  b.file(".var/app/org.gnome.Maps/cache/tmp/download.part", 10);
  b.file(".var/app/org.gnome.Maps/data/places.db", 30);
  b.file(".var/app/com.spotify.Client/cache/spotify/Data/a1", 400);
  b.file(".var/app/com.discordapp.Discord/config/discord/Code Cache/js/index", 110);
  b.file(".var/app/com.discordapp.Discord/config/discord/GPUCache/data_0", 20);

  // Snap: the caches of a revision and of common, never through "current".
  b.file("snap/firefox/common/.cache/mozilla/firefox/x.default/cache2/entries/E1", 200);
  b.file("snap/firefox/4200/.cache/fontconfig/cache-9", 20);
  b.file("snap/firefox/4200/.mozilla/firefox/x.default/places.sqlite", 40);
  b.link("snap/firefox/current", "4200");

  b.file(".cache/thumbnails/normal/0a1b2c.png", 60);
  b.file(".cache/thumbnails/large/3d4e5f.png", 120);

  // Steam: a game, its saves and its shader cache.
  b.file(".local/share/Steam/steamapps/shadercache/570/fozpipelinesv6/pipeline_cache.foz", 500);
  b.file(".local/share/Steam/steamapps/common/Dota 2/game/bin/dota", 300);
  b.file(".local/share/Steam/userdata/1/570/remote/cfg/config.cfg", 5);

  // Logs, old and new.
  b.file(".xsession-errors.old", 40, 10);
  b.file(".local/share/xorg/Xorg.0.log", 30);
  b.file(".local/share/xorg/Xorg.0.log.old", 25, 20);
  b.file(".local/state/nvim/log", 15, 9);
  b.file(".local/state/nvim/lsp.log", 20, 8);
  b.file(".local/state/nvim/shada/main.shada", 10, 30);
  b.file(".local/state/syncthing/logs/2024-05.log", 35, 12);

  // Tools the default whitelist keeps, and Playwright's protected browsers.
  b.file(".cache/JetBrains/IntelliJIdea2024.1/caches/content.dat", 300);
  b.file(".config/JetBrains/IntelliJIdea2024.1/options/ide.general.xml", 5);
  b.file(".local/share/JetBrains/Toolbox/apps/idea/bin/idea.sh", 20);
  b.file(".cache/ms-playwright/chromium-1105/chrome-linux/chrome", 500);
  b.file(".cache/pypoetry/virtualenvs/app-Xy12-py3.11/lib/site.py", 300);
  b.file(".cache/lm-studio/models/tiny/model.gguf", 300);

  // What nothing may touch: keyrings, documents, a program in Downloads.
  b.file(".local/share/keyrings/login.keyring", 5);
  b.file("Documents/thesis.odt", 100);
  b.file("Downloads/Editor-x86_64.AppImage", 500);
  b.file("Downloads/code_1.90.0_amd64.deb", 600);
  b.file("Downloads/tool-2.0-1.x86_64.rpm", 200);
}

std::int64_t referenceTotal = 0;

int addRegularFile(const char*, const struct stat* status, int type, struct FTW*) {
  if (type == FTW_F && S_ISREG(status->st_mode)) referenceTotal += status->st_blocks * 512;
  return 0;
}

}  // namespace

void buildSampleHome(const std::string& home, std::int64_t scale) {
  std::filesystem::create_directories(home);
  const Builder b(std::filesystem::canonical(home).string(), std::max<std::int64_t>(scale, 1));

  // Application caches, named by bundle identifier.
  b.file("Library/Caches/com.google.Chrome/Default/Cache/data_0", 640);
  b.file("Library/Caches/com.google.Chrome/Default/Cache/data_1", 320);
  b.file("Library/Caches/com.spotify.client/Data/0a/3f81.file", 900);
  b.file("Library/Caches/com.spotify.client/Data/1b/77c2.file", 500);
  b.file("Library/Caches/com.tinyspeck.slackmacgap/Cache.db", 210);
  b.file("Library/Caches/org.example.PhotoStudio/previews/1.jpg", 150);
  b.file("Library/Caches/org.example.PhotoStudio/previews/2.jpg", 90);
  b.file("Library/Caches/org.example.PhotoStudio/Updater.app/Contents/MacOS/updater", 400);
  b.folder("Library/Caches/com.example.empty");
  // A password manager's cache is protected, an IDE's is on the default whitelist.
  b.file("Library/Caches/com.1password.1password/vault-cache.db", 120);
  b.file("Library/Caches/JetBrains/IntelliJIdea2024.1/index.dat", 300);
  // Links never lead a scan anywhere: one into a protected folder, one out of the home.
  b.file("Library/Keychains/login.keychain-db", 40);
  b.link("Library/Caches/com.example.shortcut", b.path("Library/Keychains"));
  b.link(".cache/escape", "/etc");

  // Logs: only those older than a week count.
  b.file("Library/Logs/com.example.Sync/sync-2024-01.log", 260, 40);
  b.file("Library/Logs/com.example.Sync/sync-today.log", 180, 0);
  b.file("Library/Logs/DiagnosticReports/Example-2024-02-01.ips", 60, 20);
  b.file("Library/Logs/DiagnosticReports/Example-today.ips", 30, 1);

  // Xcode: derived data (the hash is left out of the title) and device support.
  b.file(
      "Library/Developer/Xcode/DerivedData/Weather-bzxqqdyfvkwcdoeuiqnqvagpahqs/Build/Products/app",
      700);
  b.file(
      "Library/Developer/Xcode/DerivedData/Weather-bzxqqdyfvkwcdoeuiqnqvagpahqs/Index.noindex/db",
      300);
  b.file("Library/Developer/Xcode/DerivedData/Notes-hgvsbqyxdnwrqdksrfzhajgkmfqa/Build/obj.o", 420);
  b.file("Library/Developer/Xcode/iOS DeviceSupport/16.4 (20E247)/Symbols/dyld", 500);
  b.file("Library/Developer/Xcode/iOS DeviceSupport/17.2 (21C62)/Symbols/dyld", 500);
  b.file("Library/Developer/Xcode/iOS DeviceSupport/17.5 (21F79)/Symbols/dyld", 500);
  b.age("Library/Developer/Xcode/iOS DeviceSupport/16.4 (20E247)", 300);
  b.age("Library/Developer/Xcode/iOS DeviceSupport/17.2 (21C62)", 120);
  b.age("Library/Developer/Xcode/iOS DeviceSupport/17.5 (21F79)", 10);
  b.file("Library/Developer/CoreSimulator/Caches/dyld/21F79/dyld_sim_shared_cache", 350);

  // Download caches of developer tools.
  b.file(".npm/_cacache/content-v2/sha512/ab/cd/0f1e2d", 380);
  b.file(".npm/_cacache/index-v5/12/34/entry", 20);
  b.file(".npm/_logs/2024-03-01T10_00_00_000Z-debug-0.log", 15);
  b.file(".cargo/registry/cache/index.crates.io-6f17d22bba15001f/serde-1.0.197.crate", 250);
  b.file(".cargo/registry/cache/index.crates.io-6f17d22bba15001f/tokio-1.36.0.crate", 600);
  b.file(".cache/pip/http-v2/a/b/c/d/e/0123456789abcdef", 330);
  b.file(".cache/go-build/3f/3f0c-d", 170);
  b.file(".cache/huggingface/hub/models--example--tiny/blobs/weights", 450);
  b.file(".gradle/caches/modules-2/files-2.1/org.example/lib-1.0.jar", 200);
  b.file(".ollama/models/blobs/sha256-7a3b", 800);

  // Browsers: caches in each profile and a service-worker store, whose
  // folders of protected web applications stay.
  const std::string chrome = "Library/Application Support/Google/Chrome/";
  b.file(chrome + "Default/Code Cache/js/index", 260);
  b.file(chrome + "Default/GPUCache/data_1", 120);
  b.file(chrome + "Profile 1/Code Cache/wasm/index", 140);
  b.file(chrome + "Default/History", 90);
  const std::string chromeStorage = chrome + "Default/Service Worker/CacheStorage";
  serviceWorkerOrigin(b, chromeStorage, "3c1a5e_https_example.org", "https://example.org/", 210);
  serviceWorkerOrigin(b, chromeStorage, "9f00d2_https_news.example.com",
                      "https://news.example.com/", 110);
  serviceWorkerOrigin(b, chromeStorage, "77aa01_https_mail.google.com", "https://mail.google.com/",
                      160);
  b.file("Library/Application Support/Firefox/Profiles/x1y2z3.default-release/cache2/entries/A1",
         310);

  // An Electron application: its chromium caches go, its data stays.
  b.file("Library/Application Support/Slack/Code Cache/js/index", 230);
  b.file("Library/Application Support/Slack/GPUCache/data_0", 60);
  b.file("Library/Application Support/Slack/Cache/Cache_Data/f_000001", 180);
  b.file("Library/Application Support/Slack/storage/root-state.json", 40);
  b.file("Library/Application Support/Notion/Cache/data", 75);  // not chromium-style alone

  // Installers and other downloads.
  b.file("Downloads/Docker.dmg", 900);
  b.file("Downloads/Tool-Installer.pkg", 350);
  b.file("Downloads/debian-12-netinst.iso", 1200);
  b.file("Downloads/Quarterly report.pdf", 80);

  // Tool versions: the pinned one and the newest stay, the rest may go.
  b.file(".local/share/claude/versions/1.0.10/claude", 520);
  b.file(".local/share/claude/versions/1.0.17/claude", 530);
  b.file(".local/share/claude/versions/1.0.24/claude", 540);
  b.age(".local/share/claude/versions/1.0.10", 60);
  b.age(".local/share/claude/versions/1.0.17", 30);
  b.age(".local/share/claude/versions/1.0.24", 2);
  b.link(".local/bin/claude", b.path(".local/share/claude/versions/1.0.17/claude"));

  // Mail is protected, yet shown as a place to clean by hand.
  b.file("Library/Mail/V10/MailData/Envelope Index", 190);

  // Video editing render caches.
  b.file("Movies/CacheClip/clip-0001.cache", 480);

  buildLinuxHalf(b);
}

void makeEmptyFiles(const std::string& path, int count) {
  std::filesystem::create_directories(path);
  for (int i = 0; i < count; ++i) {
    const std::string file = path + "/" + std::to_string(i);
    const int descriptor = ::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (descriptor < 0)
      throw std::runtime_error("Cannot create " + file + ": " + std::strerror(errno));
    ::close(descriptor);
  }
}

ScratchFolder::ScratchFolder() {
  struct stat status;
  std::string base = "/dev/shm";
  if (::stat(base.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) ||
      ::access(base.c_str(), W_OK) != 0) {
    const char* tmp = std::getenv("TMPDIR");
    base = tmp != nullptr && tmp[0] == '/' ? tmp : "/tmp";
  }
  std::string pattern = base + "/brisko-scratch-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("Cannot create " + pattern);
  path_ = std::filesystem::canonical(pattern).string();
}

ScratchFolder::~ScratchFolder() {
  removeTree(path_);
}

std::int64_t allocatedBytesBelow(const std::string& path) {
  referenceTotal = 0;
  ::nftw(path.c_str(), addRegularFile, 16, FTW_PHYS);
  return referenceTotal;
}

}  // namespace brisko::testing
