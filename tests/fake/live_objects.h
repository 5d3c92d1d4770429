// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Counts the objects that the fake platform has handed out, by kind, and notices what is released twice.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace ombrel::test {

class LiveObjects {
public:
    void add(const std::string& kind, const void* object) { live_[kind].insert(object); }

    /// False, and a misuse, when no such object is alive: released twice or never handed out.
    bool remove(const std::string& kind, const void* object) {
        if (live_[kind].erase(object) == 1) return true;
        misuse(kind + " released that is not alive");
        return false;
    }
    /// Forgets the object where it is known; for releases that also serve other objects (`free`, `fclose`).
    void removeIfKnown(const std::string& kind, const void* object) { live_[kind].erase(object); }

    [[nodiscard]] bool contains(const std::string& kind, const void* object) const {
        const auto found = live_.find(kind);
        return found != live_.end() && found->second.count(object) == 1;
    }
    [[nodiscard]] bool anyOf(const std::string& kind) const {
        const auto found = live_.find(kind);
        return found != live_.end() && !found->second.empty();
    }
    void misuse(const std::string& text) { misuses_.push_back(text); }

    /// One line for each kind of which something is left, such as "2 hash".
    [[nodiscard]] std::vector<std::string> leaks() const {
        std::vector<std::string> lines;
        for (const auto& [kind, objects] : live_) {
            if (!objects.empty()) lines.push_back(std::to_string(objects.size()) + " " + kind);
        }
        return lines;
    }
    [[nodiscard]] const std::vector<std::string>& misuses() const { return misuses_; }

private:
    std::map<std::string, std::set<const void*>> live_;
    std::vector<std::string> misuses_;
};

}  // namespace ombrel::test
