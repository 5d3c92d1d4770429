// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/status_machine.h"

#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <iterator>

#include "linux/common/process_sockets.h"
#include "receiver/fixed_places.h"
#include "receiver/launcher/control_socket.h"

namespace ombrel {

std::optional<std::string> missingRight(const std::string& path) {
    if (::access(path.c_str(), R_OK) == 0 || errno != EACCES) return std::nullopt;
    return path + " may not be read";
}

std::string runFolder() {
    return kRunFolder;
}

std::optional<VolumeStatus> volumeOf(const std::string& folder) {
    struct statfs64 volume {};
    if (::statfs64(folder.c_str(), &volume) != 0) return std::nullopt;
    const auto block = static_cast<unsigned long long>(volume.f_bsize);
    return VolumeStatus{volume.f_bavail * block, volume.f_blocks * block};
}

std::string socketTableText(const std::string& name) {
    std::ifstream file("/proc/net/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

std::optional<std::string> receiverCounters(const std::string& receiver) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    return askControlSocket(runFolder() + "/" + receiver + "/control", "STATS", deadline);
}

std::set<Inode> receiverSockets(const std::string& receiver) {
    std::ifstream file(runFolder() + "/" + receiver + "/pid");
    long process = 0;
    if (!(file >> process) || process < 1) return {};
    return socketsOfProcess("/proc/" + std::to_string(process));
}

}  // namespace ombrel
