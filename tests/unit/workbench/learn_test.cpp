// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/learn.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <variant>

#include "android/vus/judge.h"
#include "android/vus/policy.h"

namespace android::vus::workbench {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kClaims[] =
        "ids are a device's own claim: whatever claims one of these is admitted, with any "
        "interfaces";

Device Usb(std::vector<int32_t> interfaces, int32_t vendor, int32_t product,
           const std::string& name) {
    Device device;
    device.claim = {0, std::move(interfaces), vendor, product};
    device.name = name;
    device.vendorHid = false;
    return device;
}

TEST(Learn, WritesAWhitelistOfProducts) {
    Learner learner;
    learner.see(Usb({8}, 2385, 5734, "Flash Disk"));
    learner.see(Usb({255}, 100, 6, "B"));
    learner.see(Usb({255}, 100, 5, "A"));
    learner.see(Usb({8}, 2385, 5734, "Flash Disk"));
    const LearntPolicy learnt = learner.learn();
    EXPECT_TRUE(learnt.complete);
    EXPECT_EQ(learnt.text,
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
              "<usbconfig mode=\"whitelist\">\n"
              "    <vid vendorid=\"100\">\n"
              "        <!-- 0064:0005 A -->\n"
              "        <pid>5</pid>\n"
              "        <!-- 0064:0006 B -->\n"
              "        <pid>6</pid>\n"
              "    </vid>\n"
              "    <vid vendorid=\"2385\">\n"
              "        <!-- 0951:1666 Flash Disk -->\n"
              "        <pid>5734</pid>\n"
              "    </vid>\n"
              "</usbconfig>\n");
    EXPECT_THAT(learnt.warnings, ElementsAre(kClaims));
}

TEST(Learn, NothingIsAPolicyThatRefusesEverything) {
    const LearntPolicy learnt = Learner().learn();
    EXPECT_EQ(learnt.text,
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
              "<usbconfig mode=\"whitelist\">\n</usbconfig>\n");
    EXPECT_THAT(learnt.warnings, ElementsAre("no device: this policy refuses everything"));
}

TEST(Learn, NameCannotLeaveItsComment) {
    Learner learner;
    learner.see(Usb({8}, 1, 2, "--><class>USB_CLASS_AUDIO</class><!---"));
    learner.see(Usb({8}, 1, 3, std::string(300, '-') + "\x1b\n"));
    const LearntPolicy learnt = learner.learn();
    EXPECT_TRUE(learnt.complete);
    const auto policy = std::get<Policy>(parsePolicy(learnt.text));
    EXPECT_TRUE(policy.classes.empty());
    EXPECT_EQ(policy.vendors.size(), 2u);
    EXPECT_EQ(learnt.text.find('\x1b'), std::string::npos);
}

TEST(Learn, ManyNamesOfAProductAreCutShort) {
    Learner learner;
    for (int n = 0; n < 1000; ++n) learner.see(Usb({8}, 1, 2, "Disk " + std::to_string(n)));
    EXPECT_THAT(learner.learn().text,
                HasSubstr("        <!-- and others -->\n        <pid>2</pid>"));
}

TEST(Learn, WarnsOfWhatItCannotSeparate) {
    Learner learner;
    learner.see(Usb({8}, 5, 2, "Disk"));
    learner.see(Usb({8, 255}, 5, 2, "Disk"));
    learner.see(Usb({3}, 7, 7, "Keyboard"));
    learner.see(Usb({1}, 0, 0, ""));
    EXPECT_THAT(learner.learn().warnings,
                ElementsAre("0000:0000 are the ids of devices that have none: every other such "
                            "device "
                            "is admitted as well",
                            "0005:0002 is claimed by different devices, which no rule can "
                            "separate: usb "
                            "0005:0002 interfaces 8; usb 0005:0002 interfaces 8,255.",
                            "1 of 4 devices have nothing but HID interfaces and need no rule on "
                            "the "
                            "USB side: make sure that their input devices are in the list, too",
                            kClaims));
}

TEST(Learn, SaysWhatCannotBeAdmitted) {
    Learner learner;
    learner.see(Usb({8}, -1, 2, "Disk"));
    const LearntPolicy learnt = learner.learn();
    EXPECT_FALSE(learnt.complete);
    EXPECT_THAT(learnt.warnings[1], HasSubstr("no rule has a negative number: usb ffffffff:0002"));
}

// Whatever was seen: these products, and no other, neither in a vendor of theirs nor beside it.
TEST(Learn, AdmitsWhatItSawAndNothingElse) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int round = 0; round < 500; ++round) {
        Learner learner;
        std::set<std::pair<int, int>> seen;
        for (unsigned n = random() % 8; n > 0; --n) {
            const int vendor = static_cast<int>(random() % 6),
                      product = static_cast<int>(random() % 4);
            seen.emplace(vendor, product);
            learner.see(Usb({8}, vendor, product, "Disk"));
        }
        const LearntPolicy learnt = learner.learn();
        ASSERT_TRUE(learnt.complete);
        const auto policy = std::get<Policy>(parsePolicy(learnt.text));
        for (int vendor = 0; vendor < 7; ++vendor) {
            for (int product = 0; product < 5; ++product) {
                EXPECT_EQ(judge({0, {8}, vendor, product}, PolicyRules(policy)).allowed,
                          seen.count({vendor, product}) != 0);
            }
        }
    }
}

}  // namespace
}  // namespace android::vus::workbench
