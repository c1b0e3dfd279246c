// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/options.h"

#include <gtest/gtest.h>

namespace android::vus::hotplug {
namespace {

TEST(Options, AreOffByDefault) {
    const Options options = parse_options({});
    EXPECT_FALSE(options.once || options.verbose || options.help || options.fail_closed ||
                 options.version);
    EXPECT_EQ(options.error, "");
}

TEST(Options, AreTakenInAnyOrder) {
    const Options options = parse_options({"--verbose", "--once"});
    EXPECT_TRUE(options.once && options.verbose && !options.help);
    EXPECT_TRUE(parse_options({"--fail-closed"}).fail_closed);
    EXPECT_TRUE(parse_options({"--help"}).help);
    EXPECT_TRUE(parse_options({"-h"}).help);
    EXPECT_TRUE(parse_options({"--version"}).version);
}

TEST(Options, UnknownOnesAreErrors) {
    EXPECT_EQ(parse_options({"--once", "-x", "--y"}).error, "unknown argument: -x");
    EXPECT_EQ(parse_options({""}).error, "unknown argument: ");
}

}  // namespace
}  // namespace android::vus::hotplug
