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

TEST(Options, GateIsOffByDefaultAndByName) {
    EXPECT_FALSE(parse_options({}).gate);
    EXPECT_TRUE(parse_options({"--gate"}).gate);
    EXPECT_TRUE(parse_options({"--gate=keep"}).gate);
    EXPECT_FALSE(parse_options({"--gate", "--gate=off"}).gate);
    EXPECT_EQ(parse_options({"--gate=open"}).error, "unknown argument: --gate=open");
}

TEST(Options, PartsAreAdmittedByAGateAlone) {
    EXPECT_FALSE(parse_options({"--gate"}).interfaces);
    EXPECT_TRUE(parse_options({"--interfaces", "--gate"}).interfaces);
    EXPECT_EQ(parse_options({"--interfaces", "--gate"}).error, "");
    EXPECT_EQ(parse_options({"--interfaces"}).error, "--interfaces goes with --gate");
}

TEST(Options, DoorIsOpenedByThatOptionAlone) {
    EXPECT_TRUE(parse_options({"--open"}).open);
    EXPECT_EQ(parse_options({"--open"}).error, "");
    EXPECT_EQ(parse_options({"--open", "--gate"}).error, "--open goes with nothing else");
}

TEST(Options, EventsGoToAFileThatIsNamed) {
    EXPECT_EQ(parse_options({}).events, "");
    EXPECT_EQ(parse_options({"--events", "/x", "--verbose"}).events, "/x");
    EXPECT_EQ(parse_options({"--events"}).error, "--events needs a file");
    EXPECT_EQ(parse_options({"--verbose", "--events", ""}).error, "--events needs a file");
}

TEST(Options, UnknownOnesAreErrors) {
    EXPECT_EQ(parse_options({"--once", "-x", "--y"}).error, "unknown argument: -x");
    EXPECT_EQ(parse_options({""}).error, "unknown argument: ");
}

}  // namespace
}  // namespace android::vus::hotplug
