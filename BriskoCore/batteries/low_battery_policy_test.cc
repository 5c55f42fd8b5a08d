// The low-battery decision as one timeline: what each check reports and
// what the ledger keeps for the next.

#include "batteries/low_battery_policy.h"

#include <gtest/gtest.h>

namespace brisko {
namespace {

using Kind = PeripheralBattery::Kind;

TEST(LowBatteryPolicy, ATimelineOfChecks) {
  const Date start{std::chrono::seconds{1'800'000'000}};
  const struct {
    const char* step;
    double secondsAfterStart;
    int threshold;
    std::vector<PeripheralBattery> devices;
    std::vector<std::string> reported;
  } steps[] = {
      {"a mouse at 29 is reported at once", 0, 30, {{"m", "M", Kind::mouse, 29}}, {"m"}},
      {"and not again at the next check", 60, 30, {{"m", "M", Kind::mouse, 29}}, {}},
      {"nor 86399 s after the notice", 86399, 30, {{"m", "M", Kind::mouse, 30}}, {}},
      {"but at 86400 s, still at the threshold", 86400, 30, {{"m", "M", Kind::mouse, 30}}, {"m"}},
      {"between the levels it keeps its entry", 86500, 30, {{"m", "M", Kind::mouse, 39}}, {}},
      {"back at 30 within the day: nothing", 86600, 30, {{"m", "M", Kind::mouse, 30}}, {}},
      {"40 re-arms it", 86700, 30, {{"m", "M", Kind::mouse, 40}}, {}},
      {"so 30 reports it at once", 86800, 30, {{"m", "M", Kind::mouse, 30}}, {"m"}},
      {"charging at 5 is quiet; earbuds and others never count; 31 is not low",
       86900,
       30,
       {{"m", "M", Kind::mouse, 5, {}, true},
        {"e", "E", Kind::earbuds, 1},
        {"o", "O", Kind::other, 1},
        {"h", "H", Kind::headphones, 1},
        {"k", "K", Kind::keyboard, 31}},
       {}},
      {"a higher threshold applies at once; the computer counts; input order kept",
       87000,
       40,
       {{"k", "K", Kind::keyboard, 31},
        {"internal-battery", "Desk", Kind::mac, 20},
        {"t", "T", Kind::trackpad, 0}},
       {"k", "internal-battery", "t"}},
  };
  LowBatteryLedger ledger;
  for (const auto& step : steps) {
    LowBatteryPolicy policy;
    policy.threshold = step.threshold;
    const Date now = start + std::chrono::duration_cast<std::chrono::microseconds>(
                                 std::chrono::duration<double>(step.secondsAfterStart));
    auto [reported, next] = policy.evaluate(step.devices, ledger, now);
    std::vector<std::string> ids;
    for (const PeripheralBattery& device : reported)
      ids.push_back(device.id);
    EXPECT_EQ(ids, step.reported) << step.step;
    // What the monitor stores reads back the same.
    EXPECT_EQ(decodeLedger(encodeLedger(next)), next) << step.step;
    ledger = std::move(next);
  }
  EXPECT_TRUE(ledger.entries.contains("m")) << "charging keeps the entry";

  for (const char* damaged :
       {"null", R"({"entries": []})", R"({"entries": {"m": {"lastNotifiedAt": "yesterday"}}})"})
    EXPECT_TRUE(decodeLedger(Json::parse(damaged)).entries.empty()) << damaged;
}

TEST(LowBatteryPolicyDeathTest, AnOverflowingRearmLevelAborts) {
  LowBatteryPolicy policy;
  policy.threshold = std::numeric_limits<int>::max();
  EXPECT_DEATH(policy.evaluate({}, {}, Date{}), "");
}

}  // namespace
}  // namespace brisko
