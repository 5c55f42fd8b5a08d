#pragma once

// Strict JSON reading and writing for the engine's records.
//
// Every record crosses the pipe and the disk through these helpers, so the rules
// live here once: a required key must be present, an optional key may be absent
// or null and is left out when empty, unknown keys are ignored, integers must be
// whole and fit their width, an enumeration must be one of its names, and dates
// are ISO 8601 in UTC with whole seconds.

#include <array>
#include <concepts>
#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <nlohmann/json.hpp>

#include "base/date.h"
#include "base/message_text.h"
#include "base/uuid.h"

namespace brisko {

using Json = nlohmann::json;

// A record that could not be read. `path` says where ("findings[2].bytes").
class DecodingError : public std::runtime_error {
 public:
  DecodingError(std::string path, std::string reason);

  const std::string& path() const { return path_; }
  const std::string& reason() const { return reason_; }

  // The same failure seen from one level up.
  DecodingError within(std::string_view parent) const;

 private:
  std::string path_;
  std::string reason_;
};

// A value that can't be written as JSON, such as a text that is not UTF-8.
class EncodingError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Enumerations whose JSON is their case name. A specialisation lists the names
// in the order of the enum's values, which run from 0 without gaps.
template <class E>
struct EnumNames;

template <class E>
concept NamedEnum = std::is_enum_v<E> && requires {
  EnumNames<E>::names;
};

template <NamedEnum E>
constexpr std::string_view enumName(E value) {
  return EnumNames<E>::names[static_cast<size_t>(value)];
}

template <NamedEnum E>
constexpr std::optional<E> parseEnum(std::string_view name) {
  const auto& names = EnumNames<E>::names;
  for (size_t i = 0; i < names.size(); ++i) {
    if (names[i] == name) return static_cast<E>(i);
  }
  return std::nullopt;
}

// How one value type reads from and writes to JSON. Records provide
// `to_json`/`from_json` of their own (found by argument-dependent lookup).
template <class T>
struct JsonCodec {
  static T decode(const Json& json) {
    T value;
    from_json(json, value);
    return value;
  }
  static Json encode(const T& value) {
    Json json;
    to_json(json, value);
    return json;
  }
};

namespace json_detail {
[[noreturn]] void fail(std::string_view reason);
std::string describe(const Json& json);
std::int64_t signedInRange(const Json& json, std::int64_t min, std::int64_t max);
std::uint64_t unsignedInRange(const Json& json, std::uint64_t max);
}  // namespace json_detail

template <std::integral I>
requires(!std::same_as<I, bool>) struct JsonCodec<I> {
  static I decode(const Json& json) {
    if constexpr (std::is_signed_v<I>) {
      return static_cast<I>(json_detail::signedInRange(json, std::numeric_limits<I>::min(),
                                                       std::numeric_limits<I>::max()));
    } else {
      return static_cast<I>(json_detail::unsignedInRange(json, std::numeric_limits<I>::max()));
    }
  }
  static Json encode(I value) { return Json(value); }
};

template <>
struct JsonCodec<bool> {
  static bool decode(const Json& json);
  static Json encode(bool value) { return Json(value); }
};

template <>
struct JsonCodec<double> {
  static double decode(const Json& json);
  static Json encode(double value) { return Json(value); }
};

template <>
struct JsonCodec<std::string> {
  static std::string decode(const Json& json);
  static Json encode(const std::string& value) { return Json(value); }
};

template <>
struct JsonCodec<Date> {
  static Date decode(const Json& json);
  static Json encode(Date value) { return Json(formatIso8601(value)); }
};

template <>
struct JsonCodec<Uuid> {
  static Uuid decode(const Json& json);
  static Json encode(const Uuid& value) { return Json(value.text()); }
};

template <NamedEnum E>
struct JsonCodec<E> {
  static E decode(const Json& json) {
    if (!json.is_string())
      json_detail::fail("expected a string, found " + json_detail::describe(json));
    const auto& text = json.get_ref<const std::string&>();
    if (auto value = parseEnum<E>(text)) return *value;
    json_detail::fail("unknown value " + quotedForMessage(text));
  }
  static Json encode(E value) { return Json(std::string(enumName(value))); }
};

template <class T>
struct JsonCodec<std::vector<T>> {
  static std::vector<T> decode(const Json& json) {
    if (!json.is_array())
      json_detail::fail("expected an array, found " + json_detail::describe(json));
    std::vector<T> values;
    values.reserve(json.size());
    for (size_t i = 0; i < json.size(); ++i) {
      try {
        values.push_back(JsonCodec<T>::decode(json[i]));
      } catch (const DecodingError& error) {
        throw error.within("[" + std::to_string(i) + "]");
      }
    }
    return values;
  }
  static Json encode(const std::vector<T>& values) {
    Json json = Json::array();
    for (const auto& value : values)
      json.push_back(JsonCodec<T>::encode(value));
    return json;
  }
};

// Reads the keys of one JSON object; throws DecodingError with the key's path.
class JsonObjectReader {
 public:
  explicit JsonObjectReader(const Json& json);

  template <class T>
  T required(const char* key) const {
    const auto found = object_.find(key);
    if (found == object_.end()) throw DecodingError(key, "missing required key");
    return decodeAt<T>(key, *found);
  }

  // Absent and null both read as no value.
  template <class T>
  std::optional<T> optional(const char* key) const {
    const auto found = object_.find(key);
    if (found == object_.end() || found->is_null()) return std::nullopt;
    return decodeAt<T>(key, *found);
  }

  template <class T>
  T withDefault(const char* key, T fallback) const {
    auto value = optional<T>(key);
    return value ? std::move(*value) : std::move(fallback);
  }

 private:
  template <class T>
  static T decodeAt(const char* key, const Json& json) {
    try {
      return JsonCodec<T>::decode(json);
    } catch (const DecodingError& error) {
      throw error.within(key);
    }
  }

  const Json& object_;
};

// Writes the keys of one JSON object; optional values are left out when empty.
class JsonObjectWriter {
 public:
  explicit JsonObjectWriter(Json& json) : object_(json) { object_ = Json::object(); }

  template <class T>
  void set(const char* key, const T& value) {
    object_[key] = JsonCodec<T>::encode(value);
  }

  template <class T>
  void set(const char* key, const std::optional<T>& value) {
    if (value) object_[key] = JsonCodec<T>::encode(*value);
  }

 private:
  Json& object_;
};

// Parses one JSON text and decodes it as T. Throws DecodingError, whose text
// says what was wrong and where.
// A NUL can stand in no JSON text, yet the parser takes it for the end of
// the input: whatever followed it would be passed over unread.
template <class T>
T decodeJson(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) {
    throw DecodingError("", "the text is not valid JSON: it holds a NUL byte");
  }
  Json json = Json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (json.is_discarded()) throw DecodingError("", "the text is not valid JSON");
  return JsonCodec<T>::decode(json);
}

// Compact text for one line of a stream, or pretty text with sorted keys for a
// file. Throws EncodingError when a string is not valid UTF-8, since such a
// value would reach the other side broken.
std::string encodeJsonText(const Json& json, bool pretty = false);

template <class T>
std::string encodeJson(const T& value, bool pretty = false) {
  return encodeJsonText(JsonCodec<T>::encode(value), pretty);
}

}  // namespace brisko
