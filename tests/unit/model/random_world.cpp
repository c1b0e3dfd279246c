// SPDX-License-Identifier: Apache-2.0

#include "random_world.h"

#include <stdlib.h>

#include <sstream>

namespace reference {

namespace {

std::string Element(const std::string& tag, const std::string& content) {
    return "<" + tag + ">" + content + "</" + tag + ">";
}

std::string ToXml(const Rule& rule) {
    std::string xml = "<" + rule.tag;
    if (rule.vendorid) xml += " vendorid=\"" + *rule.vendorid + "\"";
    xml += ">" + rule.text;
    for (const Product& child : rule.children) xml += Element(child.tag, child.text);
    return xml + "</" + rule.tag + ">\n";
}

}  // namespace

uint64_t Seed() {
    const char* const given = getenv("VUS_MODEL_SEED");
    return given != nullptr ? strtoull(given, nullptr, 10) : std::random_device()();
}

std::string ToXml(const PolicyFile& file) {
    std::string xml = "<" + file.root;
    if (file.mode) xml += " mode=\"" + *file.mode + "\"";
    xml += ">\n";
    for (const Rule& rule : file.rules) xml += ToXml(rule);
    return xml + "</" + file.root + ">\n";
}

std::string ToText(const Device& device) {
    std::ostringstream text;
    text << (device.is_input ? "input" : "USB") << " device " << device.id << ", class "
         << device.device_class << ", interfaces {";
    for (const int32_t code : device.interface_classes) text << " " << code;
    text << " }, vendor " << device.vendor << ", product " << device.product;
    return text.str();
}

PolicyFile RandomWorld::NextPolicy() {
    PolicyFile file;
    file.root = Sometimes(2) ? OneOf<const char*>({"USBCONFIG", "x"}) : "usbconfig";
    if (!Sometimes(2)) {
        file.mode = OneOf<const char*>({"whitelist", "whitelist", "whitelist", "whitelist",
                                        "whitelist", "whitelist", "blacklist", "blacklist",
                                        "blacklist", "blacklist", "blacklist", "default"});
    }
    if (Sometimes(3)) file.mode = OneOf<const char*>({"", "Whitelist", "BLACKLIST", "default "});
    for (int count = Below(9); count > 0; --count) file.rules.push_back(NextRule());
    return file;
}

Rule RandomWorld::NextRule() {
    Rule rule;
    if (Sometimes(1)) {
        rule.tag = OneOf<const char*>({"Class", "pid", "rule"});
        return rule;
    }
    if (Sometimes(45)) return NextVendorRule();
    rule.tag = "class";
    rule.text = OneOf<const char*>({"USB_CLASS_AUDIO",
                                    "USB_CLASS_COMM",
                                    "USB_CLASS_PHYSICA",
                                    "USB_CLASS_STILL_IMAGE",
                                    "USB_CLASS_PRINTER",
                                    "USB_CLASS_MASS_STORAGE",
                                    "USB_CLASS_MASS_STORAGE",
                                    "USB_CLASS_CDC_DATA",
                                    "USB_CLASS_CSCID",
                                    "USB_CLASS_CONTENT_SEC",
                                    "USB_CLASS_VIDEO",
                                    "USB_CLASS_WIRELESS_CONTROLLER",
                                    "AINPUT_SOURCE_KEYBOARD",
                                    "AINPUT_SOURCE_KEYBOARD",
                                    "AINPUT_SOURCE_DPAD",
                                    "AINPUT_SOURCE_GAMEPAD",
                                    "AINPUT_SOURCE_TOUCHSCREEN",
                                    "AINPUT_SOURCE_MOUSE",
                                    "AINPUT_SOURCE_MOUSE",
                                    "AINPUT_SOURCE_STYLUS",
                                    "AINPUT_SOURCE_TRACKBALL",
                                    "AINPUT_SOURCE_MOUSE_RELATIVE",
                                    "AINPUT_SOURCE_TOUCHPAD",
                                    "AINPUT_SOURCE_TOUCH_NAVIGATION",
                                    "AINPUT_SOURCE_ROTARY_ENCODER",
                                    "AINPUT_SOURCE_JOYSTICK"});
    if (Sometimes(2)) {
        rule.text = OneOf<const char*>({"", "USB_CLASS_HID", "USB_CLASS_VENDOR_SPEC",
                                        "USB_CLASS_PHYSICAL", "8", " USB_CLASS_AUDIO "});
    }
    return rule;
}

std::string RandomWorld::NextNumber() {
    if (Sometimes(1)) {
        return OneOf<const char*>(
                {"", "-1", "0x5", "2147483648", "4294967296", "99999999999999999999", "5.", "abc"});
    }
    return OneOf<const char*>({"0", "1", "2", "3", "005", "8", "100", "200", "1133", "65535",
                               "00000000000000000000007", "2147483647"});
}

Rule RandomWorld::NextVendorRule() {
    Rule rule;
    rule.tag = "vid";
    if (!Sometimes(1)) rule.vendorid = NextNumber();
    if (Sometimes(10)) rule.children.push_back({"name", "of the vendor"});
    if (Sometimes(25)) return rule;
    for (int count = Below(4); count > 0; --count) {
        rule.children.push_back({Sometimes(90) ? "pid" : "other", NextNumber()});
    }
    return rule;
}

Device RandomWorld::NextDevice(const std::vector<Attached>& tree) {
    Device device;
    device.name = "device " + std::to_string(Below(1000));
    device.is_input = Sometimes(70);
    device.id = OneOf<int32_t>({0, 1, 2, 1001, 1009, -1});
    if (!tree.empty() && Sometimes(75)) device.id = tree[Below(static_cast<int>(tree.size()))].id;
    for (int count = Sometimes(device.is_input ? 90 : 15) ? 0 : 1 + Below(3); count > 0; --count) {
        device.interface_classes.push_back(OneOf<int32_t>(
                {1, 2, 5, 6, 7,   8,   8,   8,   10, 11, 13,  14,   224,    0,  3,
                 3, 3, 3, 9, 239, 254, 255, 255, 4,  12, 256, 8192, 131072, -1, 1000}));
    }
    if (Sometimes(10)) device.interface_classes.assign(1 + Below(2), 3);
    for (int count = Below(4); count > 0; --count) {
        device.device_class |= OneOf<int32_t>({0x100, 0x100, 0x200, 0x400, 0x1000, 0x2000, 0x2000,
                                               0x4000, 0x10000, 0x20000, 0x100000, 0x200000,
                                               0x400000, 0x1000000, 0x800, 0x40000000, INT32_MIN});
    }
    if (Sometimes(50)) device.device_class |= Below(256);
    device.vendor = OneOf<int32_t>(
            {0, 1, 2, 3, 4, 5, 6, 7, 8, 100, 200, 1133, 65535, 2147483646, 2147483647, -1});
    device.product = OneOf<int32_t>(
            {0, 1, 2, 3, 4, 5, 6, 7, 8, 100, 200, 1133, 65535, 2147483646, 2147483647, -1});
    return device;
}

Interface RandomWorld::NextInterface(const std::string& name) {
    Interface interface;
    interface.name = name;
    interface.usb_class = OneOf<int>({3, 3, 3, 8, 2, 10, 255});
    switch (Below(6)) {
        case 0:
        case 1:
            interface.hid = Hid::kInput;
            break;
        case 2:
        case 3:
            interface.hid = Hid::kVendor;
            break;
        case 4:
            (Sometimes(50) ? interface.net : interface.tty) = OneOf<const char*>({"eth0", "usb1"});
            break;
        default:
            break;
    }
    return interface;
}

std::vector<Attached> RandomWorld::NextTree() {
    std::vector<Attached> tree;
    for (const char* name : {"1-1", "1-2.4", "2-1"}) {
        if (Sometimes(60)) continue;
        Attached device;
        device.name = name;
        device.id = (name[0] - '0') * 1000 + static_cast<int>(tree.size()) + 2;
        for (int count = Below(4); count > 0; --count) {
            device.interfaces.push_back(
                    NextInterface(device.name + ":1." + std::to_string(count - 1)));
        }
        tree.push_back(device);
    }
    return tree;
}

}  // namespace reference
