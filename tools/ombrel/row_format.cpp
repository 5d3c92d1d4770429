// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/row_format.h"

#include <algorithm>

#include "linux/common/text_escape.h"
#include "platform/vesksyslog.h"
#include "tools/ombrel/json_writer.h"
#include "tools/ombrel/time_words.h"

namespace ombrel {

namespace {

bool hasSeverity(const LogRow& row) {
    return row.severity >= 0 && row.severity <= 7;
}

std::string severityName(const LogRow& row) {
    return PriorTypeToStr(static_cast<_SYSLOG_DB_PRIORITY_tag>(row.severity));
}

Colour colourOf(const LogRow& row) {
    if (!hasSeverity(row)) return Colour::kPlain;
    if (row.severity <= SYSLOG_DB_PRIORITY_ERR) return Colour::kRed;
    if (row.severity == SYSLOG_DB_PRIORITY_WARNING) return Colour::kYellow;
    if (row.severity == SYSLOG_DB_PRIORITY_NOTICE) return Colour::kBold;
    return row.severity == SYSLOG_DB_PRIORITY_DEBUG ? Colour::kDim : Colour::kPlain;
}

/// Of `width` columns at least, and two blanks behind it. Names are ASCII nearly always.
std::string column(const std::string& text, std::size_t width) {
    std::string shown = text.empty() ? "-" : escapeForLine(text);
    shown.append(shown.size() < width ? width - shown.size() : 0, ' ');
    return shown + "  ";
}

// Rows are shown as they are found: what the widest name is nobody knows yet.
std::string tableLine(const LogRow& row, const Terminal& terminal) {
    constexpr std::size_t kHostWidth = 15;
    constexpr std::size_t kProgramWidth = 12;
    constexpr std::size_t kSeverityWidth = 7;
    const Colour colour = colourOf(row);
    return painted(terminal, Colour::kDim, escapeForLine(row.day + " " + row.clock)) + "  " +
           column(row.host, kHostWidth) + column(row.program, kProgramWidth) +
           painted(terminal, colour, column(hasSeverity(row) ? severityName(row) : "", kSeverityWidth)) +
           painted(terminal, colour, escapeForLine(row.message)) + "\n";
}

std::string textLine(const LogRow& row) {
    std::string line;
    for (const std::string& cell : {row.day, row.clock, severityName(row), row.host, row.facility, row.program})
        line += escapeForLine(cell) + '\t';
    return line + escapeForLine(row.message) + '\n';
}

void appendCsv(std::string& line, const std::string& value) {
    const std::string shown = escapeForLine(value);
    if (shown.find_first_of(",\"") == std::string::npos) {
        line += shown;
        return;
    }
    line += '"';
    for (const char c : shown) {
        if (c == '"') line += '"';
        line += c;
    }
    line += '"';
}

std::string csvLine(const LogRow& row) {
    std::string line = timeJson(row.time);
    for (const std::string& cell :
         {row.received == 0 ? "" : timeJson(row.received), hasSeverity(row) ? severityName(row) : "", row.host,
          row.facility, row.program, row.processId, row.messageId, row.sender, row.message}) {
        line += ',';
        appendCsv(line, cell);
    }
    return line + "\r\n";
}

std::string jsonLine(const LogRow& row) {
    JsonWriter json;
    json.beginObject().member("time", timeJson(row.time)).key("received");
    row.received == 0 ? json.null() : json.text(timeJson(row.received));
    json.key("severity");
    hasSeverity(row) ? json.text(severityName(row)) : json.null();
    json.member("host", row.host).member("facility", row.facility).member("program", row.program);
    json.member("process_id", row.processId).member("message_id", row.messageId).member("sender", row.sender);
    json.member("message", row.message).endObject();
    return json.takeLine();
}

}  // namespace

std::string csvHead() {
    return "time,received,severity,host,facility,program,process_id,message_id,sender,message\r\n";
}

std::string rowLine(const LogRow& row, RowFormat format, const Terminal& terminal) {
    switch (format) {
        case RowFormat::kTable:
            return tableLine(row, terminal);
        case RowFormat::kText:
            return textLine(row);
        case RowFormat::kCsv:
            return csvLine(row);
        case RowFormat::kJson:
            return jsonLine(row);
    }
    return {};
}

}  // namespace ombrel
