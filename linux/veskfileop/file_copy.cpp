// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <new>
#include <string>

#include "linux/common/error_record.h"
#include "linux/common/turnstile.h"
#include "linux/veskfileop/database_move.h"
#include "linux/veskfileop/file_place.h"
#include "platform/veskfileop.h"

namespace {

using ombrel::fail;
using ombrel::fromErrno;
using ombrel::TurnstileResult;

int failWith(int error) {
    errno = error;
    return fail(fromErrno(error));
}

// A symbolic link is refused too: the writer would go on under the name that the link leads to.
int checkSource(const char* from, struct stat& info) {
    if (::lstat(from, &info) != 0) return failWith(errno);
    if (S_ISREG(info.st_mode)) return 0;
    return failWith(S_ISDIR(info.st_mode) ? EISDIR : EINVAL);
}

int checkFree(const char* to) {
    struct stat info {};
    if (::lstat(to, &info) == 0) return failWith(EEXIST);
    return errno == ENOENT ? 0 : failWith(errno);
}

int moveFile(const std::string& from, const std::string& to, const struct stat& info) {
    const auto deadline = std::chrono::steady_clock::now() + ombrel::kMoveTimeout;
    ombrel::Turnstile turnstile;
    if (!turnstile.open(from)) return failWith(errno);
    if (turnstile.hold(ombrel::kMoveTimeout) != TurnstileResult::kEntered) return fail(ombrel::kErrorTimeout);
    const ombrel::DatabaseMove move = ombrel::moveDatabase(from, to, deadline);
    if (move.result == ombrel::MoveResult::kMoved) return 0;
    if (move.result == ombrel::MoveResult::kFailed) return fail(move.code);
    const int code = ombrel::movePlainFile(from, to, info);
    return ombrel::resultOf(code);
}

}  // namespace

extern "C" int VESKFileCopy(const char* from, const char* to, const VESK_COPY_OPTIONS* /*options*/) try {
    if (from == nullptr || to == nullptr || *from == '\0' || *to == '\0') {
        return fail(ombrel::kErrorInvalidArgument);
    }
    struct stat info {};
    if (const int result = checkSource(from, info)) return result;
    if (const int result = checkFree(to)) return result;
    return moveFile(from, to, info);
} catch (const std::bad_alloc&) {
    return fail(ombrel::kErrorOutOfMemory);
}
