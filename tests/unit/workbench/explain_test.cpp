// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/explain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <variant>

#include "android/vus/class_names.h"
#include "tools/workbench/json.h"

namespace android::vus::workbench {
namespace {

using testing::HasSubstr;

Policy Parse(const std::string& text) {
    const auto read = parsePolicy(text);
    const auto* const policy = std::get_if<Policy>(&read);
    EXPECT_NE(policy, nullptr) << text;
    return policy == nullptr ? Policy() : *policy;
}

Device Usb(std::vector<int32_t> interfaces, int32_t vendor, int32_t product) {
    Device device;
    device.claim = {0, std::move(interfaces), vendor, product};
    return device;
}

Device Input(int32_t sources, int32_t vendor, int32_t product) {
    Device device;
    device.type = DeviceType::kInput;
    device.claim = {sources, {}, vendor, product};
    return device;
}

std::string Text(const std::string& policy_text, const Device& device) {
    const Policy policy = Parse(policy_text);
    return toText(Explainer(policy).explain(device));
}

constexpr char kWhitelist[] =
        "<usbconfig mode=\"whitelist\">\n"
        "<class>USB_CLASS_MASS_STORAGE</class>\n"
        "<class>AINPUT_SOURCE_KEYBOARD</class>\n"
        "<vid vendorid=\"100\"><pid>5</pid></vid>\n"
        "<vid vendorid=\"200\"/>\n"
        "<vid vendorid=\"300\"><pid>6</pid></vid>\n"
        "</usbconfig>\n";

TEST(Explain, TellsTheWalkOfAClassMatch) {
    Device disk = Usb({8, 255}, 0x951, 0x1666);
    disk.name = "Flash Disk";
    EXPECT_EQ(Text(kWhitelist, disk),
              "usb 0951:1666 interfaces 8,255 \"Flash Disk\"\n"
              "  allowed by line 2\n"
              "  Whitelisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE\n"
              "    interface 0: 8 USB_CLASS_MASS_STORAGE: listed, line 2\n"
              "    interface 1: 255 USB_CLASS_VENDOR_SPEC: restricted, rides along\n");
}

TEST(Explain, TellsWhatWouldAdmitARefusedDeviceAndWhatElse) {
    EXPECT_EQ(Text(kWhitelist, Usb({14, 8, 1}, 50, 7)),
              "usb 0032:0007 interfaces 14,8,1\n"
              "  refused\n"
              "  No matching rule found to Whitelist the device\n"
              "    interface 0: 14 USB_CLASS_VIDEO: not listed: no class match\n"
              "    vendor 50 (0x0032): not listed whole\n"
              "    product 7 (0x0007) of it: not listed\n"
              "  would be admitted: add <class>USB_CLASS_VIDEO</class>\n"
              "  <class>USB_CLASS_AUDIO</class>\n"
              "    and with it: every device with these classes, listed and restricted ones\n"
              "    only\n"
              "  would be admitted: add <vid vendorid=\"50\"><pid>7</pid></vid>\n"
              "    and with it: every product of vendor 50, because vendor 200, which is\n"
              "    higher, is listed whole: line 5 (surprise 4)\n"
              "  would be admitted: add <vid vendorid=\"50\"/>\n"
              "    and with it: whatever claims to be of this vendor\n");
}

TEST(Explain, CountsTheVendorsThatAWholeOneWouldOpen) {
    EXPECT_THAT(Text(kWhitelist, Usb({255}, 400, 7)),
                HasSubstr(
                        "add <vid vendorid=\"400\"/>\n"
                        "    and with it: whatever claims to be of this vendor, and every product "
                        "of 1\n"
                        "    lower vendor listed with products (surprise 4)\n"));
}

TEST(Explain, TellsOfAVendorThatCountsAsWhole) {
    EXPECT_EQ(Text(kWhitelist, Usb({255}, 100, 9)),
              "usb 0064:0009 interfaces 255\n"
              "  allowed by line 5\n"
              "  Whitelisted: Match by VID, VID : 100\n"
              "    interface 0: 255 USB_CLASS_VENDOR_SPEC: restricted, rides along\n"
              "    vendor 100 (0x0064): counts as listed whole,\n"
              "      because vendor 200 (0x00c8), which is higher, is: line 5 (surprise 4)\n");
}

TEST(Explain, TellsOfSourcesAndProducts) {
    EXPECT_EQ(Text(kWhitelist, Input(0x2101, 300, 6)),
              "input 012c:0006 sources 0x2101\n"
              "  allowed by line 6\n"
              "  Whitelisted: Match by VID_PID combination, VID : 300 PID: 6\n"
              "    source bits 0x2101\n"
              "    source 0x100 AINPUT_SOURCE_KEYBOARD: listed, line 3\n"
              "    source 0x2000 AINPUT_SOURCE_MOUSE: not listed: no class match\n"
              "    vendor 300 (0x012c): not listed whole\n"
              "    product 6 (0x0006) of it: listed, line 6\n");
}

TEST(Explain, LeavesHidDevicesToTheInputSubsystem) {
    Device keyboard = Usb({3, 3}, 0x46d, 0xc31c);
    keyboard.vendorHid = false;
    EXPECT_EQ(Text(kWhitelist, keyboard),
              "usb 046d:c31c interfaces 3,3\n"
              "  nothing but HID interfaces: left to the input subsystem. The USB side answers\n"
              "  \"no\", and switches nothing off; the keyboard, mouse or the like is judged as\n"
              "  an input device of its own.\n");
    keyboard.vendorHid.reset();
    const std::string unknown = Text(kWhitelist, keyboard);
    EXPECT_THAT(unknown, HasSubstr("(vendor HID), the policy decides, as follows:\n  refused\n"));
    keyboard.vendorHid = true;
    const std::string text = Text(kWhitelist, keyboard);
    EXPECT_THAT(text, HasSubstr("  refused\n"));
    EXPECT_THAT(text, HasSubstr("nothing but restricted interfaces: no class match\n"));
    EXPECT_THAT(text, Not(HasSubstr("<class>")));  // none could admit it
}

TEST(Explain, TellsWhichLinesRefuseUnderABlacklist) {
    const char policy[] =
            "<usbconfig mode=\"blacklist\">\n"
            "<class>USB_CLASS_AUDIO</class>\n"
            "<class>USB_CLASS_VIDEO</class>\n"
            "<class>USB_CLASS_VIDEO</class>\n"
            "<vid vendorid=\"100\"><pid>5</pid></vid>\n"
            "<vid vendorid=\"200\"/>\n"
            "<vid vendorid=\"300\"/>\n"
            "</usbconfig>\n";
    EXPECT_THAT(Text(policy, Usb({14, 1}, 1, 1)),
                HasSubstr("would be admitted: remove lines 3, 4\n"));
    // The higher vendors may stay: this one must not be listed at all.
    EXPECT_THAT(Text(policy, Usb({255}, 100, 9)), HasSubstr("would be admitted: remove line 5\n"));
    EXPECT_THAT(Text(policy, Usb({1}, 200, 9)),
                HasSubstr("would be admitted: remove lines 2, 6\n"));
    EXPECT_THAT(Text(policy, Usb({8}, 1, 9)),
                HasSubstr("  allowed\n  No matching rule found to Blacklist the device\n"));
}

TEST(Explain, NeverLetsANameRuleTheTerminal) {
    Device device = Usb({8}, 1, 1);
    device.name = std::string(200, 'x') + "\x1b[2J";
    const std::string text = Text(kWhitelist, device);
    EXPECT_EQ(text.find('\x1b'), std::string::npos);
    EXPECT_EQ(text.find('\n'), 80u);
}

TEST(Explain, SaysTheSameToPrograms) {
    const Policy policy = Parse(kWhitelist);
    EXPECT_EQ(toJsonLine(toJson(Explainer(policy).explain(Usb({8}, 1, 2)))),
              "{\"device\":{\"deviceClass\":0,\"deviceName\":\"\",\"deviceType\":0,"
              "\"interfaceClassList\":[8],\"productId\":2,\"vendorId\":1},\"lines\":[2],"
              "\"mode\":\"whitelist\",\"reason\":\"Whitelisted: Match by ClassName, CLASS : "
              "USB_CLASS_MASS_STORAGE \",\"remedies\":[],\"verdict\":\"allowed\","
              "\"walk\":[\"interface 0: 8 USB_CLASS_MASS_STORAGE: listed, line 2\"]}");
}

// Every remedy, carried out on the whole policy and not on an excerpt of it, admits the device.
class RandomPolicies {
  public:
    explicit RandomPolicies(unsigned seed) : random_(seed) {}

    int Below(int bound) { return static_cast<int>(random_() % static_cast<unsigned>(bound)); }

    Policy Next() {
        Policy policy;
        policy.mode = Below(2) == 0 ? kModeWhitelist : kModeBlacklist;
        int line = 1;
        for (int n = Below(4); n > 0; --n) {
            const int32_t code = Codes()[static_cast<size_t>(Below(4))];
            policy.classes.push_back({code, std::string(className(code)), ++line});
        }
        for (int n = Below(6); n > 0; --n) {
            policy.vendors.push_back({Below(5), Below(3) == 0 ? kEveryProduct : Below(3), ++line});
        }
        std::stable_sort(policy.vendors.begin(), policy.vendors.end(),
                         [](const VendorRule& one, const VendorRule& other) {
                             return one.vendor < other.vendor;
                         });
        return policy;
    }

    Device NextDevice() {
        if (Below(3) == 0) return Input(0x101 | (Below(2) * 0x2000), Below(5), Below(3));
        std::vector<int32_t> interfaces;
        for (int n = Below(4); n > 0; --n) {
            interfaces.push_back(Below(3) == 0 ? 255 : Codes()[static_cast<size_t>(Below(2))]);
        }
        Device device = Usb(interfaces, Below(5), Below(3));
        device.vendorHid = true;
        return device;
    }

  private:
    static const std::vector<int32_t>& Codes() {
        static const std::vector<int32_t> codes = {1, 8, 0x100, 0x2000};
        return codes;
    }
    std::mt19937 random_;
};

Policy Changed(Policy policy, const std::string& change) {
    if (change.rfind("remove ", 0) == 0) {
        const auto removed = [&change](int line) {
            const std::string lines = change.substr(change.find_first_of("0123456789")) + ",";
            return (", " + lines).find(" " + std::to_string(line) + ",") != std::string::npos;
        };
        policy.classes.erase(std::remove_if(policy.classes.begin(), policy.classes.end(),
                                            [&](const ClassRule& r) { return removed(r.line); }),
                             policy.classes.end());
        policy.vendors.erase(std::remove_if(policy.vendors.begin(), policy.vendors.end(),
                                            [&](const VendorRule& r) { return removed(r.line); }),
                             policy.vendors.end());
        return policy;
    }
    const Policy added =
            Parse("<usbconfig mode=\"whitelist\">" + change.substr(4) + "</usbconfig>");
    policy.classes.insert(policy.classes.end(), added.classes.begin(), added.classes.end());
    policy.vendors.insert(policy.vendors.end(), added.vendors.begin(), added.vendors.end());
    std::stable_sort(policy.vendors.begin(), policy.vendors.end(),
                     [](const VendorRule& one, const VendorRule& other) {
                         return one.vendor < other.vendor;
                     });
    return policy;
}

TEST(Explain, EveryRemedyAdmitsTheDeviceUnderTheWholePolicy) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    RandomPolicies random(seed);
    size_t remedies = 0;
    for (int round = 0; round < 5000; ++round) {
        const Policy policy = random.Next();
        const Device device = random.NextDevice();
        const Explanation explanation = Explainer(policy).explain(device);
        const bool allowed = judge(device.claim, PolicyRules(policy)).allowed;
        ASSERT_EQ(explanation.judgement.allowed, allowed);
        ASSERT_EQ(explanation.remedies.empty(), allowed) << describe(device);
        for (const Remedy& remedy : explanation.remedies) {
            ++remedies;
            const Policy changed = Changed(policy, remedy.change);
            ASSERT_TRUE(judge(device.claim, PolicyRules(changed)).allowed)
                    << describe(device) << ": " << remedy.change;
        }
    }
    EXPECT_GT(remedies, 1000u);
}

TEST(Explain, FitsTheScreenHoweverLongIdsAndLinesAre) {
    const std::string policy = "<usbconfig mode=\"whitelist\">\n" + std::string(20000, '\n') +
                               "<vid vendorid=\"2147483646\"><pid>1</pid></vid>\n"
                               "<vid vendorid=\"2147483647\"/></usbconfig>";
    const std::string text = Text(policy, Usb({8}, 2147483646, 2147483647));
    EXPECT_THAT(text,
                HasSubstr("because vendor 2147483647 (0x7fffffff), which is higher, is: line"));
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80u) << line;
}

}  // namespace
}  // namespace android::vus::workbench
