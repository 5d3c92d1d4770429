// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/message/receipt_ids.h"

#include <algorithm>

namespace ombrel {

namespace {

constexpr size_t kRunBytes = 16;
constexpr size_t kMaxRuns = 65536;

void putBigEndian(std::string& bytes, std::uint64_t value, int count) {
    for (int shift = (count - 1) * 8; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift);
}

std::uint64_t getBigEndian(std::string_view bytes) noexcept {
    std::uint64_t value = 0;
    for (const char byte : bytes)
        value = value << 8 | static_cast<unsigned char>(byte);
    return value;
}

}  // namespace

void ReceiptIds::add(const ReceiptId& id) {
    if (!runs_.empty()) {
        Run& last = runs_.back();
        if (last.first.host == id.host && last.first.number + last.count == id.number && last.count < UINT32_MAX) {
            ++last.count;
            return;
        }
    }
    runs_.push_back({id, 1});
}

void ReceiptIds::seal() {
    std::sort(runs_.begin(), runs_.end(), [](const Run& a, const Run& b) { return a.first < b.first; });
    std::vector<Run> joined;
    for (const Run& run : runs_) {
        if (!joined.empty() && joined.back().first.host == run.first.host) {
            Run& last = joined.back();
            const std::uint64_t distance = run.first.number - last.first.number;
            const std::uint64_t end = std::max<std::uint64_t>(last.count, distance + run.count);
            if (distance <= last.count && end <= UINT32_MAX) {
                last.count = static_cast<std::uint32_t>(end);
                continue;
            }
        }
        joined.push_back(run);
    }
    if (joined.size() > kMaxRuns) joined.erase(joined.begin(), joined.end() - kMaxRuns);
    runs_ = std::move(joined);
}

bool ReceiptIds::contains(const ReceiptId& id) const noexcept {
    const auto after = std::upper_bound(runs_.begin(), runs_.end(), id,
                                        [](const ReceiptId& value, const Run& run) { return value < run.first; });
    if (after == runs_.begin()) return false;
    const Run& run = *(after - 1);
    return run.first.host == id.host && id.number - run.first.number < run.count;
}

bool ReceiptIds::overlaps(const ReceiptIds& other) const noexcept {
    // Either holds the first id of a run of the other, if they have any in common.
    const auto holdsAFirst = [](const ReceiptIds& ids, const ReceiptIds& firsts) {
        return std::any_of(firsts.runs_.begin(), firsts.runs_.end(),
                           [&ids](const Run& run) { return ids.contains(run.first); });
    };
    return holdsAFirst(*this, other) || holdsAFirst(other, *this);
}

void ReceiptIds::merge(const ReceiptIds& other) {
    runs_.insert(runs_.end(), other.runs_.begin(), other.runs_.end());
    seal();
}

std::string ReceiptIds::pack() const {
    std::string bytes;
    bytes.reserve(runs_.size() * kRunBytes);
    for (const Run& run : runs_) {
        putBigEndian(bytes, run.first.host, 4);
        putBigEndian(bytes, run.first.number, 8);
        putBigEndian(bytes, run.count, 4);
    }
    return bytes;
}

std::optional<ReceiptIds> ReceiptIds::unpack(std::string_view bytes) {
    if (bytes.size() % kRunBytes != 0) return std::nullopt;
    ReceiptIds ids;
    for (; !bytes.empty(); bytes.remove_prefix(kRunBytes)) {
        Run run;
        run.first.host = static_cast<std::uint32_t>(getBigEndian(bytes.substr(0, 4)));
        run.first.number = getBigEndian(bytes.substr(4, 8));
        run.count = static_cast<std::uint32_t>(getBigEndian(bytes.substr(12, 4)));
        ids.runs_.push_back(run);
    }
    ids.seal();
    return ids;
}

}  // namespace ombrel
