#pragma once

// A property list's top-level dictionary of texts, read with libplist from its
// XML or binary form. Only the texts that a reader asks for are checked.

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace brisko {

class PropertyList {
 public:
  // The list in `bytes` (a UTF-8 byte order mark in front is skipped), or none
  // when it is damaged, truncated, larger than 4 GiB or not a dictionary.
  static std::optional<PropertyList> parse(std::string_view bytes);
  // The file at `path`, read whole up to 8 MiB; none as above or when unreadable.
  static std::optional<PropertyList> read(const std::string& path);

  // What `key` holds.
  enum class Lookup { absent, text, notText };
  struct Value {
    Lookup lookup = Lookup::absent;
    std::string text;  // well-formed UTF-8 when lookup is text
  };
  // A value that is not a string, or a string that is not UTF-8, is notText.
  Value value(const char* key) const;

 private:
  struct Free {
    void operator()(void* node) const;
  };
  explicit PropertyList(std::shared_ptr<void> root) : root_(std::move(root)) {}
  std::shared_ptr<void> root_;
};

}  // namespace brisko
