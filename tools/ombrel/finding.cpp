// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/finding.h"

#include <algorithm>

#include "linux/common/text_escape.h"
#include "tools/ombrel/table.h"

namespace ombrel {

namespace {

struct StateWords {
    const char* shown;
    const char* inJson;
    Colour colour;
};

StateWords wordsOf(FindingState state) {
    switch (state) {
        case FindingState::kOk:
            return {"ok", "ok", Colour::kGreen};
        case FindingState::kWarning:
            return {"warning", "warning", Colour::kYellow};
        case FindingState::kWrong:
            return {"wrong", "wrong", Colour::kRed};
        case FindingState::kUnknown:
            break;
    }
    return {"cannot tell", "unknown", Colour::kYellow};
}

std::optional<bool> okOf(FindingState state) {
    if (state == FindingState::kUnknown) return std::nullopt;
    return state != FindingState::kWrong;
}

}  // namespace

bool isGood(const Findings& findings) {
    return std::none_of(findings.begin(), findings.end(),
                        [](const Finding& finding) { return finding.state == FindingState::kWrong; });
}

std::string findingsText(const Findings& findings, const Terminal& terminal) {
    constexpr std::size_t kWidest = 11;  // "cannot tell"
    if (!terminal.isTerminal) {
        Table table({{"STATE"}, {"NAME"}, {"WHAT"}, {"ADVICE"}});
        for (const Finding& finding : findings)
            table.add({{wordsOf(finding.state).shown, wordsOf(finding.state).colour},
                       {finding.name},
                       {finding.what},
                       {finding.advice}});
        return table.text(terminal);
    }
    std::string text;
    for (const Finding& finding : findings) {
        const StateWords words = wordsOf(finding.state);
        const std::string shown = words.shown;
        text += painted(terminal, words.colour, shown) + std::string(kWidest - shown.size() + 2, ' ');
        std::string rest = finding.name + ": " + finding.what;
        if (!finding.advice.empty()) rest += "; " + finding.advice;
        text += escapeForLine(rest) + '\n';
    }
    return text;
}

void writeFindings(JsonWriter& json, const Findings& findings) {
    json.member("ok", isGood(findings)).key("findings").beginArray();
    for (const Finding& finding : findings) {
        json.beginObject().member("name", finding.name).member("ok", okOf(finding.state));
        json.member("state", wordsOf(finding.state).inJson).member("what", finding.what);
        json.member("advice", finding.advice).endObject();
    }
    json.endArray();
}

std::string findingsJson(const Findings& findings) {
    JsonWriter json;
    json.beginObject();
    writeFindings(json, findings);
    return json.endObject().takeLine();
}

}  // namespace ombrel
