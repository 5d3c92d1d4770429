// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Shares as Samba's own tool reads them, with a definition file and user shares of the test.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "linux/common/error_record.h"
#include "platform/vesksdk.h"
#include "tests/linux/private_world.h"

using namespace ombrel;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class SambaShares : public test::PrivateRootTest {
protected:
    void SetUp() override {
        PrivateRootTest::SetUp();
        if (IsSkipped()) return;
        if (::access("/usr/bin/testparm", X_OK) != 0) GTEST_SKIP() << "testparm is not installed";
        if (::access("/etc/samba/smb.conf", F_OK) != 0) GTEST_SKIP() << "/etc/samba/smb.conf is missing";
        write(folder + "/smb.conf", "");
        bind(folder + "/smb.conf", "/etc/samba/smb.conf");
    }

    void define(const std::string& text) { write(folder + "/smb.conf", text); }
    /// The definitions, with a folder for user shares in which nothing is wrong.
    std::string defineUserShares(const std::string& parameters = "", const std::string& shares = "") {
        const std::string path = makeFolder("usershares");
        EXPECT_EQ(::chmod(path.c_str(), 01770), 0);
        define("[global]\nusershare path = " + path + "\n" + parameters + shares);
        return path;
    }
    static std::vector<std::string> names() {
        VLIBSZLIST* list = VLIBCSzListAlloc(1);
        EXPECT_EQ(VESKShareEnum(&list, 513), 0);
        std::vector<std::string> result(list->items, list->items + list->count);
        VLIBCSzListFree(list);
        return result;
    }
    static std::string pathOf(const char* name) {
        VESKSHARE* share = nullptr;
        const int result = VESKShareGet(name, &share);
        std::string path = result == 0 ? share->path : "<none>";
        VESKShareFree(share);
        return path;
    }
};

TEST_F(SambaShares, AreThoseWithAFolderOfTheirOwn) {
    define(
        "[global]\nworkgroup = X\n[homes]\nbrowseable = no\n[printers]\npath = /var/tmp\nprintable = yes\n"
        "[print$]\npath = /var/lib/samba/printers\n[Logs]\npath = /srv/logs\n[my files]\ndirectory = /srv/my "
        "files/\n[off]\npath = /srv/off\navailable = no\n[none]\ncomment = no path\n[each]\npath = /srv/%U\n"
        "[\u00c4rger]\npath = /srv/umlaut\n");
    EXPECT_THAT(names(), ElementsAre("Logs", "my files", "\u00c4rger"));
    EXPECT_EQ(pathOf("my files"), "/srv/my files");
    EXPECT_EQ(pathOf("homes"), "<none>");
    EXPECT_EQ(VLIBCErrGet(), kErrorNotFound);
}

TEST_F(SambaShares, AreFoundWithoutRegardToCase) {
    define("[Logs]\npath = /srv/logs\n[\u00c4rger]\npath = /srv/umlaut\n");
    EXPECT_EQ(pathOf("lOGS"), "/srv/logs");
    EXPECT_EQ(pathOf("\u00e4rger"), "/srv/umlaut");
    EXPECT_EQ(pathOf("Log"), "<none>");
}

TEST_F(SambaShares, ChangeWithTheDefinitions) {
    define("[a]\npath = /srv/a\n");
    EXPECT_EQ(pathOf("a"), "/srv/a");
    define("[a]\npath = /srv/b\n");
    EXPECT_EQ(pathOf("a"), "/srv/b");
    define("");
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(SambaShares, OfUsersComeBehindThoseOfTheAdministrator) {
    const std::string path = defineUserShares("", "[Zebra]\npath = /srv/zebra\n[Logs]\npath = /srv/logs\n");
    write(path + "/music", "#VERSION 2\npath=" + makeFolder("music") + "\nsharename=Music\n");
    write(path + "/logs", "#VERSION 2\npath=" + makeFolder("stolen") + "\nsharename=logs\n");
    EXPECT_THAT(names(), ElementsAre("Zebra", "Logs", "Music"));
    EXPECT_EQ(pathOf("music"), folder + "/music");
    EXPECT_EQ(pathOf("logs"), "/srv/logs");
}

TEST_F(SambaShares, OfUsersAreOnlyPlainSmallFilesOfExistingFolders) {
    const std::string path = defineUserShares();
    const std::string good = "path=" + makeFolder("music") + "\n";
    write(folder + "/elsewhere", good);
    ASSERT_EQ(::symlink((folder + "/elsewhere").c_str(), (path + "/link").c_str()), 0);
    ASSERT_EQ(::mkfifo((path + "/fifo").c_str(), 0600), 0);
    ASSERT_EQ(::mkdir((path + "/folder").c_str(), 0755), 0);
    write(path + "/large", good + std::string(11000, '#'));
    write(path + "/gone", "path=/srv/nobody/has/this\n");
    write(path + "/.hidden", good);
    EXPECT_THAT(names(), IsEmpty());
    write(path + "/good", good);
    EXPECT_THAT(names(), ElementsAre("good"));
}

TEST_F(SambaShares, OfUsersCountOnlyInAFolderThatIsSafe) {
    const std::string path = defineUserShares();
    write(path + "/music", "path=" + makeFolder("music") + "\n");
    ASSERT_EQ(::chmod(path.c_str(), 0770), 0);
    EXPECT_THAT(names(), IsEmpty());
    ASSERT_EQ(::chmod(path.c_str(), 01777), 0);
    EXPECT_THAT(names(), IsEmpty());
    ASSERT_EQ(::chmod(path.c_str(), 01775), 0);
    EXPECT_THAT(names(), ElementsAre("music"));
}

TEST_F(SambaShares, OfUsersShareNothingOfSomebodyElse) {
    const std::string path = defineUserShares();
    const std::string music = makeFolder("music");
    write(path + "/music", "path=" + music + "\n");
    if (::chown((path + "/music").c_str(), 12345, 12345) != 0) GTEST_SKIP() << "only root can give files away";
    EXPECT_THAT(names(), IsEmpty());
    ASSERT_EQ(::chown(music.c_str(), 12345, 12345), 0);
    EXPECT_THAT(names(), ElementsAre("music"));
    ASSERT_EQ(::chown(music.c_str(), 1, 1), 0);
    (void)defineUserShares("usershare owner only = no\n");
    EXPECT_THAT(names(), ElementsAre("music"));
}

TEST_F(SambaShares, OfUsersKeepToTheListsOfTheAdministrator) {
    const std::string path = defineUserShares("usershare prefix deny list = /etc " + folder + "/no/\n");
    write(path + "/no", "path=" + makeFolder("no/x") + "\n");
    write(path + "/nothing", "path=" + makeFolder("nothing") + "\n");
    EXPECT_THAT(names(), ElementsAre("nothing"));
    (void)defineUserShares("usershare prefix allow list = " + folder + "/no\n");
    EXPECT_THAT(names(), ElementsAre("no"));
    (void)defineUserShares("usershare max shares = 1\n");
    EXPECT_THAT(names(), ElementsAre("no"));
    (void)defineUserShares("usershare max shares = 0\n");
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(SambaShares, AreReadOnceForAListAndTheLookUpsOfItsNames) {
    // testparm that leaves a line for each run.
    std::filesystem::copy_file("/usr/bin/testparm", folder + "/testparm");
    write(folder + "/counting", "#!/bin/sh\necho >>" + folder + "/runs\nexec " + folder + "/testparm \"$@\"\n");
    ASSERT_EQ(::chmod((folder + "/counting").c_str(), 0755), 0);
    bind(folder + "/counting", "/usr/bin/testparm");
    const auto runs = [this] {
        return std::filesystem::exists(folder + "/runs") ? std::filesystem::file_size(folder + "/runs") : 0;
    };
    define("[a]\npath = /srv/a\n[b]\npath = /srv/b\n");
    EXPECT_THAT(names(), ElementsAre("a", "b"));
    EXPECT_EQ(pathOf("a"), "/srv/a");
    EXPECT_EQ(pathOf("b"), "/srv/b");
    EXPECT_EQ(runs(), 1U);
    define("[a]\npath = /srv/c\n");
    EXPECT_EQ(pathOf("a"), "/srv/c");
    EXPECT_EQ(pathOf("b"), "<none>");
    EXPECT_EQ(runs(), 2U);
    EXPECT_THAT(names(), ElementsAre("a"));
    EXPECT_EQ(runs(), 3U) << "a list is always a new one";
}

TEST_F(SambaShares, CannotBeReadWithoutTheTool) {
    define("[a]\npath = /srv/a\n");
    bind("/dev/null", "/usr/bin/testparm");
    VESKSHARE* share = nullptr;
    EXPECT_EQ(VESKShareGet("a", &share), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(EACCES));
    EXPECT_EQ(share, nullptr);
    VLIBSZLIST* list = VLIBCSzListAlloc(1);
    EXPECT_EQ(VESKShareEnum(&list, 513), -1);
    EXPECT_EQ(list->count, 0);
    VLIBCSzListFree(list);
}

TEST_F(SambaShares, CannotBeReadFromABrokenFile) {
    define("[a\n");
    VESKSHARE* share = nullptr;
    EXPECT_EQ(VESKShareGet("a", &share), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorProgramFailed);
}

TEST_F(SambaShares, AreAskedForByANameAndIntoAPlace) {
    VESKSHARE* share = nullptr;
    EXPECT_EQ(VESKShareGet(nullptr, &share), -1);
    EXPECT_EQ(VESKShareGet("", &share), -1);
    EXPECT_EQ(VESKShareGet("a", nullptr), -1);
    EXPECT_EQ(VESKShareEnum(nullptr, 513), -1);
    VLIBSZLIST* none = nullptr;
    EXPECT_EQ(VESKShareEnum(&none, 513), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorInvalidArgument);
}

}  // namespace
