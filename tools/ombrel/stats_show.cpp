// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/stats_show.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>

#include "linux/common/progress_bar.h"
#include "linux/common/text_escape.h"
#include "tools/ombrel/json_writer.h"
#include "tools/ombrel/table.h"

namespace ombrel {

namespace {

constexpr std::size_t kLongestBar = 60;
constexpr std::size_t kShortestBar = 10;
constexpr std::size_t kLongestName = 40;

bool isByTime(StatsBy by) {
    return by == StatsBy::kHour || by == StatsBy::kDay;
}

Colour colourOf(StatsBy by, const std::string& name) {
    if (by != StatsBy::kSeverity) return Colour::kCyan;
    if (name == "warning") return Colour::kYellow;
    if (name == "notice") return Colour::kBold;
    if (name == "debug") return Colour::kDim;
    return name == "info" || name == "none" ? Colour::kPlain : Colour::kRed;
}

std::string shareText(unsigned long long rows, unsigned long long all) {
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), "%.1f %%", shareDone(rows, all) * 100);
    return text.data();
}

/// One mark at least for what there is at all.
std::string barOf(unsigned long long rows, unsigned long long most, std::size_t width) {
    const auto marks = static_cast<std::size_t>(std::lround(shareDone(rows, most) * static_cast<double>(width)));
    return std::string(rows == 0 ? 0 : std::max<std::size_t>(marks, 1), '#');
}

std::string jsonText(const StatsAnswer& answer) {
    JsonWriter json;
    json.beginObject().member("by", answer.byWord).member("rows", answer.rows).key("counts").beginArray();
    for (const auto& [name, rows] : answer.counts)
        json.beginObject().member(answer.byWord, name).member("rows", rows).endObject();
    json.endArray().member("other_rows", answer.others).member("files_read", answer.filesRead);
    json.member("files_failed", answer.filesFailed).endObject();
    return json.takeLine();
}

/// Without a terminal a name and a number, whatever they are called.
std::string linesText(const StatsAnswer& answer) {
    std::string text;
    for (const auto& [name, rows] : answer.counts)
        text += (name.empty() ? "-" : escapeForLine(name)) + '\t' + std::to_string(rows) + '\n';
    if (answer.others > 0) text += "(others)\t" + std::to_string(answer.others) + '\n';
    return text;
}

std::string chartText(const StatsAnswer& answer, const Terminal& terminal) {
    std::string head = answer.byWord;
    for (char& c : head)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    unsigned long long most = answer.others;
    std::size_t widest = head.size();
    for (const auto& [name, rows] : answer.counts) {
        most = std::max(most, rows);
        widest = std::max(widest, std::min(mostColumns(escapeForLine(name)), kLongestName));
    }
    const std::size_t used = widest + std::max<std::size_t>(groupedNumber(most).size(), 4) + 7 + 6;
    const auto columns = static_cast<std::size_t>(terminal.columns);
    const std::size_t width = std::clamp(columns > used ? columns - used : 0, kShortestBar, kLongestBar);
    Table table({{head}, {"ROWS", Align::kRight}, {"SHARE", Align::kRight}, {""}});
    const auto add = [&](const std::string& name, unsigned long long rows, Colour colour) {
        table.add(
            {{shortenMiddle(escapeForLine(name), kLongestName), colour == Colour::kCyan ? Colour::kPlain : colour},
             {groupedNumber(rows)},
             {shareText(rows, answer.rows), Colour::kDim},
             {barOf(rows, most, width), colour}});
    };
    for (const auto& [name, rows] : answer.counts)
        add(name, rows, colourOf(answer.by, name));
    if (answer.others > 0) add("(others)", answer.others, Colour::kDim);
    return table.text(terminal);
}

}  // namespace

StatsAnswer statsAnswer(StatsResult result, StatsBy by, std::string byWord, std::size_t limit) {
    StatsAnswer answer;
    answer.by = by;
    answer.byWord = std::move(byWord);
    answer.rows = result.counts.total();
    answer.counts = result.counts.largest();
    answer.filesRead = result.read;
    answer.filesFailed = result.failed.size();
    if (isByTime(by)) std::sort(answer.counts.begin(), answer.counts.end());
    if (limit > 0 && answer.counts.size() > limit) {
        const auto kept = static_cast<std::ptrdiff_t>(limit);
        if (isByTime(by)) {
            answer.counts.erase(answer.counts.begin(), answer.counts.end() - kept);
        } else {
            answer.counts.erase(answer.counts.begin() + kept, answer.counts.end());
        }
    }
    answer.others = answer.rows;
    for (const auto& [name, rows] : answer.counts)
        answer.others -= rows;
    return answer;
}

std::string statsText(const StatsAnswer& answer, const Context& context) {
    if (context.json) return jsonText(answer);
    return context.out.isTerminal ? chartText(answer, context.out) : linesText(answer);
}

}  // namespace ombrel
