// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The pairs that an update writes, in the vocabulary of the settings file. The hash stays the caller's.
#pragma once

#include <string>

#include "platform/veskcore.h"

namespace ombrel {

inline constexpr const char* kSettingsLineFormat = "%s=\"%s\"\n";
inline constexpr int kSettingsHashEntries = 1024;

class SettingsKeys {
public:
    explicit SettingsKeys(VLIBSZHASH* keys) : keys_(keys) {}

    void text(const char* key, const char* value);
    void text(const char* key, const std::string& value) { text(key, value.c_str()); }
    /// Widened with its sign: the platform writes a negative value as its two's complement of 64 bits.
    void number(const char* key, long long value);
    void toggle(const char* key, int value) { text(key, value != 0 ? "1" : "0"); }
    void transport(const char* key, int value);
    void format(const char* key, unsigned int value);

    /// False when a pair found no room: a part of an update must not be written.
    [[nodiscard]] bool areComplete() const { return complete_; }

private:
    VLIBSZHASH* keys_;
    bool complete_ = true;
};

}  // namespace ombrel
