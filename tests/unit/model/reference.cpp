// SPDX-License-Identifier: Apache-2.0

#include "reference.h"

#include <algorithm>

namespace reference {

namespace {

struct UsbClass {
    int32_t code;
    const char* name;
    bool may_be_ruled;  // a rule may name it, and a decision looks at it
};

const std::vector<UsbClass> kUsbClasses = {
        {255, "USB_CLASS_VENDOR_SPEC", false}, {254, "USB_CLASS_APP_SPEC", false},
        {239, "USB_CLASS_MISC", false},        {224, "USB_CLASS_WIRELESS_CONTROLLER", true},
        {14, "USB_CLASS_VIDEO", true},         {13, "USB_CLASS_CONTENT_SEC", true},
        {11, "USB_CLASS_CSCID", true},         {10, "USB_CLASS_CDC_DATA", true},
        {9, "USB_CLASS_HUB", false},           {8, "USB_CLASS_MASS_STORAGE", true},
        {7, "USB_CLASS_PRINTER", true},        {6, "USB_CLASS_STILL_IMAGE", true},
        {5, "USB_CLASS_PHYSICA", true},        {3, "USB_CLASS_HID", false},
        {2, "USB_CLASS_COMM", true},           {1, "USB_CLASS_AUDIO", true},
        {0, "USB_CLASS_PER_INTERFACE", false},
};

// The bit of each input source.
struct Source {
    int bit;
    const char* name;
};

const std::vector<Source> kSources = {
        {8, "AINPUT_SOURCE_KEYBOARD"},        {9, "AINPUT_SOURCE_DPAD"},
        {10, "AINPUT_SOURCE_GAMEPAD"},        {12, "AINPUT_SOURCE_TOUCHSCREEN"},
        {13, "AINPUT_SOURCE_MOUSE"},          {14, "AINPUT_SOURCE_STYLUS"},
        {16, "AINPUT_SOURCE_TRACKBALL"},      {17, "AINPUT_SOURCE_MOUSE_RELATIVE"},
        {20, "AINPUT_SOURCE_TOUCHPAD"},       {21, "AINPUT_SOURCE_TOUCH_NAVIGATION"},
        {22, "AINPUT_SOURCE_ROTARY_ENCODER"}, {24, "AINPUT_SOURCE_JOYSTICK"},
};

// The truth table of verdicts.
struct Verdict {
    bool blacklist;
    bool matched;
    bool allowed;
    const char* reason;  // in front of what matched
};

constexpr Verdict kVerdicts[] = {
        {false, true, true, "Whitelisted: "},
        {false, false, false, "No matching rule found to Whitelist the device"},
        {true, true, false, "Blacklisted: "},
        {true, false, true, "No matching rule found to Blacklist the device"},
};

const UsbClass* FindClass(int32_t code) {
    for (const UsbClass& row : kUsbClasses) {
        if (row.code == code) return &row;
    }
    return nullptr;
}

std::string NameOf(int32_t code) {
    if (const UsbClass* row = FindClass(code)) return row->name;
    for (const Source& source : kSources) {
        if (1 << source.bit == code) return source.name;
    }
    return " ";
}

// The code of a name that a rule may use.
std::optional<int32_t> RuledCode(const std::string& name) {
    for (const UsbClass& row : kUsbClasses) {
        if (row.name == name && row.may_be_ruled) return row.code;
    }
    for (const Source& source : kSources) {
        if (source.name == name) return 1 << source.bit;
    }
    return std::nullopt;
}

// A decimal number of at most 31 bits, by comparing its digits with the largest one's.
std::optional<int32_t> Number(const std::string& text) {
    const std::string largest = "2147483647";
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    const std::string digits = text.substr(std::min(text.find_first_not_of('0'), text.size()));
    if (digits.size() > largest.size()) return std::nullopt;
    if (digits.size() == largest.size() && digits > largest) return std::nullopt;
    return digits.empty() ? 0 : std::stoi(digits);
}

struct Function {
    int32_t category;
    std::string path;
};

// What an interface became.
Function FunctionOf(const Interface& interface) {
    if (interface.usb_class == 8) return {4, "sdcard"};
    if (!interface.net.empty()) return {1, interface.net};
    if (!interface.tty.empty()) return {2, interface.tty};
    return {interface.hid == Hid::kVendor ? 8 : 0, "empty"};
}

}  // namespace

bool Model::Fail(const std::string& status) {
    status_ = status;
    return false;
}

bool Model::Load(const PolicyFile& file) {
    classes_.clear();
    vendors_.clear();
    if (file.root != "usbconfig") return Fail("INVALID ROOT ELEMENT : " + file.root);
    if (!file.mode) return Fail("MODE NOT PRESENT");
    mode_ = *file.mode;
    if (mode_ == "default") return true;
    if (mode_ == "whitelist" || mode_ == "blacklist") return LoadRules(file.rules);
    return Fail("INVALID MODE");
}

bool Model::LoadRules(const std::vector<Rule>& rules) {
    for (const Rule& rule : rules) {
        if (rule.tag == "class") {
            if (rule.text.empty()) return Fail("EMPTY CLASS VALUE");
            const std::optional<int32_t> code = RuledCode(rule.text);
            if (!code) return Fail("INVALID CLASS VALUE:" + rule.text);
            classes_.insert(*code);
        } else if (rule.tag == "vid") {
            if (!LoadVendor(rule)) return false;
        } else {
            return Fail("INVALID TAG:" + rule.tag);
        }
    }
    return true;
}

bool Model::LoadVendor(const Rule& rule) {
    if (!rule.vendorid) return Fail("vendorid TAG NOT PRESENT");
    if (rule.vendorid->empty()) return Fail("EMPTY VENDOR ID VALUE");
    const std::optional<int32_t> id = Number(*rule.vendorid);
    if (!id) return Fail("INVALID VENDOR ID VALUE:" + *rule.vendorid);
    bool any = false;
    for (const Product& child : rule.children) {
        any = any || child.tag == "pid";
        if (!any) continue;
        if (child.text.empty()) return Fail("EMPTY PRODUCT ID VALUE");
        const std::optional<int32_t> product = Number(child.text);
        if (!product) return Fail("INVALID PRODUCT ID VALUE:" + child.text);
        vendors_[*id].products.insert(*product);
    }
    if (!any) vendors_[*id].whole = true;
    return true;
}

bool Model::IsVendorHid(int32_t id) const {
    for (const Attached& device : attached) {
        if (device.id != id) continue;
        for (const Interface& interface : device.interfaces) {
            if (FunctionOf(interface).category == 8) return true;
        }
    }
    return false;
}

bool Model::IsLeftToInput(const Device& device) const {
    const std::vector<int32_t>& classes = device.interface_classes;
    const auto hid = std::count(classes.begin(), classes.end(), 3);
    return hid == static_cast<long>(classes.size()) && !IsVendorHid(device.id);
}

// All interfaces that count must be listed, and at least one must count.
std::optional<Model::Match> Model::MatchInterfaces(const std::vector<int32_t>& classes) const {
    std::vector<int32_t> counting;
    for (const int32_t code : classes) {
        const UsbClass* const row = FindClass(code);
        if (row == nullptr || row->may_be_ruled) counting.push_back(code);
    }
    if (counting.empty()) return std::nullopt;
    std::string names;
    for (const int32_t code : counting) {
        if (classes_.count(code) == 0) return std::nullopt;
        // A name within a name that is there already counts as said.
        if (names.find(NameOf(code)) == std::string::npos) names += NameOf(code) + " ";
    }
    return Match{Settled::kByClass, "Match by ClassName, CLASS : " + names};
}

std::optional<Model::Match> Model::MatchSources(int32_t bits) const {
    std::string names;
    for (const Source& source : kSources) {
        if ((bits >> source.bit & 1) == 0) continue;
        if (classes_.count(1 << source.bit) == 0) return std::nullopt;
        names += std::string(source.name) + " ";
    }
    if (names.empty()) return std::nullopt;
    return Match{Settled::kBySource, "Match by ClassName, CLASS : " + names};
}

// A vendor that is listed in any way is listed whole if it or a higher one is.
std::optional<Model::Match> Model::MatchVendor(const Device& device) const {
    const auto listed = vendors_.find(device.vendor);
    if (listed == vendors_.end()) return std::nullopt;
    const std::string vendor = std::to_string(device.vendor);
    for (auto higher = listed; higher != vendors_.end(); ++higher) {
        if (higher->second.whole) {
            return Match{Settled::kByVendor, "Match by VID, VID : " + vendor};
        }
    }
    if (listed->second.products.count(device.product) == 0) return std::nullopt;
    return Match{Settled::kByProduct, "Match by VID_PID combination, VID : " + vendor +
                                              " PID: " + std::to_string(device.product)};
}

Decision Model::Settle(const Device& device) const {
    if (automation) return {Settled::kAutomation, true, "", {}};
    if (!device.is_input && IsLeftToInput(device)) return {Settled::kLeftToInput, false, "", {}};
    if (mode_ == "default") return {Settled::kDefault, true, "Enabled by default rule", {}};

    std::optional<Match> match = device.interface_classes.empty()
                                         ? MatchSources(device.device_class)
                                         : MatchInterfaces(device.interface_classes);
    if (!match) match = MatchVendor(device);
    for (const Verdict& row : kVerdicts) {
        if (row.blacklist != (mode_ == "blacklist") || row.matched != match.has_value()) continue;
        return {match ? match->settled : Settled::kByNothing,
                row.allowed,
                row.reason + (match ? match->text : ""),
                {}};
    }
    return {};
}

Decision Model::Judge(const Device& device) {
    Decision decision = Settle(device);
    if (decision.reason.empty()) return decision;
    if (!decision.allowed && !device.is_input) {
        for (const Attached& one : attached) {
            if (one.id != device.id) continue;
            for (const Interface& interface : one.interfaces) {
                decision.switched_off.insert(interface.name);
            }
        }
    }
    List(device, decision);
    return decision;
}

void Model::List(const Device& device, const Decision& decision) {
    Record record = {device, decision.allowed, decision.reason, 0, {}};
    for (const Attached& one : attached) {
        if (device.is_input || one.id != device.id) continue;
        for (const Interface& interface : one.interfaces) {
            record.category += FunctionOf(interface).category;
            record.category_paths.insert(FunctionOf(interface).path);
        }
    }
    // The first record of an id stays.
    (device.is_input ? input_list_ : usb_list_).insert({device.id, record});
}

void Model::Remove(const Device& device) {
    if (!automation) (device.is_input ? input_list_ : usb_list_).erase(device.id);
}

}  // namespace reference
