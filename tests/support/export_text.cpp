// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
//   export-text DATABASE OUT      one text export, as the post-processing makes it
#include <cstdio>

#include "ombrel/postprocessor.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        (void)fputs("usage: export-text DATABASE OUT\n", stderr);
        return 64;
    }
    PostProcessor processor;
    return processor.DB2TXT(argv[1], argv[2]) < 0 ? 1 : 0;
}
