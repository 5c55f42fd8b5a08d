// How fast the safety gate answers during a scan: evaluate without link
// resolution, on home-relative paths of 5 to 12 components, with the default
// whitelist loaded. The reference is the least that any evaluation must do:
// copy the path and lower-case it.
//
// Counters: evaluations per second ("items_per_second") and heap
// allocations per call ("allocs/call"), counted by the replaced global
// operator new below.

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "safety/path_safety_policy.h"
#include "safety/whitelist_store.h"

namespace {

std::atomic<long> allocationCount{0};

}  // namespace

// g++ can't see that the replaced new and delete pair malloc with free.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void* operator new(std::size_t size) {
  allocationCount.fetch_add(1, std::memory_order_relaxed);
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

const std::string kHome = "/home/vimo";

// Paths as a walk of a developer's home folder meets them: caches, build
// trees, documents, some protected and some whitelisted places.
std::vector<std::string> realisticPaths() {
  const std::vector<std::string> starts = {
      "/Library/Caches/com.google.Chrome/Default/Cache/Cache_Data",
      "/Library/Caches/Homebrew/downloads",
      "/Library/Application Support/Code/User/workspaceStorage",
      "/Library/Application Support/Slack/Service Worker/CacheStorage",
      "/Library/Containers/com.apple.mail/Data",
      "/Library/Caches/JetBrains/IntelliJIdea2024.1/caches",
      "/.cache/pip/http/a",
      "/.cache/huggingface/hub/models--bert",
      "/.gradle/caches/modules-2/files-2.1",
      "/.npm/_cacache/content-v2/sha512",
      "/Projects/brisko/build/release/BriskoCore",
      "/Projects/webapp/node_modules/@babel/core/lib",
      "/Projects/cursor-demo/node_modules/react/cjs",
      "/Documents/Invoices/2025/March",
      "/Downloads/installers/old",
      "/.local/share/Trash/files",
      "/.rustup/toolchains/stable-x86_64-unknown-linux-gnu/lib",
      "/Library/Caches/com.docker.docker/blobs",
      "/Library/Developer/Xcode/DerivedData/App-abc/Build/Intermediates.noindex",
  };
  const std::vector<std::string> tails = {"a", "src", "index", "objects", "v1", "Data", "tmp"};
  std::mt19937 random(42);
  std::vector<std::string> paths;
  for (int i = 0; i < 2048; ++i) {
    std::string path = kHome + starts[random() % starts.size()];
    size_t components = 0;
    for (const char c : path)
      components += c == '/';
    // 5 to 12 components in all.
    const size_t wanted = 5 + random() % 8;
    while (components < wanted) {
      path += "/" + tails[random() % tails.size()] + std::to_string(random() % 100);
      ++components;
    }
    while (components > wanted) {
      path.resize(path.find_last_of('/'));
      --components;
    }
    paths.push_back(path);
  }
  return paths;
}

void BM_EvaluateWithoutResolving(benchmark::State& state) {
  const brisko::PathSafetyPolicy policy(kHome, brisko::WhitelistStore::defaultPatterns(kHome));
  const std::vector<std::string> paths = realisticPaths();
  size_t index = 0;
  long allowed = 0;
  const long allocationsBefore = allocationCount.load();
  for (auto _ : state) {
    const brisko::PathSafetyVerdict verdict = policy.evaluate(paths[index], false);
    allowed += verdict.isAllowed();
    benchmark::DoNotOptimize(verdict);
    index = (index + 1) % paths.size();
  }
  const long allocations = allocationCount.load() - allocationsBefore;
  state.SetItemsProcessed(state.iterations());
  state.counters["allocs/call"] = benchmark::Counter(static_cast<double>(allocations) /
                                                     static_cast<double>(state.iterations()));
  state.counters["allowedShare"] =
      benchmark::Counter(static_cast<double>(allowed) / static_cast<double>(state.iterations()));
}
BENCHMARK(BM_EvaluateWithoutResolving);

void BM_ReferenceLowercasedCopy(benchmark::State& state) {
  const std::vector<std::string> paths = realisticPaths();
  size_t index = 0;
  const long allocationsBefore = allocationCount.load();
  for (auto _ : state) {
    std::string lower = paths[index];
    for (char& c : lower)
      c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    benchmark::DoNotOptimize(lower);
    index = (index + 1) % paths.size();
  }
  const long allocations = allocationCount.load() - allocationsBefore;
  state.SetItemsProcessed(state.iterations());
  state.counters["allocs/call"] = benchmark::Counter(static_cast<double>(allocations) /
                                                     static_cast<double>(state.iterations()));
}
BENCHMARK(BM_ReferenceLowercasedCopy);

}  // namespace

BENCHMARK_MAIN();
