// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/surface.h"

#include <optional>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <json/value.h>

#include "tests/support/world.h"
#include "tools/workbench/exit_status.h"
#include "tools/workbench/json.h"
#include "tools/workbench/surface_command.h"

namespace android::vus::workbench {
namespace {

constexpr char kAliases[] =
        "# Aliases extracted from modules themselves.\n"
        "alias pci:v00008086d* e1000\n"
        "alias usb:v*p*d*dc*dsc*dp*ic08isc06ip50in* usb_storage\n"
        "alias usb:v0403p6001d*dc*dsc*dp*ic*isc*ip*in* ftdi_sio\n"
        "alias usb:v0403p6010d*dc*dsc*dp*ic*isc*ip*in* ftdi_sio\n"
        "alias usb:v*p*d*dc*dsc*dp*ic07isc01ip*in* usblp\n"
        "alias usb:v*p*d*dc*dsc*dp*ic03isc*ip*in* usbhid\n";

std::optional<Alias> parse(const std::string& line) {
    bool understood = false;
    return parseAlias(line, &understood);
}

TEST(AliasTest, FieldsAreHexadecimalOrAnything) {
    const auto alias = parse("alias usb:v0403p6001d*dc*dsc*dp*ic*isc*ip*in* ftdi_sio");
    ASSERT_TRUE(alias);
    EXPECT_EQ(alias->vendor, 0x0403);
    EXPECT_EQ(alias->product, 0x6001);
    EXPECT_EQ(alias->interfaceClass, std::nullopt);
    EXPECT_EQ(alias->driver, "ftdi_sio");
    const auto storage = parse("alias usb:v*p*d*dc*dsc*dp*icFFisc06ip50in* usb_storage");
    ASSERT_TRUE(storage);
    EXPECT_EQ(storage->vendor, std::nullopt);
    EXPECT_EQ(storage->interfaceClass, 0xFF);
}

TEST(AliasTest, ReleasesMayBeRanges) {
    for (const char* release : {"0100", "01[0-9]*", "9[0-9]*", "000[0-4]", "*"}) {
        const auto alias = parse(std::string("alias usb:v0421p0019d") + release +
                                 "dc*dsc*dp*ic*isc*ip*in* usb_storage");
        ASSERT_TRUE(alias) << release;
        EXPECT_EQ(alias->product, 0x19);
    }
}

TEST(AliasTest, WhatIsInAnotherFormIsCounted) {
    std::istringstream in(std::string(kAliases) +
                          "alias usb:v040[0-9]p*d*dc*dsc*dp*ic*isc*ip*in* odd\n"
                          "alias usb:\n"
                          "alias usb:v0403p6001d*dc*dsc*dp*ic*isc*ip*in*\n"
                          "\n");
    const Aliases aliases = readAliases(in);
    EXPECT_EQ(aliases.usb.size(), 5U);
    EXPECT_EQ(aliases.notUnderstood, 3U);
}

class SurfaceTest : public testing::Test {
  protected:
    void SetUp() override {
        EmptyWorld();
        WriteFile("/data/modules.alias", kAliases);
        options_.policy = "/data/policy.xml";
        options_.aliases = "/data/modules.alias";
    }

    int Show(const std::string& mode, const std::string& rules) {
        WriteFile(options_.policy,
                  "<usbconfig mode=\"" + mode + "\">\n" + rules + "</usbconfig>\n");
        out_.str("");
        err_.str("");
        return runSurface(options_, out_, err_);
    }

    SurfaceOptions options_;
    std::ostringstream out_, err_;
};

TEST_F(SurfaceTest, ClassAdmitsEveryDriverThatAsksForIdsOnly) {
    EXPECT_EQ(Show("whitelist", "<class>USB_CLASS_MASS_STORAGE</class>\n"), kClean);
    EXPECT_EQ(out_.str(),
              "ftdi_sio: 2 of 2 aliases\n"
              "    usb 0403:6001 interfaces 8\n"
              "    Whitelisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE (line 2)\n"
              "usb_storage: 1 of 1 alias\n"
              "    usb 0001:0001 interfaces 8\n"
              "    Whitelisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE (line 2)\n"
              "usbhid: 1 of 1 alias\n"
              "    usb 0001:0001 interfaces 8,3\n"
              "    Whitelisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE (line 2)\n"
              "score 75: 3 of 4 drivers can be bound by a device that the policy admits\n"
              "2 of the 4 drivers can be bound, whatever the policy says, by a device with HID\n"
              "interfaces only: it is left to the input subsystem and never switched off\n");
    EXPECT_EQ(err_.str(), "");
}

TEST_F(SurfaceTest, ProductAdmitsWhateverItSaysThatItIs) {
    EXPECT_EQ(Show("whitelist", "<vid vendorid=\"1027\"><pid>24577</pid></vid>\n"), kClean);
    EXPECT_NE(out_.str().find("ftdi_sio: 1 of 2 aliases\n"), std::string::npos);
    EXPECT_NE(out_.str().find("usblp: 1 of 1 alias\n    usb 0403:6001 interfaces 7\n"),
              std::string::npos);
    EXPECT_NE(out_.str().find("score 100: 4 of 4"), std::string::npos);
}

TEST_F(SurfaceTest, WhitelistOfNothingReachesNothing) {
    options_.failAbove = 0;
    EXPECT_EQ(Show("whitelist", ""), kClean);
    EXPECT_EQ(out_.str().rfind("score 0: 0 of 4 drivers", 0), 0U);
}

TEST_F(SurfaceTest, GateIsAboveTheNumber) {
    options_.failAbove = 75;
    EXPECT_EQ(Show("whitelist", "<class>USB_CLASS_MASS_STORAGE</class>\n"), kClean);
    options_.failAbove = 74;
    EXPECT_EQ(Show("whitelist", "<class>USB_CLASS_MASS_STORAGE</class>\n"), kRefused);
    EXPECT_EQ(err_.str(), "vusctl: score 75 is above 74\n");
}

TEST_F(SurfaceTest, JsonHoldsAll) {
    options_.json = true;
    EXPECT_EQ(Show("blacklist", "<vid vendorid=\"1027\"/>\n"), kClean);
    std::string error;
    int line = 0;
    const auto report = parseJson(out_.str(), &error, &line);
    ASSERT_TRUE(report) << error;
    EXPECT_EQ((*report)["score"], 75);
    EXPECT_EQ((*report)["drivers"].asUInt(), 4U);
    EXPECT_EQ((*report)["aliases"].asUInt(), 5U);
    EXPECT_EQ((*report)["unjudged"].asUInt(), 2U);
    ASSERT_EQ((*report)["reachable"].size(), 3U);
    EXPECT_EQ((*report)["reachable"][0]["driver"], "usb_storage");
    EXPECT_EQ((*report)["reachable"][1]["device"]["interfaceClassList"].size(), 2U);
}

TEST_F(SurfaceTest, FileWithoutAliasesIsAnError) {
    WriteFile("/data/modules.alias", "alias pci:v00008086d* e1000\n");
    EXPECT_EQ(Show("whitelist", ""), kFailed);
    EXPECT_EQ(err_.str(), "vusctl: the file has no alias of a USB driver\n");
    RemoveFile("/data/modules.alias");
    EXPECT_EQ(Show("whitelist", ""), kFailed);
    EXPECT_EQ(err_.str(), "vusctl: cannot read /data/modules.alias: No such file or directory\n");
}

TEST(ScoreTest, IsRoundedUp) {
    Surface surface;
    EXPECT_EQ(surface.score(), 0);
    surface.drivers = 324;
    EXPECT_EQ(surface.score(), 0);
    surface.reachable.resize(1);
    EXPECT_EQ(surface.score(), 1);
    surface.reachable.resize(323);
    EXPECT_EQ(surface.score(), 100);
    surface.reachable.resize(324);
    EXPECT_EQ(surface.score(), 100);
}

}  // namespace
}  // namespace android::vus::workbench
