// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/zip_databases.h"

#include <strings.h>

#include <algorithm>
#include <string_view>

#include "linux/common/log_layout.h"
#include "linux/common/sqlite_db.h"
#include "linux/common/text_escape.h"
#include "tools/ombrel-upgrade/upgrade_zip.h"

namespace ombrel {

namespace {

// The tables of a log database are described on its first page; more is for those with tables of their own.
constexpr zip_uint64_t kHeadBytes = 1U << 20;

// The head of an SQLite file, by offset; numbers are big-endian.
constexpr std::string_view kMagic("SQLite format 3\0", 16);
constexpr std::size_t kPageSizeAt = 16;
constexpr std::size_t kWriteVersionAt = 18;
constexpr std::size_t kReadVersionAt = 19;
constexpr std::size_t kChangesAt = 24;
constexpr std::size_t kPagesAt = 28;
constexpr std::size_t kPagesValidForAt = 92;
constexpr std::size_t kSqliteHeadBytes = 100;
constexpr char kRollbackJournal = 1;

zip_uint64_t number(const std::string& bytes, std::size_t at, std::size_t count) {
    zip_uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i)
        value = value << 8U | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

void setNumber(std::string& bytes, std::size_t at, zip_uint64_t value) {
    for (std::size_t i = 4; i-- > 0; value >>= 8U)
        bytes[at + i] = static_cast<char>(value & 0xFFU);
}

/// Makes a database of its own of the first bytes of one of `size` bytes. False when they are none.
bool makeWhole(std::string& head, zip_uint64_t size) {
    if (head.size() < kSqliteHeadBytes || !head.starts_with(kMagic)) return false;
    const zip_uint64_t stated = number(head, kPageSizeAt, 2);
    const zip_uint64_t pageSize = stated == 1 ? 65536 : stated;
    if (pageSize < 512 || (pageSize & (pageSize - 1)) != 0 || head.size() < pageSize) return false;
    const zip_uint64_t changes = number(head, kChangesAt, 4);
    const bool isPagesValid = changes == number(head, kPagesValidForAt, 4);
    if (isPagesValid && number(head, kPagesAt, 4) > size / pageSize) return false;  // cut off
    const zip_uint64_t pages = head.size() / pageSize;
    head.resize(pages * pageSize);
    setNumber(head, kPagesAt, pages);
    setNumber(head, kPagesValidForAt, changes);
    // A database in WAL mode cannot be opened in memory.
    head[kWriteVersionAt] = kRollbackJournal;
    head[kReadVersionAt] = kRollbackJournal;
    return true;
}

bool isOldDatabase(std::string head, zip_uint64_t size) {
    if (!makeWhole(head, size)) return false;
    Connection connection;
    LogLayout layout = LogLayout::kNone;
    return connection.openBytes(head) == 0 && readLogLayout(connection, layout) == 0 &&
           layout == LogLayout::kVersion1;
}

/// The first bytes of an entry. False: `error` says why.
bool readHead(const ZipFile& zip, const ZipEntry& entry, std::string& head, std::string& error) {
    const ZipStream stream = zip.read(entry, 0, error);
    if (!stream) return false;
    head.resize(std::min(entry.size, kHeadBytes));
    std::size_t have = 0;
    while (have < head.size()) {
        const zip_int64_t count = zip_fread(stream.get(), head.data() + have, head.size() - have);
        if (count <= 0) {
            const char* why = count < 0 ? zip_file_strerror(stream.get()) : "it is shorter than it should be";
            error = zip.wrong("read", entry, why, kTestZip);
            return false;
        }
        have += static_cast<std::size_t>(count);
    }
    return true;
}

bool isNamedAsDatabase(const ZipEntry& entry) {
    constexpr std::size_t kExtension = 3;
    return entry.name.size() >= kExtension &&
           ::strcasecmp(entry.name.c_str() + entry.name.size() - kExtension, ".DB") == 0;
}

/// Why nobody can look into the entry; null when it can be read.
const char* closedBy(const ZipEntry& entry) {
    if (entry.encryption != ZIP_EM_NONE) return "it is encrypted";
    if (zip_compression_method_supported(entry.method, 0) == 0) return "it is packed by an unknown method";
    return nullptr;
}

}  // namespace

ZipDatabases findOldDatabases(const ZipFile& zip) {
    ZipDatabases found;
    std::string head;
    for (const ZipEntry& entry : zip.entries()) {
        if (!isNamedAsDatabase(entry) || entry.size < kSqliteHeadBytes) continue;
        if (const char* why = closedBy(entry)) {
            if (!found.notice.empty()) continue;  // one is enough to have a look at the file
            found.notice = zip.wrong("look into", entry, why,
                                     "unpack it by hand and run ombrel-upgrade on it if it is of the old layout");
            continue;
        }
        if (!readHead(zip, entry, head, found.error)) return found;
        if (isOldDatabase(head, entry.size)) found.old.push_back(entry);
    }
    return found;
}

ZipContents oldDatabasesInZip(const std::string& path) {
    ZipContents contents;
    ZipFile zip;
    contents.error = zip.open(path);
    if (!contents.error.empty()) return contents;
    const ZipDatabases found = findOldDatabases(zip);
    contents.error = found.error;
    contents.notice = found.notice;
    contents.oldDatabases = static_cast<int>(found.old.size());
    for (const ZipEntry& entry : found.old)
        contents.bytes += entry.size;
    return contents;
}

}  // namespace ombrel
