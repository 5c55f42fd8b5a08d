#pragma once

#include "engine_command.h"

namespace brisko::engine {

// Reads a CreateCleanupPlanRequest, stores the plan, writes it.
void createPlan(CommandContext& context);

// Reads an ExecuteCleanupPlanRequest and streams CleanupEvent lines: started,
// one item per result before the next item starts, completed with the
// receipt. The receipt is saved and the plan file removed after the run.
void executePlan(CommandContext& context);

// Before any command: settles what an engine killed in the middle of a
// removal left behind (see RemovalJournal), with a line on standard error for
// each file put back under another name. Nothing to do without a home folder.
void settleInterruptedRemovals();

}  // namespace brisko::engine
