// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The log writer: takes batches from the receivers, commits them to the working databases and answers them,
// in this order. One poll loop.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "linux/common/fd.h"
#include "receiver/message/batch_frame.h"
#include "receiver/message/local_clock.h"
#include "receiver/settings_watch.h"
#include "receiver/store/database_pool.h"
#include "receiver/visible_log.h"
#include "receiver/writer/flush_policy.h"
#include "receiver/writer/http_endpoint.h"
#include "receiver/writer/quarantine.h"
#include "receiver/writer/writer_settings.h"

namespace ombrel {

struct LogWriterOptions {
    std::string settingsFile;
    std::string schemaFile;
    std::string runFolder;  ///< token and unreadable batches
    std::uint16_t port = 0;
    int notifyFd = -1;  ///< for reportReady() when batches are taken
};

class LogWriter final : public BodyHandler {
public:
    explicit LogWriter(LogWriterOptions options);
    ~LogWriter() override;

    /// Ready to run, or the exit code of sysexits.h after a line on standard error. Blocks SIGTERM and SIGINT
    /// for the calling thread; run() takes them.
    int start();
    /// Until SIGTERM or SIGINT: what waits is then committed and answered, in at most 5 s. Exit code.
    int run();
    [[nodiscard]] std::uint16_t port() const noexcept { return endpoint_.port(); }

    void bodyArrived(BodyId id, const std::string& receiver, std::string body) override;
    void refused(const std::string& reason) override;

private:
    using Clock = std::chrono::steady_clock;
    struct Waiting {
        BodyId id = 0;
        std::string receiver;
        std::string body;
        std::vector<BatchLine> lines;  // views of body
    };
    struct Refusal {
        Clock::time_point when;
        BodyId id = 0;
    };

    static void allowManyFiles();
    bool watchSignals();
    void useSettings(const WriterSettings& settings);
    void reloadSettings();
    void waitForWork();
    void flush();
    void keepUnreadable(const Waiting& waiting, const std::string& reason);
    void refuseLater(BodyId id);
    void closeRefused();
    void finish();

    LogWriterOptions options_;
    std::string schema_;
    WriterSettings settings_;
    SettingsWatch watch_;
    Fd signals_;
    bool ending_ = false;
    LocalClock clock_;
    FlushPolicy policy_;
    Quarantine quarantine_;
    std::unique_ptr<DatabasePool> pool_;
    std::vector<std::unique_ptr<Waiting>> waiting_;
    std::vector<Refusal> refusals_;  // the one that is due first in front
    LogThrottle storeTrouble_;
    LogThrottle settingsTrouble_;
    LogThrottle strangers_;
    HttpEndpoint endpoint_;
};

/// The whole of a small file; nothing, with errno set, when it cannot be read.
std::optional<std::string> readSmallFile(const std::string& path);

}  // namespace ombrel
