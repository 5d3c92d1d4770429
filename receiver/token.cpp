// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/token.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "linux/common/fd.h"

namespace ombrel {

namespace {

constexpr size_t kTokenDigits = 64;
constexpr const char* kHexDigits = "0123456789abcdef";

std::optional<std::string> readToken(const std::string& path) {
    const Fd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!file) return std::nullopt;
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) return std::nullopt;
    if (!S_ISREG(status.st_mode) || (status.st_mode & 0077) != 0) {
        errno = EPERM;
        return std::nullopt;
    }
    std::array<char, kTokenDigits + 2> buffer{};
    const ssize_t got = ::read(file.get(), buffer.data(), buffer.size());
    if (got < 0) return std::nullopt;
    std::string token(buffer.data(), static_cast<size_t>(got));
    if (!token.empty() && token.back() == '\n') token.pop_back();
    if (token.size() != kTokenDigits || token.find_first_not_of(kHexDigits) != std::string::npos) {
        errno = EBADMSG;
        return std::nullopt;
    }
    return token;
}

std::optional<std::string> randomToken() {
    std::array<unsigned char, kTokenDigits / 2> bytes{};
    if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) return std::nullopt;
    std::string token;
    for (const unsigned char byte : bytes) {
        token += kHexDigits[byte >> 4];
        token += kHexDigits[byte & 15];
    }
    return token;
}

// Whole under its final name or not at all, and the first one wins: link() does not replace.
bool makeToken(const std::string& path) {
    const auto token = randomToken();
    if (!token) return false;
    std::string temporary = path + ".XXXXXX";
    const Fd file(::mkostemp(temporary.data(), O_CLOEXEC));  // mode 0600
    if (!file) return false;
    const std::string line = *token + "\n";
    bool made = ::write(file.get(), line.data(), line.size()) == static_cast<ssize_t>(line.size()) &&
                ::fsync(file.get()) == 0;
    if (made) made = ::link(temporary.c_str(), path.c_str()) == 0 || errno == EEXIST;
    const int error = errno;
    (void)::unlink(temporary.c_str());  // a file that is left over holds no token that counts
    errno = error;
    return made;
}

}  // namespace

std::optional<std::string> readOrMakeToken(const std::string& folder) {
    const std::string path = folder + "/token";
    auto token = readToken(path);
    if (!token && errno == ENOENT && makeToken(path)) token = readToken(path);
    return token;
}

std::string tokenTrouble(const std::string& folder) {
    const int error = errno;
    const std::string path = folder + "/token";
    if (error == EBADMSG) return path + " holds no token; remove it and restart all jobs";
    if (error == EPERM) return "others than the owner may use " + path + "; remove it and restart all jobs";
    return "cannot read or make " + path + ": " + std::strerror(error);
}

bool sameToken(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) return false;
    unsigned difference = 0;
    for (size_t i = 0; i < a.size(); ++i)
        difference |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]);
    return difference == 0;
}

}  // namespace ombrel
