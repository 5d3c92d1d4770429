// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// ombrel-jobs: makes the service folders or the units of the job definitions.
#include <getopt.h>
#include <sysexits.h>
#include <systemd/sd-daemon.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "linux/common/folder_stream.h"
#include "linux/veskserviceconf/job_definition.h"
#include "linux/veskserviceconf/job_places.h"
#include "linux/veskserviceconf/s6_service_folder.h"
#include "linux/veskserviceconf/service_manager.h"
#include "linux/veskserviceconf/systemd_manager.h"
#include "linux/veskserviceconf/systemd_unit.h"

using namespace ombrel;

namespace {

constexpr const char* kUsage =
    "usage: ombrel-jobs [--jobs=FOLDER] [--systemd[=FOLDER]] [--scan[=FOLDER]] [--log=FOLDER] [--list]\n"
    "\n"
    "Makes or renews what the service manager needs of each job definition: units where the machine was booted\n"
    "by systemd, else service folders for s6; or what is named. New jobs are off; those that are there stay on\n"
    "or off, and a running job takes a change when it is next restarted.\n"
    "  --jobs=FOLDER       the definitions, NAME.job (/var/packages/Ombrel/target/jobs)\n"
    "  --systemd[=FOLDER]  units for systemd, NAME.service (/etc/systemd/system, which systemd, where it runs, "
    "is\n"
    "                      told to read again). Units that this program made of definitions that are gone are\n"
    "                      removed; those of others are never touched\n"
    "  --scan[=FOLDER]     the scan folder of s6-svscan (/var/packages/Ombrel/target/service/run/scan)\n"
    "  --log=FOLDER        where s6 keeps a job's output, in FOLDER/NAME "
    "(/var/packages/Ombrel/target/service/log)\n"
    "  --list              print the names of the jobs in the order of their start, make nothing\n"
    "Exit codes: 0 done, 64 wrong options, 65 a wrong definition, 66 no definitions, 73 cannot write,\n"
    "75 units are made, but systemd could not be told\n";

struct Options {
    std::string jobs = kJobFolder;
    std::string units;  // empty: none are made
    std::string scan;   // likewise
    std::string log = kJobLogFolder;
    bool list = false;
    bool help = false;
};

bool parseOptions(int count, char* words[], Options& options) {
    const option known[] = {{"jobs", required_argument, nullptr, 'j'},
                            {"systemd", optional_argument, nullptr, 'u'},
                            {"scan", optional_argument, nullptr, 's'},
                            {"log", required_argument, nullptr, 'l'},
                            {"list", no_argument, nullptr, 'n'},
                            {"help", no_argument, nullptr, 'h'},
                            {}};
    int found;
    while ((found = ::getopt_long(count, words, "h", known, nullptr)) != -1) {
        if (found == 'j') options.jobs = optarg;
        if (found == 'u') options.units = optarg != nullptr ? optarg : kUnitFolder;
        if (found == 's') options.scan = optarg != nullptr ? optarg : kScanFolder;
        if (found == 'l') options.log = optarg;
        if (found == 'n') options.list = true;
        if (found == 'h') options.help = true;
        if (found == '?') return false;
    }
    if (options.units.empty() && options.scan.empty()) {
        const bool isSystemd = ::sd_booted() > 0;
        (isSystemd ? options.units : options.scan) = isSystemd ? kUnitFolder : kScanFolder;
    }
    return optind == count;
}

/// Units name it, and are known by it again.
std::string wholePath(const std::string& path) {
    std::string whole = std::filesystem::absolute(path).lexically_normal().string();
    if (whole.size() > 1 && whole.ends_with('/')) whole.pop_back();
    return whole;
}

int complain(int exitCode, const std::string& what, const std::string& why, const char* advice) {
    (void)std::fprintf(stderr, "ombrel-jobs: %s: %s; %s\n", what.c_str(), why.c_str(), advice);
    return exitCode;
}

/// Reads NAME.job into `jobs`.
int readJob(const std::string& path, const std::string& name, std::vector<JobDefinition>& jobs) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return complain(EX_NOINPUT, path, std::strerror(errno), "check who may read it");
    const std::string text(std::istreambuf_iterator<char>(file), {});
    JobDefinition job;
    job.name = name;
    const std::string wrong = isJobName(name.c_str()) ? parseJobDefinition(text, job) : "not a name for a job";
    if (!wrong.empty()) return complain(EX_DATAERR, path, wrong, "correct or reinstall it");
    jobs.push_back(std::move(job));
    return EX_OK;
}

int readJobs(const std::string& path, std::vector<JobDefinition>& jobs) {
    constexpr std::string_view kSuffix = ".job";
    const FolderStream folder(::opendir(path.c_str()));
    if (!folder) return complain(EX_NOINPUT, path, std::strerror(errno), "name the folder with --jobs");
    while (const dirent* entry = ::readdir(folder.get())) {
        const std::string_view name = entry->d_name;
        if (name.starts_with('.') || !name.ends_with(kSuffix)) continue;
        const std::string job(name.substr(0, name.size() - kSuffix.size()));
        if (const int code = readJob(path + "/" + entry->d_name, job, jobs); code != EX_OK) return code;
    }
    if (jobs.empty()) return complain(EX_NOINPUT, path, "holds no definitions", "name the folder with --jobs");
    if (!orderJobs(jobs))
        return complain(EX_DATAERR, path, "the jobs wait for one another or for one that is missing",
                        "correct their \"after\"");
    return EX_OK;
}

int list(const std::vector<JobDefinition>& jobs) {
    for (const JobDefinition& job : jobs)
        (void)std::printf("%s\n", job.name.c_str());
    return std::fflush(stdout) == 0 ? EX_OK : EX_IOERR;
}

int makeServiceFolders(const std::vector<JobDefinition>& jobs, const Options& options) {
    for (const JobDefinition& job : jobs) {
        if (writeServiceFolder(job, options.scan, options.log) != 0)
            return complain(EX_CANTCREAT, options.scan + "/" + job.name, std::strerror(errno),
                            "check the folders of --scan and --log");
    }
    return EX_OK;
}

int makeUnits(const std::vector<JobDefinition>& jobs, const Options& options) {
    const std::string jobFolder = wholePath(options.jobs);
    for (const JobDefinition& job : jobs) {
        if (writeUnit(job, jobFolder, options.units) == 0) continue;
        const std::string unit = options.units + "/" + job.name + ".service";
        if (errno == EEXIST)
            return complain(EX_CANTCREAT, unit, "somebody else has made or masked it", "see what it is for");
        return complain(EX_CANTCREAT, unit, std::strerror(errno), "check the folder of --systemd");
    }
    std::vector<std::string> removed;
    if (removeStaleUnits(jobs, jobFolder, options.units, removed) != 0)
        return complain(EX_CANTCREAT, options.units, std::strerror(errno), "check the folder of --systemd");
    for (const std::string& name : removed)
        (void)std::printf("%s.service removed: its definition is gone\n", name.c_str());
    if (std::fflush(stdout) != 0) return EX_IOERR;
    if (options.units != kUnitFolder || ::sd_booted() <= 0) return EX_OK;
    SystemdManager systemd;
    if (systemd.reloadDefinitions() == 0) return EX_OK;
    return complain(EX_TEMPFAIL, "the units are made", "systemd could not be told",
                    "run: systemctl daemon-reload");
}

int run(const Options& options) {
    std::vector<JobDefinition> jobs;
    int code = readJobs(options.jobs, jobs);
    if (code != EX_OK) return code;
    if (options.list) return list(jobs);
    if (!options.scan.empty()) code = makeServiceFolders(jobs, options);
    if (code == EX_OK && !options.units.empty()) code = makeUnits(jobs, options);
    return code;
}

}  // namespace

int main(int count, char* words[]) {
    try {
        Options options;
        if (!parseOptions(count, words, options)) {
            (void)std::fputs(kUsage, stderr);
            return EX_USAGE;
        }
        if (!options.help) return run(options);
        (void)std::fputs(kUsage, stdout);
        return EX_OK;
    } catch (const std::exception& error) {
        return complain(EX_OSERR, "ended", error.what(), "free some memory and run it again");
    }
}
