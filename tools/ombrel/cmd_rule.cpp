// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel rule`: shows the customized rules, or changes one, its port and its receiver, all by the library.
#include <sysexits.h>

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "tools/ombrel/commands.h"
#include "tools/ombrel/rule_commands.h"

namespace {

constexpr const char* kUsage =
    "usage: ombrel rule list | show NAME | add NAME port=N [KEY=VALUE...] | set NAME KEY=VALUE... | rename NAME "
    "NEW | delete|enable|disable NAME | check [NAME]; ombrel rule --help says more";
constexpr const char* kHelp =
    "usage: ombrel rule list                    one line a rule: name, on or off, format, protocol, port\n"
    "       ombrel rule show NAME               all values of a rule\n"
    "       ombrel rule add NAME port=N [format=BSD|IETF|RAW] [protocol=udp|tcp] [ssl=yes|no] [enable=yes|no]\n"
    "                                           without them: BSD, udp, no, yes\n"
    "       ombrel rule set NAME KEY=VALUE...   the same keys\n"
    "       ombrel rule rename NAME NEW\n"
    "       ombrel rule delete|enable|disable NAME\n"
    "       ombrel rule check [NAME]            each rule: ok, or what is wrong with it\n"
    "add and set refuse a port that another service has declared or another program holds; with --force behind\n"
    "the name they take it. Every change restarts the receiver of the rules.\n"
    "Examples:\n"
    "  ombrel rule add printers port=1514\n"
    "  ombrel rule add \"edge firewall\" port=6515 format=IETF protocol=tcp ssl=yes\n"
    "  ombrel rule set printers port=1515 protocol=tcp\n"
    "Exit codes: 0 done (of check: all ok), 1 something failed (of check: is wrong), 64 refused, nothing was\n"
    "changed, 78 the rules cannot be read";

struct Verb {
    std::string_view name;
    std::size_t fewest;  ///< words behind it
    std::size_t most;
    int (*run)(ombrel::Words);
};

constexpr Verb kVerbs[] = {
    {"list", 0, 0, ombrel::listRules},     {"show", 1, 1, ombrel::showRule},
    {"add", 1, SIZE_MAX, ombrel::addRule}, {"set", 2, SIZE_MAX, ombrel::setRule},
    {"rename", 2, 2, ombrel::renameRule},  {"delete", 1, 1, ombrel::deleteRule},
    {"enable", 1, 1, ombrel::enableRule},  {"disable", 1, 1, ombrel::disableRule},
    {"check", 0, 1, ombrel::checkRules},
};

}  // namespace

int ombrel::cmdRule(std::span<char* const> words) {
    if (words.empty()) return complain(EX_USAGE, kUsage);
    const std::string_view name = words[0];
    const auto rest = words.subspan(1);
    if (asksForHelp(words) || asksForHelp(rest)) return showHelp(kHelp);
    const auto* verb = std::find_if(std::begin(kVerbs), std::end(kVerbs),
                                    [name](const Verb& candidate) { return candidate.name == name; });
    if (verb == std::end(kVerbs)) {
        return complain(EX_USAGE,
                        "no action \"" + std::string(name) +
                            "\"; expected list, show, add, set, rename, delete, enable, disable or check");
    }
    if (rest.size() < verb->fewest || rest.size() > verb->most) return complain(EX_USAGE, kUsage);
    return verb->run(rest);
}
