// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Decides when the working log databases are archived and archives them.
// An archiver is a snapshot of the settings at the moment it was made, used by one thread.
// Archiving the same database twice at the same moment is not guarded against.
#pragma once

#include <list>
#include <string>

#include "ombrel/export.h"
#include "ombrel/utils.h"

/// One working log database: a live file that the receiver is writing into.
struct _SYSLOG_WORKING_DB_tag {
    std::string strDevice;  ///< "local", "_ARCH" (all senders) or the name of a sending host's folder
    std::string strDBName;  ///< file name
    std::string strDBPath;  ///< full path
};

/// Whether both records name the same path, byte for byte.
OMBREL_EXPORT bool SameDevice(_SYSLOG_WORKING_DB_tag a, _SYSLOG_WORKING_DB_tag b);

class OMBREL_EXPORT LogArchiver {
public:
    /// Loads the settings file of the package. A failure is reported to the debug sink; all rules are then off.
    LogArchiver();
    ~LogArchiver();

    /// Loads a settings file. 0, or -1 with all members as they were.
    int ConfigLoad(const std::string& path);

    // Questions to one database file, by its full path. They read no member, open the file by themselves and
    // leave it as it is; failures are reported to the debug sink, but for a missing file (of which only the
    // size is).

    /// File size in whole MiB (2^20 bytes, fraction dropped); -1 on failure.
    int DBSizeGet(const std::string& path);
    /// Time of the first and the last row, seconds since the epoch; the current time when there is no such
    /// file, 0 when it cannot be opened.
    long long DBStartTimeGet(const std::string& path);
    long long DBEndTimeGet(const std::string& path);
    /// Number of rows; -1 when there is no such file or it cannot be opened.
    long long DBCountGet(const std::string& path);

    /// The working databases that exist now: the local one first, then the shared one or, when filed by
    /// device, those of the hosts. After a failure (logged) what was found so far.
    std::list<_SYSLOG_WORKING_DB_tag> CurrentWorkingDBGet();
    /// The free path at which `db` is to be archived, named by its first and last day; makes the folder.
    /// Empty on failure.
    std::string ArchDestGet(_SYSLOG_WORKING_DB_tag& db);
    /// The working databases that break the count, age or size rule (tried in this order). Archives nothing.
    std::list<_SYSLOG_WORKING_DB_tag> ArchiveCheck();

    /// Archives one database: moves it with its companion files, restarts the log writer, starts the
    /// post-processing in a process of its own and enters the result in the event log. Waits for the log writer,
    /// not for the post-processing. `flag` has no effect.
    /// @return 0, also when there is no such file any more, or -1; what was done before a failure is not undone
    int DoArchive(_SYSLOG_WORKING_DB_tag& db, bool flag);
    /// Archives each database of the list that has rows, one after the other, also behind one that failed.
    /// 0, or -1 when at least one failed.
    int DoArchive(std::list<_SYSLOG_WORKING_DB_tag>& list, bool flag);
    /// Archives every working database that has rows, whatever the rules say. 0 or -1.
    int ArchiveAll();

    int ArchCount{};     ///< due with more rows than this; 0 off
    int ArchInterval{};  ///< due when the first row is older than this, seconds; 0 off
    int ArchSize{};      ///< due when the file is larger than this, MiB; 0 off
    _SYSLOG_ARCH_FMT_tag ArchFmt{};
    int Compress{};            ///< 0/1
    int ByDevice{};            ///< 0/1: one folder for each sending host
    std::string strArchDest;   ///< archive folder
    long long LastArchTime{};  ///< of the last archiving, seconds since the epoch; the time of loading when never
};
