// SPDX-License-Identifier: Apache-2.0
//
// The unwinder and the decompressor that it brings are loaded when a stack trace is asked for.
#include <backtrace/Backtrace.h>
#include <gtest/gtest.h>

#include <android-base/file.h>

#include <memory>
#include <string>

namespace android::vus {
namespace {

bool IsLoaded(const std::string& library) {
    std::string maps;
    EXPECT_TRUE(base::ReadFileToString("/proc/self/maps", &maps));
    return maps.find("/" + library) != std::string::npos;
}

TEST(LazyBacktrace, IsLoadedWhenItIsAskedForAndThenIsThePlatforms) {
    ASSERT_TRUE(IsLoaded("libutils.so.0"));  // which names it among its needs
    EXPECT_FALSE(IsLoaded("7z.so"));

    const std::unique_ptr<Backtrace> here(
            Backtrace::Create(BACKTRACE_CURRENT_PROCESS, BACKTRACE_CURRENT_THREAD));
    EXPECT_TRUE(IsLoaded("7z.so"));
    ASSERT_NE(here, nullptr);
    EXPECT_TRUE(here->Unwind(0));
    ASSERT_GT(here->NumFrames(), 2u);
    EXPECT_NE(here->FormatFrameData(size_t{0}).find("#00 pc "), std::string::npos);
}

}  // namespace
}  // namespace android::vus
