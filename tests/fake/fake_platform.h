// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A platform that records every call, keeps the state that the calls ask for, fails on request and counts
// the objects that it has handed out. One object for each test; used by one thread.
//
// Every path of a test ("/volume1/archive/x.DB") is a real file below a temporary root folder of the object,
// so that what the library is told by different calls never contradicts itself. A path that already lies
// below the root is taken as it is. The C library's time, statfs64, stat64, mkstemp, fdopen, fclose, open,
// unlink, syslog, vsyslog and free are wrapped by the linker; without a FakePlatform they are the real ones.
#pragma once

#include <sys/types.h>

#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/vesksyslog.h"
#include "tests/fake/journal.h"
#include "tests/fake/live_objects.h"

namespace ombrel::test {

/// One log database; the file of it holds nothing but its number, so that it may be moved and copied.
struct FakeDatabase {
    int version = 2;
    bool opens = true;  ///< false: connecting fails
    long long start = 0;
    long long end = 0;
    std::optional<long long> count;  ///< what the information record says; without it the number of rows
    std::string startDay = "1970-01-01";
    std::string endDay = "1970-01-01";
    std::map<int, std::map<unsigned long long, std::string>> keys;  ///< by table type
    std::vector<_SYSLOG_LOG_DATA_tag> rows;
    std::vector<std::string> days;  ///< `ldate` of each row of a version-1 database
    std::vector<std::string> indexes;
    std::vector<std::string> changes;  ///< statements of the open transaction

    [[nodiscard]] long long rowCount() const {
        return count.value_or(static_cast<long long>(version == 1 ? days.size() : rows.size()));
    }
};

enum class ShareKind {
    kLocal,
    kImage,
    kRemote,
    kUnknownFileSystem,
    kNotFound,
    kWithoutRecord,  ///< found, yet no record of it is handed out
    kWithoutPath,    ///< found, its record names no path
};

/// What the platform's file copy does with a source that it has copied.
enum class CopyManner {
    kMove,           ///< it is gone
    kCopy,           ///< it stays
    kMoveThenFresh,  ///< it is gone, and a program has begun a new file at the path
};

struct VolumeSpace {
    unsigned long long blockSize = 0;
    unsigned long long blocksAvailable = 0;
};

struct ErrorRecord {
    int code = 0x0900;
    std::string file = "fake_platform.c";
    int line = 17;
};

class FakePlatform {
public:
    FakePlatform();
    ~FakePlatform();
    FakePlatform(const FakePlatform&) = delete;
    FakePlatform& operator=(const FakePlatform&) = delete;

    /// The object of the running test; ends the program when there is none.
    static FakePlatform& current();
    /// The same, null when there is none.
    static FakePlatform* currentOrNull();

    // What the test looks at.
    Journal calls;
    LiveObjects live;
    std::vector<std::string> syslogLines;  ///< priority name, blank, text: "err logarchiver:80 Failed to ..."
    std::vector<std::string> messages;     ///< level, blank, text: "0 Fail to load configuration"
    std::vector<std::string> events;       ///< "finished PATH", "failed PATH", "started TEXT", "stopped TEXT"
    /// What is left of the objects handed out, open descriptors included.
    [[nodiscard]] std::vector<std::string> leaks() const;

    // Failures.
    void failCall(const std::string& name, int nth = 1, int errorNumber = EIO) {
        calls.failCall(name, nth, errorNumber);
    }
    void failEveryCall(const std::string& name, int errorNumber = EIO) { calls.failEveryCall(name, errorNumber); }
    /// A failing call hands out its object all the same.
    bool failuresHandOutObjects = false;

    // Files.
    [[nodiscard]] const std::string& root() const { return root_; }
    [[nodiscard]] std::string real(const std::string& path) const;
    void addFile(const std::string& path, const std::string& text = "");
    void addFolder(const std::string& path);
    void addSparseFile(const std::string& path, long long bytes);
    void removeFile(const std::string& path);
    [[nodiscard]] bool exists(const std::string& path) const;
    [[nodiscard]] std::optional<std::string> read(const std::string& path) const;
    /// The paths of all files below `folder`, sorted, as the test names them.
    [[nodiscard]] std::vector<std::string> filesBelow(const std::string& folder) const;
    std::map<std::string, int> existAnswers;         ///< what VLIBCFileExist answers for a path
    std::map<std::string, long long> reportedSizes;  ///< what stat64 says of a path that exists
    std::map<std::string, VolumeSpace> space;  ///< what statfs64 says; otherwise plenty where the path exists
    CopyManner copyManner = CopyManner::kMove;
    bool scratchIsFull = false;  ///< nothing can be written to the temporary file

    // Databases.
    FakeDatabase& addDatabase(const std::string& path, FakeDatabase database = {});
    [[nodiscard]] FakeDatabase* database(const std::string& path);
    /// Rows of statements that are not among those the fake knows.
    std::map<std::string, std::vector<std::map<std::string, std::string>>> sqlRows;
    int firstRow = 0;  ///< the index of the first row of each result

    // Shares.
    void addShare(const std::string& name, ShareKind kind = ShareKind::kLocal);
    struct ShareEntry {
        std::string name;
        std::string path;
        ShareKind kind;
    };
    std::vector<ShareEntry> shares;
    int yes = 1;  ///< the answer "it is" of the questions about file systems; any value but 0

    // Services.
    std::map<std::string, int> jobs;       ///< answer of "is it running"; a start makes it 1, a stop 0
    std::map<std::string, bool> services;  ///< system services
    std::vector<std::string> conflicts;    ///< "PORT/PROTOCOL" that other services have declared
    int noConflict = 0;                    ///< the answer "it is free"; any value but 1 that is not negative
    int firewallReloads = 0;

    // Processes.
    int forkResult = 4711;           ///< 0: the caller is the child
    std::optional<int> execReturns;  ///< what VLIBCExecv returns; without it the "new program" ends with 42
    static constexpr int kExecutedExitCode = 42;

    long long now = 1'700'000'000;  ///< what time() says
    ErrorRecord error;

private:
    std::string root_;
    int descriptorsAtStart_ = 0;
    std::vector<std::unique_ptr<FakeDatabase>> databases_;
    int temporaryFiles_ = 0;

public:
    /// The next "XXXXXX" of a temporary file.
    std::string nextTemporarySuffix();
};

}  // namespace ombrel::test
