// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// One log row with its names in place of ids. Texts are the bytes that came: make them safe where they are shown.
#pragma once

#include <string>

namespace ombrel {

struct LogRow {
    long long id = 0;
    long long time = 0;      ///< the row's own time, seconds since the epoch
    long long received = 0;  ///< seconds since the epoch; 0 of a database of the old layout
    int severity = 0;        ///< 0..7 (RFC 5424 section 6.2.1); anything else is none
    std::string day;         ///< YYYY-MM-DD, local day
    std::string clock;       ///< HH:MM:SS, local time
    std::string host;
    std::string facility;
    std::string program;
    std::string sender;
    std::string processId;
    std::string messageId;
    std::string message;
};

}  // namespace ombrel
