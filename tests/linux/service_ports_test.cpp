// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Who uses a port, on a machine made of files: declarations, tables of sockets, processes and their descriptors.
#include "linux/veskserviceconf/service_ports.h"

#include <gmock/gmock.h>
#include <syslog.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "linux/common/error_record.h"

namespace ombrel {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace fs = std::filesystem;

constexpr const char* kHead = "  sl  local_address rem_address\n";

class ServicePorts : public ::testing::Test {
protected:
    ServicePorts() {
        std::string name = (fs::temp_directory_path() / "ombrel-uses-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) std::abort();
        folder = name;
        places = {folder + "/services.d", folder + "/proc", folder + "/package"};
        for (const std::string& place : {places.declarations, places.processes + "/net", places.package + "/sbin"})
            fs::create_directories(place);
        for (const char* table : {"tcp", "tcp6", "udp", "udp6"})
            file("proc/net/" + std::string(table), kHead);
    }
    ~ServicePorts() override { fs::remove_all(folder); }

    void file(const std::string& path, const std::string& text) const {
        std::ofstream(folder + "/" + path, std::ios::binary) << text;
    }
    void link(const std::string& target, const std::string& path) const {
        fs::create_symlink(target, folder + "/" + path);
    }
    void declare(const std::string& name, const std::string& section, const std::string& port,
                 const std::string& protocol) const {
        std::ofstream(places.declarations + "/" + name, std::ios::app)
            << "[" << section << "]\nport=\"" << port << "\"\nprotocol=\"" << protocol << "\"\n";
    }
    /// A socket on port 514: one that listens, or one without a peer.
    void bound(const std::string& table, Inode inode) const {
        std::ofstream(places.processes + "/net/" + table, std::ios::app)
            << " 0: 00000000:0202 00000000:0000 " << (table.starts_with("tcp") ? "0A" : "07") << " 0:0 00:0 0 0 0 "
            << inode << " 1 0 0\n";
    }
    void process(int id, const std::string& program, const std::vector<Inode>& sockets,
                 const std::string& words = "") const {
        const std::string place = "proc/" + std::to_string(id);
        fs::create_directories(folder + "/" + place + "/fd");
        if (!program.empty()) link(program, place + "/exe");
        file(place + "/cmdline", words);
        link("/dev/null", place + "/fd/0");
        link("pipe:[11]", place + "/fd/1");
        int descriptor = 2;
        for (const Inode inode : sockets)
            link("socket:[" + std::to_string(inode) + "]", place + "/fd/" + std::to_string(descriptor++));
    }
    /// Who uses port 514, other than section "syslog_server".
    [[nodiscard]] std::vector<std::string> usersOf(Transport transport) const {
        std::vector<PortUse> uses;
        if (findPortUses(places, "syslog_server", 514, transport, uses) != 0) return {"<cannot be told>"};
        std::vector<std::string> words;
        words.reserve(uses.size());
        for (const PortUse& use : uses)
            words.push_back(describe(use));
        return words;
    }
    [[nodiscard]] std::vector<std::string> udp() const { return usersOf(Transport::kUdp); }
    [[nodiscard]] std::vector<std::string> tcp() const { return usersOf(Transport::kTcp); }

    std::string folder;
    PortPlaces places;
};

TEST_F(ServicePorts, AreFreeWhereNobodyUsesThem) {
    EXPECT_THAT(udp(), IsEmpty());
    declare("vesk_syslog.sc", "syslog_server", "514", "udp");
    declare("vesk_syslog.sc", "another", "515,6514-6520", "tcp,udp");
    declare("other.sc", "tcp_only", "514", "tcp");
    EXPECT_THAT(udp(), IsEmpty());
}

TEST_F(ServicePorts, AreDeclaredByOtherSections) {
    declare("vesk_syslog.sc", "another", "500-600", "tcp,udp");
    declare("other.sc", "web", "80,514", "udp");
    EXPECT_THAT(udp(), UnorderedElementsAre("declared as [another] of vesk_syslog.sc ()",
                                            "declared as [web] of other.sc ()"));
    EXPECT_THAT(tcp(), ElementsAre("declared as [another] of vesk_syslog.sc ()"));
}

TEST_F(ServicePorts, CannotBeToldWhereADeclarationCannotBeRead) {
    declare("other.sc", "web", "http", "tcp");
    ::testing::internal::CaptureStderr();
    ::openlog("test", LOG_PERROR, LOG_USER);
    EXPECT_THAT(udp(), ElementsAre("<cannot be told>"));
    ::closelog();
    EXPECT_EQ(VLIBCErrGet(), kErrorInvalidArgument);
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                HasSubstr("whether a port is free cannot be told: " + places.declarations +
                          "/other.sc: section [web]: port=\"http\": expected"));
}

TEST_F(ServicePorts, CannotBeToldWithoutTheTablesOfSockets) {
    file("proc/net/tcp", kHead + std::string("junk\n"));
    EXPECT_THAT(tcp(), ElementsAre("<cannot be told>"));
    fs::remove(folder + "/proc/net/tcp");
    EXPECT_THAT(tcp(), ElementsAre("<cannot be told>"));
    EXPECT_EQ(VLIBCErrGet(), fromErrno(ENOENT));
    EXPECT_THAT(udp(), IsEmpty());
    fs::remove(folder + "/proc/net/udp6");  // a kernel without IPv6
    EXPECT_THAT(udp(), IsEmpty());
}

TEST_F(ServicePorts, AreBoundByProcessesOverEitherFamily) {
    bound("udp", 21);
    bound("tcp6", 22);
    process(100, "/usr/sbin/named", {20, 21, 22});
    EXPECT_THAT(udp(), ElementsAre("bound by process 100 (/usr/sbin/named)"));
    EXPECT_THAT(tcp(), ElementsAre("bound by process 100 (/usr/sbin/named)"));
}

TEST_F(ServicePorts, AreBoundByWhomNobodyCanLookAt) {
    bound("udp", 21);
    process(100, "/usr/sbin/named", {20});
    file("proc/version", "not a process");
    EXPECT_THAT(udp(), ElementsAre("bound by a process that cannot be looked at, or by the kernel"));
    process(101, "", {21});
    EXPECT_THAT(udp(), ElementsAre("bound by process 101 ()"));
}

TEST_F(ServicePorts, MayBeBoundByOurOwnPrograms) {
    bound("udp", 21);
    process(100, places.package + "/sbin/ombrel-receiver", {21});
    EXPECT_THAT(udp(), IsEmpty());
    bound("udp", 22);
    process(101, places.package + "/sbin/ombrel-receiver (deleted)", {22});
    EXPECT_THAT(udp(), IsEmpty());
    bound("udp6", 23);
    process(102, places.package + "-other/sbin/ombrel-receiver", {23});
    EXPECT_THAT(udp(), ElementsAre(HasSubstr("bound by process 102")));
}

TEST_F(ServicePorts, MayBeBoundByWhatOurLinksLeadTo) {
    fs::create_directories(folder + "/build/bin");
    file("build/bin/ombrel-receiver", "");
    link(folder + "/build/bin/ombrel-receiver", "package/sbin/ombrel-receiver");
    link("nowhere", "package/sbin/dangling");
    const std::string built = fs::canonical(folder) / "build/bin/ombrel-receiver";
    bound("udp", 21);
    process(100, built, {21});
    EXPECT_THAT(udp(), IsEmpty());
    bound("udp", 22);
    process(101, built + "-other", {22});
    EXPECT_THAT(udp(), ElementsAre(HasSubstr("bound by process 101")));
}

TEST_F(ServicePorts, MayBeBoundWhereTheInstalledFolderIsALink) {
    fs::rename(places.package, folder + "/volume");
    link(folder + "/volume", "package");
    bound("udp", 21);
    process(100, fs::canonical(folder) / "volume/sbin/ombrel-receiver", {21});
    EXPECT_THAT(udp(), IsEmpty());
}

TEST_F(ServicePorts, MayBeBoundByOurSyslogNg) {
    using namespace std::string_literals;
    const std::string control = "--control=" + places.package + "/service/run/bsd/control";
    bound("udp", 21);
    process(100, "/usr/sbin/syslog-ng", {21}, "/usr/sbin/syslog-ng\0--foreground\0"s + control + '\0');
    EXPECT_THAT(udp(), IsEmpty());
    bound("udp", 22);
    process(101, "/usr/sbin/syslog-ng", {22}, "/usr/sbin/syslog-ng\0--control=/run/syslog-ng.ctl\0"s);
    bound("udp", 23);
    process(102, "/usr/sbin/other", {23}, "other\0"s + control + '\0');
    bound("udp", 24);
    process(103, "/usr/sbin/syslog-ng", {24},
            "syslog-ng\0--control="s + places.package + "/service/run/../../../../tmp/x\0"s);
    EXPECT_THAT(
        udp(), UnorderedElementsAre(HasSubstr("process 101"), HasSubstr("process 102"), HasSubstr("process 103")));
}

TEST_F(ServicePorts, ConflictWhereOursAndAnotherShareThem) {
    bound("udp", 21);
    bound("udp", 22);
    process(100, places.package + "/sbin/ombrel-receiver", {21});
    process(101, "/usr/sbin/named", {22});
    EXPECT_THAT(udp(), ElementsAre("bound by process 101 (/usr/sbin/named)"));
}

TEST_F(ServicePorts, AreOursWhereASupervisorHoldsTheSameSocket) {
    bound("udp", 21);
    process(1, "/usr/lib/systemd/systemd", {21});
    process(100, places.package + "/sbin/ombrel-receiver", {21});
    EXPECT_THAT(udp(), IsEmpty());
}

TEST_F(ServicePorts, OfOursAreKnownByTheirSockets) {
    bound("udp", 21);
    bound("udp6", 22);
    process(100, places.package + "/sbin/ombrel-receiver", {21, 30});
    process(101, "/usr/sbin/named", {22});
    const std::string processes = folder + "/proc";
    EXPECT_EQ(socketsOfOwn(processes, OwnPrograms(places.package)), (std::set<Inode>{21, 30}));
    std::vector<SocketRow> rows;
    EXPECT_EQ(readTakingSockets(processes, Transport::kUdp, rows), 0);
    std::set<Inode> inodes;
    for (const SocketRow& row : rows)
        inodes.insert(row.inode);
    EXPECT_EQ(inodes, (std::set<Inode>{21, 22}));
}

TEST_F(ServicePorts, AreShownOnOneLine) {
    bound("udp", 21);
    process(100, "/tmp/evil\n\x1b[2J", {21});
    EXPECT_THAT(udp(), ElementsAre("bound by process 100 (/tmp/evil\\x0a\\x1b[2J)"));
}

}  // namespace
}  // namespace ombrel
