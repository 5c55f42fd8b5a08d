#include "apps/flatpak_installation.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>

#include "apps/installation_index.h"
#include "apps/linux_application_source.h"
#include "platform/file_probe.h"
#include "testing/subprocess.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

// Real Flatpak installations, offline: a runtime of one metadata file and a
// tiny application exported to a local repository, installed per user and
// system-wide into folders of the test.
class FlatpakInstallations : public ::testing::Test {
 protected:
  void SetUp() override {
    ::chmod(folder.path().c_str(), 0755);
    settings.root = folder / "root";
    settings.home = folder / "home";
    settings.dataHome = settings.home + "/.local/share";
    settings.flatpakUserDir = folder / "user";
    settings.flatpakSystemDir = folder / "system";
    settings.mountinfoPath = folder / "no-mountinfo";
    folder.writeFile("runtime/metadata",
                     "[Runtime]\nname=org.brisko.Platform\n"
                     "runtime=org.brisko.Platform/x86_64/stable\n");
    folder.makeDirectory("runtime/usr");
    folder.makeDirectory("runtime/files");
    folder.writeFile("app/metadata",
                     "[Application]\nname=org.brisko.Hello\n"
                     "runtime=org.brisko.Platform/x86_64/stable\ncommand=hello\n");
    folder.writeFile("app/files/bin/hello", "#!/bin/sh\n");
    folder.writeFile("app/export/share/applications/org.brisko.Hello.desktop",
                     "[Desktop Entry]\nType=Application\nName=Hello World\nExec=hello\n");
    folder.writeFile("app/files/share/metainfo/org.brisko.Hello.metainfo.xml",
                     "<?xml version=\"1.0\"?>\n<component type=\"desktop-application\">"
                     "<id>org.brisko.Hello</id><name>Hello</name><name xml:lang=\"de\">Hallo</name>"
                     "<releases><release version=\"1.2.3\"/><release version=\"1.0\"/></releases>"
                     "</component>\n");
    flatpak({"build-export", "--runtime", folder / "repo", folder / "runtime", "stable"});
    flatpak({"build-export", folder / "repo", folder / "app", "stable"});
    for (const char* installation : {"--user", "--system"}) {
      flatpak(
          {installation, "remote-add", "--no-gpg-verify", "brisko", "file://" + folder / "repo"});
      flatpak({installation, "install", "-y", "--noninteractive", "brisko", "org.brisko.Hello"});
    }
  }

  void flatpak(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "flatpak");
    testing::ProcessOptions options;
    options.environment = {{"FLATPAK_USER_DIR", settings.flatpakUserDir},
                           {"FLATPAK_SYSTEM_DIR", settings.flatpakSystemDir},
                           {"HOME", settings.home}};
    const auto result = testing::runProcess(arguments, options);
    ASSERT_EQ(result.exitStatus, 0) << result.standardError;
  }

  std::map<std::string, InstalledApplication> listed() {
    std::map<std::string, InstalledApplication> byID;
    for (auto& application : LinuxApplicationSource().list(settings).applications)
      byID[application.id] = application;
    return byID;
  }

  testing::TemporaryDirectory folder;
  CatalogSettings settings;
};

TEST_F(FlatpakInstallations, UserAndSystemApplicationsAreListed) {
  auto byID = listed();
  ASSERT_EQ(byID.size(), 2u);
  const std::string userFolder = settings.flatpakUserDir + "/app/org.brisko.Hello";
  const std::string systemFolder = settings.flatpakSystemDir + "/app/org.brisko.Hello";
  for (const auto& [id, source, managedBy] :
       {std::tuple{userFolder, ApplicationSource::flatpakUser, std::optional<std::string>()},
        std::tuple{systemFolder, ApplicationSource::flatpakSystem,
                   std::optional<std::string>("flatpak")}}) {
    SCOPED_TRACE(id);
    ASSERT_EQ(byID.count(id), 1u);
    const auto& application = byID.at(id);
    EXPECT_EQ(application.source, source);
    EXPECT_EQ(application.managedBy, managedBy);
    EXPECT_EQ(application.bundleID, "org.brisko.Hello");
    EXPECT_EQ(application.name, "Hello World");  // from the exported entry
    EXPECT_EQ(application.version, "1.2.3");
    EXPECT_EQ(application.identity, FileProbe::stamp(id + "/x86_64/stable/active"));
    EXPECT_EQ(application.infoIdentity, FileProbe::stamp(application.sizePath + "/metadata"));
    EXPECT_EQ(application.sizePath.rfind(id + "/x86_64/stable/", 0), 0u);
  }

  // A new commit replaces the `active` link: the identity changes.
  const BundleStamp before = byID.at(userFolder).identity;
  folder.writeFile("app/files/bin/extra", "new");
  flatpak({"build-export", folder / "repo", folder / "app", "stable"});
  flatpak({"--user", "update", "-y", "--noninteractive", "org.brisko.Hello"});
  byID = listed();
  EXPECT_NE(byID.at(userFolder).identity, before);
  EXPECT_EQ(byID.at(userFolder).identity, FileProbe::stamp(userFolder + "/x86_64/stable/active"));

  const auto index = InstallationIndex::build(settings);
  EXPECT_EQ(index.withBundleID("org.brisko.hello", userFolder).size(), 3u);  // system + 2 entries

  // A dangling `active` link leaves that application out, and only it.
  const std::string active = systemFolder + "/x86_64/stable/active";
  ASSERT_EQ(::unlink(active.c_str()), 0);
  ASSERT_EQ(::symlink("no-such-commit", active.c_str()), 0);
  byID = listed();
  EXPECT_EQ(byID.count(systemFolder), 0u);
  EXPECT_EQ(byID.count(userFolder), 1u);
}

TEST(FlatpakMetainfo, ReadsTheNewestReleaseAndTheUntranslatedName) {
  const std::vector<std::tuple<std::string, std::optional<std::string>, std::optional<std::string>>>
      cases{
          {"<component><name xml:lang=\"de\">Hallo</name><name>Hello</name><releases>"
           "<release version=\"2\"/><release version=\"1\"/></releases></component>",
           "2", "Hello"},
          {"<component><name>X</name></component>", std::nullopt, "X"},
          {"<component><releases><release version=\"3\">", std::nullopt, std::nullopt},
          {"not xml at all <", std::nullopt, std::nullopt},
      };
  for (const auto& [document, version, name] : cases) {
    const auto summary = readMetainfo(document);
    EXPECT_EQ(summary.version, version) << document;
    EXPECT_EQ(summary.name, name) << document;
  }
}

}  // namespace
}  // namespace brisko
