// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What a contract test may ask of the world beneath the platform interface. The same test sources run
// against the platform on plain Linux and against the fake that the library's unit tests use; each test
// executable links exactly one implementation of makeContractWorld(). One world for each test.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ombrel::contract {

/// One message as a test wants to see it in a log database. Severity 0..7, facility by name ("local0").
struct Row {
    long long time = 0;  ///< the row's own time, seconds since the epoch
    int severity = 6;
    std::string host;
    std::string facility;
    std::string program;
    std::string message;
    std::string processId = {};
    std::string messageId = {};
    std::string sender = "192.0.2.1";
    long long receiveTime = 0;  ///< 0: the same as `time`
};

/// How a job made for a test behaves when it is started.
enum class JobKind {
    kReadyAtOnce,    ///< runs and reports ready
    kNeverReady,     ///< runs, but never reports ready
    kExitsAtOnce,    ///< ends right after its start
    kIgnoresSigterm  ///< runs and reports ready, and has to be killed
};

class ContractWorld {
public:
    ContractWorld() = default;
    virtual ~ContractWorld() = default;
    ContractWorld(const ContractWorld&) = delete;
    ContractWorld& operator=(const ContractWorld&) = delete;

    /// Only for what a fake cannot do: permissions, several processes, symbolic links, real programs.
    [[nodiscard]] virtual bool isFake() const = 0;
    /// Absolute path, without a trailing slash, of an empty folder of this world, gone with the world.
    [[nodiscard]] virtual const std::string& folder() const = 0;

    /// Makes or replaces a file; its folder must exist.
    virtual void writeFile(const std::string& path, const std::string& bytes) = 0;
    /// The bytes of a file, nothing when there is none.
    [[nodiscard]] virtual std::optional<std::string> readFile(const std::string& path) const = 0;
    [[nodiscard]] virtual bool exists(const std::string& path) const = 0;
    /// Makes a folder; its parent must exist.
    virtual void makeFolder(const std::string& path) = 0;

    /// Makes a log database with these rows in order of arrival. False, with the reason in `whyNot()`,
    /// when this world has no log databases.
    virtual bool makeLogDatabase(const std::string& path, const std::vector<Row>& rows) = 0;
    virtual bool makeVersion1Database(const std::string& path, const std::vector<Row>& rows) = 0;

    /// Makes a job that is stopped. False when this world has no jobs.
    virtual bool makeJob(const std::string& job, JobKind kind) = 0;
    /// Makes a share. False when this world has no shares.
    virtual bool makeShare(const std::string& name, const std::string& path) = 0;

    /// Why the last make... call returned false, for GTEST_SKIP.
    [[nodiscard]] virtual std::string whyNot() const = 0;
};

std::unique_ptr<ContractWorld> makeContractWorld();

}  // namespace ombrel::contract
