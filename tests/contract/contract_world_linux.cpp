// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The real world: a private folder under the temporary folder, and the platform on plain Linux.
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include "tests/contract/contract_world.h"
#include "tests/contract/linux_makers.h"

namespace ombrel::contract {
namespace {

class LinuxWorld final : public ContractWorld {
public:
    LinuxWorld() {
        std::string name = (std::filesystem::temp_directory_path() / "ombrel-contract-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) throw std::system_error(errno, std::generic_category(), name);
        folder_ = name;
    }
    ~LinuxWorld() override {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    [[nodiscard]] bool isFake() const override { return false; }
    [[nodiscard]] const std::string& folder() const override { return folder_; }

    void writeFile(const std::string& path, const std::string& bytes) override {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        out.close();
        if (!out) throw std::runtime_error("cannot write " + path);
    }
    [[nodiscard]] std::optional<std::string> readFile(const std::string& path) const override {
        std::ifstream in(path, std::ios::binary);
        if (!in) return std::nullopt;
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    [[nodiscard]] bool exists(const std::string& path) const override {
        struct stat info {};
        return ::lstat(path.c_str(), &info) == 0;
    }
    void makeFolder(const std::string& path) override {
        if (::mkdir(path.c_str(), 0755) != 0) throw std::system_error(errno, std::generic_category(), path);
    }

    bool makeLogDatabase(const std::string& path, const std::vector<Row>& rows) override {
        return tryMake([&] { makeLinuxLogDatabase(path, rows); });
    }
    bool makeVersion1Database(const std::string& path, const std::vector<Row>& rows) override {
        return tryMake([&] { makeLinuxVersion1Database(path, rows); });
    }
    bool makeJob(const std::string& job, JobKind kind) override {
        return tryMake([&] { makeLinuxJob(job, kind); });
    }
    bool makeShare(const std::string& name, const std::string& path) override {
        return tryMake([&] { makeLinuxShare(name, path); });
    }
    [[nodiscard]] std::string whyNot() const override { return whyNot_; }

private:
    template <typename Maker>
    bool tryMake(Maker make) {
        try {
            make();
        } catch (const std::runtime_error& error) {
            whyNot_ = error.what();
            return false;
        }
        return true;
    }

    std::string folder_;
    std::string whyNot_;
};

}  // namespace

std::unique_ptr<ContractWorld> makeContractWorld() {
    return std::make_unique<LinuxWorld>();
}

}  // namespace ombrel::contract
