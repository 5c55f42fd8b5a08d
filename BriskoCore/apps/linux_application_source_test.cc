#include "apps/linux_application_source.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "apps/app_image.h"
#include "apps/installation_index.h"
#include "base/path_components.h"
#include "platform/file_probe.h"
#include "testing/subprocess.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

std::string entry(const std::string& name, const std::string& exec, const std::string& extra = "") {
  return "[Desktop Entry]\nType=Application\nName=" + name + "\nExec=" + exec + "\n" + extra;
}

// A compiled program; with `appImage` its header carries the AppImage mark.
void compileProgram(const std::string& path, bool appImage) {
  std::filesystem::create_directories(parentPath(path));
  const std::string source = path + ".c";
  std::ofstream(source) << "int main(void) { return 0; }\n";
  const auto built = testing::runProcess({"gcc", "-o", path, source});
  ASSERT_EQ(built.exitStatus, 0) << built.standardError;
  ::unlink(source.c_str());
  if (appImage) {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(8);
    file.write("AI\x02", 3);
  }
}

struct LinuxFixture {
  testing::TemporaryDirectory folder;
  CatalogSettings settings;
  std::string home, root, user, system;

  LinuxFixture() {
    ::chmod(folder.path().c_str(), 0755);
    home = folder / "home";
    root = folder / "root";
    settings.root = root;
    settings.home = home;
    settings.dataHome = home + "/.local/share";
    settings.dataDirs = {root + "/usr/share"};
    settings.flatpakUserDir = settings.dataHome + "/flatpak";
    settings.flatpakSystemDir = root + "/var/lib/flatpak";
    settings.programPath = {root + "/usr/bin", home + "/.local/bin"};
    settings.namingLanguage = "de-CH";
    settings.packageCachePath = folder / "cache/system-packages.json";
    settings.mountinfoPath = folder / "no-mountinfo";
    user = settings.dataHome + "/applications/";
    system = root + "/usr/share/applications/";
  }

  std::string write(const std::string& path, const std::string& text) const {
    folder.writeFile(path.substr(folder.path().size() + 1), text);
    return path;
  }
  std::string program(const std::string& path) const {
    write(path, "#!/bin/sh\n");
    ::chmod(path.c_str(), 0755);
    return path;
  }
};

void writeDpkgDatabase(const LinuxFixture& fixture) {
  fixture.write(fixture.root + "/var/lib/dpkg/status",
                "Package: fixture-editor\nStatus: install ok installed\nPriority: optional\n"
                "Section: editors\nInstalled-Size: 1234\nMaintainer: Nobody <n@example.com>\n"
                "Architecture: all\nVersion: 2.5-1\nDescription: an editor for tests\n\n");
  fixture.write(
      fixture.root + "/var/lib/dpkg/info/fixture-editor.list",
      "/.\n/usr\n/usr/share/applications/editor.desktop\n"
      "/usr/share/applications/editor-extra.desktop\n/usr/share/applications/overridden.desktop\n");
  fixture.folder.makeDirectory("root/var/lib/dpkg/updates");
}

TEST(LinuxApplications, EveryEntryLeadsToItsOwner) {
  LinuxFixture fixture;
  const auto& home = fixture.home;
  const auto& user = fixture.user;
  const auto& system = fixture.system;
  writeDpkgDatabase(fixture);

  // Home-folder programs: one in a folder named after it, one in a base folder.
  fixture.program(home + "/opt/Tool-2.0/bin/tool");
  fixture.write(user + "tool.desktop", entry("Tool", home + "/opt/Tool-2.0/bin/tool %F"));
  fixture.program(home + "/.local/bin/script");
  fixture.write(user + "script.desktop", entry("Script", "script"));
  fixture.write(user + "gone.desktop", entry("Gone", home + "/nowhere/gone"));
  fixture.write(user + "chrome-web.desktop", entry("Mail",
                                                   "/opt/browser --profile-directory=Default "
                                                   "--app-id=abcdefghijklmnopabcdefghijklmnop"));
  // AppImages: named by an entry, found by folder, and an ELF without the mark.
  compileProgram(home + "/Applications/Krita-5.2.2-x86_64.AppImage", true);
  fixture.write(user + "krita.desktop",
                entry("Krita Studio", home + "/Applications/Krita-5.2.2-x86_64.AppImage"));
  compileProgram(home + "/.local/bin/Notes_v1.4.appimage", true);
  compileProgram(home + "/bin/plain-elf", false);
  // System entries: a package's two entries, an override, a hidden one, a
  // failing TryExec, a NoDisplay helper, a link, a snap.
  fixture.program(fixture.root + "/usr/bin/editor");
  fixture.write(system + "editor.desktop",
                entry("Editor", "env LANG=C editor %U", "Name[de]=Bearbeiter\nTryExec=editor\n"));
  fixture.write(system + "editor-extra.desktop", entry("Editor Extra", "/usr/bin/editor --x"));
  fixture.write(system + "editor-a.desktop",
                entry("Editor A", "/usr/bin/editor --a", "Hidden=1\n"));
  fixture.write(system + "overridden.desktop", entry("Overridden", "editor"));
  fixture.write(user + "overridden.desktop", entry("Overridden Mine", "editor --mine"));
  fixture.write(system + "hidden.desktop", entry("Hidden", "editor", "Hidden=true\n"));
  fixture.write(user + "hidden-by-user.desktop", entry("x", "x", "Hidden=true\n"));
  fixture.write(system + "hidden-by-user.desktop", entry("Shadowed", "editor"));
  fixture.write(system + "trying.desktop", entry("Trying", "editor", "TryExec=missing-tool\n"));
  fixture.write(system + "helper.desktop", entry("Helper", "editor", "NoDisplay=true\n"));
  fixture.write(system + "unowned.desktop", entry("Unowned", "/usr/bin/editor"));
  fixture.write(system + "link.desktop", "[Desktop Entry]\nType=Link\nName=Web\nURL=x\n");
  fixture.write(fixture.root + "/snap/hello/current/meta/snap.yaml",
                "name: hello\nversion: '2.10'\nsummary: x\n");
  fixture.write(fixture.root + "/var/lib/snapd/desktop/applications/hello_hello.desktop",
                entry("Hello", "/snap/bin/hello", "X-SnapInstanceName=hello\n"));
  // Bad input: not UTF-8, no group, unbalanced quotes.
  fixture.write(user + "latin1.desktop", entry("Caf\xE9", "/bin/true"));
  fixture.write(user + "nogroup.desktop", "[Something]\nType=Application\nExec=/bin/true\n");
  fixture.write(user + "quotes.desktop", entry("Quotes", "\"/opt/unbalanced"));

  LinuxApplicationSource source;
  const auto listing = source.list(fixture.settings);
  std::map<std::string, InstalledApplication> byID;
  for (const auto& application : listing.applications)
    byID[application.id] = application;

  struct Expected {
    std::string id;
    ApplicationSource source;
    std::string name;
    std::optional<std::string> version;
    std::optional<std::string> managedBy;
  };
  const std::vector<Expected> expected{
      {home + "/opt/Tool-2.0", ApplicationSource::homeFolder, "Tool", std::nullopt, std::nullopt},
      {home + "/.local/bin/script", ApplicationSource::homeFolder, "Script", std::nullopt,
       "the user"},
      {user + "gone.desktop", ApplicationSource::brokenEntry, "Gone", std::nullopt, std::nullopt},
      {user + "chrome-web.desktop", ApplicationSource::webApp, "Mail", std::nullopt, std::nullopt},
      {home + "/Applications/Krita-5.2.2-x86_64.AppImage", ApplicationSource::appImage,
       "Krita Studio", "5.2.2", std::nullopt},
      {home + "/.local/bin/Notes_v1.4.appimage", ApplicationSource::appImage, "Notes", "1.4",
       std::nullopt},
      {system + "editor.desktop", ApplicationSource::system, "Bearbeiter", "2.5-1", "dpkg"},
      {system + "unowned.desktop", ApplicationSource::system, "Unowned", std::nullopt,
       "administrator"},
      {fixture.root + "/var/lib/snapd/desktop/applications/hello_hello.desktop",
       ApplicationSource::snap, "Hello", "2.10", "snap"},
  };
  for (const auto& want : expected) {
    SCOPED_TRACE(want.id);
    ASSERT_EQ(byID.count(want.id), 1u);
    const auto& got = byID.at(want.id);
    EXPECT_EQ(got.source, want.source);
    EXPECT_EQ(got.name, want.name);
    EXPECT_EQ(got.version, want.version);
    EXPECT_EQ(got.managedBy, want.managedBy);
    EXPECT_NE(got.identity, BundleStamp{});
  }
  // The package is one record: its second entry and the user's override (looked
  // up by its id, so it stays the package's) went into it.
  EXPECT_EQ(byID.at(system + "editor.desktop").package, "fixture-editor");
  EXPECT_EQ(byID.at(system + "editor.desktop").bytes, 1234 * 1024);
  EXPECT_EQ(listing.applications.size(), expected.size());
  EXPECT_EQ(byID.at(home + "/opt/Tool-2.0").infoIdentity, FileProbe::stamp(user + "tool.desktop"));

  // Hidden and failing entries make no record, but the index counts them.
  const auto index = InstallationIndex::build(fixture.settings);
  EXPECT_TRUE(index.isComplete);
  for (const char* id : {"hidden", "trying", "helper", "hidden-by-user", "latin1"})
    EXPECT_FALSE(index.withBundleID(id, "").empty()) << id;

  // A warm listing asks dpkg nothing.
  EXPECT_GE(source.packageQueries(), 1);
  EXPECT_EQ(source.list(fixture.settings).applications.size(), expected.size());
  EXPECT_EQ(source.packageQueries(), 0);
  // A changed package database is asked again.
  fixture.write(fixture.root + "/var/lib/dpkg/status",
                "Package: fixture-editor\nStatus: install ok installed\nInstalled-Size: 99\n"
                "Maintainer: N <n@example.com>\nArchitecture: all\nVersion: 2.6-1\n"
                "Description: newer\n\n");
  const auto newer = source.list(fixture.settings);
  EXPECT_EQ(source.packageQueries(), 2);
  for (const auto& application : newer.applications) {
    if (application.id == system + "editor.desktop") {
      EXPECT_EQ(application.version, "2.6-1");
    }
  }
}

TEST(LinuxApplications, AppImageNamesLoseTheirTails) {
  const std::vector<std::pair<std::string, NameAndVersion>> cases{
      {"Krita-5.2.2-x86_64.AppImage", {"Krita", "5.2.2"}},
      {"Obsidian-1.4.16.AppImage", {"Obsidian", "1.4.16"}},
      {"nvim.appimage", {"nvim", std::nullopt}},
      {"Foo_v2.0_amd64.AppImage", {"Foo", "2.0"}},
      {"Some App-3-aarch64.AppImage", {"Some App", "3"}},
      {"-1.0.AppImage", {"-1.0", std::nullopt}},
  };
  for (const auto& [file, want] : cases)
    EXPECT_EQ(appImageNameAndVersion(file), want) << file;
}

}  // namespace
}  // namespace brisko
