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
    struct stat info {};
    ASSERT_EQ(::stat((folder + "/scan/one/run").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0755U);
    EXPECT_TRUE(exists("scan/two/log/run"));
    EXPECT_TRUE(exists("scan/two/down"));
    EXPECT_TRUE(exists("log/two"));
    EXPECT_FALSE(exists("scan/.two.new"));
}

TEST_F(OmbrelJobs, LeavesAJobOnAndDropsWhatItsDefinitionNoLongerHas) {
    define("one", "description=\"x\"\ncommand=\"/bin/x\"\nready_check=\"/bin/y\"\nreload_signal=\"HUP\"\n");
    ASSERT_EQ(run().exitCode, 0);
    fs::remove(folder + "/scan/one/down");
    EXPECT_TRUE(exists("scan/one/data/check"));
    define("one", kGood);
    EXPECT_EQ(run().exitCode, 0);
    EXPECT_FALSE(exists("scan/one/down"));
    EXPECT_FALSE(exists("scan/one/data/check"));
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
    EXPECT_THAT(result.output, HasSubstr("pkg-Ombrel-syslog\n"));
    EXPECT_THAT(result.output, HasSubstr("pkg-Ombrel-bsd\n"));
}

}  // namespace
