// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the operations on receiving rules cost in rule files of several sizes, by the real library and platform.
// The restart of the rule job, which every change ends with, is left out: it is measured apart.
//   rules-bench fill COUNT                writes COUNT enabled rules and their port declarations
//   rules-bench measure ROUNDS COUNT...   does so for each COUNT, and prints the medians and how they grow
// Writes to the product's places, so it is to be run in a private root.
// Exit codes: 0 done, 1 an operation failed or grows faster than the files, 64 usage, 69 not in a private root.
#include <sysexits.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ombrel/customizerule.h"
#include "ombrel/utils.h"
#include "platform/veskserviceconf.h"

namespace {

using Rule = _CUSTOMIZED_RULE_tag;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr const char* kRuleFile = "/var/packages/Ombrel/target/service/conf/custrule.conf";
constexpr const char* kPortFile = "/usr/local/etc/services.d/vesk_syslog.sc";
constexpr int kFirstPort = 10'001;
constexpr int kMostRules = 10'000;
// The same measurement varies by as much.
constexpr double kTolerance = 1.1;

int restarts = 0;

}  // namespace

// These of the program go before those of the platform's library.
extern "C" {
int VLIBServicectlJobStop(const char* /*job*/) {
    return 0;
}
int VLIBServicectlJobStart(const char* /*job*/) {
    ++restarts;
    return 0;
}
}

namespace {

Rule ruleOf(int number) {
    return {"rule " + std::to_string(number),
            "BSD",
            number % 2 == 0 ? "udp" : "tcp",
            kFirstPort + number,
            false,
            true};
}

/// As the library and the platform would have written them, one after the other.
bool fill(int count) {
    fs::create_directories(fs::path(kRuleFile).parent_path());
    fs::create_directories(fs::path(kPortFile).parent_path());
    std::ofstream rules(kRuleFile);
    std::ofstream ports(kPortFile);
    for (int i = 0; i < count; ++i) {
        const Rule rule = ruleOf(i);
        rules << '[' << rule.name << "]\nformat=\"" << rule.format << "\"\nprotocol=\"" << rule.protocol
              << "\"\nport=\"" << rule.port << "\"\nssl=\"no\"\nenable=\"yes\"\n";
        ports << '[' << rule.name
              << "]\ndisplay_name=\"Ombrel\"\ndescription=\"Customized log receiving of Ombrel\""
              << "\nprotocol=\"" << rule.protocol << "\"\nport=\"" << rule.port << "\"\n";
    }
    return rules.flush().good() && ports.flush().good();
}

struct Operation {
    const char* name;
    std::function<bool()> run;
};

/// In an order in which each finds what it needs. The rule is the last one of its file.
std::vector<Operation> operationsOn(const Rule& rule) {
    return {
        {"add", [rule] { return VESKCustomizedRuleAdd(rule) == 0; }},
        {"read one",
         [rule] {
             Rule read;
             return VESKCustomizedRuleGet(rule.name, read) == 0 && read.port == rule.port;
         }},
        {"list",
         [rule] {
             const std::list<std::string> names = VESKCustomizedRuleEnum();
             return !names.empty() && names.back() == rule.name;
         }},
        {"find a name", [rule] { return VESKCustomizedRuleNameCheck(rule.name) == -1; }},
        {"check a port", [rule] { return VESKCustomizedRulePortCheck(rule.name, rule.port, rule.protocol) == 0; }},
        {"change", [rule] { return VESKCustomizedRuleSet(rule.name, rule) == 0; }},
        {"switch off", [rule] { return VESKCustomziedRuleControl(rule.name, CUSTOMIZED_RULE_DISABLE) == 0; }},
        {"delete", [rule] { return VESKCustomizedRuleDel(rule.name) == 0; }},
    };
}

/// Milliseconds.
struct Times {
    std::vector<double> wall;
    std::vector<double> processor;
};

/// Of one operation.
struct Cost {
    double wall = 0;  // medians
    double processor = 0;
    double least = 0;  // of processor time
};

/// Of one number of rules.
struct Result {
    int count = 0;
    double ruleBytes = 0;
    double portBytes = 0;
    std::vector<Cost> costs;  // one for each operation
    [[nodiscard]] double bytes() const { return ruleBytes + portBytes; }
};

double processorMilliseconds() {
    timespec time{};
    (void)::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);  // no failure is possible with this clock
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

bool runTimed(const Operation& operation, Times& times) {
    const double processor = processorMilliseconds();
    const auto begun = Clock::now();
    const bool good = operation.run();
    times.wall.push_back(std::chrono::duration<double, std::milli>(Clock::now() - begun).count());
    times.processor.push_back(processorMilliseconds() - processor);
    return good;
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Nothing, after a line on standard error, when an operation fails.
std::optional<Result> measure(int count, int rounds) {
    if (!fill(count)) {
        (void)fprintf(stderr, "rules-bench: cannot write %s and %s\n", kRuleFile, kPortFile);
        return std::nullopt;
    }
    Result result{
        count, static_cast<double>(fs::file_size(kRuleFile)), static_cast<double>(fs::file_size(kPortFile)), {}};
    const std::vector<Operation> operations = operationsOn(ruleOf(count));
    std::vector<Times> times(operations.size());
    restarts = 0;
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < operations.size(); ++i) {
            if (runTimed(operations[i], times[i])) continue;
            (void)fprintf(stderr, "rules-bench: %s fails with %d rules; the system log says why\n",
                          operations[i].name, count);
            return std::nullopt;
        }
    }
    if (restarts != 4 * rounds) {
        (void)fputs("rules-bench: the changes have not asked for the restart of the job\n", stderr);
        return std::nullopt;
    }
    for (const Times& ofOne : times)
        result.costs.push_back({median(ofOne.wall), median(ofOne.processor),
                                *std::min_element(ofOne.processor.begin(), ofOne.processor.end())});
    return result;
}

void printTable(const std::vector<Result>& results, const std::vector<Operation>& operations) {
    const auto line = [&](const char* name, const char* format, const auto& valueOf) {
        (void)printf("%-16s", name);
        for (const Result& result : results)
            (void)printf(format, valueOf(result));
        (void)puts("");
    };
    line("rules", "%12d", [](const Result& result) { return result.count; });
    line("custrule.conf", "%10.0f B", [](const Result& result) { return result.ruleBytes; });
    line("vesk_syslog.sc", "%10.0f B", [](const Result& result) { return result.portBytes; });
    for (std::size_t i = 0; i < operations.size(); ++i)
        line(operations[i].name, "%9.3f ms", [i](const Result& result) { return result.costs[i].wall; });
    (void)puts("processor time");
    for (std::size_t i = 0; i < operations.size(); ++i)
        line(operations[i].name, "%9.3f ms", [i](const Result& result) { return result.costs[i].processor; });
}

/// Each step's growth of the time beside that of the files. Whether none grows faster. Of processor time, since
/// that of the disk hardly grows and would hide it, and of the fastest rounds: others only ever add to a time.
bool printGrowth(const std::vector<Result>& results, std::size_t operation, const char* name) {
    bool slower = true;
    (void)printf("%-16s", name);
    for (std::size_t i = 1; i < results.size(); ++i) {
        const double time = results[i].costs[operation].least / results[i - 1].costs[operation].least;
        const double files = results[i].bytes() / results[i - 1].bytes();
        slower = slower && time <= files * kTolerance;
        (void)printf("%s x%.2f (files x%.2f)", i == 1 ? "time" : ",", time, files);
    }
    (void)puts(slower ? ": no faster than the files" : ": FASTER THAN THE FILES");
    return slower;
}

int measureAll(int rounds, const std::vector<int>& counts) {
    std::vector<Result> results;
    for (const int count : counts) {
        const std::optional<Result> result = measure(count, rounds);
        if (!result) return 1;
        results.push_back(*result);
    }
    const std::vector<Operation> operations = operationsOn(ruleOf(0));
    printTable(results, operations);
    bool slower = true;
    for (std::size_t i = 0; i < operations.size(); ++i)
        slower = printGrowth(results, i, operations[i].name) && slower;
    return slower ? EX_OK : 1;
}

int usage() {
    (void)fputs("usage: rules-bench fill COUNT | rules-bench measure ROUNDS COUNT...\n", stderr);
    return EX_USAGE;
}

int run(const std::vector<std::string>& words) {
    std::vector<int> numbers;
    for (std::size_t i = 1; i < words.size(); ++i)
        numbers.push_back(std::clamp(std::atoi(words[i].c_str()), 0, kMostRules));
    if (words.size() == 2 && words[0] == "fill") return fill(numbers[0]) ? EX_OK : 1;
    if (words.size() < 3 || words[0] != "measure" || numbers[0] < 1) return usage();
    return measureAll(numbers[0], {numbers.begin() + 1, numbers.end()});
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return usage();
    if (std::getenv("OMBREL_PRIVATE_ROOT") == nullptr) {
        (void)fputs(
            "rules-bench: this would write over the machine's own rules; run it under scripts/private-root\n",
            stderr);
        return EX_UNAVAILABLE;
    }
    try {
        return run({argv + 1, argv + argc});
    } catch (const std::exception& failure) {
        (void)fprintf(stderr, "rules-bench: %s\n", failure.what());
        return 1;
    }
}
