#include "cleanup/cleanup_receipt_repository.h"

#include <dirent.h>

#include <algorithm>
#include <charconv>
#include <memory>

#include "base/atomic_file.h"
#include "base/file_contents.h"
#include "platform/home_directory.h"

namespace brisko {

CleanupReceiptRepository::CleanupReceiptRepository(const std::string& home,
                                                   std::optional<std::string> historyDirectory)
    : historyDirectory_(historyDirectory ? std::move(*historyDirectory)
                                         : briskoDataDirectory(home) + "/History") {}

std::string CleanupReceiptRepository::fileName(const CleanupReceipt& receipt) {
  // Whole seconds and the fraction apart: nanoseconds since 1970 don't fit a
  // double's precision, seconds plus a fraction do as well as a double can.
  const auto whole = std::chrono::floor<std::chrono::seconds>(receipt.completedAt);
  const auto fraction = std::chrono::duration<double>(receipt.completedAt - whole).count();
  const double seconds = static_cast<double>(whole.time_since_epoch().count()) + fraction;
  char buffer[64];
  const auto [end, error] =
      std::to_chars(buffer, buffer + sizeof buffer, seconds, std::chars_format::fixed);
  std::string text = error == std::errc() ? std::string(buffer, end) : "0";
  // The shortest text of a whole double still shows it is one: "1790000000.0".
  if (text.find('.') == std::string::npos) text += ".0";
  return text + "-" + receipt.id.text() + ".json";
}

std::string CleanupReceiptRepository::save(const CleanupReceipt& receipt) const {
  createPrivateDirectories(historyDirectory_);
  sweepStaleTemporaryFiles(historyDirectory_);
  const std::string path = historyDirectory_ + "/" + fileName(receipt);
  writeFileAtomically(path, encodeJson(receipt, /*pretty=*/true));
  return path;
}

std::vector<CleanupReceipt> CleanupReceiptRepository::load() const {
  std::vector<CleanupReceipt> receipts;
  std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(historyDirectory_.c_str()), ::closedir);
  if (!folder) return receipts;
  while (const dirent* entry = ::readdir(folder.get())) {
    const std::string_view name(entry->d_name);
    if (name.size() <= 5 || !name.ends_with(".json")) continue;
    const auto contents = readFileContents(historyDirectory_ + "/" + std::string(name));
    if (!contents) continue;
    try {
      receipts.push_back(decodeJson<CleanupReceipt>(*contents));
    } catch (const DecodingError&) {
      // A damaged receipt must not hide the others.
    }
  }
  std::stable_sort(receipts.begin(), receipts.end(),
                   [](const CleanupReceipt& a, const CleanupReceipt& b) {
                     return a.completedAt > b.completedAt;
                   });
  return receipts;
}

}  // namespace brisko
