// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// JSON (RFC 8259) put together from the outside to the inside: ASCII, on one line. Texts may hold any bytes; those
// that are no UTF-8 become U+FFFD.
#pragma once

#include <concepts>
#include <optional>
#include <string>
#include <string_view>

namespace ombrel {

class JsonWriter {
public:
    JsonWriter& beginObject() { return begin('{'); }
    JsonWriter& endObject() { return end('}'); }
    JsonWriter& beginArray() { return begin('['); }
    JsonWriter& endArray() { return end(']'); }
    /// The name of the member that comes next.
    JsonWriter& key(std::string_view name);

    JsonWriter& text(std::string_view value);
    JsonWriter& number(long long value);
    JsonWriter& boolean(bool value);
    JsonWriter& null();

    /// Members of an object.
    JsonWriter& member(std::string_view name, std::string_view value) { return key(name).text(value); }
    JsonWriter& member(std::string_view name, const std::string& value) { return key(name).text(value); }
    JsonWriter& member(std::string_view name, const char* value) { return key(name).text(value); }
    template <std::integral Number>
    JsonWriter& member(std::string_view name, Number value) {
        if constexpr (std::same_as<Number, bool>) return key(name).boolean(value);
        return key(name).number(static_cast<long long>(value));
    }
    /// null without a value.
    template <typename Value>
    JsonWriter& member(std::string_view name, const std::optional<Value>& value) {
        return value ? member(name, *value) : key(name).null();
    }

    /// What was written, and nothing is left: a line with its end.
    std::string takeLine();

private:
    JsonWriter& begin(char bracket);
    JsonWriter& end(char bracket);
    void separate();

    std::string text_;
    bool needsComma_ = false;
};

}  // namespace ombrel
