// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/follow_watch.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <map>

#include "linux/common/fd.h"
#include "linux/common/inotify_events.h"
#include "linux/common/path_parts.h"
#include "tools/ombrel-notify/file_watch.h"
#include "tools/ombrel/stop_signals.h"

namespace ombrel {

namespace {

constexpr std::uint32_t kSettingsEvents = IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE;
constexpr std::uint32_t kEntryEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF;
constexpr std::uint32_t kFolderEvents = kEntryEvents | IN_MODIFY | IN_ONLYDIR;

class InotifyWatch : public FollowWatch {
public:
    bool start(const std::string& settingsFile) {
        folders_.reset(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
        if (!folders_ || !settings_.start()) return false;
        settings_.add(settingsFile, kSettingsEvents);
        (void)settings_.refresh();  // who may not look into its folder goes on with the settings as they are
        return takeStopSignals();
    }

    bool watch(const std::string& folder) override {
        const int watch = ::inotify_add_watch(folders_.get(), folder.c_str(), kFolderEvents);
        if (watch >= 0) {
            names_[watch] = folder;
            return true;
        }
        const std::string above = folderOf(folder);
        return errno == ENOENT && above != folder && this->watch(above);
    }

    FollowWake wait() override {
        FollowWake wake;
        std::array<pollfd, 4> waited = {{{stopDescriptor(), POLLIN, 0},
                                         {folders_.get(), POLLIN, 0},
                                         {settings_.fd(), POLLIN, 0},
                                         {STDOUT_FILENO, 0, 0}}};  // POLLERR: its reader has gone
        while (::poll(waited.data(), waited.size(), -1) < 0) {
            if (errno != EINTR) wake.stop = true;
            if (wake.stop || stopAsked()) break;
        }
        wake.stop = wake.stop || stopAsked() || (waited[3].revents & (POLLERR | POLLNVAL)) != 0;
        if ((waited[2].revents & POLLIN) != 0) {
            wake.settings = settings_.changed() != 0;
            (void)settings_.refresh();  // a folder that cannot be watched now is asked for again the next time
        }
        if ((waited[1].revents & POLLIN) != 0) readFolders(wake);
        return wake;
    }

    [[nodiscard]] bool stopAsked() const override { return ombrel::stopAsked(); }

private:
    void readFolders(FollowWake& wake) {
        readInotifyEvents(folders_.get(), [&](const inotify_event& event, std::string_view name) {
            if ((event.mask & IN_Q_OVERFLOW) != 0) wake.missed = true;
            const auto found = names_.find(event.wd);
            if (found == names_.end()) return;
            const std::string& folder = found->second;
            if ((event.mask & IN_MODIFY) != 0) wake.grown.insert(folder);
            if ((event.mask & (kEntryEvents | IN_IGNORED)) != 0) wake.entries.insert(folder);
            const std::string path = folder + "/" + std::string(name);
            if ((event.mask & IN_MOVED_FROM) != 0) {
                movedFrom_ = {event.cookie, path};
            } else if ((event.mask & IN_MOVED_TO) != 0 && event.cookie == movedFrom_.first) {
                wake.renamed.emplace_back(movedFrom_.second, path);
            }
            if ((event.mask & IN_IGNORED) != 0) names_.erase(found);
        });
    }

    Fd folders_;
    FileWatch settings_;
    std::map<int, std::string> names_;                      // of the folders, by watch
    std::pair<std::uint32_t, std::string> movedFrom_ = {};  // the two events of a move follow each other
};

}  // namespace

std::unique_ptr<FollowWatch> openFollowWatch(const std::string& settingsFile) {
    auto watch = std::make_unique<InotifyWatch>();
    if (!watch->start(settingsFile)) return nullptr;
    return watch;
}

}  // namespace ombrel
