// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel doctor`: what it finds on a machine that is well, and each thing that can be wrong with it.
#include "tests/unit/archiver_test.h"
#include "tests/unit/command_line_run.h"
#include "tests/unit/rule_file.h"
#include "tests/unit/settings_update_test.h"

namespace ombrel::test::cmd_doctor {

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

const std::string kService = "/var/packages/Ombrel/target/service";
constexpr const char* kWholeQuestion = "PRAGMA quick_check(1)";

class Doctor : public PlatformTest {
protected:
    Doctor() {
        platform.jobs = {{"pkg-Ombrel-bsd", 1},
                         {"pkg-Ombrel-ietf", 1},
                         {"pkg-Ombrel-syslog", 1},
                         {"pkg-Ombrel-custrule", 1},
                         {"syslog-notify", 1}};
        platform.addFile(kServerConf, sampleText({{"server_ssl", "0"}, {"arch_by_device", "0"}}));
        platform.addFile(kRules, ruleSection({"door", "BSD", "udp", 2514, false, true}));
        platform.addFile(kPorts, receiverSections("udp", "5140", "tcp", "6514") + rulePort("door", "udp", "2514"));
        platform.addFile(kEnabledJobs, "pkg-Ombrel-bsd=\"yes\"\npkg-Ombrel-localarchive=\"no\"\n");
        platform.addFolder(kDest);
        platform.addFolder(kService + "/log");
        platform.addFolder(kService + "/run");
        platform.addShare("logs");
        platform.now = 1710000000;  // in March 2024
        FakeDatabase working = march(3);
        working.end = platform.now;
        platform.addDatabase(kSharedDb, working);
        platform.addDatabase(std::string(kDest) + "/2024-03-01_2024-03-02.DB", march(1));
        platform.addDatabase(std::string(kDest) + "/2024-03-03_2024-03-09.DB", march(1));
        platform.sqlRows[kWholeQuestion] = {{{"quick_check", "ok"}}};
        for (const char* port : {"5140/udp", "6514/tcp", "2514/udp"})
            machine().ports[port].isOurs = true;
        machine().ownPorts = {"5140/udp", "6514/tcp", "2514/udp", "5615/tcp"};
        machine().firewall = {
            FirewallPorts::State::kKnown, true, {{{22, 22}, {6000, 7000}}, {{2514, 2514}, {5140, 5140}}}, ""};
        platform.calls.clear();
    }
    CheckedMachine& machine() { return fakeMachine().checked; }
    int examine(const Lines& words = {"doctor"}) { return command.run(words); }
    void expectFound(int exitCode, const std::string& line) {
        EXPECT_EQ(examine(), exitCode) << command.out;
        EXPECT_THAT(command.out, HasSubstr(line));
        EXPECT_EQ(command.err, "");
    }
    void folder(const std::string& path, unsigned mode) {
        machine().files[path] = {FileFacts::Kind::kFolder, mode, 0, true, true, true};
    }

    CommandLineRun command;
};

const std::string kWellMachine =
    "ok\tserver_port\tport 5140/udp is held by this package\t-\n"
    "ok\tserver_ietf_port\tport 6514/tcp is held by this package\t-\n"
    "ok\tserver_ca_file\tkey and certificate are readable, belong together and are valid now\t-\n"
    "ok\tarch_dest\t/volume1/logs is a local folder that can be written to, with room\t-\n"
    "ok\tserver_db_loc\tthe share \"logs\" is local\t-\n"
    "ok\tjob pkg-Ombrel-bsd\tit runs\t-\n"
    "ok\tjob pkg-Ombrel-ietf\tit runs\t-\n"
    "ok\tjob pkg-Ombrel-localarchive\tit is off\t-\n"
    "ok\tjob pkg-Ombrel-custrule\tit runs\t-\n"
    "ok\tjob pkg-Ombrel-syslog\tit runs\t-\n"
    "ok\tjob syslog-notify\tit runs\t-\n"
    "ok\tsocket 5140/udp\tpkg-Ombrel-bsd listens\t-\n"
    "ok\tsocket 6514/tcp\tpkg-Ombrel-ietf listens\t-\n"
    "ok\tsocket 5615/tcp\tpkg-Ombrel-syslog listens\t-\n"
    "ok\tsocket 2514/udp\tthe rule \"door\" listens\t-\n"
    "ok\tfirewall\tit lets in all declared ports\t-\n"
    "ok\tpermissions of /var/packages/Ombrel/target/service/conf\tnobody else can use it\t-\n"
    "ok\tpermissions of /var/packages/Ombrel/target/service/conf/server.conf\tnobody else can use it\t-\n"
    "ok\tpermissions of /var/packages/Ombrel/target/service/conf/custrule.conf\tnobody else can use it\t-\n"
    "ok\tpermissions of /var/packages/Ombrel/target/service/log\tnobody else can use it\t-\n"
    "ok\tpermissions of /var/packages/Ombrel/target/service/run\tnobody else can use it\t-\n"
    "ok\tpermissions of /var/packages/Ombrel/target/service/run/token\tit is not there yet\t-\n"
    "ok\tpermissions of /volume1/logs\tonly some can change it\t-\n"
    "ok\tpermissions of /volume1/logs/VESKSYSLOGDB__ARCH.DB\tonly some can change it\t-\n"
    "ok\tclock\tit is not behind the newest row\t-\n"
    "ok\ttime service\tthe clock is kept right\t-\n"
    "ok\tdatabase /volume1/logs/VESKSYSLOGDB__ARCH.DB\tit is whole\t-\n"
    "ok\tdatabase /volume1/logs/2024-03-03_2024-03-09.DB\tit is whole\t-\n";

TEST_F(Doctor, FindsNothingWrongWithAMachineThatIsWell) {
    EXPECT_EQ(examine(), 0);
    EXPECT_EQ(command.out, kWellMachine);
    EXPECT_EQ(command.err, "");
    EXPECT_EQ(fakeMachine().turnsTaken, 0);
}

TEST_F(Doctor, AnswersInJson) {
    EXPECT_EQ(examine({"doctor", "--json"}), 0);
    EXPECT_THAT(command.out, HasSubstr(R"({"ok":true,"findings":[{"name":"server_port","ok":true,"state":"ok",)"));
    machine().isClockSynchronised = std::nullopt;
    platform.jobs["pkg-Ombrel-bsd"] = 0;
    EXPECT_EQ(examine({"doctor", "--json"}), 1);
    EXPECT_THAT(command.out, HasSubstr(R"({"name":"time service","ok":null,"state":"unknown",)"));
    EXPECT_THAT(
        command.out,
        HasSubstr(R"({"name":"job pkg-Ombrel-bsd","ok":false,"state":"wrong","what":"it is wanted, but does )"
                  R"(not run","advice":"ombrel job start pkg-Ombrel-bsd; )"));
}

TEST_F(Doctor, GoesOnWithoutSettings) {
    platform.removeFile(kServerConf);
    expectFound(1, "wrong\tsettings\t" + std::string(kServerConf) + " cannot be read or lacks a required key\t");
    EXPECT_THAT(command.out, HasSubstr("ok\tjob pkg-Ombrel-bsd\tit runs\t-\n"));
    EXPECT_THAT(command.out, HasSubstr("ok\tdatabases\tthere is none\t-\n"));
}

TEST_F(Doctor, NamesJobsThatAreNotAsTheyAreWanted) {
    for (const char* job : {"pkg-Ombrel-bsd", "pkg-Ombrel-custrule", "pkg-Ombrel-syslog", "syslog-notify"}) {
        platform.jobs[job] = 0;
        expectFound(1, "wrong\tjob " + std::string(job) + "\tit is wanted, but does not run\tombrel job start " +
                           job + "; " + kService + "/log/" + job + "/current says why it ended\n");
        platform.jobs[job] = 1;
    }
    platform.jobs["pkg-Ombrel-ietf"] = 0;
    expectFound(0, "ok\tjob pkg-Ombrel-ietf\tit is off\t-\n");
    platform.jobs["pkg-Ombrel-localarchive"] = 1;
    expectFound(0, "warning\tjob pkg-Ombrel-localarchive\tit runs although it is switched off");
}

TEST_F(Doctor, SaysThatAPlainUserCannotSeeJobs) {
    machine().isRoot = false;
    platform.jobs.clear();
    expectFound(0, "cannot tell\tjob pkg-Ombrel-bsd\twhether it runs is not for this user to see\task as root\n");
}

TEST_F(Doctor, OfAMachineThatReceivesNothingWantsNoWriter) {
    platform.jobs.clear();
    platform.removeFile(kRules);
    platform.addFile(kEnabledJobs, "pkg-Ombrel-bsd=\"no\"\n");
    expectFound(0, "ok\tjob pkg-Ombrel-syslog\tit is off\t-\n");
    EXPECT_THAT(command.out, Not(HasSubstr("socket ")));
}

TEST_F(Doctor, NamesSocketsThatNobodyHas) {
    machine().ownPorts = {"5140/udp"};
    expectFound(
        1,
        "wrong\tsocket 6514/tcp\tpkg-Ombrel-ietf runs, but does not listen on 6514/tcp\tombrel job restart "
        "pkg-Ombrel-ietf; its log says why\n");
    EXPECT_THAT(command.out, HasSubstr("wrong\tsocket 5615/tcp\t"));
    EXPECT_THAT(command.out, HasSubstr("wrong\tsocket 2514/udp\tthe rule \"door\" runs, but does not listen"));
    machine().isRoot = false;
    expectFound(
        0, "cannot tell\tsocket 6514/tcp\twhose sockets these are is not for this user to see\task as root\n");
    machine().ownPorts = std::nullopt;
    expectFound(0, "cannot tell\tsockets\tthe kernel's tables of sockets cannot be read\t-\n");
}

TEST_F(Doctor, LooksIntoTheFirewall) {
    machine().firewall.open.tcp = {{22, 22}};
    expectFound(1, "wrong\tfirewall\tit keeps out declared ports: 6514/tcp\t");
    machine().firewall.open = {};
    expectFound(1, "wrong\tfirewall\tit keeps out declared ports: 5140/udp, 6514/tcp, 2514/udp\t");
    machine().firewall.drops = false;
    expectFound(0, "ok\tfirewall\tit keeps nothing out\t-\n");
    machine().firewall = {FirewallPorts::State::kUnknown, false, {}, "Operation not permitted"};
    machine().isRoot = false;
    expectFound(0, "cannot tell\tfirewall\tOperation not permitted\task as root\n");
    machine().firewall.state = FirewallPorts::State::kNoTable;
    expectFound(0, "ok\tfirewall\tthere is no table of this package, which keeps nothing out\t-\n");
}

TEST_F(Doctor, LooksAtPermissions) {
    folder(kService + "/conf", 0775);
    expectFound(1, "wrong\tpermissions of " + kService + "/conf\tothers may change it\tchmod go-w " + kService +
                       "/conf\n");
    machine().files.clear();
    machine().files[kService + "/run/token"] = {FileFacts::Kind::kFile, 0644, 0, true, true, true};
    expectFound(1, "wrong\tpermissions of " + kService + "/run/token\tothers may read it\tchmod go-rwx " +
                       kService + "/run/token\n");
    machine().files.clear();
    folder(kDest, 0777);
    expectFound(0,
                "warning\tpermissions of /volume1/logs\teverybody on this machine can change it\tchmod o-w "
                "/volume1/logs\n");
    folder(kDest, 01777);
    expectFound(0, "ok\tpermissions of /volume1/logs\tonly some can change it\t-\n");
    platform.removeFile(kService + "/log");
    expectFound(1, "wrong\tpermissions of " + kService + "/log\tNo such file or directory\t");
}

TEST_F(Doctor, LooksAtTheClock) {
    platform.database(kSharedDb)->end = platform.now + 3600;
    expectFound(0, "ok\tclock\t");
    platform.database(kSharedDb)->end = platform.now + 3601;
    expectFound(1,
                "wrong\tclock\tit is 1:00:01 behind the newest row\tset it: archives are named by their days\n");
    platform.now = 1704067199;
    expectFound(1, "wrong\tclock\tit shows a time before 2024\t");
    machine().isClockSynchronised = false;
    expectFound(1, "warning\ttime service\tnothing keeps the clock right\trun one, such as chrony or timesyncd\n");
}

TEST_F(Doctor, NamesDatabasesThatAreNotWhole) {
    platform.sqlRows[kWholeQuestion] = {{{"quick_check", "Tree 2 page 3: btreeInitPage() returns error code 11"}}};
    expectFound(1, "wrong\tdatabase " + kSharedDb +
                       "\tit is damaged: Tree 2 page 3: btreeInitPage() returns error code 11\t");
    platform.sqlRows[kWholeQuestion] = {{{"quick_check", "ok"}}};
    platform.failCall("VESKDBConnect", 2);
    expectFound(0, "cannot tell\tdatabase /volume1/logs/2024-03-03_2024-03-09.DB\tit cannot be opened\t-\n");
}

}  // namespace

}  // namespace ombrel::test::cmd_doctor
