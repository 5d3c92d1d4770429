// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tests/fake/fake_platform.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace ombrel::test {

namespace fs = std::filesystem;

namespace {

constexpr const char* kDatabaseMark = "fake log database ";

FakePlatform* currentPlatform = nullptr;

/// The code under test may end a child that it has forked, never the program of the tests: an exit in
/// the middle of a test would look like a success.
void refuseExit() {
    if (currentPlatform == nullptr || currentPlatform->forkResult == 0) return;
    (void)std::fputs("the code under test has ended the program\n", stderr);
    std::_Exit(EXIT_FAILURE);
}

int openDescriptors() {
    const fs::directory_iterator entries("/proc/self/fd");
    return static_cast<int>(std::distance(fs::begin(entries), fs::end(entries)));
}

}  // namespace

FakePlatform::FakePlatform() : descriptorsAtStart_(openDescriptors()) {
    static const int registered = std::atexit(refuseExit);
    if (registered != 0) throw std::runtime_error("no exit handler for the tests");
    if (currentPlatform != nullptr) throw std::logic_error("a second FakePlatform at the same time");
    std::string name = (fs::temp_directory_path() / "ombrel-fake-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder for the test");
    root_ = name;
    currentPlatform = this;
}

FakePlatform::~FakePlatform() {
    currentPlatform = nullptr;
    std::error_code ignored;  // what is left in the temporary folder harms no test
    fs::remove_all(root_, ignored);
}

FakePlatform* FakePlatform::currentOrNull() {
    return currentPlatform;
}

FakePlatform& FakePlatform::current() {
    if (currentPlatform == nullptr) {
        (void)std::fputs("a platform call without a FakePlatform\n", stderr);
        std::abort();
    }
    return *currentPlatform;
}

std::vector<std::string> FakePlatform::leaks() const {
    std::vector<std::string> lines = live.leaks();
    const int left = openDescriptors() - descriptorsAtStart_;
    if (left != 0) lines.push_back(std::to_string(left) + " descriptor");
    return lines;
}

std::string FakePlatform::real(const std::string& path) const {
    if (path.empty() || path.rfind(root_, 0) == 0) return path;
    return root_ + (path.front() == '/' ? "" : "/") + path;
}

void FakePlatform::addFolder(const std::string& path) {
    fs::create_directories(real(path));
}

void FakePlatform::addFile(const std::string& path, const std::string& text) {
    fs::create_directories(fs::path(real(path)).parent_path());
    std::ofstream out(real(path), std::ios::binary | std::ios::trunc);
    if (!(out << text).flush()) throw std::runtime_error("cannot write " + path);
}

void FakePlatform::addSparseFile(const std::string& path, long long bytes) {
    addFile(path);
    fs::resize_file(real(path), static_cast<std::uintmax_t>(bytes));
}

void FakePlatform::removeFile(const std::string& path) {
    fs::remove_all(real(path));
}

bool FakePlatform::exists(const std::string& path) const {
    return !path.empty() && fs::exists(fs::symlink_status(real(path)));
}

std::optional<std::string> FakePlatform::read(const std::string& path) const {
    std::ifstream in(real(path), std::ios::binary);
    std::stringstream text;
    if (!in || fs::is_directory(real(path))) return std::nullopt;
    text << in.rdbuf();
    return text.str();
}

std::vector<std::string> FakePlatform::filesBelow(const std::string& folder) const {
    std::vector<std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator(real(folder))) {
        if (!entry.is_directory()) found.push_back(entry.path().string().substr(root_.size()));
    }
    std::sort(found.begin(), found.end());
    return found;
}

FakeDatabase& FakePlatform::addDatabase(const std::string& path, FakeDatabase database) {
    addFile(path, kDatabaseMark + std::to_string(databases_.size()));
    databases_.push_back(std::make_unique<FakeDatabase>(std::move(database)));
    return *databases_.back();
}

FakeDatabase* FakePlatform::database(const std::string& path) {
    const std::string mark = kDatabaseMark;
    const auto text = read(path);
    if (!text || text->rfind(mark, 0) != 0) return nullptr;
    return databases_.at(std::stoul(text->substr(mark.size()))).get();
}

void FakePlatform::addShare(const std::string& name, ShareKind kind) {
    shares.push_back({name, "/volume1/" + name, kind});
    addFolder("/volume1/" + name);
}

std::string FakePlatform::nextTemporarySuffix() {
    const std::string number = std::to_string(++temporaryFiles_);
    return std::string(6 - std::min<std::size_t>(6, number.size()), '0') + number;
}

}  // namespace ombrel::test
