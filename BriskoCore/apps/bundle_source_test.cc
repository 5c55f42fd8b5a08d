#include "apps/bundle_source.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include <algorithm>
#include <map>

#include "apps/application_catalog.h"
#include "apps/bundle_reader.h"
#include "apps/directory_listing_cache.h"
#include "apps/installation_index.h"
#include "platform/file_probe.h"
#include "testing/ordinary_user.h"
#include "testing/subprocess.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

std::string infoPlist(const std::map<std::string, std::string>& strings,
                      const std::string& extra = "") {
  std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\"><dict>\n";
  for (const auto& [key, value] : strings)
    text += "<key>" + key + "</key><string>" + value + "</string>\n";
  return text + extra + "</dict></plist>\n";
}

// What `du -skP` says, in bytes: folders' own blocks count too.
std::int64_t duBytes(const std::string& path) {
  const auto du = testing::runProcess({"du", "-skP", "--", path});
  return std::stoll(du.standardOutput) * 1024;
}

// A system under `root` and a home beside it, nothing from the machine.
struct Fixture {
  testing::TemporaryDirectory folder;
  CatalogSettings settings;

  Fixture() {
    ::chmod(folder.path().c_str(), 0755);
    folder.makeDirectory("root/Applications");
    folder.makeDirectory("home/Applications");
    settings.root = folder / "root";
    settings.home = folder / "home";
    settings.userName = "nobody-here";
    settings.dataHome = settings.home + "/.local/share";
    settings.flatpakUserDir = settings.dataHome + "/flatpak";
    settings.flatpakSystemDir = settings.root + "/var/lib/flatpak";
    settings.mountinfoPath = folder / "no-mountinfo";
  }

  // A bundle at `relative` whose Info.plist is `plist`.
  std::string bundle(const std::string& relative, const std::string& plist) const {
    folder.writeFile(relative + "/Contents/Info.plist", plist);
    return folder / relative;
  }
  std::string bundle(const std::string& relative, const std::string& identifier,
                     const std::string& name) const {
    return bundle(relative, infoPlist({{"CFBundleIdentifier", identifier},
                                       {"CFBundleName", name},
                                       {"CFBundleShortVersionString", "1.0"}}));
  }

  std::map<std::string, InstalledApplication> listed() {
    std::map<std::string, InstalledApplication> byPath;
    for (auto& application : BundleSource().list(settings).applications)
      byPath[application.id] = application;
    return byPath;
  }
};

TEST(BundleCatalog, FindsReadsAndMergesBundles) {
  Fixture fixture;
  const auto& folder = fixture.folder;
  fixture.bundle("root/Applications/Shared.app", "com.example.Shared", "Shared");
  fixture.bundle("home/Applications/Shared.app", "COM.example.shared", "Shared");
  fixture.bundle("home/Applications/Mine.app", "com.example.Mine", "Mine");
  fixture.bundle("root/Applications/Tools/Deep/Three.app", "com.example.Three", "Three");
  fixture.bundle("root/Applications/A/B/C/Four.app", "com.example.Four", "Four");
  fixture.bundle("root/Applications/Outer.app", "com.example.Outer", "Outer");
  fixture.bundle("root/Applications/Outer.app/Contents/Inner.app", "com.example.Inner", "Inner");
  fixture.bundle("root/Applications/Shouting.APP", "com.example.Shouting", "Shouting");
  fixture.bundle("root/Applications/.Hidden.app", "com.example.Hidden", "Hidden");
  fixture.bundle("root/Applications/Versioned.app",
                 infoPlist({{"CFBundleName", "Versioned 2.1 (300)"}, {"CFBundleVersion", "300"}}));
  fixture.bundle("root/Applications/Renamed.app",
                 infoPlist({{"CFBundleDisplayName", "Nice Name"}, {"CFBundleName", "Renamed"}}));
  fixture.bundle("root/Applications/Slashed.app", infoPlist({{"CFBundleName", "/bin/evil"}}));
  fixture.bundle("root/Applications/Controls.app",
                 infoPlist({{"CFBundleName", "Con\xE2\x80\x8Btrol\x7Fs"}}));
  fixture.bundle("root/Applications/Spaced.app",
                 infoPlist({{"CFBundleIdentifier", "  com.example.spaced\n"}}));
  folder.writeFile("root/Applications/Wrapped.app/Wrapper/Game.app/Info.plist",
                   infoPlist({{"CFBundleIdentifier", "com.example.Game"}}));
  // Text with a byte order mark in front.
  fixture.bundle("root/Applications/Marked.app",
                 "\xEF\xBB\xBF" + infoPlist({{"CFBundleName", "Marked"}}));
  // Damaged, truncated, of the wrong type, missing, not a dictionary.
  const std::string whole = infoPlist({{"CFBundleName", "Cut"}});
  fixture.bundle("root/Applications/Cut.app", whole.substr(0, whole.size() / 2));
  fixture.bundle("root/Applications/Garbage.app", "\x01\x02 not a list at all \xFF");
  fixture.bundle(
      "root/Applications/Typed.app",
      infoPlist({{"CFBundleName", "Typed"}}, "<key>CFBundleIdentifier</key><integer>7</integer>"));
  folder.makeDirectory("root/Applications/Empty.app/Contents");
  fixture.bundle("root/Applications/Array.app",
                 infoPlist({}).replace(infoPlist({}).find("<dict>"), 13, "<array/>"));
  // A link to a bundle is a candidate; its resolved path is what is judged.
  fixture.bundle("root/usr/lib/Hidden/System.app", "com.example.System", "System");
  folder.makeSymlink("root/Applications/System.app", folder / "root/usr/lib/Hidden/System.app");
  fixture.bundle("elsewhere/Linked.app", "com.example.Linked", "Linked");
  folder.makeSymlink("root/Applications/Linked.app", folder / "elsewhere/Linked.app");

  // A binary list, made by the real plistutil.
  const std::string xml =
      folder.writeFile("binary.xml", infoPlist({{"CFBundleIdentifier", "com.example.Binary"},
                                                {"CFBundleName", "Binary"},
                                                {"CFBundleVersion", "7"}}));
  folder.makeDirectory("root/Applications/Binary.app/Contents");
  const auto converted = testing::runProcess(
      {"plistutil", "-i", xml, "-o", folder / "root/Applications/Binary.app/Contents/Info.plist",
       "-f", "bin"});
  ASSERT_EQ(converted.exitStatus, 0) << converted.standardError;

  const auto listed = fixture.listed();
  const auto root = [&](const std::string& name) { return folder / ("root/Applications/" + name); };
  struct Expected {
    std::string path;
    std::string name;
    std::optional<std::string> bundleID;
    std::optional<std::string> version;
  };
  const std::vector<Expected> present{
      {root("Shared.app"), "Shared", "com.example.Shared", "1.0"},  // rank 1 beats the home's
      {folder / "home/Applications/Mine.app", "Mine", "com.example.Mine", "1.0"},
      {root("Tools/Deep/Three.app"), "Three", "com.example.Three", "1.0"},
      {root("Outer.app"), "Outer", "com.example.Outer", "1.0"},
      {root("Shouting.APP"), "Shouting", "com.example.Shouting", "1.0"},
      {root("Versioned.app"), "Versioned", std::nullopt, "300"},
      {root("Renamed.app"), "Nice Name", std::nullopt, std::nullopt},
      {root("Slashed.app"), "Slashed", std::nullopt, std::nullopt},
      {root("Controls.app"), "Controls", std::nullopt, std::nullopt},
      {root("Spaced.app"), "Spaced", "com.example.spaced", std::nullopt},
      {root("Wrapped.app"), "Wrapped", "com.example.Game", std::nullopt},
      {root("Marked.app"), "Marked", std::nullopt, std::nullopt},
      {root("Linked.app"), "Linked", "com.example.Linked", "1.0"},
      {root("Binary.app"), "Binary", "com.example.Binary", "7"},
  };
  for (const auto& expected : present) {
    SCOPED_TRACE(expected.path);
    ASSERT_EQ(listed.count(expected.path), 1u);
    const auto& application = listed.at(expected.path);
    EXPECT_EQ(application.name, expected.name);
    EXPECT_EQ(application.bundleID, expected.bundleID);
    EXPECT_EQ(application.version, expected.version);
    EXPECT_EQ(application.identity, FileProbe::stamp(expected.path));
    EXPECT_TRUE(application.infoIdentity.has_value());
    EXPECT_TRUE(application.isRemovable());
  }
  EXPECT_EQ(listed.size(), present.size());
  for (const char* absent :
       {"A/B/C/Four.app", "Outer.app/Contents/Inner.app", ".Hidden.app", "Cut.app", "Garbage.app",
        "Typed.app", "Empty.app", "Array.app", "System.app"})
    EXPECT_EQ(listed.count(root(absent)), 0u) << absent;
  EXPECT_EQ(listed.at(root("Linked.app")).identity, FileProbe::stamp(root("Linked.app")));
}

TEST(BundleCatalog, ListingCacheFindsNamesCaseBlind) {
  testing::TemporaryDirectory folder;
  folder.writeFile("pair/Foo");
  folder.writeFile("pair/foo");
  folder.writeFile("variants/FOO");
  folder.writeFile("variants/Foo");
  folder.writeFile("single/Library");
  DirectoryListingCache cache;
  struct Case {
    std::string name;
    std::string directory;
    std::optional<std::string> expected;
  };
  const std::vector<Case> cases{
      {"foo", "pair", folder / "pair/foo"},  // the exact spelling wins
      {"Foo", "pair", folder / "pair/Foo"},
      {"fOO", "pair", std::nullopt},  // two spellings, neither exact: no single answer
      {"foo", "variants", std::nullopt},
      {"FOO", "variants", folder / "variants/FOO"},
      {"library", "single", folder / "single/Library"},
      {"..", "single", std::nullopt},
      {".", "single", std::nullopt},
      {"", "single", std::nullopt},
      {"a/b", "single", std::nullopt},
      {"x", "missing", std::nullopt},
  };
  for (const auto& test : cases)
    EXPECT_EQ(cache.existingPath(test.name, folder / test.directory), test.expected)
        << test.name << " in " << test.directory;
  // A listing is read once: a file added later stays unseen.
  folder.writeFile("single/Late");
  EXPECT_EQ(cache.existingPath("late", folder / "single"), std::nullopt);
  EXPECT_FALSE(cache.listing(folder / "missing").has_value());
}

TEST(BundleCatalog, SizeCacheHoldsOnlyWhileTheStampsMatch) {
  Fixture fixture;
  const std::string bundle =
      fixture.bundle("root/Applications/Sized.app", "com.example.Sized", "Sized");
  fixture.folder.writeFile("root/Applications/Sized.app/Contents/MacOS/sized",
                           std::string(50000, 's'));
  const std::string cachePath = fixture.folder / "cache/brisko/application-sizes.json";
  fixture.settings.sizeCachePath = cachePath;

  std::vector<std::unique_ptr<ApplicationLister>> sources;
  sources.push_back(std::make_unique<BundleSource>());
  ApplicationCatalog catalog(fixture.settings, std::move(sources));
  {
    ApplicationSizeCache cold(cachePath);
    auto applications = catalog.installedApplications(cold);
    ASSERT_EQ(applications.size(), 1u);
    EXPECT_FALSE(applications[0].bytes.has_value());
    ApplicationCatalog::measureSizes(applications, cold);
    EXPECT_EQ(applications[0].bytes, duBytes(bundle));
    EXPECT_GT(*applications[0].bytes, 50000);
  }
  ApplicationSizeCache warm(cachePath);
  auto applications = catalog.installedApplications(warm);
  ASSERT_EQ(applications.size(), 1u);
  EXPECT_EQ(applications[0].bytes, duBytes(bundle));

  // An update rewrites the Info.plist: the stored size no longer counts.
  ::utimbuf later{1'700'000'000, 1'700'000'000};
  ASSERT_EQ(::utime((bundle + "/Contents/Info.plist").c_str(), &later), 0);
  EXPECT_FALSE(catalog.installedApplications(warm)[0].bytes.has_value());

  // A damaged file reads as an empty cache, and so does one of the wrong shape.
  for (const char* damaged : {"{\"x\": ", "[1,2]", "{\"/a\": {\"device\": \"one\"}}"}) {
    fixture.folder.writeFile("cache/brisko/application-sizes.json", damaged);
    EXPECT_TRUE(ApplicationSizeCache(cachePath).entries().empty()) << damaged;
  }
}

TEST(BundleCatalog, AnUnreadableRootMakesTheIndexIncomplete) {
  Fixture fixture;
  fixture.bundle("root/Applications/Open.app", "com.example.Open", "Open");
  fixture.bundle("home/Applications/Closed/Shut.app", "com.example.Shut", "Shut");
  ASSERT_EQ(::chmod((fixture.folder / "home/Applications").c_str(), 0311), 0);
  EXPECT_EQ(testing::runTestsAsOrdinaryUser("BundleCatalogAsOrdinaryUser.*",
                                            {{"BRISKO_APPS_FIXTURE", fixture.folder.path()}}),
            0);
  ASSERT_EQ(::chmod((fixture.folder / "home/Applications").c_str(), 0755), 0);
}

TEST(BundleCatalogAsOrdinaryUser, ListsWhatItCanRead) {
  const std::string base = testing::ordinaryUserArgument("BRISKO_APPS_FIXTURE");
  if (base.empty()) GTEST_SKIP() << "runs as an ordinary user only";
  CatalogSettings settings;
  settings.root = base + "/root";
  settings.home = base + "/home";
  settings.dataHome = settings.home + "/.local/share";
  settings.flatpakUserDir = settings.dataHome + "/flatpak";
  settings.flatpakSystemDir = settings.root + "/var/lib/flatpak";
  settings.mountinfoPath = base + "/no-mountinfo";
  const auto listing = BundleSource().list(settings);
  ASSERT_EQ(listing.applications.size(), 1u);
  EXPECT_EQ(listing.applications[0].bundleID, "com.example.Open");
  EXPECT_FALSE(listing.isComplete);
  const auto index = InstallationIndex::build(settings);
  EXPECT_FALSE(index.isComplete);
  EXPECT_EQ(index.withBundleID("COM.EXAMPLE.OPEN", "").size(), 1u);
  EXPECT_TRUE(
      index.withBundleID("com.example.open", settings.root + "/Applications/Open.app").empty());
}

}  // namespace
}  // namespace brisko
