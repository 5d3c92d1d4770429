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

/// Starts, stops, restarts (stop, then start) or reloads one service job, and waits until it is so; how long at
/// most is the service manager's. Records nothing. A job that could not be stopped is not started again.
/// @return 0, or -1 on failure (logged; the job is as the service manager left it) and for an unknown command
///         (not logged)
OMBREL_EXPORT int SyslogUpstartJobEnable(__SYSLOG_SERVICE_ENABLE_CMD_tag cmd, char* jobName);

/// Declares a port in the section `name` of the package's declaration file, in place of an earlier declaration
/// of that name. The firewall takes it up when it is told to reload, which is the caller's.
/// @param name         cut to 255 characters
/// @param port         1..65535
/// @param mode         UDP, or TCP for any other value
/// @param description  cut to 127 characters
/// @return 0, or -1 with the declarations as they were (logged)
OMBREL_EXPORT int VESKOmbrelPortRegister(const std::string& name, int port, SYSLOG_TRANSMISSION_MODE mode,
                                         const std::string& description);
/// Withdraws the declaration of `name`; a name without one is a success. The firewall is not told either.
/// @return 0, or -1 with the declaration as it was (logged)
OMBREL_EXPORT int VESKOmbrelPortUnregister(const std::string& name);

/// Applies a change of the receiver settings (switches, ports, transports, TLS and its files): stops both
/// receivers, declares their ports, has the firewall reload, writes the receiver keys into the file at `path` and
/// starts the receivers that are on. Equal records change nothing. Neither record is changed. The service
/// "syslog-notify" is stopped meanwhile and runs afterwards however it ended.
/// Waits for the jobs to be down and up: as long as the service manager gives them, both receivers in turn.
/// @param current  the settings as they stand, as `SyslogConfGet` reads them
/// @return 0, or -6 on failure: what was done is kept. Receivers that were stopped stay down, apart from those
///         that had been started again; the file keeps its old keys until all ports are declared
OMBREL_EXPORT int SyslogServerConfSet(const std::string& path, _SYSLOG_CONF_SETTINGS_tag& current,
                                      _SYSLOG_CONF_SETTINGS_tag& wanted);
/// Applies a change of the storage and archiving settings: stops local archiving, archives every working database
/// that has rows under the settings as they stand, writes the storage keys into the file at `path`, restarts the
/// receivers that run and brings local archiving to its new state. Equal records change nothing, nor does a
/// change of `server_db_loc` and `server_db_path` alone. Neither record is changed.
/// Waits for the jobs and for the databases to be moved, not for the archives to be converted.
/// @return 0, or -1 on failure: what was done is kept and local archiving stays stopped. The file keeps its old
///         keys when a database could not be archived
OMBREL_EXPORT int SyslogStorageConfSet(const std::string& path, _SYSLOG_CONF_SETTINGS_tag& current,
                                       _SYSLOG_CONF_SETTINGS_tag& wanted);
/// Applies a whole settings record: the receiver settings, then the storage settings, each where it differs from
/// the settings of the package as they stand (of the fixed settings file, whatever `path` is). Writes into `path`.
/// @return 0; -1 when the settings cannot be read (nothing is changed then) or a change failed, of which the
///         storage settings are not begun when that of the receivers failed; -2 for an empty path
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
