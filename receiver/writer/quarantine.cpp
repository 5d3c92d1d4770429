// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/writer/quarantine.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <utility>

#include "linux/common/fd.h"
#include "linux/common/write_all.h"

namespace ombrel {

Quarantine::Quarantine(std::string folder, long long mostBytes)
    : path_(std::move(folder) + "/unreadable-batches"), mostBytes_(mostBytes) {
}

bool Quarantine::keep(std::string_view receiver, std::string_view body, std::string_view reason) {
    struct stat status {};
    if (::stat(path_.c_str(), &status) == 0 && status.st_size > mostBytes_) {
        if (::rename(path_.c_str(), (path_ + ".old").c_str()) != 0) return false;
    }
    const Fd file(::open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file || ::fstat(file.get(), &status) != 0) return false;
    std::string head = "== " + std::to_string(::time(nullptr)) + " " + std::string(receiver) + " " +
                       std::to_string(body.size()) + " bytes: " + std::string(reason) + "\n";
    if (writeAll(file.get(), head) && writeAll(file.get(), body) && writeAll(file.get(), "\n") &&
        ::fsync(file.get()) == 0) {
        return true;
    }
    const int error = errno;
    (void)!::ftruncate(file.get(), status.st_size);  // the body comes again; half of it is of no use
    errno = error;
    return false;
}

}  // namespace ombrel
