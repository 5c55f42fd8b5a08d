// `brisko history`: the stored receipts, newest first, one line each.

#include "cleanup/cleanup_receipt_repository.h"
#include "cli/cli_commands.h"
#include "cli/cli_render.h"

namespace brisko::cli {

int runHistory(CommandCall& call) {
  if (!call.arguments.operands.empty())
    throw UsageError("history takes no operands, not \u2018" + call.arguments.operands.front() +
                     "\u2019");
  const std::vector<CleanupReceipt> receipts = CleanupReceiptRepository(homeFolder()).load();
  const bool json = call.arguments.has("json");
  if (receipts.empty() && !json) call.console.write("No cleans yet.\n");
  for (const CleanupReceipt& receipt : receipts)
    call.console.write(json ? encodeJson(receipt) + "\n" : historyLine(receipt));
  return kExitSuccess;
}

}  // namespace brisko::cli
