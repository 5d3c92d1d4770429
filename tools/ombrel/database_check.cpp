// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/database_check.h"

#include "linux/common/error_record.h"
#include "platform/veskcore.h"
#include "src/platform_handles.h"
#include "tools/ombrel/error_text.h"

namespace ombrel {

namespace {

// Primary result codes of SQLite; the platform keeps the extended ones in the error record.
constexpr int kCorrupt = 11;
constexpr int kNotADatabase = 26;

/// From the error record of a call that failed.
DatabaseCheck failure(const std::string& what) {
    const int code = VLIBCErrGet();
    const int primary = code >= kErrorFromSqlite ? (code - kErrorFromSqlite) & 0xff : 0;
    if (primary == kCorrupt) return {DatabaseCheck::State::kDamaged, "its pages contradict each other"};
    if (primary == kNotADatabase) return {DatabaseCheck::State::kDamaged, "it is no database"};
    const std::string why = errorText(code);
    return {DatabaseCheck::State::kUnknown, what + (why.empty() ? "" : " (" + why + ")")};
}

}  // namespace

DatabaseCheck checkDatabase(const std::string& path) {
    VLIBCErrSetEx(0, "", 0);
    const Connection connection(VESKDBConnect(nullptr, nullptr, nullptr, path.c_str()));
    if (!connection) return failure("it cannot be opened");
    // One line is enough to know; the first names the place.
    constexpr const char* kQuestion = "PRAGMA quick_check(1)";
    Result result;
    VLIBCErrSetEx(0, "", 0);
    const int code =
        lend(result, [&](VESKDBRESULT** raw) { return VESKDBExecute(connection.get(), kQuestion, raw); });
    if (code < 0 || !result) return failure("it cannot be read");
    int row = 0;
    if (VESKDBFetchRow(result.get(), &row) < 0)
        return {DatabaseCheck::State::kUnknown, "its check gives no answer"};
    const char* answer = VESKDBFetchField(result.get(), row, "quick_check");
    if (answer == nullptr) return {DatabaseCheck::State::kUnknown, "its check gives no answer"};
    if (std::string(answer) == "ok") return {};
    return {DatabaseCheck::State::kDamaged, answer};
}

}  // namespace ombrel
