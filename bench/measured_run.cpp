// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
//   measured-run REPORT COMMAND...      runs it and writes into REPORT: seconds, processor seconds, most memory in
//   KiB
// Exit code: that of the command.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

namespace {

double secondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

bool report(const char* path, double seconds, const rusage& usage) {
    FILE* file = fopen(path, "w");
    if (file == nullptr) return false;
    const bool written = fprintf(file, "%.3f %.3f %ld\n", seconds,
                                 secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime), usage.ru_maxrss) > 0;
    return fclose(file) == 0 && written;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        (void)fputs("usage: measured-run REPORT COMMAND...\n", stderr);
        return 64;
    }
    const auto begin = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        execvp(argv[2], argv + 2);
        perror(argv[2]);
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    if (child < 0 || wait4(child, &status, 0, &usage) != child) {
        perror("measured-run");
        return 71;
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    if (!report(argv[1], took.count(), usage)) {
        perror(argv[1]);
        return 73;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
