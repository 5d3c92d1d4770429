// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What stands in the file system, on every platform.
#include <gmock/gmock.h>

#include "platform/veskcore.h"
#include "tests/contract/contract_fixture.h"
#include "tests/contract/core_handles.h"

namespace ombrel::contract {
namespace {

using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr int kSubFolders = 0x40;

class Folder : public ContractTest {};

TEST_F(Folder, AFileAndAFolderExistAndAMissingNameDoesNot) {
    const std::string path = file("a", "");
    world->makeFolder(at("b"));
    EXPECT_GT(VLIBCFileExist(path.c_str()), 0);
    EXPECT_GT(VLIBCFileExist(at("b").c_str()), 0);
    EXPECT_EQ(VLIBCFileExist(at("c").c_str()), 0);
    EXPECT_EQ(VLIBCFileExist(at("a/below-a-file").c_str()), 0);
    EXPECT_EQ(VLIBCFileExist(""), 0);
}

TEST_F(Folder, WhetherANameThatIsTooLongExistsCannotBeTold) {
    EXPECT_LT(VLIBCFileExist(at(std::string(256, 'n')).c_str()), 0);
}

TEST_F(Folder, DeliversTheNamesOfItsSubFoldersAlone) {
    file("VESKSYSLOGDB__ARCH.DB", "");
    world->makeFolder(at("host1"));
    world->makeFolder(at("host two"));
    world->makeFolder(at(".hidden"));
    world->makeFolder(at("host1/below"));
    List list(1);
    ASSERT_GE(VLIBCSzListPush(list.address(), "held"), 0);
    EXPECT_GE(VLIBCFileEnumDir(world->folder().c_str(), 0, list.address(), kSubFolders), 0);
    EXPECT_THAT(list.texts(), UnorderedElementsAre("held", "host1", "host two", ".hidden"));
}

TEST_F(Folder, DeliversNothingWhenEmptyAndFailsWhenMissing) {
    world->makeFolder(at("empty"));
    List list;
    EXPECT_GE(VLIBCFileEnumDir(at("empty").c_str(), 0, list.address(), kSubFolders), 0);
    EXPECT_LT(VLIBCFileEnumDir(at("none").c_str(), 0, list.address(), kSubFolders), 0);
    EXPECT_THAT(list.texts(), IsEmpty());
}

}  // namespace
}  // namespace ombrel::contract
