// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Calls the exported functions of the receiving rules with whatever it is given. Prints the result code in the
// first line and what was read in the next ones, texts between double quotes and escaped; what the library tells
// the system log is shown on standard error as well.
//   rule-tool add NAME FORMAT PROTOCOL PORT yes|no yes|no           the last two are TLS and on
//   rule-tool set OLDNAME NAME FORMAT PROTOCOL PORT yes|no yes|no
//   rule-tool del NAME
//   rule-tool get NAME               fields that are not read say "kept" and -1
//   rule-tool enum [NAME...]         into a list that holds these names already
//   rule-tool list
//   rule-tool namecheck NAME
//   rule-tool control NAME COMMAND
//   rule-tool portcheck SERVICE PORT PROTOCOL
//   rule-tool sharecheck
//   rule-tool quote TEXT             shows it as the others show texts
// Exit codes: 0 when the result is 0, otherwise 1; 64 usage.
#include <sysexits.h>
#include <syslog.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <span>
#include <string>
#include <string_view>

#include "ombrel/customizerule.h"

namespace {

using Arguments = std::span<char* const>;

std::string quoted(std::string_view text) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string result = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            result += {'\\', c};
        } else if (byte >= 0x20 && byte < 0x7f) {
            result += c;
        } else {
            result += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
        }
    }
    return result + '"';
}

int show(int result) {
    (void)std::printf("%d\n", result);
    return result == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

int showNames(int result, const std::list<std::string>& names) {
    const int code = show(result);
    for (const std::string& name : names)
        (void)std::puts(quoted(name).c_str());
    return code;
}

int usage() {
    (void)std::fputs(
        "usage: rule-tool add NAME FORMAT PROTOCOL PORT yes|no yes|no\n"
        "       rule-tool set OLDNAME NAME FORMAT PROTOCOL PORT yes|no yes|no\n"
        "       rule-tool del|get|namecheck NAME\n"
        "       rule-tool enum [NAME...]\n"
        "       rule-tool list | sharecheck\n"
        "       rule-tool control NAME COMMAND\n"
        "       rule-tool portcheck SERVICE PORT PROTOCOL\n"
        "       rule-tool quote TEXT\n",
        stderr);
    return EX_USAGE;
}

int numberOf(std::string_view text) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc() && end == text.data() + text.size()) return number;
    (void)std::fprintf(stderr, "rule-tool: %s: no number of 32 bits\n", quoted(text).c_str());
    std::exit(EX_USAGE);
}

/// Six words in the order of the fields.
_CUSTOMIZED_RULE_tag ruleOf(Arguments words) {
    return {words[0],
            words[1],
            words[2],
            numberOf(words[3]),
            std::string_view(words[4]) == "yes",
            std::string_view(words[5]) == "yes"};
}

int get(const char* name) {
    _CUSTOMIZED_RULE_tag rule{"kept", "kept", "kept", -1, false, false};
    const int code = show(VESKCustomizedRuleGet(name, rule));
    (void)std::printf("name=%s format=%s protocol=%s port=%d ssl=%s enable=%s\n", quoted(rule.name).c_str(),
                      quoted(rule.format).c_str(), quoted(rule.protocol).c_str(), rule.port,
                      rule.ssl ? "yes" : "no", rule.enable ? "yes" : "no");
    return code;
}

int enumerate(Arguments present) {
    std::list<std::string> names(present.begin(), present.end());
    const int result = VESKCustomizedRuleEnum(names);
    return showNames(result, names);
}

int run(std::string_view command, Arguments words) {
    const std::size_t count = words.size();
    if (command == "add" && count == 6) return show(VESKCustomizedRuleAdd(ruleOf(words)));
    if (command == "set" && count == 7) return show(VESKCustomizedRuleSet(words[0], ruleOf(words.subspan(1))));
    if (command == "del" && count == 1) return show(VESKCustomizedRuleDel(words[0]));
    if (command == "get" && count == 1) return get(words[0]);
    if (command == "enum") return enumerate(words);
    if (command == "list" && count == 0) return showNames(0, VESKCustomizedRuleEnum());
    if (command == "namecheck" && count == 1) return show(VESKCustomizedRuleNameCheck(words[0]));
    if (command == "sharecheck" && count == 0) return show(VESKCustomizedRuleShareCheck());
    if (command == "control" && count == 2)
        return show(
            VESKCustomziedRuleControl(words[0], static_cast<_CUSTOMIZED_RULE_CMD_tag>(numberOf(words[1]))));
    if (command == "quote" && count == 1) return std::puts(quoted(words[0]).c_str()) < 0 ? EX_IOERR : EX_OK;
    if (command == "portcheck" && count == 3)
        return show(VESKCustomizedRulePortCheck(words[0], numberOf(words[1]), words[2]));
    return usage();
}

}  // namespace

int main(int argc, char** argv) {
    ::openlog("rule-tool", LOG_PERROR, LOG_USER);
    if (argc < 2) return usage();
    return run(argv[1], Arguments(argv + 2, static_cast<std::size_t>(argc - 2)));
}
