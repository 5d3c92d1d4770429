// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Makers of the objects of the real platform, each beside the tests of its library. They throw
// std::runtime_error when this machine cannot have such an object; the text says why.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "tests/contract/contract_world.h"

namespace ombrel::contract {

// log_database_maker_linux.cpp
#ifdef OMBREL_HAS_DATABASE_MAKER
void makeLinuxLogDatabase(const std::string& path, const std::vector<Row>& rows);
void makeLinuxVersion1Database(const std::string& path, const std::vector<Row>& rows);
#else
inline void makeLinuxLogDatabase(const std::string& /*path*/, const std::vector<Row>& /*rows*/) {
    throw std::runtime_error("built without a maker of log databases");
}
inline void makeLinuxVersion1Database(const std::string& /*path*/, const std::vector<Row>& /*rows*/) {
    throw std::runtime_error("built without a maker of log databases");
}
#endif

// service_maker_linux.cpp
#ifdef OMBREL_HAS_SERVICE_MAKER
void makeLinuxJob(const std::string& job, JobKind kind);
void makeLinuxShare(const std::string& name, const std::string& path);
#else
inline void makeLinuxJob(const std::string& /*job*/, JobKind /*kind*/) {
    throw std::runtime_error("built without a maker of jobs");
}
inline void makeLinuxShare(const std::string& /*name*/, const std::string& /*path*/) {
    throw std::runtime_error("built without a maker of shares");
}
#endif

}  // namespace ombrel::contract
