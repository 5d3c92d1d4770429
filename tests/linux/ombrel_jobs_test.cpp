// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// ombrel-jobs as it is run: its folders, its exit codes and what it says.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "linux/common/child_process.h"

namespace fs = std::filesystem;
using namespace ombrel;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

constexpr const char* kGood = "description=\"x\"\ncommand=\"/bin/x\"\nready_fd=\"3\"\n";

class OmbrelJobs : public ::testing::Test {
protected:
    void SetUp() override {
        std::string name = (fs::temp_directory_path() / "ombrel-jobs-test-XXXXXX").string();
        ASSERT_NE(::mkdtemp(name.data()), nullptr);
        folder = name;
        fs::create_directory(folder + "/jobs");
    }
    void TearDown() override { fs::remove_all(folder); }

    void define(const std::string& job, const std::string& text) {
        std::ofstream(folder + "/jobs/" + job + ".job") << text;
    }
    [[nodiscard]] ProgramResult run(std::vector<std::string> more = {}) const {
        std::vector<std::string> words{OMBREL_JOBS_PROGRAM, "--jobs=" + folder + "/jobs",
                                       "--scan=" + folder + "/scan", "--log=" + folder + "/log"};
        words.insert(words.end(), more.begin(), more.end());
        return runProgram(words, std::chrono::seconds(30));
    }
    [[nodiscard]] bool exists(const std::string& name) const { return fs::exists(folder + "/" + name); }

    std::string folder;
};

TEST_F(OmbrelJobs, MakesAFolderForEachDefinitionAndSaysNothing) {
    define("one", kGood);
    define("two", std::string(kGood) + "after=\"one\"\n");
    std::ofstream(folder + "/jobs/README") << "no definition";
    const ProgramResult result = run();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output + result.errors, IsEmpty());
    for (const char* script : {"run", "finish"}) {
        struct stat info {};
        ASSERT_EQ(::stat((folder + "/scan/one/" + script).c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777U, 0755U) << script;
    }
    EXPECT_TRUE(exists("scan/two/log/run"));
    EXPECT_TRUE(exists("scan/two/down"));
    EXPECT_TRUE(exists("log/two"));
    EXPECT_FALSE(exists("scan/.two.new"));
}

TEST_F(OmbrelJobs, LeavesAJobOnAndDropsWhatItsDefinitionNoLongerHas) {
    define("one", std::string(kGood) + "reload_signal=\"HUP\"\n");
    ASSERT_EQ(run().exitCode, 0);
    fs::remove(folder + "/scan/one/down");
    EXPECT_TRUE(exists("scan/one/data/reload-signal"));
    define("one", kGood);
    EXPECT_EQ(run().exitCode, 0);
    EXPECT_FALSE(exists("scan/one/down"));
    EXPECT_FALSE(exists("scan/one/data/reload-signal"));
}

TEST_F(OmbrelJobs, CompletesTheFolderThatAKilledRunLeft) {
    define("one", kGood);
    fs::create_directories(folder + "/scan/.one.new/log");
    EXPECT_EQ(run().exitCode, 0);
    EXPECT_TRUE(exists("scan/one/down"));
}

TEST_F(OmbrelJobs, ListsTheJobsInTheOrderOfTheirStart) {
    define("a", std::string(kGood) + "after=\"b\"\n");
    define("b", kGood);
    EXPECT_EQ(run({"--list"}).output, "b\na\n");
    EXPECT_FALSE(exists("scan"));
}

TEST_F(OmbrelJobs, RefusesAWrongDefinitionAndMakesNothing) {
    define("good", kGood);
    define("wrong", "command=\"x\"\n");
    const ProgramResult result = run();
    EXPECT_EQ(result.exitCode, 65);
    EXPECT_THAT(result.errors, AllOf(HasSubstr(folder + "/jobs/wrong.job: line 1:"), HasSubstr("; correct")));
    EXPECT_FALSE(exists("scan"));
}

TEST_F(OmbrelJobs, RefusesJobsThatWaitForOneAnother) {
    define("a", std::string(kGood) + "after=\"b\"\n");
    define("b", std::string(kGood) + "after=\"a\"\n");
    EXPECT_EQ(run().exitCode, 65);
}

TEST_F(OmbrelJobs, SaysWhereItFoundNoDefinitions) {
    const ProgramResult empty = run();
    EXPECT_EQ(empty.exitCode, 66);
    EXPECT_THAT(empty.errors, HasSubstr(folder + "/jobs: holds no definitions"));
    fs::remove(folder + "/jobs");
    EXPECT_EQ(run().exitCode, 66);
}

TEST_F(OmbrelJobs, SaysWhereItCannotWrite) {
    define("one", kGood);
    std::ofstream(folder + "/scan") << "a file";
    const ProgramResult result = run();
    EXPECT_EQ(result.exitCode, 73);
    EXPECT_THAT(result.errors, HasSubstr(folder + "/scan/one"));
}

class OmbrelJobsUnits : public OmbrelJobs {
protected:
    void SetUp() override {
        OmbrelJobs::SetUp();
        fs::create_directories(folder + "/units/multi-user.target.wants");
    }
    [[nodiscard]] ProgramResult runUnits() const {
        return runProgram({OMBREL_JOBS_PROGRAM, "--jobs=" + folder + "/jobs/", "--systemd=" + folder + "/units"},
                          std::chrono::seconds(30));
    }
    [[nodiscard]] std::string unit(const std::string& name) const {
        std::ifstream file(folder + "/units/" + name);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }
};

TEST_F(OmbrelJobsUnits, AreMadeAndRenewedAlone) {
    define("one", kGood);
    const ProgramResult result = runUnits();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output + result.errors, IsEmpty());
    EXPECT_THAT(unit("one.service"),
                AllOf(HasSubstr(" from " + folder + "/jobs/one.job\n"), HasSubstr("\nExecStart=/bin/x\n")));
    EXPECT_FALSE(exists("scan"));
    define("one", "description=\"x\"\ncommand=\"/bin/y\"\nready_fd=\"3\"\n");
    EXPECT_EQ(runUnits().exitCode, 0);
    EXPECT_THAT(unit("one.service"), HasSubstr("\nExecStart=/bin/y\n"));
}

TEST_F(OmbrelJobsUnits, GoWithTheirDefinitionAndThoseOfOthersStay) {
    define("one", kGood);
    define("gone", kGood);
    std::ofstream(folder + "/units/other.service") << "[Service]\nExecStart=/bin/other\n";
    std::ofstream(folder + "/units/theirs.service")
        << "# Made by ombrel-jobs, which also writes over changes, from /another/place/theirs.job\n";
    ASSERT_EQ(runUnits().exitCode, 0);
    fs::create_symlink(folder + "/units/gone.service", folder + "/units/multi-user.target.wants/gone.service");
    fs::remove(folder + "/jobs/gone.job");
    const ProgramResult result = runUnits();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, "gone.service removed: its definition is gone\n");
    EXPECT_FALSE(exists("units/gone.service"));
    EXPECT_FALSE(fs::is_symlink(folder + "/units/multi-user.target.wants/gone.service"));
    EXPECT_TRUE(exists("units/one.service"));
    EXPECT_TRUE(exists("units/other.service"));
    EXPECT_TRUE(exists("units/theirs.service"));
}

TEST_F(OmbrelJobsUnits, HaveATimerForAsLongAsTheirDefinitionWantsOne) {
    const std::string timed = std::string(kGood) + "every_seconds=\"300\"\n";
    const std::string link = folder + "/units/timers.target.wants/one.timer";
    fs::create_directory(folder + "/units/timers.target.wants");
    for (const bool isGone : {false, true}) {
        define("one", timed);
        define("two", kGood);
        ASSERT_EQ(runUnits().exitCode, 0);
        EXPECT_THAT(unit("one.service"), HasSubstr("\nType=oneshot\n"));
        EXPECT_THAT(unit("one.timer"), HasSubstr("\nOnUnitActiveSec=300\n"));
        EXPECT_FALSE(exists("units/two.timer"));
        fs::create_symlink(folder + "/units/one.timer", link);
        define("one", kGood);
        if (isGone) fs::remove(folder + "/jobs/one.job");
        ASSERT_EQ(runUnits().exitCode, 0);
        EXPECT_FALSE(exists("units/one.timer"));
        EXPECT_FALSE(fs::is_symlink(link));
        EXPECT_EQ(exists("units/one.service"), !isGone);
    }
}

TEST_F(OmbrelJobsUnits, OfOthersAreNotWrittenOver) {
    define("one", kGood);
    std::ofstream(folder + "/units/one.service") << "[Service]\nExecStart=/bin/other\n";
    const ProgramResult result = runUnits();
    EXPECT_EQ(result.exitCode, 73);
    EXPECT_THAT(result.errors, HasSubstr(folder + "/units/one.service: somebody else has made or masked it"));
    EXPECT_EQ(unit("one.service"), "[Service]\nExecStart=/bin/other\n");
}

TEST_F(OmbrelJobsUnits, ThatAreMaskedStayMasked) {
    define("one", kGood);
    fs::create_symlink("/dev/null", folder + "/units/one.service");
    EXPECT_EQ(runUnits().exitCode, 73);
    EXPECT_TRUE(fs::is_symlink(folder + "/units/one.service"));
}

TEST_F(OmbrelJobsUnits, NeedTheirFolder) {
    define("one", kGood);
    fs::remove_all(folder + "/units");
    const ProgramResult result = runUnits();
    EXPECT_EQ(result.exitCode, 73);
    EXPECT_THAT(result.errors, HasSubstr(folder + "/units/one.service: No such file or directory"));
}

TEST_F(OmbrelJobsUnits, ComeBesideServiceFolders) {
    define("one", kGood);
    EXPECT_EQ(run({"--systemd=" + folder + "/units"}).exitCode, 0);
    EXPECT_TRUE(exists("units/one.service"));
    EXPECT_TRUE(exists("scan/one/run"));
}

TEST_F(OmbrelJobs, ExplainsItselfForWrongOptions) {
    EXPECT_EQ(run({"--unknown"}).exitCode, 64);
    EXPECT_EQ(run({"word"}).exitCode, 64);
    const ProgramResult help = run({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_THAT(help.output, HasSubstr("usage: ombrel-jobs"));
}

TEST(Definitions, OfTheProductAreRight) {
    const ProgramResult result =
        runProgram({OMBREL_JOBS_PROGRAM, "--jobs=" OMBREL_JOB_FOLDER, "--list"}, std::chrono::seconds(30));
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    const std::size_t writer = result.output.find("pkg-Ombrel-syslog\n");
    EXPECT_NE(writer, std::string::npos);
    for (const char* const receiver : {"bsd", "ietf", "custrule", "localarchive", "schedule"}) {
        const std::size_t place = result.output.find(std::string("pkg-Ombrel-") + receiver + "\n");
        EXPECT_NE(place, std::string::npos) << receiver;
        EXPECT_GT(place, writer) << receiver << " starts before the log writer";
    }
    EXPECT_THAT(result.output, HasSubstr("syslog-notify\n"));
}

}  // namespace
