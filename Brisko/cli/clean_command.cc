// `brisko clean`: the selection, the plan in words, the confirmation, the run
// through the store (as the window runs it) and the receipt.

#include <algorithm>

#include "cli/cli_commands.h"
#include "cli/cli_render.h"
#include "cli/cli_session.h"
#include "cli/json_lines.h"
#include "protocol/brisko_formatting.h"
#include "store/finding_selection.h"
#include "text/app_texts.h"

namespace brisko::cli {

namespace {

struct Pick {
  std::string findingID;
  std::optional<std::string> itemID;  // none: the whole finding
};

// Each operand as a finding or an item of the scan's list. Throws UsageError
// for an ID that names nothing, or a finding that can only be shown.
std::vector<Pick> picksOf(const std::vector<std::string>& operands, const AppStore& store) {
  std::vector<Pick> picks;
  for (const std::string& id : operands) {
    std::optional<Pick> pick;
    const ScanFinding* owner = nullptr;
    for (const ScanFinding& finding : store.findings()) {
      if (finding.id == id) {
        pick = Pick{finding.id, std::nullopt};
        owner = &finding;
      }
      if (pick || !finding.items) continue;
      for (const ScanFindingItem& item : *finding.items)
        if (item.id == id) {
          pick = Pick{finding.id, item.id};
          owner = &finding;
        }
    }
    if (!pick)
      throw UsageError("no finding or item has the ID \u2018" + id +
                       "\u2019; \u2018brisko scan\u2019 lists them");
    if (owner->action != RuleAction::cleanup)
      throw UsageError("\u2018" + id + "\u2019 is shown only; Brisko doesn\u2019t clean it");
    picks.push_back(*pick);
  }
  return picks;
}

std::vector<std::string> itemIDsOf(const ScanFinding& finding) {
  std::vector<std::string> ids;
  if (finding.items)
    for (const ScanFindingItem& item : *finding.items)
      ids.push_back(item.id);
  return ids;
}

// Starts from the selection by default (--recommended) or from nothing, and
// adds the picks, through the store's own selection operations.
void select(AppStore& store, bool keepDefault, bool keepTrash, const std::vector<Pick>& picks) {
  const std::vector<ScanFinding> findings = store.findings();
  if (!keepDefault)
    for (const ScanFinding& finding : findings) {
      if (hasItems(finding))
        store.setItems(finding.id, itemIDsOf(finding), false);
      else if (store.selectedFindingIDs().contains(finding.id))
        store.toggleFinding(finding.id);
    }
  for (const Pick& pick : picks) {
    const auto finding = std::find_if(findings.begin(), findings.end(),
                                      [&](const ScanFinding& f) { return f.id == pick.findingID; });
    if (pick.itemID)
      store.setItems(pick.findingID, {*pick.itemID}, true);
    else if (hasItems(*finding))
      store.setItems(pick.findingID, itemIDsOf(*finding), true);
    else if (!store.selectedFindingIDs().contains(pick.findingID))
      store.toggleFinding(pick.findingID);
  }
  // An empty Trash has nothing to empty, and no row in the receipt.
  const std::string trash(kTrashFindingID);
  if (store.selectedFindingIDs().contains(trash) &&
      (keepTrash || !store.trash() || store.trash()->entries.empty()))
    store.toggleFinding(trash);
}

std::string runProgressLine(const AppStore& store) {
  const auto& progress = store.cleanupProgress();
  if (!progress) return "Preparing\u2026";
  if (progress->isEmptyingTrash) return AppText::localized(AppText::kEmptyingTrash);
  std::string line = AppText::freedOfPlanned(progress->freedBytes, progress->plannedBytes);
  if (progress->currentTitle) line += ": " + *progress->currentTitle;
  return line;
}

}  // namespace

int runClean(CommandCall& call) {
  const ParsedArguments& arguments = call.arguments;
  Console& console = call.console;
  const bool json = arguments.has("json");
  if (arguments.operands.empty() && !arguments.has("recommended"))
    throw UsageError(
        "name what to clean (the IDs that \u2018brisko scan\u2019 prints) or pass "
        "--recommended");

  CliSessionOptions options;
  if (arguments.has("exclude-installers")) options.scansInstallers = false;
  if (json) options.recorder = jsonLinePrinter(console, {"create-plan", "execute-plan"});
  CliSession session(console, std::move(options));
  session.scan();
  const std::vector<Pick> picks = picksOf(arguments.operands, session.store());
  session.onMain([&](AppStore& store) {
    select(store, arguments.has("recommended"), arguments.has("keep-trash"), picks);
  });

  const AppStore& store = session.store();
  const CreateCleanupPlanRequest request =
      FindingSelection{store.selectedFindingIDs(), store.selectedFindingItemIDs()}.cleanupRequest(
          store.findings());
  const bool withTrash = store.selectedFindingIDs().contains(std::string(kTrashFindingID)) &&
                         store.trash().has_value();
  const bool withEngine = !request.findingIDs.empty() || !request.itemIDs.empty();
  if (!withEngine && !withTrash) {
    if (!json) console.write("Nothing to clean.\n");
    return kExitSuccess;
  }

  std::optional<CleanupPlan> plan;
  if (withEngine) plan = session.engine().createPlan(request);
  const std::int64_t trashBytes = withTrash ? store.trash()->totalBytes() : 0;
  std::int64_t plannedBytes = trashBytes;
  std::int64_t plannedItems = withTrash ? 1 : 0;
  if (plan) {
    for (const CleanupPlanItem& item : plan->items)
      plannedBytes += item.estimatedBytes;
    plannedItems += static_cast<std::int64_t>(plan->items.size());
  }
  if (!json)
    console.write(planText(
        plan.value_or(CleanupPlan{}), withTrash ? std::optional(trashBytes) : std::nullopt,
        withTrash ? static_cast<std::int64_t>(store.trash()->entries.size()) : 0, console));
  if (console.isClosed()) throw OutputClosed();
  if (arguments.has("dry-run")) return kExitSuccess;
  if (plannedItems == 0) {
    if (!json) console.write("Nothing to clean.\n");
    return kExitSuccess;
  }

  if (!arguments.has("yes")) {
    if (!console.inputIsTerminal()) {
      console.error(
          "nothing deleted: standard input is not a terminal, so there is no one to ask; pass "
          "--yes to clean without asking");
      return kExitFailure;
    }
    const std::string question = "Delete " + std::to_string(plannedItems) +
                                 (plannedItems == 1 ? " item, " : " items, ") +
                                 BriskoFormatting::bytes(plannedBytes) + "? " +
                                 AppText::localized(AppText::kCleanConfirmation) + ".";
    if (!console.confirm(question)) {
      console.error("nothing deleted");
      return kExitFailure;
    }
  }

  session.onMain([&](AppStore& running) {
    if (plan)
      running.clean(*plan);
    else
      running.clean();
  });
  session.runUntil(
      [](const AppStore& running) {
        const auto kind = running.cleanupActionState().kind;
        return kind == CleanupActionState::Kind::idle || kind == CleanupActionState::Kind::failed;
      },
      [&](const AppStore& running) {
        if (running.cleanupProgress()) console.progress(runProgressLine(running));
      });
  console.clearProgress();
  if (store.cleanupActionState().kind == CleanupActionState::Kind::failed)
    throw std::runtime_error(store.cleanupActionState().message);
  if (!store.latestReceipt()) throw std::runtime_error("the clean ended without a receipt");
  const CleanupReceipt& receipt = *store.latestReceipt();
  if (!json) console.write(receiptText(receipt, plannedBytes, console));
  if (console.isClosed()) throw OutputClosed();
  const bool allDeleted = std::all_of(receipt.results.begin(), receipt.results.end(),
                                      [](const CleanupItemResult& result) {
                                        return result.outcome == CleanupItemOutcome::deleted;
                                      });
  return allDeleted ? kExitSuccess : kExitFailure;
}

}  // namespace brisko::cli
