// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The journal of the fake platform: one line for each call, and the plan of the calls that are to fail.
#pragma once

#include <cerrno>
#include <functional>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace ombrel::test {

std::string quoted(const char* text);

template <typename T>
std::string shown(const T& value) {
    if constexpr (std::is_convertible_v<T, const char*>) {
        return quoted(value);
    } else if constexpr (std::is_same_v<T, std::string>) {
        return quoted(value.c_str());
    } else if constexpr (std::is_same_v<T, bool>) {
        return value ? "true" : "false";
    } else {
        return std::to_string(value);
    }
}

class Journal {
public:
    /// Records a call that can fail. True when this one is to fail; `errno` is then set.
    template <typename... Arguments>
    bool enter(const std::string& name, const Arguments&... arguments) {
        return enterLine(name, line(name, {shown(arguments)...}));
    }
    /// Records a call that has no way to fail, or a release.
    template <typename... Arguments>
    void note(const std::string& name, const Arguments&... arguments) {
        write(line(name, {shown(arguments)...}));
    }
    /// The same with arguments that are text already.
    bool enterLine(const std::string& name, const std::string& text);
    void write(const std::string& text);

    /// The `nth` call of `name` from now on (1 the next one) fails and sets `errno` to `error`.
    void failCall(const std::string& name, int nth, int error = EIO);
    /// Every call of `name` from now on fails.
    void failEveryCall(const std::string& name, int error = EIO);
    /// The call of this number fails, counted over all calls that can fail, 1 the first.
    void failCallNumber(int number) { failingNumber_ = number; }

    /// Called for each call that fails, such as to enter an error.
    std::function<void()> onFailure = [] {};

    [[nodiscard]] const std::vector<std::string>& lines() const { return lines_; }
    /// The names of the calls that could have failed, in order.
    [[nodiscard]] const std::vector<std::string>& failableCalls() const { return failable_; }
    /// The lines of calls of these names, in order.
    [[nodiscard]] std::vector<std::string> linesOf(const std::vector<std::string>& names) const;
    [[nodiscard]] int count(const std::string& name) const;
    void clear();
    /// From now on every line also goes to stderr, where the parent of a forked child reads it.
    void mirrorToStderr() { mirrored_ = true; }

private:
    /// Whether this call is to fail; `errno` is then set.
    bool fails(const std::string& name);
    static std::string line(const std::string& name, const std::vector<std::string>& arguments);

    std::vector<std::string> lines_;
    std::vector<std::string> failable_;
    std::map<std::string, int> calls_;
    std::map<std::pair<std::string, int>, int> plannedFailures_;  // name and number of the call -> errno
    std::map<std::string, int> permanentFailures_;                // name -> errno
    int failingNumber_ = 0;
    bool mirrored_ = false;
};

}  // namespace ombrel::test
