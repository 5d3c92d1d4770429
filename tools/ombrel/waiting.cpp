// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/waiting.h"

#include <chrono>
#include <utility>

#include "tools/ombrel/progress.h"

namespace ombrel {

Waiting::Waiting(const Terminal& terminal, std::string what, std::function<Extent()> extent) {
    if (!terminal.isTerminal) return;
    thread_ = std::thread(
        [this, terminal, what = std::move(what), extent = std::move(extent)] { show(terminal, what, extent); });
}

Waiting::~Waiting() {
    if (!thread_.joinable()) return;
    {
        const std::lock_guard lock(mutex_);
        isOver_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void Waiting::show(const Terminal& terminal, const std::string& what, const std::function<Extent()>& extent) {
    constexpr auto kBetween = std::chrono::milliseconds(100);
    Progress progress(terminal, what, extent ? "" : "s");
    const auto begun = std::chrono::steady_clock::now();
    std::unique_lock lock(mutex_);
    while (!changed_.wait_for(lock, kBetween, [this] { return isOver_; })) {
        const auto passed = std::chrono::steady_clock::now() - begun;
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(passed).count();
        const Extent now = extent ? extent() : Extent{static_cast<unsigned long long>(seconds), 0};
        progress.show(now.done, now.total);
    }
}

}  // namespace ombrel
