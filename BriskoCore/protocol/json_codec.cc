#include "protocol/json_codec.h"

#include <cmath>

namespace brisko {

DecodingError::DecodingError(std::string path, std::string reason)
    : std::runtime_error(path.empty() ? reason : path + ": " + reason),
      path_(std::move(path)),
      reason_(std::move(reason)) {}

DecodingError DecodingError::within(std::string_view parent) const {
  std::string joined(parent);
  if (!path_.empty()) {
    if (path_.front() != '[') joined += '.';
    joined += path_;
  }
  return DecodingError(std::move(joined), reason_);
}

namespace json_detail {

void fail(std::string_view reason) {
  throw DecodingError("", std::string(reason));
}

std::string describe(const Json& json) {
  switch (json.type()) {
    case Json::value_t::null:
      return "null";
    case Json::value_t::boolean:
      return "a boolean";
    case Json::value_t::string:
      return "a string";
    case Json::value_t::array:
      return "an array";
    case Json::value_t::object:
      return "an object";
    case Json::value_t::number_float:
      return "a fraction";
    default:
      return "a number";
  }
}

namespace {

// A number written with a decimal point or an exponent is accepted for an
// integer field only when it is whole; 1.5 is refused, 2.0 reads as 2.
double wholeFloat(const Json& json) {
  const double value = json.get<double>();
  if (!std::isfinite(value) || std::trunc(value) != value) {
    fail("expected an integer, found a fraction");
  }
  return value;
}

[[noreturn]] void outOfRange() {
  fail("integer out of range");
}

}  // namespace

std::int64_t signedInRange(const Json& json, std::int64_t min, std::int64_t max) {
  switch (json.type()) {
    case Json::value_t::number_integer: {
      const auto value = json.get<std::int64_t>();
      if (value < min || value > max) outOfRange();
      return value;
    }
    case Json::value_t::number_unsigned: {
      const auto value = json.get<std::uint64_t>();
      if (value > static_cast<std::uint64_t>(max)) outOfRange();
      return static_cast<std::int64_t>(value);
    }
    case Json::value_t::number_float: {
      const double value = wholeFloat(json);
      // 2^63 is exactly representable; anything at or past it doesn't fit.
      if (value < static_cast<double>(min) || value >= -static_cast<double>(INT64_MIN) ||
          value > static_cast<double>(max)) {
        outOfRange();
      }
      return static_cast<std::int64_t>(value);
    }
    default:
      fail("expected an integer, found " + describe(json));
  }
}

std::uint64_t unsignedInRange(const Json& json, std::uint64_t max) {
  switch (json.type()) {
    case Json::value_t::number_integer: {
      const auto value = json.get<std::int64_t>();
      if (value < 0 || static_cast<std::uint64_t>(value) > max) outOfRange();
      return static_cast<std::uint64_t>(value);
    }
    case Json::value_t::number_unsigned: {
      const auto value = json.get<std::uint64_t>();
      if (value > max) outOfRange();
      return value;
    }
    case Json::value_t::number_float: {
      const double value = wholeFloat(json);
      if (value < 0 || value >= 18446744073709551616.0 || value > static_cast<double>(max)) {
        outOfRange();
      }
      return static_cast<std::uint64_t>(value);
    }
    default:
      fail("expected an integer, found " + describe(json));
  }
}

}  // namespace json_detail

bool JsonCodec<bool>::decode(const Json& json) {
  if (!json.is_boolean())
    json_detail::fail("expected a boolean, found " + json_detail::describe(json));
  return json.get<bool>();
}

double JsonCodec<double>::decode(const Json& json) {
  if (!json.is_number())
    json_detail::fail("expected a number, found " + json_detail::describe(json));
  return json.get<double>();
}

std::string JsonCodec<std::string>::decode(const Json& json) {
  if (!json.is_string())
    json_detail::fail("expected a string, found " + json_detail::describe(json));
  return json.get<std::string>();
}

Date JsonCodec<Date>::decode(const Json& json) {
  if (!json.is_string()) json_detail::fail("expected a date, found " + json_detail::describe(json));
  const auto& text = json.get_ref<const std::string&>();
  if (auto date = parseIso8601(text)) return *date;
  json_detail::fail(quotedForMessage(text) + " is not a date of the form 2026-01-31T12:00:00Z");
}

Uuid JsonCodec<Uuid>::decode(const Json& json) {
  if (!json.is_string()) json_detail::fail("expected a UUID, found " + json_detail::describe(json));
  const auto& text = json.get_ref<const std::string&>();
  if (auto uuid = Uuid::parse(text)) return *uuid;
  json_detail::fail(quotedForMessage(text) + " is not a UUID");
}

JsonObjectReader::JsonObjectReader(const Json& json) : object_(json) {
  if (!json.is_object())
    json_detail::fail("expected an object, found " + json_detail::describe(json));
}

std::string encodeJsonText(const Json& json, bool pretty) {
  try {
    return pretty ? json.dump(2) : json.dump();
  } catch (const Json::type_error&) {
    throw EncodingError("A text is not valid UTF-8 and can't be written as JSON.");
  }
}

}  // namespace brisko
