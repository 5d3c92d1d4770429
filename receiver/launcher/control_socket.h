// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <chrono>
#include <string>

namespace ombrel {

/// Whether a syslog-ng answers on its control socket within `timeout`.
bool answersOnControlSocket(const std::string& path, std::chrono::milliseconds timeout);

}  // namespace ombrel
