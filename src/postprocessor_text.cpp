// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The text export: one line a row, built in the scratch folder and moved into place when it is whole.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <map>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "ombrel/postprocessor.h"
#include "platform/veskcore.h"
#include "platform/vesksyslog.h"

namespace {

constexpr long long kRowsPerCall = 10000;
constexpr std::size_t kPathBuffer = 4096;
constexpr std::size_t kTemplateLimit = 4095;

using KeyMap = std::map<unsigned long long, std::string>;

enum ExtMode : int {
    kResolveIds = 1,
    kIdsAsStored = 2,
};

/// The low ids of a map, which are nearly all, without the way through its tree.
class KeyIndex {
public:
    void build(const KeyMap& map) {
        for (const auto& [id, text] : map) {
            if (id >= kMostIds) break;
            texts_.resize(id + 1, nullptr);
            texts_[id] = &text;
        }
    }
    /// Null for an id that is not here, or not written as plain digits.
    [[nodiscard]] const std::string* find(const std::string& id) const noexcept {
        std::size_t number = 0;
        if (id.empty() || id.size() > kMostDigits) return nullptr;
        for (const char c : id) {
            if (c < '0' || c > '9') return nullptr;
            number = number * 10 + static_cast<std::size_t>(c - '0');
        }
        return number < texts_.size() ? texts_[number] : nullptr;
    }

private:
    static constexpr unsigned long long kMostIds = 100'000;
    static constexpr std::size_t kMostDigits = 5;

    std::vector<const std::string*> texts_;
};

struct TXT_ROW_CTX {
    FILE* fp = nullptr;
    KeyMap extMap0;
    KeyMap extMap1;
    KeyMap extMap3;
    int extMode = kResolveIds;
    std::array<std::string, 9> severities;  // the names as they are first met; the last is for any other number
    KeyIndex index0;
    KeyIndex index1;
    KeyIndex index3;
    std::string line;  // the one that is being put together; keeps its memory
};

/// The text of an id; an id that the table lacks is entered there with an empty text.
const std::string& keyText(KeyMap& map, const KeyIndex& index, const std::string& id, int extMode) {
    if (extMode != kResolveIds) return id;
    if (const std::string* const text = index.find(id)) return *text;
    return map[std::strtoull(id.c_str(), nullptr, 10)];
}

const std::string& severityText(TXT_ROW_CTX& context, _SYSLOG_DB_PRIORITY_tag severity) {
    constexpr std::size_t kOther = 8;
    const std::size_t index = severity >= 0 && severity < 8 ? static_cast<std::size_t>(severity) : kOther;
    std::string& text = context.severities[index];
    if (text.empty() || index == kOther) text = PriorTypeToStr(severity);
    return text;
}

using Columns = std::array<std::string_view, 7>;

/// The columns with tabs between them and a line break at the end, in `buffer`, which only ever grows.
std::string_view lineOf(const Columns& columns, std::string& buffer) {
    std::size_t size = 1;
    for (const std::string_view column : columns)
        size += column.size() + 1;
    if (buffer.size() < size) buffer.resize(size);
    char* end = buffer.data();
    for (const std::string_view column : columns) {
        end = std::copy(column.begin(), column.end(), end);
        *end++ = '\t';
    }
    end[-1] = '\r';
    *end = '\n';
    return {buffer.data(), size};
}

bool writeAll(int fd, std::string_view bytes) noexcept {
    while (!bytes.empty()) {
        const ssize_t put = write(fd, bytes.data(), bytes.size());
        if (put < 0 && errno != EINTR) return false;
        if (put > 0) bytes.remove_prefix(static_cast<std::size_t>(put));
    }
    return true;
}

// A line is in the file when the call returns: it goes there at once, past the stream, whose buffer would cost
// a second copy and several calls for each row.
int TXTRowWrite(_SYSLOG_LOG_DATA_tag& row, void* ctx) try {
    auto& context = *static_cast<TXT_ROW_CTX*>(ctx);
    if (context.fp == nullptr) return -1;
    Columns columns = {row.date,
                       row.time,
                       severityText(context, row.priority),
                       keyText(context.extMap0, context.index0, row.hostId, context.extMode),
                       keyText(context.extMap3, context.index3, row.facilityId, context.extMode),
                       keyText(context.extMap1, context.index1, row.programId, context.extMode),
                       row.message};
    std::string_view line = lineOf(columns, context.line);
    if (line.find('\0') != std::string_view::npos) {
        for (std::string_view& column : columns)
            column = column.substr(0, column.find('\0'));
        line = lineOf(columns, context.line);
    }
    // A line that did not reach the file ends the export: a text with holes must not pass for the archive.
    return writeAll(fileno(context.fp), line) ? 0 : -1;
} catch (const std::bad_alloc&) {
    return -1;
}

// Room on the disk for the rows of the next call: writes into room that is there already are cheaper. Where
// none can be had, and beyond it, the writes find their own. No more than that, since a disk that is nearly
// full is needed for the messages that come in meanwhile.
class ReservedRoom {
public:
    explicit ReservedRoom(int fd) : fd_(fd) {}
    // A change of length, even to the same, gives back what lies beyond the end.
    ~ReservedRoom() { (void)ftruncate64(fd_, end()); }  // a failure leaves room unused, and the text whole
    ReservedRoom(const ReservedRoom&) = delete;
    ReservedRoom& operator=(const ReservedRoom&) = delete;

    void reserve(long long rows) const noexcept {
        (void)fallocate64(fd_, FALLOC_FL_KEEP_SIZE, end(), rows * kUsualLine);
    }

private:
    static constexpr long long kUsualLine = 256;  // bytes

    [[nodiscard]] off64_t end() const noexcept { return lseek64(fd_, 0, SEEK_CUR); }

    int fd_;
};

int writePages(std::string& db, int count, TXT_ROW_CTX& context) {
    const ReservedRoom room(fileno(context.fp));
    std::list<_SYSLOG_SQL_COND_tag> allRows;
    for (long long offset = 0; offset < count; offset += kRowsPerCall) {
        _SYSLOG_SQL_LIMIT_tag limit{kRowsPerCall, offset};
        _SYSLOG_SQL_ORDER_tag order{0, 7};
        room.reserve(std::min(kRowsPerCall, count - offset));
        if (SyslogDBSelect(db, allRows, &limit, &order, TXTRowWrite, &context, false) < 0) {
            Debuger::MSG(0, "Fail to select database");
            return -1;
        }
    }
    return 0;
}

/// Writes all rows that the database holds now.
int writeRows(std::string& db, FILE* fp) {
    TXT_ROW_CTX context;
    context.fp = fp;
    const int missing = static_cast<int>(SyslogDBExtkeyMapGet(db, SYSLOG_EXTKEY_HOST, context.extMap0) != 0) +
                        static_cast<int>(SyslogDBExtkeyMapGet(db, SYSLOG_EXTKEY_PROGRAM, context.extMap1) != 0) +
                        static_cast<int>(SyslogDBExtkeyMapGet(db, SYSLOG_EXTKEY_FACILITY, context.extMap3) != 0);
    if (missing != 0) context.extMode = kIdsAsStored;
    context.index0.build(context.extMap0);
    context.index1.build(context.extMap1);
    context.index3.build(context.extMap3);

    std::list<_SYSLOG_SQL_COND_tag> allRows;
    const int count = SyslogDBSelectCount(db, allRows, nullptr, nullptr);
    if (count < 0) return -1;
    return writePages(db, count, context);
}

int moveIntoPlace(const char* temporary, const std::string& out) {
    if (VLIBCExec("/bin/mv", temporary, out.c_str(), nullptr, nullptr) >= 0) return 0;
    const std::string reason = strerror(errno);
    Debuger::MSG(0, std::string("Fail to rename txt file: ") + temporary + " -> " + out + " " + reason);
    return -1;
}

int exportTo(FILE* fp, std::string& db, const char* temporary, const std::string& out) {
    if (VLIBCFileExist(db.c_str()) != 0 && writeRows(db, fp) < 0) return -1;
    return moveIntoPlace(temporary, out);
}

}  // namespace

int PostProcessor::DB2TXT(std::string db, std::string out) {
    const std::string folder = TranTempDirGet(db);
    if (folder.empty()) return -1;
    char temporary[kPathBuffer];
    (void)snprintf(temporary, kTemplateLimit, "%s%s", folder.c_str(), "syslogtranstmp-XXXXXX");
    const int fd = mkstemp(temporary);
    if (fd < 0) {
        Debuger::MSG(0, std::string("Fail to mkstemp ") + strerror(errno));
        return -1;
    }
    int result = -1;
    FILE* fp = fdopen(fd, "w");
    if (fp == nullptr) {
        Debuger::MSG(0, std::string("Fail to fdopen ") + strerror(errno));
    } else {
        result = exportTo(fp, db, temporary, out);
        (void)fclose(fp);  // every line is in the file already
    }
    if (fd > 0) (void)close(fd);  // the only close where no stream took the descriptor over
    return result;
}
