// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/json_writer.h"

#include <utility>

#include "linux/common/text_escape.h"

namespace ombrel {

void JsonWriter::separate() {
    if (needsComma_) text_ += ',';
    needsComma_ = true;
}

JsonWriter& JsonWriter::begin(char bracket) {
    separate();
    text_ += bracket;
    needsComma_ = false;
    return *this;
}

JsonWriter& JsonWriter::end(char bracket) {
    text_ += bracket;
    needsComma_ = true;
    return *this;
}

JsonWriter& JsonWriter::key(std::string_view name) {
    separate();
    text_ += quoteJson(name) + ':';
    needsComma_ = false;
    return *this;
}

JsonWriter& JsonWriter::text(std::string_view value) {
    separate();
    text_ += quoteJson(value);
    return *this;
}

JsonWriter& JsonWriter::number(long long value) {
    separate();
    text_ += std::to_string(value);
    return *this;
}

JsonWriter& JsonWriter::boolean(bool value) {
    separate();
    text_ += value ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::null() {
    separate();
    text_ += "null";
    return *this;
}

std::string JsonWriter::takeLine() {
    needsComma_ = false;
    text_ += '\n';
    return std::exchange(text_, {});
}

}  // namespace ombrel
