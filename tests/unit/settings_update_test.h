// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The fixture of the updates of the settings: a machine that runs under the sample settings, its records as
// they stand and as they are wanted, and what is left of it afterwards.
#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "ombrel/utils.h"
#include "tests/fake/platform_test.h"
#include "tests/unit/sample_settings.h"

namespace ombrel::test {

inline constexpr const char* kEnabledJobs = "/var/packages/Ombrel/target/service/conf/enable_services";
inline constexpr const char* kPorts = "/usr/local/etc/services.d/vesk_syslog.sc";

inline std::string portSection(const std::string& name, const std::string& description,
                               const std::string& protocol, const std::string& port) {
    return "[" + name + "]\ndisplay_name=\"Ombrel\"\ndescription=\"" + description + "\"\nprotocol=\"" + protocol +
           "\"\nport=\"" + port + "\"\n";
}

/// The sections of the ports "udp/5140" and the like, as the two receivers declare them.
inline std::string receiverSections(const std::string& bsdProtocol, const std::string& bsdPort,
                                    const std::string& ietfProtocol, const std::string& ietfPort) {
    return portSection("syslog_server", "BSD log receiving of Ombrel", bsdProtocol, bsdPort) +
           portSection("syslog_server_ietf", "IETF log receiving of Ombrel", ietfProtocol, ietfPort);
}

inline Lines joined(std::initializer_list<Lines> parts) {
    Lines all;
    for (const Lines& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

/// A change of one field, and whether an update takes it for one.
struct Change {
    std::string name;
    std::function<void(_SYSLOG_CONF_SETTINGS_tag&)> make;
    bool applied;
};

/// The calls that bring a job up that has been stopped for the update.
inline Lines startAgain(const std::string& job) {
    return {"Logger()", "VLIBCSzHashAlloc(1024)", "VLIBServicectlJobStart(\"" + job + "\")", "VLIBCSzHashFree()",
            "~Logger()"};
}

/// The calls that write these keys and values, in their order.
inline Lines writing(const std::string& path, const std::vector<std::pair<std::string, std::string>>& pairs) {
    Lines lines;
    std::string shown;
    for (const auto& [key, value] : pairs) {
        lines.push_back("VLIBCSzHashSetValue(\"" + key + "\", \"" + value + "\")");
        shown += (shown.empty() ? "" : ", ") + key + "=" + value;
    }
    lines.push_back("VLIBCFileSetKeys(\"" + path + "\", {" + shown + "}, 0, \"%s=\\\"%s\\\"\\n\")");
    return lines;
}

/// Everything runs but the receiver of the customized rules.
inline void prepareRunningMachine(FakePlatform& platform) {
    platform.jobs = {{"pkg-Ombrel-bsd", 1}, {"pkg-Ombrel-ietf", 1}, {"pkg-Ombrel-localarchive", 1}};
    platform.services["syslog-notify"] = true;
    platform.addFile(kServerConf, sampleText());
    platform.addFile(kPorts, receiverSections("udp", "5140", "tcp", "6514"));
}

class SettingsUpdateTest : public PlatformTest {
protected:
    SettingsUpdateTest() {
        prepareRunningMachine(platform);
        readRecords();
    }
    /// Both records as the settings file and the jobs are now.
    void readRecords() {
        ASSERT_EQ(SyslogConfGet(kServerConf, current), 0);
        wanted = current;
        platform.calls.clear();
    }
    /// The names of the jobs that run, shortened: "bsd ietf local rules".
    std::string running() {
        std::string text;
        const auto add = [&](const char* job, const char* shortName) {
            if (platform.jobs[job] != 0) text += (text.empty() ? "" : " ") + std::string(shortName);
        };
        add("pkg-Ombrel-bsd", "bsd");
        add("pkg-Ombrel-ietf", "ietf");
        add("pkg-Ombrel-localarchive", "local");
        add("pkg-Ombrel-custrule", "rules");
        return text;
    }

    _SYSLOG_CONF_SETTINGS_tag current;
    _SYSLOG_CONF_SETTINGS_tag wanted;
};

}  // namespace ombrel::test
