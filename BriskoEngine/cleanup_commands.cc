// "create-plan" and "execute-plan": a plan passes from one to the other only
// through its file.

#include "cleanup_commands.h"

#include "cleanup/cleanup_execution_service.h"
#include "cleanup/cleanup_plan_builder.h"
#include "cleanup/cleanup_plan_repository.h"
#include "cleanup/cleanup_planning_error.h"
#include "cleanup/cleanup_receipt_repository.h"
#include "cleanup/removal_journal.h"
#include "platform/home_directory.h"
#include "platform/process_inventory.h"

#include <iostream>

namespace brisko::engine {

void createPlan(CommandContext& context) {
  const auto request = decodeJson<CreateCleanupPlanRequest>(context.readStandardInput());
  const std::string home = context.homeDirectory();
  const CleanupPlanBuilder builder(home, currentDate());
  const CleanupPlan plan = builder.makePlan(request);
  CleanupPlanRepository(home).save(plan);
  context.output.writeDocument(plan);
}

void executePlan(CommandContext& context) {
  const auto request = decodeJson<ExecuteCleanupPlanRequest>(context.readStandardInput());
  const std::string home = context.homeDirectory();
  const CleanupPlanRepository plans(home);
  const PlanRunLock lock = plans.lockForRun(request.planID);
  CleanupPlan plan;
  try {
    plan = plans.load(request.planID);
  } catch (const DecodingError&) {
    // A damaged plan file can't be run any more than a missing one.
    throw CleanupPlanningError(CleanupPlanningError::Kind::planNotFound);
  }
  // The file is data on disk: one that claims another identity was not
  // written for this request.
  if (plan.id != request.planID) {
    throw CleanupPlanningError(CleanupPlanningError::Kind::planNotFound);
  }

  CleanupEvent started;
  started.kind = CleanupEventKind::started;
  started.totalItems = static_cast<std::int64_t>(plan.items.size());
  context.output.writeLine(started);

  const CleanupExecutionService service(home, currentDate(), ProcessInventory::snapshot());
  const CleanupReceipt receipt = service.execute(plan, {}, [&](const CleanupItemResult& result) {
    CleanupEvent item;
    item.kind = CleanupEventKind::item;
    item.result = result;
    context.output.writeLine(item);
  });

  CleanupReceiptRepository(home).save(receipt);
  CleanupEvent completed;
  completed.kind = CleanupEventKind::completed;
  completed.receipt = receipt;
  context.output.writeLine(completed);
  plans.remove(request.planID);
}

void settleInterruptedRemovals() {
  const auto home = currentHomeDirectory();
  if (!home) return;
  for (const std::string& line :
       brisko::settleInterruptedRemovals(briskoDataDirectory(*home), *home))
    std::cerr << "BriskoEngine: " << line << '\n';
}

}  // namespace brisko::engine
