#pragma once

#include <stdexcept>
#include <string_view>

namespace brisko {

// Failures of a whole plan or run; the text is what the user reads.
class CleanupPlanningError : public std::runtime_error {
 public:
  enum class Kind { emptySelection, planNotFound, planExpired, protocolMismatch };

  explicit CleanupPlanningError(Kind kind) : std::runtime_error(text(kind)), kind_(kind) {}

  Kind kind() const { return kind_; }

  static constexpr const char* text(Kind kind) {
    switch (kind) {
      case Kind::emptySelection:
        return "No categories were selected for the cleanup plan.";
      case Kind::planNotFound:
        return "The cleanup plan is missing or was removed; scan again.";
      case Kind::planExpired:
        return "The cleanup plan has expired; regenerate it before running.";
      case Kind::protocolMismatch:
        return "The cleanup plan version is incompatible with the current engine.";
    }
    return "";
  }

 private:
  Kind kind_;
};

}  // namespace brisko
