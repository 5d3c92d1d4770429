// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The text export: one line a row, built in the scratch folder and moved into place when it is whole.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <map>
#include <string>

#include "ombrel/postprocessor.h"
#include "platform/veskcore.h"
#include "platform/vesksyslog.h"

namespace {

constexpr long long kRowsPerCall = 10000;
constexpr std::size_t kPathBuffer = 4096;
constexpr std::size_t kTemplateLimit = 4095;
constexpr std::size_t kLineBuffer = 1 << 17;  // a line of the usual length leaves in one write

using KeyMap = std::map<unsigned long long, std::string>;

enum ExtMode : int {
    kResolveIds = 1,
    kIdsAsStored = 2,
};

struct TXT_ROW_CTX {
    FILE* fp = nullptr;
    KeyMap extMap0;
    KeyMap extMap1;
    KeyMap extMap3;
    int extMode = kResolveIds;
};

/// The text of an id; an id that the table lacks is entered there with an empty text.
const char* keyText(KeyMap& map, const std::string& id, int extMode) {
    if (extMode != kResolveIds) return id.c_str();
    return map[std::strtoull(id.c_str(), nullptr, 10)].c_str();
}

void putColumn(const char* text, FILE* fp) {
    (void)fputs_unlocked(text, fp);  // a failed write shows at the flush
    (void)putc_unlocked('\t', fp);
}

int TXTRowWrite(_SYSLOG_LOG_DATA_tag& row, void* ctx) {
    auto& context = *static_cast<TXT_ROW_CTX*>(ctx);
    FILE* const fp = context.fp;
    if (fp == nullptr) return -1;
    putColumn(row.date.c_str(), fp);
    putColumn(row.time.c_str(), fp);
    putColumn(PriorTypeToStr(row.priority).c_str(), fp);
    putColumn(keyText(context.extMap0, row.hostId, context.extMode), fp);
    putColumn(keyText(context.extMap3, row.facilityId, context.extMode), fp);
    putColumn(keyText(context.extMap1, row.programId, context.extMode), fp);
    (void)fputs_unlocked(row.message.c_str(), fp);
    (void)fputs_unlocked("\r\n", fp);
    // A line that did not reach the file ends the export: a text with holes must not pass for the archive.
    return fflush_unlocked(fp) == 0 && ferror_unlocked(fp) == 0 ? 0 : -1;
}

/// Writes all rows that the database holds now.
int writeRows(std::string& db, FILE* fp) {
    TXT_ROW_CTX context;
    context.fp = fp;
    const int missing = static_cast<int>(SyslogDBExtkeyMapGet(db, SYSLOG_EXTKEY_HOST, context.extMap0) != 0) +
                        static_cast<int>(SyslogDBExtkeyMapGet(db, SYSLOG_EXTKEY_PROGRAM, context.extMap1) != 0) +
                        static_cast<int>(SyslogDBExtkeyMapGet(db, SYSLOG_EXTKEY_FACILITY, context.extMap3) != 0);
    if (missing != 0) context.extMode = kIdsAsStored;

    std::list<_SYSLOG_SQL_COND_tag> allRows;
    const int count = SyslogDBSelectCount(db, allRows, nullptr, nullptr);
    if (count < 0) return -1;
    for (long long offset = 0; offset < count; offset += kRowsPerCall) {
        _SYSLOG_SQL_LIMIT_tag limit{kRowsPerCall, offset};
        _SYSLOG_SQL_ORDER_tag order{0, 7};
        if (SyslogDBSelect(db, allRows, &limit, &order, TXTRowWrite, &context, false) < 0) {
            Debuger::MSG(0, "Fail to select database");
            return -1;
        }
    }
    return 0;
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
        (void)setvbuf(fp, nullptr, _IOFBF, kLineBuffer);  // without it a long line leaves in several writes
        result = exportTo(fp, db, temporary, out);
        (void)fclose(fp);  // every line has been flushed
    }
    if (fd > 0) (void)close(fd);  // the only close where no stream took the descriptor over
    return result;
}
