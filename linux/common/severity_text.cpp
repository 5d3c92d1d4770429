// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/severity_text.h"

#include <algorithm>
#include <array>

namespace ombrel {

int severityOfText(std::string_view text) noexcept {
    struct Name {
        std::string_view name;
        int severity;
    };
    static constexpr std::array<Name, 11> kNames = {{{"emerg", 0},
                                                     {"panic", 0},
                                                     {"alert", 1},
                                                     {"crit", 2},
                                                     {"err", 3},
                                                     {"error", 3},
                                                     {"warning", 4},
                                                     {"warn", 4},
                                                     {"notice", 5},
                                                     {"info", 6},
                                                     {"debug", 7}}};
    if (text.size() == 1 && text[0] >= '0' && text[0] <= '7') return text[0] - '0';
    for (const Name& entry : kNames) {
        if (std::equal(text.begin(), text.end(), entry.name.begin(), entry.name.end(),
                       [](char a, char b) { return foldCase(a) == b; })) {
            return entry.severity;
        }
    }
    return -1;
}

}  // namespace ombrel
