// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/settings_change.h"

#include <algorithm>

#include "linux/common/text_escape.h"
#include "tools/ombrel/key_value_words.h"

namespace ombrel {

namespace {

using enum SettingsPart;

/// The keys that keep a receiver from starting.
std::optional<SettingsFaultWords> whyNotStarted(const ReceiverSettings& receiver, const SettingsRecord& record) {
    if (!receiver.isOn || !receiver.isTls) return std::nullopt;
    const std::string key = receiver.tlsKey;
    if (receiver.isUdp) {
        return SettingsFaultWords{key, key + "=1 needs " + receiver.transportKey + "=tcp: TLS runs over TCP"};
    }
    if (record.server_ca_key.empty() || record.server_ca_file.empty()) {
        return SettingsFaultWords{key, key + "=1 needs server_ca_key and server_ca_file"};
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> applyWords(const std::vector<std::string>& words, SettingsRecord& record) {
    return applyKeyValues(words, findSettingsField, {"no setting", "ombrel settings show lists them"}, record);
}

std::array<ReceiverSettings, 2> receiversOf(const SettingsRecord& record) {
    return {{{record.bsd_enable != 0, record.server_ssl != 0, record.server_trans == SYSLOG_TRANSMISSION_UDP,
              record.server_port, "pkg-Ombrel-bsd", "syslog_server", "server_port", "server_ssl", "server_trans"},
             {record.ietf_enable != 0, record.server_ietf_ssl != 0,
              record.server_ietf_trans == SYSLOG_TRANSMISSION_UDP, record.server_ietf_port, "pkg-Ombrel-ietf",
              "syslog_server_ietf", "server_ietf_port", "server_ietf_ssl", "server_ietf_trans"}}};
}

std::string portText(const ReceiverSettings& receiver) {
    return std::to_string(receiver.port) + (receiver.isUdp ? "/udp" : "/tcp");
}

std::vector<SettingsFaultWords> receiverFaults(const SettingsRecord& record) {
    std::vector<SettingsFaultWords> faults;
    const auto receivers = receiversOf(record);
    for (const ReceiverSettings& receiver : receivers) {
        if (auto why = whyNotStarted(receiver, record)) faults.push_back(*why);
    }
    const auto& [bsd, ietf] = receivers;
    // Datagrams of one port are shared.
    if (bsd.isOn && ietf.isOn && !bsd.isUdp && !ietf.isUdp && bsd.port == ietf.port) {
        faults.push_back({"server_port", "server_port and server_ietf_port are both " + std::to_string(bsd.port) +
                                             " over TCP, where each receiver needs a port of its own"});
    }
    return faults;
}

std::optional<std::string> whyNotTogether(const SettingsRecord& current, const SettingsRecord& wanted) {
    const auto faults = receiverFaults(wanted);
    if (!faults.empty()) return faults.front().what;
    if (differ(kAlong, current, wanted) && !differ(kStorage, current, wanted)) {
        return "server_db_loc and server_db_path are kept only along with a change of the storage settings";
    }
    return std::nullopt;
}

std::vector<SettingsChange> changesOf(const SettingsRecord& before, const SettingsRecord& after) {
    std::vector<SettingsChange> changes;
    for (const SettingsField& field : settingsFields()) {
        if (field.print(before) != field.print(after))
            changes.push_back({&field, field.print(before), field.print(after)});
    }
    return changes;
}

std::string changesText(const std::vector<SettingsChange>& changes) {
    std::string text;
    for (const SettingsChange& change : changes) {
        text += std::string(change.field->name) + ": \"" + escapeForLine(change.before) + "\" -> \"" +
                escapeForLine(change.after) + "\"\n";
    }
    return text;
}

void writeValue(JsonWriter& json, const SettingsField& field, const std::string& printed) {
    switch (field.kind) {
        case SettingsKind::kSwitch:
            json.boolean(printed == "1");
            return;
        case SettingsKind::kNumber:
            json.number(std::stoll(printed));
            return;
        case SettingsKind::kText:
            json.text(printed);
    }
}

void writeChanges(JsonWriter& json, const std::vector<SettingsChange>& changes) {
    json.key("changes").beginArray();
    for (const SettingsChange& change : changes) {
        json.beginObject().member("key", change.field->name).key("old");
        writeValue(json, *change.field, change.before);
        writeValue(json.key("new"), *change.field, change.after);
        json.endObject();
    }
    json.endArray();
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
