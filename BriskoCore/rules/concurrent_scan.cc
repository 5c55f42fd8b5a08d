#include "rules/concurrent_scan.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <numeric>
#include <thread>

namespace brisko::ConcurrentScan {

int schedulingWeight(std::string_view ruleID) {
  static const std::map<std::string, int, std::less<>> weights = {
      {"app-deep-caches", 100},         {"user-caches", 95},           {"browser-caches", 90},
      {"report-simulator-devices", 85}, {"xcode-simulators", 80},      {"report-ios-backups", 75},
      {"xcode-derived-data", 70},       {"dev-tool-caches", 65},       {"orphaned-app-data", 60},
      {"video-project-caches", 55},     {"report-xcode-archives", 50}, {"user-logs", 45},
      {"browser-old-versions", 40}};
  const auto found = weights.find(ruleID);
  return found == weights.end() ? 0 : found->second;
}

std::vector<size_t> schedulingOrder(const std::vector<CleanupRule>& rules) {
  std::vector<size_t> order(rules.size());
  std::iota(order.begin(), order.end(), size_t{0});
  std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) {
    return schedulingWeight(rules[a].id) > schedulingWeight(rules[b].id);
  });
  return order;
}

std::vector<Measurement> measureAll(const std::vector<CleanupRule>& rules,
                                    const CleanupRuleEvaluator& evaluator,
                                    const Callbacks& callbacks) {
  const std::vector<size_t> order = schedulingOrder(rules);
  std::vector<Measurement> results(rules.size());
  std::mutex resultsLock;
  std::atomic<size_t> next{0};

  const auto work = [&] {
    while (true) {
      const size_t place = next.fetch_add(1);
      if (place >= order.size() || evaluator.isCancelled()) return;
      const CleanupRule& rule = rules[order[place]];
      if (callbacks.onRuleBegan) callbacks.onRuleBegan(rule);
      std::int64_t finishedRoots = 0;
      Measurement measurement = evaluator.measure(rule, [&] {
        ++finishedRoots;
        if (callbacks.onRuleRootMeasured) callbacks.onRuleRootMeasured(rule, finishedRoots);
      });
      if (callbacks.onRuleMeasured) callbacks.onRuleMeasured(rule, measurement, finishedRoots);
      std::lock_guard lock(resultsLock);
      results[order[place]] = std::move(measurement);
    }
  };

  const unsigned width =
      std::min<unsigned>(std::max(std::thread::hardware_concurrency(), 1u),
                         static_cast<unsigned>(std::max<size_t>(rules.size(), 1)));
  std::vector<std::thread> pool;
  for (unsigned i = 1; i < width; ++i) {
    try {
      pool.emplace_back(work);
    } catch (const std::system_error&) {
      break;  // the calling thread still works through every rule
    }
  }
  work();
  for (std::thread& thread : pool)
    thread.join();
  return results;
}

}  // namespace brisko::ConcurrentScan
