// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The service: waits for events and for the time of the next look, and writes notices.
#pragma once

#include <optional>
#include <string>

#include "linux/common/fd.h"
#include "tools/ombrel-notify/complaints.h"
#include "tools/ombrel-notify/dropped_datagrams.h"
#include "tools/ombrel-notify/event_follower.h"
#include "tools/ombrel-notify/file_watch.h"
#include "tools/ombrel-notify/notice_policy.h"
#include "tools/ombrel-notify/notify_options.h"
#include "tools/ombrel-notify/notify_settings.h"
#include "tools/ombrel-notify/notify_state.h"

namespace ombrel {

class Notifier {
public:
    Notifier(NotifyOptions options, NoticePolicy::Sink sink);

    /// Runs until SIGTERM or SIGINT. The signals of the thread that calls it stay blocked.
    /// @return exit code of sysexits.h
    int run();

private:
    bool prepare();
    int loop();
    bool takeSignals();
    void readSettings();
    void readEvents();
    void look();
    void lookAtSockets();
    void lookAtFreeSpace();
    void saveState();

    NotifyOptions options_;
    std::string boot_;
    Complaints complaints_;
    NoticePolicy policy_;
    EventFollower events_;
    DropCounters drops_;
    NotifySettings settings_;
    StateFolder stateFolder_;
    std::optional<NotifyState> saved_;
    FileWatch files_;
    Fd signals_;
    Fd timer_;
};

}  // namespace ombrel
