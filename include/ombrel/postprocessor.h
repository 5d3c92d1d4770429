// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Finishes an archived log database: text export, host index, ZIP file.
// Keeps nothing between calls but its two settings; used by one thread. Failures are reported to the debug sink.
#pragma once

#include <string>

#include "ombrel/export.h"
#include "ombrel/utils.h"

class OMBREL_EXPORT PostProcessor {
public:
    /// Loads the settings file of the package. After a failure the object does nothing when asked to process.
    PostProcessor();
    ~PostProcessor();

    /// Loads a settings file. 0, or -1 with both members as they were.
    int ConfigLoad(std::string path);
    /// The scratch folder on the volume of `path` (its first component followed by "/@tmp/"), made if missing.
    /// Empty when `path` has no "/" after its first character.
    std::string TranTempDirGet(std::string path);

    /// Converts the archive at `db` to the configured format and puts it, with its export, into a ZIP file
    /// beside it, as configured. 0 or -1; a failed conversion leaves the database untouched.
    int PostProcess(std::string db);
    /// Writes the export of `db` in format `fmt` beside it. 0 or -1.
    int DBTransform(std::string db, _SYSLOG_ARCH_FMT_tag fmt);
    /// Writes every row of `db` into the text file `out`: seven columns between tabs (date, time, severity,
    /// host, facility, program, message), each line ended by CR LF. A missing database gives an empty file.
    /// 0 or -1; after a failure the partly written file may lie in the scratch folder.
    int DB2TXT(std::string db, std::string out);
    /// Produces nothing and succeeds.
    int DB2XML(std::string db, std::string out);
    /// Adds an index on the host column. 0, or -1, also when there is one already.
    int DBIndexAdd(std::string db);
    /// Moves `file` and, when not empty, `file2` into the ZIP archive `zip`. 0 or -1.
    int FileCompress(std::string file, std::string file2, std::string zip);

    int Compress{};  ///< non-zero: put the archive into a ZIP file
    _SYSLOG_ARCH_FMT_tag ArchFmt{};
};
