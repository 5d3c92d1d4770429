// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/tls_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstdio>
#include <ctime>
#include <memory>
#include <string>

#include "tests/receiver/temp_folder.h"
#include "tests/receiver/test_certificate.h"

namespace ombrel {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr long kDay = 24 * 60 * 60;

std::string dayFromNow(long seconds) {
    const std::time_t when = std::time(nullptr) + seconds;
    tm parts{};
    ::gmtime_r(&when, &parts);
    char text[16];
    return {text, std::strftime(text, sizeof text, "%Y-%m-%d", &parts)};
}

class TlsFiles : public testing::Test {
protected:
    void makeKey(const char* password = nullptr) {
        key.reset(EVP_EC_gen("P-256"));
        writeKey(keyFile(), key.get(), password);
    }
    // Of the key, valid between two times, in seconds from now.
    void makeCertificate(long from, long until) { writeCertificate(certificateFile(), key.get(), from, until); }
    [[nodiscard]] std::string keyFile() const { return folder / "key.pem"; }
    [[nodiscard]] std::string certificateFile() const { return folder / "certificate.pem"; }
    [[nodiscard]] std::string wrong() const { return whatIsWrongWithTlsFiles(keyFile(), certificateFile()); }
    [[nodiscard]] std::string ofKey() const { return "server_ca_key=\"" + keyFile() + "\""; }
    [[nodiscard]] std::string ofCertificate() const { return "server_ca_file=\"" + certificateFile() + "\""; }

    TempFolder folder;
    Key key;
};

TEST_F(TlsFiles, OfOnePairAndOfTodayAreFine) {
    makeKey();
    makeCertificate(-kDay, kDay);
    EXPECT_EQ(wrong(), "");
}

TEST_F(TlsFiles, AreNamedWhenTheyAreNotThere) {
    EXPECT_THAT(wrong(), StartsWith("cannot read " + ofKey()));
    makeKey();
    EXPECT_THAT(wrong(), StartsWith("cannot read " + ofCertificate()));
}

TEST_F(TlsFiles, ExpiredAreRefusedWithTheDate) {
    makeKey();
    makeCertificate(-10 * kDay, -kDay);
    EXPECT_THAT(wrong(),
                StartsWith(ofCertificate() + " has expired: it was valid until " + dayFromNow(-kDay) + "T"));
    makeCertificate(-10 * kDay, -1);
    EXPECT_THAT(wrong(), HasSubstr("has expired"));
}

TEST_F(TlsFiles, OfTheFutureAreRefusedWithTheDate) {
    makeKey();
    makeCertificate(kDay, 10 * kDay);
    EXPECT_THAT(wrong(),
                StartsWith(ofCertificate() + " is not valid yet: it will be from " + dayFromNow(kDay) + "T"));
}

TEST_F(TlsFiles, OfTwoPairsAreRefused) {
    makeKey();
    makeCertificate(-kDay, kDay);
    makeKey();
    EXPECT_THAT(wrong(), StartsWith(ofKey() + " is no key without password in PEM form that belongs to"));
}

TEST_F(TlsFiles, BehindAPasswordAreRefusedWithoutAsking) {
    makeKey("secret");
    makeCertificate(-kDay, kDay);
    EXPECT_THAT(wrong(), StartsWith(ofKey() + " is no key"));
}

TEST_F(TlsFiles, ThatHoldSomethingElseAreNamed) {
    makeKey();
    writeText(certificateFile(), "junk");
    EXPECT_THAT(wrong(), StartsWith(ofCertificate() + " is no certificate in PEM form"));
    makeCertificate(-kDay, kDay);
    writeText(keyFile(), "junk");
    EXPECT_THAT(wrong(), StartsWith(ofKey() + " is no key"));
}

}  // namespace
}  // namespace ombrel
