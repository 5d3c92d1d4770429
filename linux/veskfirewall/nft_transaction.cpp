// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/veskfirewall/nft_transaction.h"

#include <linux/netlink.h>
#include <nftables/libnftables.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>

#include "linux/common/error_record.h"
#include "linux/common/fd.h"
#include "linux/common/text_escape.h"

namespace ombrel {
namespace {

struct ContextFree {
    void operator()(nft_ctx* context) const noexcept { nft_ctx_free(context); }
};
using Context = std::unique_ptr<nft_ctx, ContextFree>;

/// The library words an error of the kernel by strerror(3); there is no other way to learn its number.
int codeOf(std::string_view words) {
    constexpr int kLastErrno = EHWPOISON;
    for (int error = 1; error <= kLastErrno; ++error) {
        if (words.ends_with(std::strerror(error))) return fromErrno(error);
    }
    return kErrorProgramFailed;
}

/// The first line says what is wrong, those below it show the place in the commands.
std::string firstLine(const char* words) {
    constexpr std::size_t kMostShown = 500;
    const std::string_view all = words != nullptr ? words : "";
    const std::string_view line = all.substr(0, all.find('\n'));
    return line.empty() ? "libnftables gives no reason" : escapeForLine(line.substr(0, kMostShown));
}

/// `answer` may be null.
int run(const std::string& commands, std::string* answer, std::string& reason) {
    // The library ends the whole process when it cannot open this socket, so it is tried first.
    if (!Fd(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_NETFILTER))) {
        const int error = errno;
        reason = std::string("the kernel's netfilter cannot be reached: ") + std::strerror(error);
        return fromErrno(error);
    }
    const Context context(nft_ctx_new(NFT_CTX_DEFAULT));
    if (context == nullptr || nft_ctx_buffer_output(context.get()) != 0 ||
        nft_ctx_buffer_error(context.get()) != 0) {
        reason = "libnftables cannot be set up: out of memory";
        return kErrorOutOfMemory;
    }
    if (nft_run_cmd_from_buffer(context.get(), commands.c_str()) == 0) {
        const char* const said = nft_ctx_get_output_buffer(context.get());
        if (answer != nullptr) *answer = said != nullptr ? said : "";
        return 0;
    }
    reason = firstLine(nft_ctx_get_error_buffer(context.get()));
    return codeOf(reason);
}

}  // namespace

int runTransaction(const std::string& commands, std::string& reason) {
    return run(commands, nullptr, reason);
}

int askFirewall(const std::string& command, std::string& answer, std::string& reason) {
    return run(command, &answer, reason);
}

}  // namespace ombrel
