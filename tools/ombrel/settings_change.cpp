// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/settings_change.h"

#include <algorithm>

#include "tools/ombrel/key_value_words.h"

namespace ombrel {

namespace {

using enum SettingsPart;

struct Receiver {
    bool enabled;
    bool tls;
    bool udp;
    const char* tlsKey;
    const char* transportKey;
};

/// The keys that keep an enabled receiver from starting.
std::optional<std::string> whyNotStarted(const Receiver& receiver, const SettingsRecord& record) {
    if (!receiver.enabled || !receiver.tls) return std::nullopt;
    if (receiver.udp) {
        return std::string(receiver.tlsKey) + "=1 needs " + receiver.transportKey + "=tcp: TLS runs over TCP";
    }
    if (record.server_ca_key.empty() || record.server_ca_file.empty()) {
        return std::string(receiver.tlsKey) + "=1 needs server_ca_key and server_ca_file";
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> applyWords(std::span<char* const> words, SettingsRecord& record) {
    return applyKeyValues(words, findSettingsField, {"no setting", "ombrel settings show lists them"}, record);
}

std::optional<std::string> whyNotTogether(const SettingsRecord& current, const SettingsRecord& wanted) {
    const bool bsd = wanted.bsd_enable != 0;
    const bool ietf = wanted.ietf_enable != 0;
    const bool bsdUdp = wanted.server_trans == SYSLOG_TRANSMISSION_UDP;
    const bool ietfUdp = wanted.server_ietf_trans == SYSLOG_TRANSMISSION_UDP;
    const Receiver receivers[] = {
        {bsd, wanted.server_ssl != 0, bsdUdp, "server_ssl", "server_trans"},
        {ietf, wanted.server_ietf_ssl != 0, ietfUdp, "server_ietf_ssl", "server_ietf_trans"}};
    for (const Receiver& receiver : receivers) {
        if (auto why = whyNotStarted(receiver, wanted)) return why;
    }
    if (bsd && ietf && !bsdUdp && !ietfUdp && wanted.server_port == wanted.server_ietf_port) {
        return "server_port and server_ietf_port are both " + std::to_string(wanted.server_port) +
               " over TCP, where each receiver needs a port of its own";
    }
    if (differ(kAlong, current, wanted) && !differ(kStorage, current, wanted)) {
        return "server_db_loc and server_db_path are kept only along with a change of the storage settings";
    }
    return std::nullopt;
}

bool differ(SettingsPart part, const SettingsRecord& a, const SettingsRecord& b) {
    const auto fields = settingsFields();
    return std::any_of(fields.begin(), fields.end(), [&](const SettingsField& field) {
        return field.part == part && field.print(a) != field.print(b);
    });
}

SettingsPart failedPart(const SettingsRecord& before, const SettingsRecord& wanted, const SettingsRecord& after) {
    const bool receivers = differ(kReceivers, before, wanted);
    const bool storage = differ(kStorage, before, wanted);
    if (receivers != storage) return receivers ? kReceivers : kStorage;
    // The storage settings are begun once the receivers are done; a receiver may have gone down since.
    if (differ(kStorage, before, after)) return kStorage;
    return differ(kReceivers, wanted, after) ? kReceivers : kStorage;
}

}  // namespace ombrel
