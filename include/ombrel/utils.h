// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Settings of the receiver, the storage and the archiving; service jobs; ports; the storage place.
// No function keeps state or takes a lock: callers that change the same settings take turns.
// Results are 0 for success and negative for failure unless said otherwise; nothing throws.
#pragma once

#include <string>

#include "ombrel/export.h"

struct VLIBSZHASH;
struct VLIBSZLIST;

/// The format that archives are turned into; any other value is legal and means none of these.
enum _SYSLOG_ARCH_FMT_tag : unsigned int {
    SYSLOG_ARCH_FMT_DB = 0,
    SYSLOG_ARCH_FMT_XML = 1,
    SYSLOG_ARCH_FMT_TXT = 2,
};

/// Transport of a receiver; any value but UDP means TCP.
enum SYSLOG_TRANSMISSION_MODE : int {
    SYSLOG_TRANSMISSION_TCP = 0,
    SYSLOG_TRANSMISSION_UDP = 1,
};

/// What `SyslogUpstartJobEnable` does with a job.
enum __SYSLOG_SERVICE_ENABLE_CMD_tag : int {
    SYSLOG_SERVICE_START = 0,
    SYSLOG_SERVICE_STOP = 1,
    SYSLOG_SERVICE_RESTART = 2,
    SYSLOG_SERVICE_RELOAD = 3,
};

/// The settings record. Each field but the three job states is kept in the settings file under its own name;
/// the job states are whether the job is running.
struct _SYSLOG_CONF_SETTINGS_tag {
    int bsd_enable{};            ///< receiver of RFC 3164 messages is running
    int server_ssl{};            ///< 0/1: TLS on the RFC 3164 receiver
    int server_port{};           ///< port of the RFC 3164 receiver
    int server_trans{};          ///< its transport, SYSLOG_TRANSMISSION_MODE
    int ietf_enable{};           ///< receiver of RFC 5424 messages is running
    int server_ietf_ssl{};       ///< 0/1: TLS on the RFC 5424 receiver
    int server_ietf_port{};      ///< port of the RFC 5424 receiver
    int server_ietf_trans{};     ///< its transport, SYSLOG_TRANSMISSION_MODE
    std::string server_db_loc;   ///< name of the share that holds the live log database
    std::string server_db_path;  ///< folder of the live log database
    std::string server_ca_key;   ///< TLS key file
    std::string server_ca_file;  ///< TLS certificate file
    std::string arch_dest;       ///< archive folder; the working databases lie here too
    int arch_time{};             ///< age rule, seconds
    int arch_size{};             ///< size rule, MiB; 0 switches it off
    int arch_count{};            ///< count rule, rows
    _SYSLOG_ARCH_FMT_tag arch_fmt{};
    int arch_compress{};         ///< 0/1: archives are put into a ZIP file
    int arch_by_device{};        ///< 0/1: one database and one folder for each sending host
    int localarchive_enable{};   ///< local archiving is running
    long long arch_last_time{};  ///< seconds since the epoch; 0 never
    int system_flush_line{};     ///< rows after which the log writer commits
    int system_flush_timeout{};  ///< seconds after which the log writer commits
    int arch_time_enable{};      ///< 0/1: the age rule counts
    int arch_count_enable{};     ///< 0/1: the count rule counts
};

/// Reads the receiver fields (`bsd_enable` to `arch_dest`) of the settings file at `path`. Missing keys of the
/// RFC 5424 receiver read as port 514, UDP, no TLS. Logs nothing.
/// @return 0, or -1 when a required key is missing or the file cannot be read; the record is then not valid
OMBREL_EXPORT int SyslogServerConfGet(const std::string& path, _SYSLOG_CONF_SETTINGS_tag& rec);
/// Reads the storage fields (`arch_dest` to `arch_count_enable`), all of them required. 0 or -1 as above.
OMBREL_EXPORT int SyslogStorageConfGet(const std::string& path, _SYSLOG_CONF_SETTINGS_tag& rec);
/// Reads the receiver fields, then the storage fields. 0 or -1 as above.
OMBREL_EXPORT int SyslogConfGet(const std::string& path, _SYSLOG_CONF_SETTINGS_tag& rec);
/// Merges the pairs of `keys` into the key/value file at `path`; other lines are kept. `rec` is not used.
/// @return 0, or -1 when the file could not be written
OMBREL_EXPORT int SyslogFileKeySet(VLIBSZHASH* keys, const std::string& path, _SYSLOG_CONF_SETTINGS_tag& rec);

/// Starts, stops, restarts or reloads one service job. -1 on failure (logged) and for an unknown command (not).
OMBREL_EXPORT int SyslogUpstartJobEnable(__SYSLOG_SERVICE_ENABLE_CMD_tag cmd, char* jobName);

/// Declares the port of the receiver `name` (cut to 255 characters, `description` to 127). 0 or -1 (logged).
OMBREL_EXPORT int VESKOmbrelPortRegister(const std::string& name, int port, SYSLOG_TRANSMISSION_MODE mode,
                                         const std::string& description);
/// Withdraws the declaration of `name`; a name without one is a success. 0 or -1 (logged).
OMBREL_EXPORT int VESKOmbrelPortUnregister(const std::string& name);

/// Applies a change of the receiver settings. 0 on success, also when nothing changed; -6 on any failure.
OMBREL_EXPORT int SyslogServerConfSet(const std::string& path, _SYSLOG_CONF_SETTINGS_tag& current,
                                      _SYSLOG_CONF_SETTINGS_tag& wanted);
/// Applies a change of the storage settings. 0 on success, also when nothing changed; -1 on any failure.
OMBREL_EXPORT int SyslogStorageConfSet(const std::string& path, _SYSLOG_CONF_SETTINGS_tag& current,
                                       _SYSLOG_CONF_SETTINGS_tag& wanted);
/// Applies a whole new settings record. 0, -1 on failure, -2 for an empty path.
OMBREL_EXPORT int SyslogConfSet(const std::string& path, _SYSLOG_CONF_SETTINGS_tag& wanted);

/// Whether the file system of `path` has at least `bytes` bytes free for ordinary users.
/// False for an empty or unreadable path.
OMBREL_EXPORT bool IsVolumeSpaceEnough(const std::string& path, unsigned long long bytes);
/// Appends the names of the shares that may hold the log database (neither on a disk image nor on a network
/// file system) to the caller's list. 0, or -1 when there is no list or the shares cannot be enumerated.
OMBREL_EXPORT int SyslogAvailShareGet(VLIBSZLIST** shares);
/// Whether one share may hold the log database, by the same rule.
OMBREL_EXPORT bool SyslogIsShareValid(const std::string& shareName);
/// Moves a database file. A file that stands at `destination` is moved to `destination`_0, _1, ... first, and
/// stays there when the move itself fails. Waits for a program that is writing into the file. Logs nothing.
/// Afterwards `source` no longer names the moved file; a new file that another program has begun there
/// meanwhile is left alone.
/// @return 0, also when there is nothing to move (empty, missing or equal to `destination`); -1 on a failed
///         stat, copy or removal, and when no backup name can be found; -2 for an empty destination; -5 when
///         the destination lacks room
OMBREL_EXPORT int SyslogDBFileMove(const std::string& source, const std::string& destination);
