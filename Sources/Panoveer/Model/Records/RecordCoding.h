#pragma once

#include "Panoveer/Model/Records/RecordDecodingError.h"
#include "Panoveer/Model/Records/RecordEnums.h"
#include "Panoveer/Model/Records/RecordJSON.h"
#include "Platform/Core/Base64.h"
#include "Platform/Core/URL.h"
#include "Platform/Core/UUID.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <concepts>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

// How records become JSON values and back. One table of fields per record drives both directions. To be included by
// the sources that read and write documents, not by other headers.
//
//   template<> struct RecordTable<Point> {
//       static constexpr auto fields = std::tuple{required("x", &Point::x), defaulted("y", &Point::y)};
//       static void correct(Point& point) { … }   // optional; runs after every reading
//   };
namespace panoveer {

// Keeps the order in which fields are written.
using JSONValue = nlohmann::ordered_json;

template<class Record, class Value>
struct RecordField {
    using DefaultValue = Value (*)(const Record&);

    const char* key;
    Value Record::* member;
    bool isRequired;
    // Computes the value of a missing key from the fields in front of it; null: the member keeps its initial value.
    DefaultValue defaultValue = nullptr;
};

// A field whose key every document must have.
template<class Record, class Value>
constexpr RecordField<Record, Value> required(const char* key, Value Record::* member) {
    return {key, member, true};
}

// A field whose key older documents may lack.
template<class Record, class Value>
constexpr RecordField<Record, Value>
defaulted(const char* key, Value Record::* member,
          typename RecordField<Record, Value>::DefaultValue defaultValue = nullptr) {
    return {key, member, false, defaultValue};
}

// A field that a record may lack: left out of the document then.
template<class Record, class Value>
constexpr RecordField<Record, std::optional<Value>> optional(const char* key, std::optional<Value> Record::* member) {
    return {key, member, false};
}

template<class Record>
struct RecordTable;

template<class Record>
concept CodableRecord = requires { RecordTable<Record>::fields; };

// Where in a document a value stands: a chain on the stack, spelled out only when something is wrong.
class KeyPath {
public:
    KeyPath() = default;
    KeyPath(const KeyPath& parent, std::string_view key) : parent_(&parent), key_(key) {}
    KeyPath(const KeyPath& parent, std::size_t index) : parent_(&parent), index_(index) {}

    std::string text() const {
        if (!parent_)
            return {};
        auto path = parent_->text();
        if (key_.empty())
            return path + "[" + std::to_string(index_) + "]";
        return path + (path.empty() ? "" : ".") + std::string(key_);
    }

private:
    const KeyPath* parent_ = nullptr; // null for the document itself
    std::string_view key_;            // empty for an element of a list
    std::size_t index_ = 0;
};

template<class Value>
inline constexpr bool isOptional = false;
template<class Value>
inline constexpr bool isOptional<std::optional<Value>> = true;

template<class Value>
inline constexpr bool isList = false;
template<class Element>
inline constexpr bool isList<std::vector<Element>> = true;

using Bytes = std::vector<std::uint8_t>;

// MARK: Writing

template<class Value>
JSONValue encodedValue(const Value& value, const KeyPath& path = {}) {
    if constexpr (std::same_as<Value, bool> || std::same_as<Value, std::int64_t> || std::same_as<Value, std::string>) {
        return value;
    } else if constexpr (std::same_as<Value, double>) {
        if (!std::isfinite(value))
            throw RecordEncodingError(path.text());
        return value;
    } else if constexpr (std::same_as<Value, UUID>) {
        return value.text();
    } else if constexpr (std::same_as<Value, URL>) {
        return value.absoluteString();
    } else if constexpr (std::same_as<Value, Bytes>) {
        return base64Encoded(value);
    } else if constexpr (RecordEnum<Value>) {
        return rawValue(value);
    } else if constexpr (isOptional<Value>) {
        return encodedValue(*value, path);
    } else if constexpr (isList<Value>) {
        auto list = JSONValue::array();
        for (std::size_t i = 0; i < value.size(); ++i)
            list.push_back(encodedValue(value[i], KeyPath(path, i)));
        return list;
    } else {
        static_assert(CodableRecord<Value>, "the record needs a RecordTable");
        auto object = JSONValue::object();
        const auto write = [&](const auto& field) {
            const auto& member = value.*field.member;
            if constexpr (isOptional<std::remove_cvref_t<decltype(member)>>) {
                if (!member)
                    return;
            }
            object[field.key] = encodedValue(member, KeyPath(path, field.key));
        };
        std::apply([&](const auto&... fields) { (write(fields), ...); }, RecordTable<Value>::fields);
        return object;
    }
}

// MARK: Reading

[[noreturn]] inline void throwWrongType(const KeyPath& path, std::string_view expected, const JSONValue& found) {
    throw RecordDecodingError(RecordDecodingError::Problem::wrongType, path.text(),
                              "should be " + std::string(expected) + ", not " + found.type_name() + ".");
}

[[noreturn]] inline void throwInvalidValue(const KeyPath& path, std::string_view expected, const JSONValue& found) {
    throw RecordDecodingError(RecordDecodingError::Problem::invalidValue, path.text(),
                              "holds " + found.dump(-1, ' ', false, JSONValue::error_handler_t::replace).substr(0, 80) +
                                  ", which is not " + std::string(expected) + ".");
}

inline const std::string& decodedText(const JSONValue& json, const KeyPath& path) {
    if (!json.is_string())
        throwWrongType(path, "a string", json);
    return json.get_ref<const std::string&>();
}

// A whole number, also one that is spelled with a fraction of zero.
inline std::int64_t decodedInteger(const JSONValue& json, const KeyPath& path) {
    if (!json.is_number())
        throwWrongType(path, "a whole number", json);
    constexpr double bound = 0x1p63;
    if (json.is_number_float()) {
        const double number = json.get<double>();
        if (number != std::trunc(number) || number < -bound || number >= bound)
            throwInvalidValue(path, "a whole number of 64 bits", json);
        return std::int64_t(number);
    }
    if (json.is_number_unsigned() &&
        json.get<std::uint64_t>() > std::uint64_t(std::numeric_limits<std::int64_t>::max()))
        throwInvalidValue(path, "a whole number of 64 bits", json);
    return json.get<std::int64_t>();
}

template<class Value>
Value unwrapped(std::optional<Value> value, const KeyPath& path, std::string_view expected, const JSONValue& json) {
    if (!value)
        throwInvalidValue(path, expected, json);
    return std::move(*value);
}

template<class Value>
Value decodedValue(const JSONValue& json, const KeyPath& path = {}) {
    if constexpr (std::same_as<Value, bool>) {
        if (!json.is_boolean())
            throwWrongType(path, "true or false", json);
        return json.get<bool>();
    } else if constexpr (std::same_as<Value, std::int64_t>) {
        return decodedInteger(json, path);
    } else if constexpr (std::same_as<Value, double>) {
        if (!json.is_number())
            throwWrongType(path, "a number", json);
        return json.get<double>();
    } else if constexpr (std::same_as<Value, std::string>) {
        return decodedText(json, path);
    } else if constexpr (std::same_as<Value, UUID>) {
        return unwrapped(UUID::parse(decodedText(json, path)), path, "a UUID", json);
    } else if constexpr (std::same_as<Value, URL>) {
        return unwrapped(URL::fromString(decodedText(json, path)), path, "an absolute URL", json);
    } else if constexpr (std::same_as<Value, Bytes>) {
        return unwrapped(base64Decoded(decodedText(json, path)), path, "base64 data", json);
    } else if constexpr (RecordEnum<Value>) {
        return unwrapped(fromRawValue<Value>(decodedText(json, path)), path, "a known value", json);
    } else if constexpr (isOptional<Value>) {
        return decodedValue<typename Value::value_type>(json, path);
    } else if constexpr (isList<Value>) {
        if (!json.is_array())
            throwWrongType(path, "a list", json);
        Value list;
        list.reserve(json.size());
        for (std::size_t i = 0; i < json.size(); ++i)
            list.push_back(decodedValue<typename Value::value_type>(json[i], KeyPath(path, i)));
        return list;
    } else {
        static_assert(CodableRecord<Value>, "the record needs a RecordTable");
        if (!json.is_object())
            throwWrongType(path, "an object", json);
        Value record{};
        const auto read = [&]<class Member>(const RecordField<Value, Member>& field) {
            const KeyPath fieldPath(path, field.key);
            const auto found = json.find(field.key);
            // An explicit null counts as absent.
            if (found != json.end() && !found->is_null())
                record.*field.member = decodedValue<Member>(*found, fieldPath);
            else if (field.isRequired)
                throw RecordDecodingError(RecordDecodingError::Problem::missingKey, fieldPath.text(), "is missing.");
            else if (field.defaultValue)
                record.*field.member = field.defaultValue(record);
        };
        std::apply([&](const auto&... fields) { (read(fields), ...); }, RecordTable<Value>::fields);
        if constexpr (requires { RecordTable<Value>::correct(record); })
            RecordTable<Value>::correct(record);
        return record;
    }
}

// MARK: Text

// Throws RecordDecodingError with `malformedDocument` for what is no JSON.
JSONValue parsedJSON(std::string_view text);
std::string jsonText(const JSONValue& value, JSONStyle style);

template<class Record>
std::string encodeJSON(const Record& record, JSONStyle style) {
    return jsonText(encodedValue(record), style);
}

template<class Record>
Record decodeJSON(std::string_view text) {
    return decodedValue<Record>(parsedJSON(text));
}

} // namespace panoveer
