// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The file is text: a head line, a line "receiver ids" for each receiver with both in hexadecimal digits,
// and an end line with their number. It is replaced by rename, so the end line only guards against a disk
// that lost the tail.
#include "linux/common/receipts.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <cerrno>
#include <new>
#include <optional>
#include <sstream>

#include "linux/common/fd.h"
#include "linux/common/path_parts.h"
#include "linux/common/sync_folder.h"
#include "linux/common/write_all.h"

namespace ombrel {

namespace {

constexpr std::string_view kHead = "ombrel-receipts 1";

std::string toHex(std::string_view bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        text += kDigits[value >> 4];
        text += kDigits[value & 15];
    }
    return text;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

std::optional<std::string> fromHex(std::string_view text) {
    if (text.size() % 2 != 0) return std::nullopt;
    std::string bytes;
    bytes.reserve(text.size() / 2);
    for (size_t i = 0; i < text.size(); i += 2) {
        const int high = hexDigit(text[i]);
        const int low = hexDigit(text[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        bytes += static_cast<char>(high * 16 + low);
    }
    return bytes;
}

std::string render(const Receipts& receipts) {
    std::string text(kHead);
    text += '\n';
    for (const auto& [receiver, ids] : receipts)
        text += toHex(receiver) + ' ' + toHex(ids) + '\n';
    return text + "end " + std::to_string(receipts.size()) + '\n';
}

std::optional<Receipts> parse(const std::string& text) {
    std::istringstream lines(text);
    std::string line;
    if (!std::getline(lines, line) || line != kHead) return std::nullopt;
    Receipts receipts;
    while (std::getline(lines, line)) {
        if (line == "end " + std::to_string(receipts.size())) return receipts;
        const size_t blank = line.find(' ');
        if (blank == std::string::npos) return std::nullopt;
        const auto receiver = fromHex(std::string_view(line).substr(0, blank));
        const auto ids = fromHex(std::string_view(line).substr(blank + 1));
        if (!receiver || !ids) return std::nullopt;
        receipts[*receiver] = *ids;
    }
    return std::nullopt;
}

bool readAll(int fd, std::string& text) {
    char buffer[64 * 1024];
    for (;;) {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got == 0) return true;
        if (got > 0) {
            text.append(buffer, static_cast<size_t>(got));
        } else if (errno != EINTR) {
            return false;
        }
    }
}

bool replaceFile(const std::string& path, const std::string& temporary, const std::string& text) {
    Fd file(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file || !writeAll(file.get(), text) || ::fsync(file.get()) != 0) return false;
    return ::rename(temporary.c_str(), path.c_str()) == 0 && syncFolder(folderOf(path));
}

}  // namespace

std::string receiptsPathOf(const std::string& databasePath) {
    return databasePath + "-receipts";
}

int loadReceipts(const Connection& connection, Receipts& receipts) noexcept try {
    receipts.clear();
    Statement tables;
    if (const int code =
            tables.prepare(connection, "SELECT 1 FROM sqlite_schema WHERE type='table' AND name='receipts'")) {
        return code;
    }
    if (const int code = tables.step(); code != Statement::kRow) {
        return code == Statement::kDone ? SQLITE_OK : code;
    }
    Statement rows;
    if (const int code = rows.prepare(connection, "SELECT receiver, ids FROM receipts")) return code;
    int code = rows.step();
    for (; code == Statement::kRow; code = rows.step()) {
        receipts[std::string(rows.columnText(0))] = std::string(rows.columnBlob(1));
    }
    return code == Statement::kDone ? SQLITE_OK : code;
} catch (const std::bad_alloc&) {
    return SQLITE_NOMEM;
}

bool loadReceiptsFile(const std::string& path, Receipts& receipts) noexcept try {
    receipts.clear();
    const Fd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) return errno == ENOENT;
    std::string text;
    if (!readAll(file.get(), text)) return false;
    auto parsed = parse(text);
    if (!parsed) {
        errno = EBADMSG;
        return false;
    }
    receipts = std::move(*parsed);
    return true;
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return false;
}

bool saveReceiptsFile(const std::string& path, const Receipts& receipts) noexcept try {
    const std::string temporary = path + ".new";
    if (replaceFile(path, temporary, render(receipts))) return true;
    const int error = errno;
    (void)::unlink(temporary.c_str());  // not there when it could not be made
    errno = error;
    return false;
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return false;
}

}  // namespace ombrel
