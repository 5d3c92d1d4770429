// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Output files of the recording platform, and the few other things that readers ask of the machine.
#include <cerrno>

#include "tests/fake/fake_platform.h"
#include "tests/unit/fake_machine.h"
#include "tools/ombrel/open_scratch.h"
#include "tools/ombrel/output_file.h"
#include "tools/ombrel/stop_signals.h"

namespace ombrel {

using test::fakeMachine;
using test::FakePlatform;

OutputFile::~OutputFile() {
    if (!temporary_.empty()) FakePlatform::current().removeFile(temporary_);
}

std::string OutputFile::open(const std::string& path, bool replace) {
    if (FakePlatform::current().exists(path) && !replace) return path + " is there already; --force replaces it";
    path_ = path;
    replace_ = replace;
    temporary_ = path + ".tmp";
    FakePlatform::current().addFile(temporary_);
    return {};
}

void OutputFile::openStandardOutput() {
    isStandardOutput_ = true;
}

bool OutputFile::write(std::string_view bytes) {
    errno = ENOSPC;
    if (fakeMachine().outputIsFull) return false;
    bytes_ += bytes.size();
    fakeMachine().output += bytes;
    return true;
}

std::string OutputFile::nameBeside() const {
    return isStandardOutput_ ? "/tmp/export.part" : temporary_ + ".part";
}

bool OutputFile::takeFile(const std::string& path) {
    const std::string text = FakePlatform::current().read(path).value_or("");
    FakePlatform::current().removeFile(path);
    return write(text);
}

std::string OutputFile::commit() {
    if (isStandardOutput_) return {};
    FakePlatform::current().addFile(path_, fakeMachine().output);
    FakePlatform::current().removeFile(temporary_);
    temporary_.clear();
    return {};
}

std::optional<OpenScratch> openScratch() {
    return std::nullopt;
}

void failAllWrites(bool /*wanted*/) {
}

void removeScratch(const std::string& path) {
    FakePlatform::current().removeFile(path);
}

bool takeStopSignals() {
    return true;
}

bool stopAsked() {
    return fakeMachine().stopAsked;
}

int stopDescriptor() {
    return -1;
}

}  // namespace ombrel
