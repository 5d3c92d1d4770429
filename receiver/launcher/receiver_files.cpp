// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/receiver_files.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "linux/common/fd.h"
#include "receiver/launcher/child.h"
#include "receiver/launcher/fail.h"

namespace ombrel {

namespace {

constexpr std::chrono::seconds kSyntaxCheck{20};
// What syslog-ng allows itself when it is not told.
constexpr std::size_t kUsualDescriptors = 4096;
constexpr rlim_t kMostDescriptors = 65536;
// The head of one of syslog-ng's disk-buffer files.
constexpr std::uintmax_t kEmptyQueueFile = 4096;

std::string nextOf(const ReceiverFiles& files) {
    return files.configuration + ".new";
}

bool writeNext(const ReceiverFiles& files, const std::string& text) {
    const std::string next = nextOf(files);
    (void)::unlink(next.c_str());  // left by a start that was killed
    const Fd file(::open(next.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    return file && ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

bool holds(const std::string& path, const std::string& text) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream there;
    there << file.rdbuf();
    return file.good() && there.str() == text;
}

bool useNext(const ReceiverFiles& files) {
    return ::rename(nextOf(files).c_str(), files.configuration.c_str()) == 0;
}

}  // namespace

ReceiverFiles::ReceiverFiles(const std::string& runFolder, const std::string& name)
    : folder(runFolder + "/" + name),
      configuration(folder + "/syslog-ng.conf"),
      control(folder + "/control"),
      persist(folder + "/persist"),
      pid(folder + "/pid") {
}

std::size_t allowDescriptors() noexcept {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return kUsualDescriptors;
    rlimit wanted{kMostDescriptors, std::max(kMostDescriptors, limit.rlim_max)};
    if (::setrlimit(RLIMIT_NOFILE, &wanted) == 0) return kMostDescriptors;
    wanted = {std::min(kMostDescriptors, limit.rlim_max), limit.rlim_max};
    return ::setrlimit(RLIMIT_NOFILE, &wanted) == 0 ? wanted.rlim_cur : limit.rlim_cur;
}

std::vector<std::string> syslogNgCommand(const std::string& program, const ReceiverFiles& files,
                                         const std::string& configuration, std::size_t descriptors) {
    return {program,
            "--foreground",
            "--stderr",
            "--no-caps",
            "--fd-limit=" + std::to_string(descriptors),
            "--cfgfile=" + configuration,
            "--control=" + files.control,
            "--persist-file=" + files.persist,
            "--pidfile=" + files.pid};
}

bool hasLinesLeft(const ReceiverFiles& files) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(files.folder, error)) {
        if (entry.path().extension() == ".qf" && entry.file_size(error) > kEmptyQueueFile && !error) return true;
    }
    return false;
}

bool writeConfiguration(const ReceiverFiles& files, const std::string& text) {
    return writeNext(files, text) && useNext(files);
}

int writeCheckedConfiguration(const std::string& syslogNg, const ReceiverFiles& files, const std::string& text) {
    // It has been in use: senders find nobody while it is looked at.
    if (holds(files.configuration, text)) return EX_OK;
    if (!writeNext(files, text)) return failErrno(EX_CANTCREAT, "cannot write " + nextOf(files));
    std::vector<std::string> words = syslogNgCommand(syslogNg, files, nextOf(files), kUsualDescriptors);
    words.emplace_back("--syntax-only");
    auto check = Child::start(std::move(words));
    if (!check) return failErrno(EX_OSERR, "cannot run " + syslogNg);
    if (!check->wait(std::chrono::steady_clock::now() + kSyntaxCheck)) {
        return fail(EX_OSERR, syslogNg + " does not finish its check of " + nextOf(files));
    }
    if (check->exitCode() != 0) return fail(EX_CONFIG, syslogNg + " refuses " + nextOf(files));
    return useNext(files) ? EX_OK : failErrno(EX_CANTCREAT, "cannot write " + files.configuration);
}

}  // namespace ombrel
