// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the declarations of all packages say, and the words for those that say nothing that can be used.
#include "linux/common/declared_ports.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "linux/common/error_record.h"

namespace ombrel {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class DeclaredPorts : public ::testing::Test {
protected:
    DeclaredPorts() {
        std::string name = (std::filesystem::temp_directory_path() / "ombrel-ports-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) std::abort();
        folder = name;
    }
    ~DeclaredPorts() override { std::filesystem::remove_all(folder); }

    void file(const std::string& name, const std::string& text) const {
        std::ofstream(folder + "/" + name, std::ios::binary) << text;
    }
    /// FILE[SECTION] of every declaration; the words of the fault where there is one.
    [[nodiscard]] std::vector<std::string> names() {
        if (readDeclarations(folder, declarations, fault) != 0) return {describe(fault)};
        std::vector<std::string> found;
        for (const Declaration& one : declarations)
            found.push_back(one.file + "[" + one.section + "]");
        return found;
    }
    /// The words for a file of this text, with its folder left out.
    [[nodiscard]] std::string wordsFor(const std::string& text) {
        file("other.sc", text);
        EXPECT_EQ(readDeclarations(folder, declarations, fault), -1) << text;
        EXPECT_EQ(VLIBCErrGet(), fault.code);
        const std::string words = describe(fault);
        EXPECT_EQ(words.find(folder + "/"), 0U) << words;
        return words.substr(folder.size() + 1);
    }

    std::string folder;
    std::vector<Declaration> declarations;
    SettingsFault fault;
};

TEST_F(DeclaredPorts, AreThoseOfAllSectionsOfAllFiles) {
    file("b.sc", "[web]\nport=\"80,443\"\nprotocol=\"tcp\"\n");
    file("a.sc",
         "# declared by hand\nstray=\"1\"\n[one]\ndisplay_name=\"A\"\ndescription=\"the \"first\"\"\n"
         "protocol=\"udp\"\nport=\"514\"\n\n[two]\r\n protocol = tcp,udp\r\n port = 6514-6520\r\n");
    EXPECT_THAT(names(), ElementsAre("a.sc[one]", "a.sc[two]", "b.sc[web]"));
    EXPECT_EQ(declarations[0].displayName, "A");
    EXPECT_EQ(declarations[0].description, "the \"first\"");
    EXPECT_EQ(declarations[0].protocols, (Protocols{false, true}));
    EXPECT_EQ(declarations[0].ports, (PortRanges{{514, 514}}));
    EXPECT_EQ(declarations[1].protocols, (Protocols{true, true}));
    EXPECT_EQ(declarations[1].ports, (PortRanges{{6514, 6520}}));
    EXPECT_EQ(declarations[2].ports, (PortRanges{{80, 80}, {443, 443}}));
}

TEST_F(DeclaredPorts, AreNoneWithoutFolderFilesOrSections) {
    EXPECT_THAT(names(), IsEmpty());
    file("empty.sc", "");
    file("comment.sc", "# nothing yet\nport=\"80\"\n");
    file("firewall.conf", "policy=\"drop\"\n[not]\nport=\"x\"\n");
    file(".hidden.sc", "[not]\nport=\"x\"\n");
    file("backup.sc~", "[not]\nport=\"x\"\n");
    EXPECT_THAT(names(), IsEmpty());
    folder += "/missing";
    EXPECT_THAT(names(), IsEmpty());
    folder.resize(folder.rfind('/'));
}

TEST_F(DeclaredPorts, CountOnceWhereASectionOrKeyIsRepeated) {
    file("a.sc",
         "[one]\nport=\"1\"\nport=\"x\"\nprotocol=\"tcp\"\n[one]\nport=\"2\"\n[two]\nport=\"3\"\nprotocol="
         "\"udp\"\n");
    EXPECT_THAT(names(), ElementsAre("a.sc[one]", "a.sc[two]"));
    EXPECT_EQ(declarations[0].ports, (PortRanges{{1, 1}}));
}

TEST_F(DeclaredPorts, AreRefusedWithTheirPlaceAndWhatIsExpected) {
    EXPECT_EQ(wordsFor("[web]\nport=\"70000\"\nprotocol=\"tcp\"\n"),
              "other.sc: section [web]: port=\"70000\": expected at most 256 ports of 1 to 65535 and ranges of "
              "them, such as \"514,6514-6520\"");
    EXPECT_EQ(wordsFor("[ok]\nport=\"1\"\nprotocol=\"tcp\"\n[web]\nport=\"80\"\nprotocol=\"sctp\"\n"),
              "other.sc: section [web]: protocol=\"sctp\": expected \"tcp\", \"udp\" or \"tcp,udp\"");
    EXPECT_THAT(wordsFor("[web]\nprotocol=\"tcp\"\n"), HasSubstr("[web]: port=\"\": is missing, expected"));
    EXPECT_THAT(wordsFor("[web]\nport=\"80\"\n"), HasSubstr("[web]: protocol=\"\": is missing, expected"));
    EXPECT_THAT(wordsFor("[web]\nport=\"80\"\nprotocol=\"\"\n"), HasSubstr("protocol=\"\": expected"));
    EXPECT_THAT(wordsFor("[web]\nport\nprotocol=\"tcp\"\n"), HasSubstr("port=\"\": is missing"));
    EXPECT_THAT(declarations, IsEmpty());
    EXPECT_EQ(fault.code, kErrorInvalidArgument);
}

TEST_F(DeclaredPorts, AreShownOnOneLineWhateverTheyHold) {
    EXPECT_THAT(wordsFor("[a\x1b[2J]\nport=\"\x07\xff\"\nprotocol=\"tcp\"\n"),
                HasSubstr("section [a\\x1b[2J]: port=\"\\x07\\xff\": expected"));
    const std::string words =
        wordsFor("[" + std::string(5000, 'a') + "]\nport=\"" + std::string(5000, '9') + "\"\n");
    EXPECT_LT(words.size(), 700U);
}

TEST_F(DeclaredPorts, AreReadWithinBounds) {
    EXPECT_EQ(wordsFor(std::string(kMostDeclarationBytes + 1, '#')), "other.sc: more than 4194304 bytes");
    std::string sections;
    for (std::size_t i = 0; i < kMostDeclarations; ++i)
        sections += "[s" + std::to_string(i) + "]\nport=\"1\"\nprotocol=\"tcp\"\n";
    file("other.sc", sections);
    EXPECT_THAT(names(), SizeIs(kMostDeclarations));
    file("some.sc", "[more]\nport=\"1\"\nprotocol=\"tcp\"\n");
    EXPECT_THAT(names(), ElementsAre(HasSubstr("some.sc: section [more]: more than 16384 sections in all files")));
}

TEST_F(DeclaredPorts, AreReadFromABoundedNumberOfFiles) {
    for (std::size_t i = 0; i < kMostDeclarationFiles; ++i)
        file(std::to_string(i) + ".sc", "");
    EXPECT_THAT(names(), IsEmpty());
    file("more.sc", "");
    EXPECT_THAT(names(), ElementsAre(folder + ": more than 512 files"));
}

TEST_F(DeclaredPorts, AreRefusedWhereAFileIsNoFile) {
    std::filesystem::create_directory(folder + "/folder.sc");
    EXPECT_THAT(names(), ElementsAre(folder + "/folder.sc: Is a directory"));
    EXPECT_EQ(VLIBCErrGet(), fromErrno(EISDIR));
    std::filesystem::remove(folder + "/folder.sc");
    ASSERT_EQ(::mkfifo((folder + "/pipe.sc").c_str(), 0600), 0);  // and nobody waits for its writer
    EXPECT_THAT(names(), ElementsAre(folder + "/pipe.sc: Invalid argument"));
    std::filesystem::remove(folder + "/pipe.sc");
    std::filesystem::create_symlink("gone", folder + "/dangling.sc");
    EXPECT_THAT(names(), IsEmpty());
}

}  // namespace
}  // namespace ombrel
