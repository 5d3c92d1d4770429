// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The receipt ids of a batch, kept as runs of numbers: a receiver numbers its lines one by one, so a batch
// of thousands is a handful of runs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "receiver/message/batch_frame.h"

namespace ombrel {

class ReceiptIds {
public:
    /// Ids may come in any order and more than once.
    void add(const ReceiptId& id);
    /// To be called after the last add() and before any question.
    void seal();

    [[nodiscard]] bool contains(const ReceiptId& id) const noexcept;
    [[nodiscard]] bool empty() const noexcept { return runs_.empty(); }
    [[nodiscard]] bool overlaps(const ReceiptIds& other) const noexcept;
    /// Both; used while a batch is sent again in pieces. Bounded: of very many runs the oldest numbers go.
    void merge(const ReceiptIds& other);

    /// 16 bytes a run, big-endian: host, first number, count.
    [[nodiscard]] std::string pack() const;
    /// Nothing when the bytes are no packed ids.
    static std::optional<ReceiptIds> unpack(std::string_view bytes);

private:
    struct Run {
        ReceiptId first;
        std::uint32_t count = 0;
    };
    std::vector<Run> runs_;  // when sealed: rising and apart from one another
};

}  // namespace ombrel
