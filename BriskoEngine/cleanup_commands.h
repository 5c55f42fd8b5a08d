#pragma once

#include "engine_command.h"

namespace brisko::engine {

// Reads a CreateCleanupPlanRequest, stores the plan, writes it.
void createPlan(CommandContext& context);

// Reads an ExecuteCleanupPlanRequest and streams CleanupEvent lines: started,
// one item per result before the next item starts, completed with the
// receipt. The receipt is saved and the plan file removed after the run.
void executePlan(CommandContext& context);

}  // namespace brisko::engine
