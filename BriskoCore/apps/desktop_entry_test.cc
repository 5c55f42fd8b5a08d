#include "apps/desktop_entry.h"

#include <gtest/gtest.h>

#include <random>

#include "apps/property_list.h"
#include "base/file_contents.h"
#include "base/utf8.h"
#include "testing/subprocess.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using Arguments = std::vector<std::string>;

TEST(DesktopEntry, ExecLinesSplitByTheDesktopEntryQuoting) {
  const std::vector<std::pair<std::string, std::optional<Arguments>>> cases{
      {"foo %U", Arguments{"foo"}},
      {"/opt/My\\ App/run",
       Arguments{"/opt/My\\", "App/run"}},  // no backslash escapes outside quotes
      {"\"/opt/My App/run\" --flag=\"a b\" %f", Arguments{"/opt/My App/run", "--flag=a b"}},
      {"\"say \\\"hi\\\" \\$HOME \\\\ \\`x\\`\"", Arguments{"say \"hi\" $HOME \\ `x`"}},
      {"  spaced\targs  ", Arguments{"spaced", "args"}},
      {"progress 100%%", Arguments{"progress", "100%"}},
      {"%k %c", Arguments{}},
      {"\"unbalanced", std::nullopt},
      {"a \"b\\\"", std::nullopt},
      {"", Arguments{}},
  };
  for (const auto& [line, expected] : cases)
    EXPECT_EQ(splitExecLine(line), expected) << line;

  const std::vector<std::pair<Arguments, std::string>> programs{
      {{"env", "LANG=C", "-u", "X", "prog", "--a"}, "prog"},
      {{"/usr/bin/env", "A=1"}, ""},
      {{"prog", "A=1"}, "prog"},
      {{}, ""},
  };
  for (const auto& [exec, program] : programs)
    EXPECT_EQ(execProgram(exec), program);
}

TEST(DesktopEntry, DamagedEntriesAreLeftOut) {
  const std::string good =
      "[Desktop Entry]\nType=Application\nName=Good\nName[de]=Gut\nName[fr_CA]=Bon\n"
      "Exec=good\\s%F\nNoDisplay=true\nX-Flatpak=org.example.Good\n";
  const auto parsed = DesktopEntry::parse(good, "de-CH");
  ASSERT_TRUE(parsed.has_value());
  EXPECT_EQ(parsed->name, "Gut");
  EXPECT_EQ(parsed->exec, (Arguments{"good"}));  // "\s" is a blank, after the key-file escapes
  EXPECT_TRUE(parsed->noDisplay);
  EXPECT_EQ(parsed->flatpakID, "org.example.Good");
  EXPECT_EQ(DesktopEntry::parse(good, "fr-CA")->name, "Bon");
  EXPECT_EQ(DesktopEntry::parse(good, "")->name, "Good");

  const std::vector<std::pair<std::string, std::string>> bad{
      {"not UTF-8", "[Desktop Entry]\nType=Application\nName=Caf\xE9\n"},
      {"no group", "[Other]\nType=Application\n"},
      {"no group at all", "Type=Application\n"},
      {"unbalanced quotes", "[Desktop Entry]\nType=Application\nExec=\"run\n"},
      {"over 1 MiB", "[Desktop Entry]\nType=Application\nComment=" +
                         std::string(DesktopEntry::kLargestEntry, 'x') + "\n"},
      {"binary", std::string("\x7f"
                             "ELF\0\0\0",
                             8)},
  };
  for (const auto& [why, text] : bad)
    EXPECT_FALSE(DesktopEntry::parse(text, "").has_value()) << why;
}

// Random damage to valid inputs: the readers must answer, whatever the bytes.
std::string mutated(std::string text, std::mt19937& random) {
  const int edits = 1 + static_cast<int>(random() % 8);
  for (int i = 0; i < edits && !text.empty(); ++i) {
    const size_t at = random() % text.size();
    switch (random() % 4) {
      case 0:
        text[at] = static_cast<char>(random());
        break;
      case 1:
        text.erase(at, 1 + random() % 16);
        break;
      case 2:
        text.insert(at, text.substr(random() % text.size(), random() % 32));
        break;
      default:
        text.resize(at);
        break;
    }
  }
  return text;
}

TEST(DesktopEntry, SurvivesAShortFuzzRun) {
  const std::vector<std::string> entries{
      "[Desktop Entry]\nType=Application\nName=A\nName[de]=B\nExec=env X=1 \"a b\" %U --app-id=x\n"
      "TryExec=a\nHidden=false\nX-SnapInstanceName=s\n[Desktop Action new]\nExec=a -n\n",
  };
  testing::TemporaryDirectory folder;
  const std::string xml = folder.writeFile(
      "list.xml",
      "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>CFBundleName</key><string>N"
      "</string><key>CFBundleIdentifier</key><string>a.b</string><key>n</key><integer>4"
      "</integer><key>d</key><dict><key>x</key><array><true/><real>1.5</real></array></dict>"
      "</dict></plist>");
  const auto converted =
      testing::runProcess({"plistutil", "-i", xml, "-o", folder / "list.bin", "-f", "bin"});
  ASSERT_EQ(converted.exitStatus, 0) << converted.standardError;
  const std::vector<std::string> lists{*readFileContents(xml),
                                       *readFileContents(folder / "list.bin")};
  std::mt19937 random(20261123);
  int parsedEntries = 0;
  for (int round = 0; round < 3000; ++round) {
    const auto entry = DesktopEntry::parse(mutated(entries[0], random), "de");
    if (entry) {
      ++parsedEntries;
      EXPECT_TRUE(entry->name.find('\0') == std::string::npos);
    }
    if (const auto list = PropertyList::parse(mutated(lists[round % lists.size()], random))) {
      const auto name = list->value("CFBundleName");
      if (name.lookup == PropertyList::Lookup::text) {
        EXPECT_TRUE(isValidUtf8(name.text));
      }
    }
  }
  EXPECT_GT(parsedEntries, 0);
  for (const auto& list : lists) {
    ASSERT_TRUE(PropertyList::parse(list).has_value());
    EXPECT_EQ(PropertyList::parse(list)->value("CFBundleIdentifier").text, "a.b");
    EXPECT_EQ(PropertyList::parse(list)->value("n").lookup, PropertyList::Lookup::notText);
  }
}

}  // namespace
}  // namespace brisko
