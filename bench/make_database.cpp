// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
//   make-database PATH ROWS      makes the log database where it is missing
#include <cstdio>
#include <cstdlib>

#include "bench/bench_database.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        (void)fputs("usage: make-database PATH ROWS\n", stderr);
        return 64;
    }
    ombrel::bench::keepDatabase(argv[1], std::atol(argv[2]));
    return 0;
}
