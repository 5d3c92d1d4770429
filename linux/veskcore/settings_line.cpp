// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/veskcore/settings_line.h"

#include "linux/common/trimmed.h"

namespace ombrel {
namespace {

constexpr std::string_view kLineBreaks{"\r\n\0", 3};  // a NUL would end the text for every C reader
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// `text` is trimmed. A quote that is never closed is passed over.
std::string_view withoutQuotes(std::string_view text) {
    if (!text.starts_with('"')) return text;
    const std::size_t last = text.rfind('"');
    return last == 0 ? text.substr(1) : text.substr(1, last - 1);
}

}  // namespace

bool LineReader::next() {
    if (rest_.empty()) return false;
    const std::size_t end = rest_.find('\n');
    whole_ = rest_.substr(0, end == std::string_view::npos ? rest_.size() : end + 1);
    rest_.remove_prefix(whole_.size());
    text_ = whole_;
    if (text_.starts_with(kByteOrderMark)) text_.remove_prefix(kByteOrderMark.size());
    text_ = trimmed(text_);
    return true;
}

bool saysNothing(std::string_view line) {
    return line.empty() || line.front() == '#';
}

std::optional<std::string_view> parseHeader(std::string_view line) {
    if (!line.starts_with('[')) return std::nullopt;
    const std::size_t close = line.find(']');
    if (close == std::string_view::npos || !saysNothing(trimmed(line.substr(close + 1)))) return std::nullopt;
    return line.substr(1, close - 1);
}

std::optional<KeyValue> parseKeyValue(std::string_view line) {
    if (saysNothing(line) || parseHeader(line)) return std::nullopt;  // "[a=b]" is a header
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) return std::nullopt;
    const std::string_view key = trimmed(line.substr(0, equals));
    if (key.empty()) return std::nullopt;
    return KeyValue{key, withoutQuotes(trimmed(line.substr(equals + 1)))};
}

std::optional<LineFormat> LineFormat::parse(std::string_view format) {
    LineFormat result;
    std::string* const parts[] = {&result.before_, &result.between_, &result.after_};
    std::size_t part = 0;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') {
            *parts[part] += format[i];
            continue;
        }
        const char kind = ++i < format.size() ? format[i] : '\0';
        if (kind == '%') {
            *parts[part] += '%';
        } else if (kind != 's' || ++part > 2) {
            return std::nullopt;
        }
    }
    if (part != 2) return std::nullopt;
    if (!result.after_.ends_with('\n')) result.after_ += '\n';
    const bool oneLine = result.before_.find('\n') == std::string::npos &&
                         result.between_.find('\n') == std::string::npos &&
                         result.after_.find('\n') == result.after_.size() - 1;
    if (!oneLine) return std::nullopt;
    return result;
}

std::string LineFormat::render(std::string_view key, std::string_view value) const {
    std::string line;
    line.reserve(before_.size() + key.size() + between_.size() + value.size() + after_.size());
    return line.append(before_).append(key).append(between_).append(value).append(after_);
}

bool LineFormat::canHold(std::string_view key, std::string_view value) const {
    if (key.find_first_of(kLineBreaks) != std::string_view::npos) return false;
    if (value.find_first_of(kLineBreaks) != std::string_view::npos) return false;
    const std::string rendered = render(key, value);
    LineReader reader(rendered);
    if (!reader.next() || reader.whole().size() != rendered.size()) return false;
    const std::optional<KeyValue> read = parseKeyValue(reader.text());
    return read && read->key == key && read->value == value;
}

bool isSectionName(std::string_view name) {
    return !name.empty() && name.size() <= kMostSectionName &&
           name.find_first_of(kLineBreaks) == std::string_view::npos && name.find(']') == std::string_view::npos;
}

}  // namespace ombrel
