// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Owners of the platform's handles, and the calls through which a handle may move.
#pragma once

#include <cstdlib>
#include <memory>

#include "platform/veskcore.h"
#include "platform/veskdb.h"
#include "platform/vesksdk.h"
#include "platform/veskserviceconf.h"

namespace ombrel {

struct HashFree {
    void operator()(VLIBSZHASH* hash) const noexcept { VLIBCSzHashFree(hash); }
};
using Hash = std::unique_ptr<VLIBSZHASH, HashFree>;

struct ListFree {
    void operator()(VLIBSZLIST* list) const noexcept { VLIBCSzListFree(list); }
};
using List = std::unique_ptr<VLIBSZLIST, ListFree>;

struct ShareFree {
    void operator()(VESKSHARE* share) const noexcept { VESKShareFree(share); }
};
using Share = std::unique_ptr<VESKSHARE, ShareFree>;

struct ConnectionClose {
    void operator()(VESKDBCONN* connection) const noexcept { VESKDBClose(connection); }
};
using Connection = std::unique_ptr<VESKDBCONN, ConnectionClose>;

struct ResultFree {
    void operator()(VESKDBRESULT* result) const noexcept { VESKDBFreeResult(result); }
};
using Result = std::unique_ptr<VESKDBRESULT, ResultFree>;

/// The composed parts of a port declaration are plain blocks of memory.
struct ComposedFree {
    void operator()(void* composed) const noexcept { std::free(composed); }
};
using PortInfo = std::unique_ptr<VESK_PORT_INFO, ComposedFree>;
using SectionInfo = std::unique_ptr<VESK_SECTION_INFO, ComposedFree>;

struct ServicePortsFree {
    void operator()(VESK_SERVICE_PORTS* ports) const noexcept { VESKServiceConfPortsFree(ports); }
};
using ServicePorts = std::unique_ptr<VESK_SERVICE_PORTS, ServicePortsFree>;

/// Hands `handle` to a call that takes a pointer to it and may replace it; owns whatever comes back,
/// also after a failure.
template <typename Owner, typename Call>
auto lend(Owner& handle, Call call) {
    auto* raw = handle.release();
    const auto result = call(&raw);
    handle.reset(raw);
    return result;
}

}  // namespace ombrel
