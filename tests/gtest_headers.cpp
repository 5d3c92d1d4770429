// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Has the headers of the test library compiled, which all tests then use.
int main() {
    return 0;
}
