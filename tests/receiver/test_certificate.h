// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Keys and certificates that are made for a test.
#pragma once

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstdio>
#include <memory>
#include <string>

namespace ombrel {

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

inline void writeKey(const std::string& path, EVP_PKEY* key, const char* password = nullptr) {
    const File file(std::fopen(path.c_str(), "w"));
    ASSERT_EQ(PEM_write_PrivateKey(file.get(), key, password != nullptr ? EVP_aes_256_cbc() : nullptr, nullptr, 0,
                                   nullptr, const_cast<char*>(password)),
              1);
}

// Valid between two times, in seconds from now.
inline void writeCertificate(const std::string& path, EVP_PKEY* key, long from, long until) {
    const std::unique_ptr<X509, CertificateFree> certificate(X509_new());
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), from);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), until);
    X509_set_pubkey(certificate.get(), key);
    ASSERT_GT(X509_sign(certificate.get(), key, EVP_sha256()), 0);
    const File file(std::fopen(path.c_str(), "w"));
    ASSERT_EQ(PEM_write_X509(file.get(), certificate.get()), 1);
}

}  // namespace ombrel
