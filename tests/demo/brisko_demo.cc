// The demo of scripts/run.sh: builds the sample home folder, and turns the
// lines of "scan-stream" into a short summary that a person reads.
//
//   brisko-demo sample-home DIR [SCALE]
//   BriskoEngine scan-stream | brisko-demo summarize
//   brisko-demo plan-request < scan events   (the recommended findings, as a request)
//   brisko-demo describe-plan < plan         (the plan in words; the run's request on stdout)
//   brisko-demo receipt < execute-plan events
//   BriskoEngine space-stream | brisko-demo space-summary

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <optional>
#include <set>
#include <string>

#include "protocol/brisko_formatting.h"
#include "protocol/engine_text.h"
#include "protocol/guard_warning_text.h"
#include "protocol/line_framer.h"
#include "protocol/plan_records.h"
#include "protocol/receipt_records.h"
#include "protocol/scan_records.h"
#include "protocol/space_records.h"
#include "testing/sample_home.h"

namespace {

using brisko::BriskoFormatting;

// An engine text with its arguments put in, as the application would show it
// in English.
std::string rendered(const std::string& text) {
  const auto encoded = brisko::EngineText::decoded(text);
  if (!encoded) return text;
  std::string result;
  const std::string& key = encoded->key;
  size_t next = 0;
  for (size_t i = 0; i < key.size(); ++i) {
    if (key[i] != '%') {
      result += key[i];
      continue;
    }
    // %@, %d and their positional forms %1$@ ...
    size_t j = i + 1;
    while (j < key.size() && (std::isdigit(static_cast<unsigned char>(key[j])) || key[j] == '$'))
      ++j;
    while (j < key.size() && (key[j] == 'l' || key[j] == 'q'))
      ++j;  // %lld
    if (j < key.size() && (key[j] == '@' || key[j] == 'd')) {
      size_t index = next++;
      const size_t dollar = key.find('$', i + 1);
      if (dollar != std::string::npos && dollar < j) {
        index = std::stoul(key.substr(i + 1, dollar - i - 1)) - 1;
      }
      if (index < encoded->arguments.size()) result += encoded->arguments[index];
      i = j;
    } else {
      result += key[i];
    }
  }
  return result;
}

int summarize() {
  std::optional<brisko::ScanReport> report;
  int progressLines = 0;
  int totalLocations = 0;
  std::string line;
  while (std::getline(std::cin, line)) {
    if (line.empty()) continue;
    const auto event = brisko::decodeJson<brisko::ScanEvent>(line);
    if (event.kind == brisko::ScanEventKind::progress) ++progressLines;
    if (event.kind == brisko::ScanEventKind::started && event.progress) {
      totalLocations = static_cast<int>(event.progress->totalLocations);
    }
    if (event.report) report = event.report;
  }
  if (!report) {
    std::cerr << "brisko-demo: the scan ended without its report\n";
    return 1;
  }
  std::printf("Scanned %d locations (%d progress steps) on %s, %s free of %s.\n\n", totalLocations,
              progressLines, report->disk.volumeName.c_str(),
              BriskoFormatting::bytes(report->disk.availableBytes).c_str(),
              BriskoFormatting::bytes(report->disk.totalBytes).c_str());
  std::int64_t cleanable = 0;
  std::int64_t recommended = 0;
  for (const auto& finding : report->findings) {
    const bool reportOnly = finding.action == brisko::RuleAction::reportOnly;
    const char* label = reportOnly                                       ? "shown only"
                        : finding.risk == brisko::RiskLevel::recommended ? "recommended"
                                                                         : "review";
    std::printf("  %-24s %10s  %-11s %s%s\n", finding.title.c_str(),
                BriskoFormatting::bytes(finding.bytes).c_str(), label, finding.explanation.c_str(),
                finding.isPartial ? " (partial)" : "");
    if (finding.items) {
      for (const auto& item : *finding.items) {
        std::printf("      %-28s %10s  %s\n", item.title.c_str(),
                    BriskoFormatting::bytes(item.bytes).c_str(), item.subtitle.c_str());
      }
    }
    if (!reportOnly) cleanable += finding.bytes;
    if (!reportOnly && finding.risk == brisko::RiskLevel::recommended) recommended += finding.bytes;
  }
  for (const auto& warning : report->warnings)
    std::printf("\n  Warning: %s", rendered(warning).c_str());
  for (const auto& blocked : report->blocked)
    std::printf("\n  Could not read: %s (%s)", blocked.title.c_str(), blocked.path.c_str());
  std::printf("\n\n%zu findings: %s could be cleaned, %s of it recommended.\n",
              report->findings.size(), BriskoFormatting::bytes(cleanable).c_str(),
              BriskoFormatting::bytes(recommended).c_str());
  return 0;
}

std::string standardInput() {
  return std::string(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
}

// The last payload in `field` of a stream's events, read with the engine
// client's own framing.
template <class Event, class Payload>
std::optional<Payload> lastOf(std::optional<Payload> Event::*field) {
  brisko::LineFramer framer;
  framer.append(standardInput());
  std::optional<Payload> last;
  const auto take = [&](const std::string& line) {
    auto event = brisko::decodeJson<Event>(line);
    if (event.*field) last = std::move(event.*field);
  };
  while (auto line = framer.nextLine())
    take(*line);
  if (const std::string rest = framer.takeRemainder(); !rest.empty()) take(rest);
  return last;
}

// What the application preselects: recommended findings that can be cleaned
// and that no running application holds back.
int planRequest() {
  const auto report = lastOf(&brisko::ScanEvent::report);
  if (!report) {
    std::cerr << "brisko-demo: the scan ended without its report\n";
    return 1;
  }
  std::set<std::string> heldBack;
  for (const auto& warning : report->warnings) {
    if (auto title = brisko::GuardWarningText::guardedTitle(warning)) heldBack.insert(*title);
  }
  brisko::CreateCleanupPlanRequest request;
  for (const auto& finding : report->findings) {
    if (finding.action != brisko::RuleAction::cleanup) continue;
    if (finding.risk != brisko::RiskLevel::recommended || finding.bytes < 1) continue;
    if (heldBack.contains(finding.title)) continue;
    request.findingIDs.push_back(finding.id);
  }
  std::cout << brisko::encodeJson(request) << '\n';
  return 0;
}

int describePlan() {
  const auto plan = brisko::decodeJson<brisko::CleanupPlan>(standardInput());
  std::int64_t total = 0;
  for (const auto& item : plan.items)
    total += item.estimatedBytes;
  std::fprintf(stderr, "Plan %s: %zu items, %s, valid until %s.\n", plan.id.text().c_str(),
               plan.items.size(), BriskoFormatting::bytes(total).c_str(),
               brisko::formatIso8601(plan.expiresAt).c_str());
  // Catalog locations that this home doesn't have are many and say little.
  size_t missing = 0;
  for (const auto& skip : plan.skipped) {
    if (skip.reason == brisko::CleanupPlanSkipReason::pathMissing) {
      ++missing;
      continue;
    }
    std::fprintf(stderr, "  left out: %s (%s)\n", skip.path.c_str(), skip.message.c_str());
  }
  std::fprintf(stderr, "  and %zu catalog locations that this home folder doesn't have.\n",
               missing);
  std::cout << brisko::encodeJson(brisko::ExecuteCleanupPlanRequest{plan.id}) << '\n';
  return 0;
}

int describeReceipt() {
  const auto receipt = lastOf(&brisko::CleanupEvent::receipt);
  if (!receipt) {
    std::cerr << "brisko-demo: the run ended without its receipt\n";
    return 1;
  }
  std::int64_t freed = 0;
  int deleted = 0, skipped = 0, failed = 0;
  for (const auto& result : receipt->results) {
    switch (result.outcome) {
      case brisko::CleanupItemOutcome::deleted:
        ++deleted;
        freed += result.bytes;
        std::printf("  deleted  %10s  %s\n", BriskoFormatting::bytes(result.bytes).c_str(),
                    result.originalPath.c_str());
        break;
      case brisko::CleanupItemOutcome::skipped:
        ++skipped;
        std::printf("  kept                 %s: %s\n", result.originalPath.c_str(),
                    rendered(result.message).c_str());
        break;
      case brisko::CleanupItemOutcome::failed:
        ++failed;
        std::printf("  failed               %s: %s\n", result.originalPath.c_str(),
                    result.message.c_str());
        break;
    }
  }
  std::printf("\nReceipt %s, %s to %s: %d deleted, %d kept, %d failed; %s freed.\n",
              receipt->id.text().c_str(), brisko::formatIso8601(receipt->startedAt).c_str(),
              brisko::formatIso8601(receipt->completedAt).c_str(), deleted, skipped, failed,
              BriskoFormatting::bytes(freed).c_str());
  return 0;
}

// Where a home folder's space went, in words: the largest rows of the top
// level and the large files.
int spaceSummary() {
  const auto report = lastOf(&brisko::SpaceEvent::report);
  if (!report) {
    std::cerr << "brisko-demo: the space scan ended without its report\n";
    return 1;
  }
  const auto& root = report->root;
  std::printf("The home folder %s holds %s in %lld files%s.\n", root.path.c_str(),
              BriskoFormatting::bytes(root.bytes).c_str(), static_cast<long long>(root.itemCount),
              root.isPartial ? " (not all of it could be read)" : "");
  for (const auto& warning : report->warnings)
    std::printf("Note: %s\n", rendered(warning).c_str());
  std::printf("Largest at the top level:\n");
  size_t shown = 0;
  for (const auto& node : root.children) {
    if (shown++ == 8) break;
    const char* kind = node.kind == brisko::SpaceNodeKind::file          ? "file"
                       : node.kind == brisko::SpaceNodeKind::folded      ? "folder, measured whole"
                       : node.kind == brisko::SpaceNodeKind::hiddenGroup ? "hidden entries together"
                       : node.kind == brisko::SpaceNodeKind::otherGroup  ? "small items together"
                                                                         : "folder";
    std::printf("  %10s  %s (%s%s%s)\n", BriskoFormatting::bytes(node.bytes).c_str(),
                rendered(node.name).c_str(), kind, node.accessDenied ? ", not readable" : "",
                node.sharedBytes > 0 ? ", partly shared with other names" : "");
  }
  if (report->largeFiles.empty())
    std::printf("No large files.\n");
  else
    std::printf("Large files:\n");
  shown = 0;
  for (const auto& file : report->largeFiles) {
    if (shown++ == 10) break;
    std::printf("  %10s  %s\n", BriskoFormatting::bytes(file.bytes).c_str(), file.path.c_str());
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "sample-home" && (argc == 3 || argc == 4)) {
      brisko::testing::buildSampleHome(argv[2], argc == 4 ? std::stoll(argv[3]) : 1);
      return 0;
    }
    if (command == "summarize" && argc == 2) return summarize();
    if (command == "plan-request" && argc == 2) return planRequest();
    if (command == "describe-plan" && argc == 2) return describePlan();
    if (command == "receipt" && argc == 2) return describeReceipt();
    if (command == "space-summary" && argc == 2) return spaceSummary();
    std::cerr << "usage: brisko-demo sample-home DIR [SCALE] | summarize | plan-request | "
                 "describe-plan | receipt | space-summary\n";
    return 64;
  } catch (const std::exception& error) {
    std::cerr << "brisko-demo: " << error.what() << '\n';
    return 1;
  }
}
