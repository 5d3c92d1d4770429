// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Running a program on the fake platform: mv and zip -m do to the files what the real ones do.
#include <filesystem>
#include <system_error>
#include <vector>

#include "platform/veskcore.h"
#include "tests/fake/fake_platform.h"

namespace fs = std::filesystem;
using ombrel::test::FakePlatform;

namespace {

int move(const FakePlatform& platform, const std::vector<std::string>& arguments) {
    std::error_code failure;
    fs::rename(platform.real(arguments.at(0)), platform.real(arguments.at(1)), failure);
    errno = failure.value();
    return failure ? -1 : 0;
}

/// The "archive" lists its members and their bytes.
int zipMoving(FakePlatform& platform, const std::vector<std::string>& arguments) {
    std::string packed;
    for (std::size_t i = 2; i < arguments.size(); ++i) {
        const auto bytes = platform.read(arguments[i]);
        if (!bytes) {
            errno = ENOENT;
            return -1;
        }
        packed += fs::path(arguments[i]).filename().string() + ":" + *bytes + "\n";
    }
    platform.addFile(arguments.at(1), packed);
    for (std::size_t i = 2; i < arguments.size(); ++i)
        platform.removeFile(arguments[i]);
    return 0;
}

}  // namespace

extern "C" int VLIBCExec(const char* prog, const char* a1, const char* a2, const char* a3, const char* a4) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBCExec", prog, a1, a2, a3, a4)) return -1;
    std::vector<std::string> arguments;
    for (const char* argument : {a1, a2, a3, a4}) {
        if (argument == nullptr) break;
        arguments.emplace_back(argument);
    }
    const std::string program = prog;
    if (program == "/bin/mv") return move(platform, arguments);
    if (program == "/usr/bin/zip" && arguments.at(0) == "-m") return zipMoving(platform, arguments);
    if (program == "/bin/true") return 0;
    errno = ENOENT;
    return -1;
}
