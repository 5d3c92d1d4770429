// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The order is the design: the new file has its owner and mode and is on the disk; the old file has its second
// name; the new one takes the first. A run that ends in between leaves the old file at its place, and the next one
// goes on.
#include "tools/ombrel-upgrade/placement.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "linux/common/dress_like.h"
#include "linux/common/fd.h"
#include "linux/common/log_layout.h"
#include "linux/common/path_parts.h"
#include "linux/common/sync_folder.h"
#include "linux/common/turnstile.h"

namespace ombrel {

namespace {

constexpr std::chrono::seconds kPatience{10};
constexpr const char* kNoKeeping = "; without --remove-old it has to be kept";

std::string systemError(const std::string& doing) {
    return doing + ": " + std::strerror(errno);
}

bool isSameFile(const std::string& a, const std::string& b) {
    struct stat first {};
    struct stat second {};
    return ::lstat(a.c_str(), &first) == 0 && ::lstat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

std::string dress(const std::string& newPath, const struct stat& like) {
    const Fd file(::open(newPath.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC));
    if (!file || !dressLike(file.get(), like) || ::fsync(file.get()) != 0) {
        return systemError("cannot finish " + newPath);
    }
    return {};
}

// Another file than the one at `path`.
std::string checkKeptName(const std::string& path) {
    const std::string kept = keptNameOf(path);
    struct stat status {};
    if (::lstat(kept.c_str(), &status) != 0) {
        return errno != ENAMETOOLONG ? std::string()
                                     : systemError("cannot keep " + path + " as " + kept) + kNoKeeping;
    }
    if (isSameFile(path, kept)) return {};
    return kept + " is there already; move it away, or run this with --remove-old";
}

std::string keep(const std::string& path) {
    const std::string kept = keptNameOf(path);
    if (::link(path.c_str(), kept.c_str()) == 0) return {};
    if (errno == EEXIST) return checkKeptName(path);
    return systemError("cannot keep " + path + " as " + kept) + kNoKeeping;
}

std::string lockedByOthers(const std::string& path, int code) {
    std::string error = "cannot replace " + path + ": " + sqlite3_errstr(code);
    if ((code & 0xff) == SQLITE_BUSY) error += " (another program has it; run this again)";
    return error;
}

std::string lockOld(OldDatabase& old, Transaction& transaction) {
    Connection& connection = old.connection();
    if (const int code = leaveWal(connection)) return lockedByOthers(old.path(), code);
    if (const int code = transaction.beginExclusive()) return lockedByOthers(old.path(), code);
    // Of a file that may only be read SQLite takes no more than a shared lock, and reports success.
    if (connection.isReadOnly()) return "cannot replace " + old.path() + ": it may only be read";
    if (connection.hasMoved()) return movedMeanwhile(old.path());
    return {};
}

}  // namespace

std::string keptNameOf(const std::string& path) {
    return path + ".v1";
}

std::string checkReplaceable(const std::string& path, bool removeOld) {
    struct stat file {};
    if (::lstat(path.c_str(), &file) != 0) return systemError("cannot replace " + path);
    if (!S_ISREG(file.st_mode)) return "cannot replace " + path + ": it is no regular file";
    if (::access(folderOf(path).c_str(), W_OK | X_OK) != 0) {
        return systemError("cannot replace " + path + ": its folder cannot be written to");
    }
    return removeOld ? std::string() : checkKeptName(path);
}

std::string placeFile(const std::string& path, const std::string& newPath, bool removeOld) {
    if (std::string error = checkReplaceable(path, removeOld); !error.empty()) return error;
    struct stat old {};
    if (::lstat(path.c_str(), &old) != 0) return systemError("cannot replace " + path);
    if (std::string error = dress(newPath, old); !error.empty()) return error;
    if (!removeOld) {
        if (std::string error = keep(path); !error.empty()) return error;
    }
    if (::rename(newPath.c_str(), path.c_str()) != 0) return systemError("cannot replace " + path);
    // It is done, and undoing it on a failing disk is no better.
    (void)syncFolder(folderOf(path));
    (void)syncFolder(folderOf(newPath));
    return {};
}

Placed placeDatabase(OldDatabase& old, long long oldVersion, const std::string& newPath, bool removeOld,
                     std::string& error) {
    Turnstile turnstile;
    if (!turnstile.open(old.path()) || turnstile.hold(kPatience) != TurnstileResult::kEntered) {
        error = "cannot replace " + old.path() + ": its folder is in use; run this again";
        return Placed::kFailed;
    }
    old.rest();
    Transaction transaction(old.connection());
    error = lockOld(old, transaction);
    if (!error.empty()) return Placed::kFailed;
    if (old.version() != oldVersion) {
        error = old.path() + " is being written to; stop whoever does and run this again";
        return Placed::kChanged;
    }
    // Under the lock it is a left-over, and the new file would be taken for the one it belongs to.
    (void)::unlink((old.path() + "-journal").c_str());
    error = placeFile(old.path(), newPath, removeOld);
    return error.empty() ? Placed::kDone : Placed::kFailed;
}

}  // namespace ombrel
