// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/tls_files.h"

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

namespace ombrel {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

struct FileClose {
    void operator()(FILE* file) const noexcept { (void)std::fclose(file); }
};
using File = std::unique_ptr<FILE, FileClose>;
struct KeyFree {
    void operator()(EVP_PKEY* key) const noexcept { EVP_PKEY_free(key); }
};
using Key = std::unique_ptr<EVP_PKEY, KeyFree>;
struct CertificateFree {
    void operator()(X509* certificate) const noexcept { X509_free(certificate); }
};

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
        const File file(std::fopen(keyFile().c_str(), "w"));
        ASSERT_EQ(PEM_write_PrivateKey(file.get(), key.get(), password != nullptr ? EVP_aes_256_cbc() : nullptr,
                                       nullptr, 0, nullptr, const_cast<char*>(password)),
                  1);
    }
    // Of the key, valid between two times, in seconds from now.
    void makeCertificate(long from, long until) {
        const std::unique_ptr<X509, CertificateFree> certificate(X509_new());
        X509_gmtime_adj(X509_getm_notBefore(certificate.get()), from);
        X509_gmtime_adj(X509_getm_notAfter(certificate.get()), until);
        X509_set_pubkey(certificate.get(), key.get());
        ASSERT_GT(X509_sign(certificate.get(), key.get(), EVP_sha256()), 0);
        const File file(std::fopen(certificateFile().c_str(), "w"));
        ASSERT_EQ(PEM_write_X509(file.get(), certificate.get()), 1);
    }
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
