// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the service must still know after a restart: how far the event file is read, what the sockets had lost,
// and what has been told. Kept as a small text file of its own.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "linux/common/fd.h"
#include "tools/ombrel-notify/dropped_datagrams.h"
#include "tools/ombrel-notify/event_follower.h"
#include "tools/ombrel-notify/notice_policy.h"

namespace ombrel {

struct NotifyState {
    EventPosition events;
    std::optional<std::vector<UdpSocket>> sockets;  ///< nothing before the first look
    NoticeRecord notices;
    friend bool operator==(const NotifyState&, const NotifyState&) = default;
};

/// `boot` names the boot that the times of the record belong to.
std::string renderState(const NotifyState& state, const std::string& boot);
/// Nothing when the text is no state. Lines that are not understood are skipped; causes of another boot come
/// back without their times, so that what is pending is told.
std::optional<NotifyState> parseState(std::string_view text, const std::string& boot);

/// The folder of the state, held by one process at a time.
class StateFolder {
public:
    /// Makes the folder (not those above it) and takes it. 0 or errno; EWOULDBLOCK when another one has it.
    int open(const std::string& path);
    /// Nothing when there is no state that can be read.
    [[nodiscard]] std::optional<NotifyState> load(const std::string& boot) const;
    /// Replaces it as a whole. 0 or errno.
    [[nodiscard]] int save(const NotifyState& state, const std::string& boot) const;

private:
    Fd folder_;
};

}  // namespace ombrel
