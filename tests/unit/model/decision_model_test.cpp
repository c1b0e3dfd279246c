// SPDX-License-Identifier: Apache-2.0

// The daemon against the model, over random policies, devices and USB trees: verdict, reason, the
// device list and what was switched off. A difference is reported with all that is needed to see
// it; VUS_MODEL_SEED=N repeats a run.

#include <stdlib.h>
#include <unistd.h>

#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <android-base/logging.h>
#include <gtest/gtest.h>

#include "android/vus/paths.h"
#include "android/vus/util.h"
#include "android/vus/vu_service.h"
#include "random_world.h"
#include "reference.h"
#include "tests/support/cases.h"
#include "tests/support/usb_tree.h"
#include "tests/support/world.h"

namespace android::vus {
namespace {

using reference::Attached;
using reference::Decision;
using reference::Device;
using reference::Interface;
using reference::Model;
using reference::PolicyFile;
using reference::Record;
using reference::Settled;

constexpr int kPolicies = CasesOf(10000);
// Kinds of decisions come up by chance: the rarest some 130 times in as many policies, in one run
// of ten less than a hundred times. Such a run goes on, to so many policies at most.
constexpr int kPoliciesAtMost = 3 * kPolicies;
constexpr int kDecisionsOfAKind = CasesOf(100);
constexpr int kDevicesAPolicy = 10;
constexpr int kTrees = 40;

FakeInterface ToFake(const Interface& interface) {
    FakeInterface fake = {interface.usb_class};
    if (!interface.net.empty()) fake.functions.push_back("net/" + interface.net);
    if (!interface.tty.empty()) fake.functions.push_back("tty/" + interface.tty);
    const std::string hid = "0003:046D:C31C.0001/";
    if (interface.hid == reference::Hid::kInput) fake.functions.push_back(hid + "input/input7");
    if (interface.hid == reference::Hid::kVendor) fake.functions.push_back(hid + "hidraw/hidraw0");
    return fake;
}

// Each tree in a sysfs of its own.
UsbTree MakeTree(int number, const std::vector<Attached>& devices) {
    UsbTree tree("/sys/trees/" + std::to_string(number));
    for (const Attached& device : devices) {
        tree.AddDevice(device.name, {}, device.id % 1000);
        for (const Interface& interface : device.interfaces) {
            const int place = std::stoi(interface.name.substr(interface.name.rfind('.') + 1));
            tree.AddInterface(device.name, place, ToFake(interface));
        }
    }
    return tree;
}

DeviceInfo ToDeviceInfo(const Device& device, int32_t input_type) {
    DeviceInfo info;
    info.deviceName = device.name;
    info.deviceId = device.id;
    info.deviceClass = device.device_class;
    info.interfaceClassList = device.interface_classes;
    info.vendorId = device.vendor;
    info.productId = device.product;
    info.deviceType = device.is_input ? input_type : 0;
    // What the service sets itself; nothing of it may come through.
    info.status = 7;
    info.reason = "reported";
    info.category = 99;
    info.categoryPath = "reported;";
    return info;
}

// A list line as text, the paths of the categories in alphabetical order.
std::string Line(const Device& device, int32_t status, const std::string& reason, int32_t category,
                 const std::set<std::string>& paths) {
    std::ostringstream line;
    line << device.name << ": " << ToText(device) << ", status " << status << ", " << reason
         << ", category " << category << ":";
    for (const std::string& path : paths) line << " " << path;
    return line.str();
}

std::string Line(const DeviceInfo& info) {
    const Device device = {info.deviceName,         info.deviceId, info.deviceClass,
                           info.interfaceClassList, info.vendorId, info.productId,
                           info.deviceType != 0};
    std::set<std::string> paths;
    std::istringstream text(info.categoryPath);
    for (std::string path; std::getline(text, path, ';');) paths.insert(path);
    return Line(device, info.status, info.reason, info.category, paths);
}

class DecisionModelTest : public ::testing::Test {
  protected:
    DecisionModelTest() : seed_(reference::Seed()), random_(seed_), service_(new VUsbService) {}

    void SetUp() override {
        EmptyWorld();
        MakeDir(kConfigDir);
        for (int i = 0; i < kTrees; ++i) {
            // The first is of no device at all.
            attached_.push_back(i == 0 ? std::vector<Attached>() : random_.NextTree());
            trees_.push_back(MakeTree(i, attached_.back()));
        }
        MakeDir("/sys/bus/usb");
        Util::configMode = "default";
        Util::statusMessage = "SUCCESS";
    }

    // Puts another tree where the daemon looks.
    void SwitchTree() {
        tree_ = random_.Below(kTrees);
        model_.attached = attached_[tree_];
        unlink(kUsbDevicesDir);
        ASSERT_EQ(symlink(trees_[tree_].Path("").c_str(), kUsbDevicesDir), 0) << strerror(errno);
    }

    void SwitchAutomation() {
        static constexpr const char* kOff[] = {"0", "2", "-1", "", "true"};
        model_.automation = random_.Sometimes(3);
        SetProperty(kAutomationProperty, model_.automation ? "1" : kOff[random_.Below(5)]);
    }

    void LoadPolicy() {
        const PolicyFile file = random_.NextPolicy();
        xml_ = ToXml(file);
        WriteFile(kPolicyFile, xml_);
        Util::createMapFromConfig(kPolicyFile);
        EXPECT_EQ(Util::xml_parse_status, model_.Load(file));
        EXPECT_EQ(Util::statusMessage, model_.status());
    }

    void Judge() {
        const Device device = random_.NextDevice(attached_[tree_]);
        SCOPED_TRACE(ToText(device));
        const int32_t input_type = random_.Sometimes(90) ? 1 : random_.Sometimes(50) ? 2 : -1;
        const Decision decision = model_.Judge(device);
        ++settled_[{decision.settled, decision.allowed}];
        if (!decision.switched_off.empty()) ++switched_off_;
        bool allowed = !decision.allowed;
        EXPECT_TRUE(service_->isDeviceAllowed(ToDeviceInfo(device, input_type), &allowed).isOk());
        EXPECT_EQ(allowed, decision.allowed);
        ExpectSameList();
        if (!device.is_input) ExpectSwitchedOff(decision.switched_off);
        if (random_.Sometimes(25)) Remove(device, input_type);
    }

    void Remove(const Device& device, int32_t input_type) {
        service_->updateDeviceList(ToDeviceInfo(device, input_type), 0);
        model_.Remove(device);
        ExpectSameList();
    }

    void ExpectSameList() {
        std::vector<std::string> expected;
        for (const auto* list : {&model_.input_list(), &model_.usb_list()}) {
            for (const auto& [id, record] : *list) {
                expected.push_back(Line(record.device, record.enabled, record.reason,
                                        record.category, record.category_paths));
            }
        }
        std::vector<DeviceInfo> list;
        EXPECT_TRUE(service_->getDeviceList(&list).isOk());
        std::vector<std::string> lines;
        for (const DeviceInfo& info : list) lines.push_back(Line(info));
        EXPECT_EQ(lines, expected);
    }

    // Looks at every interface of the tree, and switches on again what was switched off.
    void ExpectSwitchedOff(const std::set<std::string>& names) {
        std::set<std::string> off;
        for (const Attached& device : attached_[tree_]) {
            for (const Interface& interface : device.interfaces) {
                const std::string path = trees_[tree_].Path(interface.name, "authorized");
                if (ReadFile(path) == "1\n") continue;
                EXPECT_EQ(ReadFile(path), "0\n") << path;
                off.insert(interface.name);
                WriteFile(path, "1\n");
            }
        }
        EXPECT_EQ(off, names);
    }

    // A run in which some kind of decision never came up has shown nothing about it.
    std::string KindsThatCameUpTooSeldom() const {
        static constexpr std::pair<Settled, bool> kKinds[] = {
                {Settled::kAutomation, true}, {Settled::kLeftToInput, false},
                {Settled::kDefault, true},    {Settled::kByClass, true},
                {Settled::kByClass, false},   {Settled::kBySource, true},
                {Settled::kBySource, false},  {Settled::kByVendor, true},
                {Settled::kByVendor, false},  {Settled::kByProduct, true},
                {Settled::kByProduct, false}, {Settled::kByNothing, true},
                {Settled::kByNothing, false},
        };
        EXPECT_LE(settled_.size(), std::size(kKinds));
        std::ostringstream seldom;
        for (const auto& kind : kKinds) {
            const auto count = settled_.find(kind);
            const int times = count == settled_.end() ? 0 : count->second;
            if (times >= kDecisionsOfAKind) continue;
            seldom << static_cast<int>(kind.first) << (kind.second ? " allowed " : " refused ")
                   << times << " times; ";
        }
        return seldom.str();
    }

    const uint64_t seed_;
    reference::RandomWorld random_;
    Model model_;
    const sp<VUsbService> service_;
    std::vector<std::vector<Attached>> attached_;  // in each tree
    std::vector<UsbTree> trees_;
    int tree_ = 0;
    std::string xml_;
    std::map<std::pair<Settled, bool>, int> settled_;
    int switched_off_ = 0;
};

TEST_F(DecisionModelTest, TheDaemonDecidesAsTheModel) {
    printf("VUS_MODEL_SEED=%llu\n", static_cast<unsigned long long>(seed_));
    SCOPED_TRACE("VUS_MODEL_SEED=" + std::to_string(seed_));
    LogCapture logs;  // a million lines that nobody wants to see
    const auto goes_on = [this](int policy) {
        return policy < kPolicies ||
               (policy < kPoliciesAtMost && !KindsThatCameUpTooSeldom().empty());
    };
    for (int policy = 0; goes_on(policy) && !HasFailure(); ++policy) {
        SwitchTree();
        SwitchAutomation();
        LoadPolicy();
        SCOPED_TRACE("policy " + std::to_string(policy) + ":\n" + xml_);
        for (int i = 0; i < kDevicesAPolicy && !HasFailure(); ++i) Judge();
        ExpectSwitchedOff({});  // by an input device, say
        logs.Clear();
    }
    EXPECT_EQ(KindsThatCameUpTooSeldom(), "");
    EXPECT_GE(switched_off_, CasesOf(1000));
}

}  // namespace
}  // namespace android::vus
