// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The key and the certificate of a receiver, looked at before syslog-ng gets them: with a key that it cannot use
// it neither listens nor ends, but waits for a password.
#pragma once

#include <string>

namespace ombrel {

/// Empty when the receiver can use both, otherwise what is wrong, beginning with the key and value of the setting
/// that is to be mended. Reads PEM files; a key that is protected by a password cannot be used, nor a certificate
/// of another time than now.
std::string whatIsWrongWithTlsFiles(const std::string& keyFile, const std::string& certificateFile);

}  // namespace ombrel
