// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// ombrel-jobs: makes the service folders of the job definitions.
#include <dirent.h>
#include <getopt.h>
#include <sysexits.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>
#include <memory>

#include "linux/veskserviceconf/job_definition.h"
#include "linux/veskserviceconf/job_places.h"
#include "linux/veskserviceconf/s6_service_folder.h"
#include "linux/veskserviceconf/service_manager.h"

using namespace ombrel;

namespace {

constexpr const char* kUsage =
    "usage: ombrel-jobs [--jobs=FOLDER] [--scan=FOLDER] [--log=FOLDER] [--list]\n"
    "\n"
    "Makes or renews the s6 service folder of each job definition. New jobs are off; those that are there\n"
    "stay on or off, and a running job takes a change when it is next restarted.\n"
    "  --jobs=FOLDER  the definitions, NAME.job (/var/packages/Ombrel/target/jobs)\n"
    "  --scan=FOLDER  the scan folder of s6-svscan (/var/packages/Ombrel/target/service/run/scan)\n"
    "  --log=FOLDER   where a job's output is kept, in FOLDER/NAME (/var/packages/Ombrel/target/service/log)\n"
    "  --list         print the names of the jobs in the order of their start, make nothing\n"
    "Exit codes: 0 done, 64 wrong options, 65 a wrong definition, 66 no definitions, 73 cannot write\n";

struct Options {
    std::string jobs = kJobFolder;
    std::string scan = kScanFolder;
    std::string log = kJobLogFolder;
    bool list = false;
    bool help = false;
};

bool parseOptions(int count, char* words[], Options& options) {
    const option known[] = {{"jobs", required_argument, nullptr, 'j'}, {"scan", required_argument, nullptr, 's'},
                            {"log", required_argument, nullptr, 'l'},  {"list", no_argument, nullptr, 'n'},
                            {"help", no_argument, nullptr, 'h'},       {}};
    int found;
    while ((found = ::getopt_long(count, words, "h", known, nullptr)) != -1) {
        if (found == 'j') options.jobs = optarg;
        if (found == 's') options.scan = optarg;
        if (found == 'l') options.log = optarg;
        if (found == 'n') options.list = true;
        if (found == 'h') options.help = true;
        if (found == '?') return false;
    }
    return optind == count;
}

int complain(int exitCode, const std::string& what, const std::string& why, const char* advice) {
    (void)std::fprintf(stderr, "ombrel-jobs: %s: %s; %s\n", what.c_str(), why.c_str(), advice);
    return exitCode;
}

struct FolderClose {
    void operator()(DIR* folder) const noexcept { (void)::closedir(folder); }
};

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
    const std::unique_ptr<DIR, FolderClose> folder(::opendir(path.c_str()));
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

int run(const Options& options) {
    std::vector<JobDefinition> jobs;
    if (const int code = readJobs(options.jobs, jobs); code != EX_OK) return code;
    for (const JobDefinition& job : jobs) {
        if (options.list) {
            (void)std::printf("%s\n", job.name.c_str());
        } else if (writeServiceFolder(job, options.scan, options.log) != 0) {
            return complain(EX_CANTCREAT, options.scan + "/" + job.name, std::strerror(errno),
                            "check the folders of --scan and --log");
        }
    }
    return std::fflush(stdout) == 0 ? EX_OK : EX_IOERR;
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
