// SPDX-License-Identifier: Apache-2.0
//
// What a service gives back of its memory, and that nothing is lost by it.

#include "platform/footprint.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include <android-base/file.h>

namespace android::vus::platform {
namespace {

// Kilobytes of mapped files that are resident.
int ResidentOfFiles() {
    std::string status;
    EXPECT_TRUE(base::ReadFileToString("/proc/self/status", &status));
    const size_t line = status.find("RssFile:");
    return line == std::string::npos ? 0 : std::stoi(status.substr(line + 8));
}

TEST(Footprint, WhatOnlyTheStartNeededIsGivenBackAndTheRestComesBack) {
    static int written = 1;  // in a segment that can be written, so it stays as it is
    ++written;
    const int before = ResidentOfFiles();
    releaseCodeOfStart();
    // By code that was given back with all the rest.
    EXPECT_LT(ResidentOfFiles(), before);
    EXPECT_EQ(written, 2);
}

size_t CountHeaps() {
    char* text = nullptr;
    size_t size = 0;
    FILE* const stream = open_memstream(&text, &size);
    malloc_info(0, stream);
    fclose(stream);
    const std::string info(text, size);
    free(text);
    size_t heaps = 0;
    for (size_t at = info.find("<heap nr="); at != std::string::npos;
         at = info.find("<heap nr=", at + 1)) {
        ++heaps;
    }
    return heaps;
}

TEST(Footprint, ThreadsShareOneHeap) {
    const pid_t child = fork();
    if (child == 0) {
        shareOneHeap();
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back([] {
                for (int n = 0; n < 1000; ++n) free(malloc(100000));
            });
        }
        for (std::thread& thread : threads) thread.join();
        _exit(CountHeaps() == 1 ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace android::vus::platform
