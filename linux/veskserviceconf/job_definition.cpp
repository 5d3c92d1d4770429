// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/veskserviceconf/job_definition.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <utility>

#include "linux/veskcore/settings_line.h"
#include "linux/veskserviceconf/service_manager.h"

namespace ombrel {

namespace {

std::vector<std::string> words(std::string_view text) {
    std::vector<std::string> result;
    for (std::size_t begin = 0; (begin = text.find_first_not_of(" \t", begin)) != std::string_view::npos;) {
        const std::size_t end = std::min(text.find_first_of(" \t", begin), text.size());
        result.emplace_back(text.substr(begin, end - begin));
        begin = end;
    }
    return result;
}

bool takeCommand(std::string_view text, std::vector<std::string>& command) {
    command = words(text);
    return !command.empty() && command.front().starts_with('/');
}

bool takeNumber(std::string_view text, int least, int most, int& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && number >= least && number <= most;
}

bool takeOneOf(std::string_view text, std::initializer_list<std::string_view> allowed, std::string& value) {
    value = text;
    return std::find(allowed.begin(), allowed.end(), text) != allowed.end();
}

bool takeName(std::string_view text, std::string& name) {
    name = text;
    return isJobName(name.c_str()) && name.size() == text.size();
}

/// Blanks are the only white space of a definition, and none of its texts is for a terminal.
bool hasControls(std::string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](unsigned char byte) { return (byte < ' ' && byte != '\t') || byte == 0x7f; });
}

/// False for an unknown key or a value that it cannot have.
bool take(const KeyValue& line, JobDefinition& job) {
    if (hasControls(line.value)) return false;
    if (line.key == "description") {
        job.description = line.value;
        return !job.description.empty();
    }
    if (line.key == "command") return takeCommand(line.value, job.command);
    if (line.key == "user") return takeName(line.value, job.user);
    if (line.key == "ready_fd") return takeNumber(line.value, 3, 9, job.readyFd);
    if (line.key == "reload_signal") return takeOneOf(line.value, {"HUP", "USR1", "USR2"}, job.reloadSignal);
    if (line.key == "stop_signal") return takeOneOf(line.value, {"TERM", "INT", "QUIT", "HUP"}, job.stopSignal);
    if (line.key == "stop_timeout_seconds") return takeNumber(line.value, 1, 25, job.stopTimeoutSeconds);
    if (line.key == "after") return takeName(line.value, job.after);
    if (line.key == "every_seconds") return takeNumber(line.value, 1, 604800, job.everySeconds);
    return false;
}

}  // namespace

std::string parseJobDefinition(std::string_view text, JobDefinition& job) {
    std::set<std::string, std::less<>> seen;
    LineReader lines(text);
    for (int number = 1; lines.next(); ++number) {
        if (saysNothing(lines.text())) continue;
        const auto line = parseKeyValue(lines.text());
        if (!line) return "line " + std::to_string(number) + ": not of the form key=\"value\"";
        const std::string key(line->key);
        if (!seen.insert(key).second) return "line " + std::to_string(number) + ": \"" + key + "\" stands twice";
        if (!take(*line, job)) return "line " + std::to_string(number) + ": bad key or value for \"" + key + "\"";
    }
    for (const char* needed : {"description", "command", "ready_fd"}) {
        if (seen.count(needed) == 0) return std::string("\"") + needed + "\" is missing";
    }
    return {};
}

bool orderJobs(std::vector<JobDefinition>& jobs) {
    std::sort(jobs.begin(), jobs.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    std::vector<JobDefinition> ordered;
    while (!jobs.empty()) {
        const auto next = std::find_if(jobs.begin(), jobs.end(), [&](const JobDefinition& job) {
            const auto comesFirst = [&](const JobDefinition& other) { return other.name == job.after; };
            return job.after.empty() || std::any_of(ordered.begin(), ordered.end(), comesFirst);
        });
        if (next == jobs.end()) return false;
        ordered.push_back(std::move(*next));
        jobs.erase(next);
    }
    jobs = std::move(ordered);
    return true;
}

}  // namespace ombrel
