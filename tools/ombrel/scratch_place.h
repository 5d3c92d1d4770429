// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A folder for the files of one run, open to this user alone and gone with the object.
#pragma once

#include <memory>
#include <string>

#include "linux/common/fd.h"

namespace ombrel {

class ScratchPlace {
public:
    /// Makes one in the folder `scratch`, or in that for temporary files where this user may not write to the
    /// former or others could meddle with it. First takes away what runs that were killed have left there. Null:
    /// `error` says why.
    static std::unique_ptr<ScratchPlace> make(std::string scratch, std::string& error);
    ~ScratchPlace();
    ScratchPlace(const ScratchPlace&) = delete;
    ScratchPlace& operator=(const ScratchPlace&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] int fd() const { return lock_.get(); }

private:
    ScratchPlace(std::string path, Fd lock) : path_(std::move(path)), lock_(std::move(lock)) {}

    std::string path_;
    Fd lock_;  // held as long as somebody is at work there
};

}  // namespace ombrel
