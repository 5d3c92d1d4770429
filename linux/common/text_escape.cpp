// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/text_escape.h"

#include <cstdint>

namespace ombrel {

namespace {

constexpr std::uint32_t kInvalid = 0xffffffff;

struct Decoded {
    std::uint32_t codePoint;  // kInvalid for a byte that is no UTF-8
    size_t length;
};

size_t sequenceLength(unsigned char lead) {
    if (lead < 0x80) return 1;
    if (lead >= 0xc2 && lead <= 0xdf) return 2;
    if (lead >= 0xe0 && lead <= 0xef) return 3;
    if (lead >= 0xf0 && lead <= 0xf4) return 4;
    return 0;
}

// RFC 3629: neither overlong forms nor surrogates nor anything above U+10FFFF.
bool isScalar(std::uint32_t codePoint, size_t length) {
    if (length == 3) return codePoint >= 0x800 && (codePoint < 0xd800 || codePoint > 0xdfff);
    if (length == 4) return codePoint >= 0x10000 && codePoint <= 0x10ffff;
    return true;
}

Decoded decode(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text[0]);
    const size_t length = sequenceLength(lead);
    if (length == 1) return {lead, 1};
    if (length == 0 || length > text.size()) return {kInvalid, 1};
    std::uint32_t codePoint = lead & (0xffU >> (length + 1));
    for (size_t i = 1; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xc0) != 0x80) return {kInvalid, 1};
        codePoint = codePoint << 6 | (byte & 0x3fU);
    }
    if (!isScalar(codePoint, length)) return {kInvalid, 1};
    return {codePoint, length};
}

void appendHex(std::string& out, std::uint32_t value, int digits) {
    static constexpr char kDigits[] = "0123456789abcdef";
    for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4)
        out += kDigits[value >> shift & 15];
}

bool isControl(std::uint32_t codePoint) {
    return codePoint < 0x20 || (codePoint >= 0x7f && codePoint < 0xa0);
}

void appendJson(std::string& out, std::uint32_t codePoint) {
    if (codePoint == '"' || codePoint == '\\') {
        out += '\\';
        out += static_cast<char>(codePoint);
    } else if (codePoint < 0x7f && !isControl(codePoint)) {
        out += static_cast<char>(codePoint);
    } else if (codePoint >= 0x10000) {
        out += "\\u";
        appendHex(out, 0xd800 + ((codePoint - 0x10000) >> 10), 4);
        out += "\\u";
        appendHex(out, 0xdc00 + ((codePoint - 0x10000) & 0x3ff), 4);
    } else {
        out += "\\u";
        appendHex(out, codePoint, 4);
    }
}

}  // namespace

std::string escapeForLine(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const Decoded next = decode(text);
        const std::string_view bytes = text.substr(0, next.length);
        text.remove_prefix(next.length);
        if (next.codePoint != kInvalid && !isControl(next.codePoint)) {
            out += bytes;
            continue;
        }
        for (const char byte : bytes) {
            out += "\\x";
            appendHex(out, static_cast<unsigned char>(byte), 2);
        }
    }
    return out;
}

std::string quoteJson(std::string_view text) {
    constexpr std::uint32_t kReplacement = 0xfffd;
    std::string out = "\"";
    while (!text.empty()) {
        const Decoded next = decode(text);
        text.remove_prefix(next.length);
        appendJson(out, next.codePoint == kInvalid ? kReplacement : next.codePoint);
    }
    return out + '"';
}

}  // namespace ombrel
