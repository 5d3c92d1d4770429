// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/vesksdk/samba_shares.h"

#include <algorithm>

#include "linux/common/child_process.h"
#include "linux/common/error_record.h"
#include "linux/vesksdk/user_shares.h"

namespace ombrel {

int readShares(std::vector<Share>& shares) {
    // -v also prints the parameters that are at their defaults, which the user shares depend on.
    const ProgramResult testparm = runProgram({"/usr/bin/testparm", "-s", "-v"}, std::chrono::seconds(10));
    if (testparm.error != 0) return fail(testparm.error);
    if (testparm.exitCode != 0) return fail(kErrorProgramFailed);
    ShareDefinitions definitions = parseDefinitions(testparm.output);
    for (Share& user : userShares(definitions)) {
        const auto same = [&user](const Share& share) { return sameShareName(share.name, user.name); };
        // What the administrator defined goes before what a user defined under the same name.
        if (std::none_of(definitions.shares.begin(), definitions.shares.end(), same))
            definitions.shares.push_back(std::move(user));
    }
    shares = std::move(definitions.shares);
    return 0;
}

}  // namespace ombrel
