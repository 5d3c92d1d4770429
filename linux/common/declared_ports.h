// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The ports that the services of this machine have declared: every section of every file *.sc of one folder.
//
//   [syslog_server]
//   display_name="Ombrel"
//   description="BSD log receiving of Ombrel"
//   protocol="udp"
//   port="514,6514-6520"
//
// Other packages write such files as well, so each of them is read within bounds and shown escaped.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "linux/common/port_list.h"

namespace ombrel {

inline constexpr const char* kDeclarationFolder = "/usr/local/etc/services.d";
inline constexpr std::string_view kDeclarationSuffix = ".sc";

inline constexpr std::size_t kMostDeclarationBytes = 4 << 20;  ///< of one file
inline constexpr std::size_t kMostDeclarationFiles = 512;
inline constexpr std::size_t kMostDeclarations = 16384;  ///< sections of all files

struct Declaration {
    std::string file;  ///< its name in the folder
    std::string section;
    std::string displayName;
    std::string description;
    Protocols protocols;
    PortRanges ports;
};

/// Why a settings file cannot be taken as it stands. Parts that say nothing are empty.
struct SettingsFault {
    int code = 0;  ///< of error_record.h
    std::string path;
    std::string section;
    std::string key;
    std::string value;
    std::string problem;  ///< "expected ..." where there is a key
};

/// One line without control characters, fit for a log: PATH: section [NAME]: KEY="VALUE": PROBLEM
std::string describe(const SettingsFault& fault);

/// The declarations of one text, added to `declarations`. Of a section or key that stands there more than once
/// the first counts; what stands before the first section is passed over.
/// @return 0; -1 with the first fault in `fault`
int parseDeclarations(std::string_view text, const std::string& path, std::vector<Declaration>& declarations,
                      SettingsFault& fault);

/// The declarations of all files of a folder in the order of their names; none when there is no such folder.
/// Names that begin with a dot are passed over.
/// @return 0; -1 with the first fault in `fault` and its code in the error record
int readDeclarations(const std::string& folder, std::vector<Declaration>& declarations, SettingsFault& fault);

}  // namespace ombrel
