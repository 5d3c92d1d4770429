// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Asks the log writer to commit what it has: it waits for more otherwise, and a receiver that ends waits for it.
#pragma once

#include <cstdint>
#include <string>

#include "linux/common/fd.h"

namespace ombrel {

class WriterPrompt {
public:
    WriterPrompt(std::uint16_t port, std::string request) : port_(port), request_(std::move(request)) {}

    /// The prompt of a receiver: a batch of nothing.
    static WriterPrompt of(std::uint16_t port, const std::string& receiver, const std::string& token);
    /// Does nothing while an answer to the one before is missing. False when nobody listens there.
    bool ask();

private:
    std::uint16_t port_;
    std::string request_;
    Fd socket_;
};

}  // namespace ombrel
