// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tests/fake/journal.h"

#include <algorithm>
#include <cstdio>

namespace ombrel::test {

std::string quoted(const char* text) {
    if (text == nullptr) return "null";
    std::string out = "\"";
    for (const char* at = text; *at != '\0'; ++at) {
        if (*at == '\n') {
            out += "\\n";
        } else if (*at == '"' || *at == '\\') {
            out += {'\\', *at};
        } else {
            out += *at;
        }
    }
    return out + "\"";
}

std::string Journal::line(const std::string& name, const std::vector<std::string>& arguments) {
    std::string text = name + "(";
    const char* separator = "";
    for (const std::string& argument : arguments) {
        text += separator + argument;
        separator = ", ";
    }
    return text + ")";
}

void Journal::write(const std::string& text) {
    lines_.push_back(text);
    if (mirrored_) (void)std::fprintf(stderr, "%s\n", text.c_str());  // a lost line shows in the test
}

bool Journal::enterLine(const std::string& name, const std::string& text) {
    write(text);
    failable_.push_back(name);
    if (!fails(name)) return false;
    onFailure();
    return true;
}

bool Journal::fails(const std::string& name) {
    const int call = ++calls_[name];
    if (const auto planned = plannedFailures_.find({name, call}); planned != plannedFailures_.end()) {
        errno = planned->second;
        return true;
    }
    if (const auto permanent = permanentFailures_.find(name); permanent != permanentFailures_.end()) {
        errno = permanent->second;
        return true;
    }
    if (failingNumber_ != static_cast<int>(failable_.size())) return false;
    errno = EIO;
    return true;
}

void Journal::failCall(const std::string& name, int nth, int error) {
    plannedFailures_[{name, calls_[name] + nth}] = error;
}

void Journal::failEveryCall(const std::string& name, int error) {
    permanentFailures_[name] = error;
}

std::vector<std::string> Journal::linesOf(const std::vector<std::string>& names) const {
    std::vector<std::string> found;
    for (const std::string& text : lines_) {
        const std::string name = text.substr(0, text.find('('));
        if (std::find(names.begin(), names.end(), name) != names.end()) found.push_back(text);
    }
    return found;
}

int Journal::count(const std::string& name) const {
    return static_cast<int>(linesOf({name}).size());
}

void Journal::clear() {
    lines_.clear();
    failable_.clear();
    failingNumber_ = 0;
}

}  // namespace ombrel::test
