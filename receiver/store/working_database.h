// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// One live log database. It can be moved away at any moment: each transaction finds that out and goes on in a
// fresh file of the same name. One thread at a time.
//
// Order of locks: the turnstile of the folder, then SQLite's lock; nothing is held between two calls.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "linux/common/name_ids.h"
#include "linux/common/sqlite_db.h"
#include "linux/common/turnstile.h"
#include "receiver/message/local_clock.h"
#include "receiver/message/receipt_ids.h"
#include "receiver/store/log_row.h"

namespace ombrel {

struct StoreOutcome {
    bool stored = false;
    size_t rows = 0;      ///< entered now
    size_t repeated = 0;  ///< had been entered before
    std::string error;    ///< why not, on what
    std::string notice;   ///< what the operator must know although the rows were stored
};

/// A transaction whose pages do not fit into the cache costs a sync of its own.
struct PageSizes {
    int cacheKib = 0;
    int pageBytes = 0;  ///< of a file that is begun; a dozen pages are taken from the start
};

class WorkingDatabase {
public:
    /// Opens nothing yet. `schema` is the text of loginfo2.sql and must outlive this object.
    WorkingDatabase(std::string path, const std::string& schema, PageSizes pages = kSharedPages);

    /// Stores the batches in one transaction, synced to the disk when it returns. Rows whose receipt ids are
    /// known are left out. Waits for other users of the file at most `kPatience` each time it meets one.
    /// After a failure nothing of the batches is stored, or it is recognised when it comes again.
    StoreOutcome store(const std::vector<RowBatch>& batches, LocalClock& clock);

    [[nodiscard]] const std::string& path() const noexcept { return path_; }

    static constexpr std::chrono::milliseconds kPatience{2000};
    /// For a full batch, whatever its lines. Four times SQLite's usual page saves an eighth of a row's cost.
    static constexpr PageSizes kSharedPages{24 << 10, 16 << 10};
    /// Where there are thousands and hundreds are open, each with a share of a batch.
    static constexpr PageSizes kHostPages{512, 4 << 10};

private:
    enum class Step { kDone, kMoved, kOldLayout, kUnusable, kFailed };
    struct Totals;
    struct Statements {
        Statement addRow;
        Statement updateInfo;
        Statement setReceipts;
        NameIds hosts;
        NameIds senders;
        NameIds facilities;
        NameIds programs;
    };
    using Known = std::map<std::string, ReceiptIds, std::less<>>;

    Step ensureOpen(StoreOutcome& outcome);
    Step openFile(StoreOutcome& outcome);
    Step checkLayout(StoreOutcome& outcome);
    int prepareStatements();
    int readReceipts(StoreOutcome& outcome);
    Step attempt(const std::vector<RowBatch>& batches, LocalClock& clock, StoreOutcome& outcome);
    int writeBatch(const RowBatch& batch, Known& known, LocalClock& clock, Totals& totals);
    int writeRow(const LogRow& row, LocalClock& clock, Totals& totals);
    int writeInfo(const Totals& totals);
    Step failed(int code, const char* doing, StoreOutcome& outcome);
    bool setAside(Step why, StoreOutcome& outcome);
    void close();

    std::string path_;
    const std::string& schema_;
    PageSizes pages_;
    Turnstile turnstile_;
    Connection connection_;
    std::optional<Statements> statements_;  // behind the connection that they belong to
    Known known_;
    std::string scratch_;
};

}  // namespace ombrel
