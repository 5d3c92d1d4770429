// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/message/message_parser.h"

#include <array>

#include "receiver/message/sender_time.h"
#include "receiver/message/text_cursor.h"

namespace ombrel {

namespace {

constexpr int kMaxPriority = 191;  // facility 23, severity 7

// "<0>" to "<191>". RFC 3164 section 4.1.1 forbids leading zeros; devices send them nevertheless.
std::optional<int> takePriority(TextCursor& text) noexcept {
    TextCursor ahead = text;
    if (!ahead.take('<')) return std::nullopt;
    const auto value = ahead.takeNumber(1, 3);
    if (!value || *value > kMaxPriority || !ahead.take('>')) return std::nullopt;
    text = ahead;
    return value;
}

// RFC 5424 section 6.3: elements one behind the other, in whose values \ " and ] are escaped.
bool takeStructuredData(TextCursor& text, std::string_view& data) noexcept {
    if (text.take('-')) return text.atEnd() || text.startsWith(' ');
    const std::string_view rest = text.rest();
    size_t i = 0;
    bool inElement = false;
    bool inValue = false;
    while (i < rest.size()) {
        const char c = rest[i];
        if (inValue) {
            if (c == '\\' && i + 1 < rest.size()) ++i;
            if (c == '"') inValue = false;
        } else if (inElement) {
            if (c == '"') inValue = true;
            if (c == ']') inElement = false;
        } else if (c == '[') {
            inElement = true;
        } else {
            break;
        }
        ++i;
    }
    if (i == 0 || inElement || (i < rest.size() && rest[i] != ' ')) return false;
    data = rest.substr(0, i);
    text.skip(i);
    return true;
}

// One field of the header; the nil value is empty.
bool takeHeaderField(TextCursor& text, std::string_view& field, size_t most) noexcept {
    const std::string_view rest = text.rest();
    const size_t end = rest.find(' ');
    if (end == 0 || end == std::string_view::npos || end > most) return false;
    field = rest.substr(0, end);
    if (field == "-") field = {};
    text.skip(end + 1);
    return true;
}

// Behind PRI. False, with `parsed` as it was, when the text is no RFC 5424 message from front to end.
bool parseModern(TextCursor text, ParsedMessage& parsed) noexcept {
    ParsedMessage found = parsed;
    if (!text.take("1 ")) return false;
    if (!text.take("- ")) {
        found.time = takeIsoTime(text);
        if (!found.time || !text.take(' ')) return false;
    }
    // More than the lengths of RFC 5424: what a sender calls its program is not cut without need.
    if (!takeHeaderField(text, found.host, kMaxHost) || !takeHeaderField(text, found.program, kMaxProgram) ||
        !takeHeaderField(text, found.processId, kMaxProgram) ||
        !takeHeaderField(text, found.messageId, kMaxProgram) || !takeStructuredData(text, found.structuredData)) {
        return false;
    }
    (void)text.take(' ');             // there may be no message
    (void)text.take("\xEF\xBB\xBF");  // only says that UTF-8 follows
    found.message = text.rest();
    parsed = found;
    return true;
}

bool isRepeatNotice(std::string_view text) noexcept {
    return text.starts_with("last message repeated ") || text.starts_with("message repeated ");
}

// What programs and devices are called, "sshd(pam_unix)", "/usr/sbin/cron", "%ASA-6-302013" among them; not
// the beginning of JSON or of a list of key=value.
bool isTagWord(std::string_view word) noexcept {
    if (word.empty() || word.size() > kMaxProgram) return false;
    for (const char c : word) {
        const bool letterOrDigit = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        const auto byte = static_cast<unsigned char>(c);
        if (!letterOrDigit && byte < 0x80 && std::string_view("-_./()%@#+*$~").find(c) == std::string_view::npos) {
            return false;
        }
    }
    return true;
}

// "program[pid]: text", "program: text", "program text". Without a program the text is left alone. Where no
// time stands before it, only the first two forms are a TAG: a blank also ends the first word of a sentence.
void parseTagged(std::string_view text, bool afterHeader, ParsedMessage& parsed) noexcept {
    parsed.message = text;
    if (isRepeatNotice(text)) return;
    const size_t end = text.find_first_of("[: ");
    if (end == std::string_view::npos || !isTagWord(text.substr(0, end))) return;
    TextCursor cursor(text);
    cursor.skip(end);
    std::string_view pid;
    if (cursor.take('[')) {
        pid = cursor.takeUntil(']');
        // Brackets that are not closed, or that hold more than one word, are text.
        if (cursor.atEnd() || pid.size() > kMaxProgram || pid.find_first_of(" [") != std::string_view::npos) {
            return;
        }
        if (!cursor.startsWith(':') && !cursor.startsWith(' ')) return;
    }
    const bool colon = cursor.take(':');
    const bool blank = cursor.take(' ');
    if (!afterHeader && !(colon && blank)) return;
    parsed.program = text.substr(0, end);
    parsed.processId = pid;
    parsed.message = cursor.rest();
}

// A word that ends with a colon or has a bracket is a TAG: the sender left its name out.
bool isHostName(std::string_view word) noexcept {
    return !word.empty() && word.back() != ':' && word.find('[') == std::string_view::npos;
}

// Behind PRI.
void parseClassic(TextCursor text, HostField host, ParsedMessage& parsed) noexcept {
    auto time = takeBsdTime(text);
    if (!time) time = takeIsoTime(text);
    if (!time) {
        // A leading number and colon is a device's own message counter, and no program.
        const char first = text.atEnd() ? ' ' : text.rest().front();
        parsed.message = text.rest();
        if (first < '0' || first > '9') parseTagged(text.rest(), false, parsed);
        return;
    }
    const bool colon = text.take(':');
    if (!text.take(' ') && !text.atEnd()) return;  // no time after all: the whole text stays the message
    parsed.time = time;
    if (colon || host == HostField::kAbsent) return parseTagged(text.rest(), true, parsed);
    const std::string_view rest = text.rest();
    const size_t end = rest.find(' ');
    const std::string_view word = rest.substr(0, end);
    if (isRepeatNotice(rest) || !isHostName(word) || end == std::string_view::npos) {
        return parseTagged(rest, true, parsed);
    }
    parsed.host = word.substr(0, kMaxHost);
    if (word.size() > kMaxHost) {
        parsed.message = rest.substr(kMaxHost);
        return;
    }
    parseTagged(rest.substr(end + 1), true, parsed);
}

}  // namespace

std::string_view withoutLineEnds(std::string_view text) noexcept {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.remove_suffix(1);
    return text;
}

ParsedMessage parseMessage(std::string_view raw, HostField host) noexcept {
    ParsedMessage parsed;
    TextCursor text(withoutLineEnds(raw));
    parsed.message = text.rest();
    if (const auto priority = takePriority(text)) {
        parsed.facility = *priority / 8;
        parsed.severity = *priority % 8;
        parsed.message = text.rest();
    } else if (text.startsWith('<')) {
        return parsed;
    }
    if (!parseModern(text, parsed)) parseClassic(text, host, parsed);
    return parsed;
}

std::string_view facilityName(int facility) noexcept {
    static constexpr std::array<std::string_view, 24> kNames = {
        "kern",   "user",   "mail",     "daemon", "auth",   "syslog",   "lpr",     "news",
        "uucp",   "cron",   "authpriv", "ftp",    "ntp",    "security", "console", "solaris-cron",
        "local0", "local1", "local2",   "local3", "local4", "local5",   "local6",  "local7"};
    return kNames[static_cast<size_t>(facility) % kNames.size()];
}

}  // namespace ombrel
