// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/rendered_row.h"

#include <xxhash.h>

namespace ombrel {

namespace {

void append(std::string& bytes, std::uint64_t number) {
    bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
}

}  // namespace

RowChecksum RowHasher::of(long long id, const RenderedRow& row) {
    bytes_.clear();
    append(bytes_, static_cast<std::uint64_t>(id));
    for (const std::string_view text : row) {
        append(bytes_, text.size());
        bytes_ += text;
    }
    const XXH128_hash_t hash = XXH3_128bits(bytes_.data(), bytes_.size());
    return {hash.low64, hash.high64};
}

}  // namespace ombrel
