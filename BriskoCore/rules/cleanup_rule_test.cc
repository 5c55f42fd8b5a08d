#include "rules/cleanup_rule.h"

#include <gtest/gtest.h>

namespace brisko {
namespace {

using Mode = RuleTargetMode;

TEST(RuleModel, ModesAreEqualByCaseAndPayload) {
  EXPECT_EQ(Mode::oldFiles(7), Mode::oldFiles(7));
  EXPECT_NE(Mode::oldFiles(7), Mode::oldFiles(8));
  EXPECT_EQ(Mode::keepNewestVersions(1, "~/.local/bin/claude"),
            Mode::keepNewestVersions(1, "~/.local/bin/claude"));
  // An absent pin differs from any pin, also an empty one.
  const Mode unpinned = Mode::keepNewestVersions(1, std::nullopt);
  const Mode emptyPin = Mode::keepNewestVersions(1, "");
  EXPECT_NE(unpinned, emptyPin);
  EXPECT_EQ(Mode::filesWithExtensions({"dmg", "pkg"}), Mode::filesWithExtensions({"pkg", "dmg"}));
  // Lists keep their order; sets don't have one.
  EXPECT_NE(Mode::appBundlePresence({"/a", "/b"}), Mode::appBundlePresence({"/b", "/a"}));
  EXPECT_NE(Mode::orphanedBundles(OrphanResource::caches),
            Mode::orphanedBundles(OrphanResource::logs));
  // Payload-less cases differ from each other.
  EXPECT_NE(Mode::topLevel(), Mode::contents());
  EXPECT_EQ(Mode::topLevel().kind(), Mode::Case::topLevel);
  EXPECT_EQ(Mode::keepActiveAndNewer("Current").as<Mode::KeepActiveAndNewer>()->currentSymlink,
            "Current");
  EXPECT_EQ(Mode::contents().as<Mode::TopLevel>(), nullptr);
}

TEST(RuleModel, TargetsAreEqualFieldByFieldAndGuardsAddUp) {
  const RuleGuard xcode = RuleGuard::processNotRunning({"Xcode"}, {"/Xcode.app/"});
  const RuleGuard arc = RuleGuard::processNotRunning({"Arc"}, {});
  const RuleTarget target{"~/a", Mode::contents(), "A", {arc}};
  EXPECT_EQ(target, (RuleTarget{"~/a", Mode::contents(), "A", {arc}}));
  EXPECT_NE(target, (RuleTarget{"~/a", Mode::contents(), std::nullopt, {arc}}));
  EXPECT_NE(target, (RuleTarget{"~/a", Mode::contents(), "A", {}}));
  EXPECT_NE(target, (RuleTarget{"~/a", Mode::topLevel(), "A", {arc}}));

  CleanupRule rule;
  rule.guards = {xcode};
  EXPECT_EQ(rule.effectiveGuards(target), (std::vector<RuleGuard>{xcode, arc}));
  EXPECT_EQ(rule.effectiveGuards(RuleTarget{"~/b", Mode::contents(), std::nullopt, {}}),
            std::vector<RuleGuard>{xcode});
}

}  // namespace
}  // namespace brisko
