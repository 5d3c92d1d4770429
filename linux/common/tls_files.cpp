// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/tls_files.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>

namespace ombrel {

namespace {

struct ContextFree {
    void operator()(SSL_CTX* context) const noexcept { SSL_CTX_free(context); }
};

// Nobody is there to be asked; the library would ask on the terminal.
int noPassword(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*context*/) noexcept {
    return -1;
}

std::string lastReason() {
    const unsigned long code = ERR_peek_last_error();
    const char* const reason = code != 0 ? ERR_reason_error_string(code) : nullptr;
    ERR_clear_error();
    return reason != nullptr ? std::string(" (") + reason + ")" : std::string();
}

// RFC 3339; X.509 knows only UTC.
std::string timeText(const ASN1_TIME* time) {
    tm parts{};
    char text[32] = "";
    if (ASN1_TIME_to_tm(time, &parts) != 1 || std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts) == 0)
        return "a time that cannot be read";
    return text;
}

// Of the certificate that is shown to senders. X509_cmp_current_time gives 0 for a time that cannot be read.
std::string notOfToday(const X509* certificate) {
    const ASN1_TIME* const first = X509_get0_notBefore(certificate);
    const ASN1_TIME* const last = X509_get0_notAfter(certificate);
    if (X509_cmp_current_time(last) <= 0) return " has expired: it was valid until " + timeText(last);
    if (X509_cmp_current_time(first) >= 0) return " is not valid yet: it will be from " + timeText(first) + " on";
    return {};
}

std::string notReadable(const std::string& setting, const std::string& path) {
    if (::access(path.c_str(), R_OK) == 0) return {};
    return "cannot read " + setting + ": " + std::strerror(errno);
}

}  // namespace

std::string whatIsWrongWithTlsFiles(const std::string& keyFile, const std::string& certificateFile) {
    const std::string key = "server_ca_key=\"" + keyFile + "\"";
    const std::string certificate = "server_ca_file=\"" + certificateFile + "\"";
    if (std::string wrong = notReadable(key, keyFile); !wrong.empty()) return wrong;
    if (std::string wrong = notReadable(certificate, certificateFile); !wrong.empty()) return wrong;
    ERR_clear_error();
    const std::unique_ptr<SSL_CTX, ContextFree> context(SSL_CTX_new(TLS_server_method()));
    if (!context) return "cannot use TLS" + lastReason();
    SSL_CTX_set_default_passwd_cb(context.get(), &noPassword);
    if (SSL_CTX_use_certificate_chain_file(context.get(), certificateFile.c_str()) != 1) {
        return certificate + " is no certificate in PEM form" + lastReason();
    }
    const std::string outOfTime = notOfToday(SSL_CTX_get0_certificate(context.get()));
    if (!outOfTime.empty()) return certificate + outOfTime;
    // Of another kind than the certificate's, a key is taken and only found wrong afterwards.
    if (SSL_CTX_use_PrivateKey_file(context.get(), keyFile.c_str(), SSL_FILETYPE_PEM) == 1 &&
        SSL_CTX_check_private_key(context.get()) == 1) {
        return {};
    }
    return key + " is no key without password in PEM form that belongs to " + certificate + lastReason();
}

}  // namespace ombrel
