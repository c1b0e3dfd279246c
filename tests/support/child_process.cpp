// SPDX-License-Identifier: Apache-2.0

#include "tests/support/child_process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/unique_fd.h>
#include <gtest/gtest.h>

// Coverage counters are written by exit handlers, which _exit skips.
extern "C" void __gcov_dump() __attribute__((weak));

namespace android::vus {

namespace {

// Threads of the child may still be at work, so its static objects stay as they are.
[[noreturn]] void EndChild() {
    fflush(nullptr);
    if (__gcov_dump != nullptr) __gcov_dump();
    _exit(::testing::Test::HasFailure() ? 1 : 0);
}

int log_descriptor = -1;

void LogTo(int fd) {
    log_descriptor = fd;
    base::SetLogger(
            [fd](base::LogId, base::LogSeverity severity, const char*, const char*, unsigned,
                 const char* message) { dprintf(fd, "%c %s\n", "VDIWEFF"[severity], message); });
}

std::vector<std::string> ReadLines(int fd) {
    std::string text;
    EXPECT_TRUE(base::ReadFdToString(fd, &text));
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

void Await(pid_t child, ChildResult* result) {
    int status = 0;
    ASSERT_EQ(TEMP_FAILURE_RETRY(waitpid(child, &status, 0)), child);
    if (WIFEXITED(status)) result->exit_status = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) result->signal = WTERMSIG(status);
}

}  // namespace

int LogDescriptor() {
    return log_descriptor;
}

ChildResult RunInChild(const std::function<void()>& body) {
    ChildResult result;
    base::unique_fd reader;
    base::unique_fd writer;
    EXPECT_TRUE(base::Pipe(&reader, &writer));
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        reader.reset();
        LogTo(writer.get());
        body();
        EndChild();
    }
    writer.reset();
    result.log = ReadLines(reader.get());
    Await(child, &result);
    return result;
}

void ExpectPassesInChild(const std::function<void()>& body) {
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        body();
        EndChild();
    }
    ChildResult result;
    Await(child, &result);
    EXPECT_EQ(result.exit_status, 0) << "signal " << result.signal;
}

}  // namespace android::vus
