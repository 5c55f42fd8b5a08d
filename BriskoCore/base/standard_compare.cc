#include "base/standard_compare.h"

#include <unicode/coll.h>
#include <unicode/locid.h>

#include <memory>

namespace brisko {

namespace {

// Built once; ICU's collators are safe to share for comparing.
const icu::Collator* standardCollator() {
  static const std::unique_ptr<icu::Collator> collator = [] {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Collator> made(
        icu::Collator::createInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status)) return std::unique_ptr<icu::Collator>();
    made->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
    made->setStrength(icu::Collator::SECONDARY);
    return made;
  }();
  return collator.get();
}

}  // namespace

int standardCompare(std::string_view a, std::string_view b) {
  const icu::Collator* collator = standardCollator();
  if (collator != nullptr) {
    UErrorCode status = U_ZERO_ERROR;
    const UCollationResult result =
        collator->compareUTF8(icu::StringPiece(a.data(), static_cast<int32_t>(a.size())),
                              icu::StringPiece(b.data(), static_cast<int32_t>(b.size())), status);
    if (U_SUCCESS(status)) return static_cast<int>(result);
  }
  return a.compare(b);
}

}  // namespace brisko
