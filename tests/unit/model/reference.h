// SPDX-License-Identifier: Apache-2.0
//
// A second, independent statement of what the daemon decides: the rules as tables, and a model that
// applies them. It shares nothing with the daemon, its texts included, so that a mistake has to be
// made twice to go unseen. It is written to be read, not to be fast.

#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace reference {

// A policy file before it is XML.
struct Product {
    std::string tag;
    std::string text;  // empty for none
};
struct Rule {
    std::string tag;
    std::string text;                     // of a class; empty for none
    std::optional<std::string> vendorid;  // the attribute of a vendor
    std::vector<Product> children;        // of a vendor
};
struct PolicyFile {
    std::string root;
    std::optional<std::string> mode;
    std::vector<Rule> rules;
};

// What is attached, as sysfs shows it.
enum class Hid { kNone, kInput, kVendor };
struct Interface {
    std::string name;
    int usb_class = 0;
    Hid hid = Hid::kNone;
    std::string net;  // the network interface behind it, if any
    std::string tty;
};
struct Attached {
    std::string name;
    int id = 0;
    std::vector<Interface> interfaces;
};

// What a client reports.
struct Device {
    std::string name;
    int32_t id = 0;
    int32_t device_class = 0;
    std::vector<int32_t> interface_classes;
    int32_t vendor = 0;
    int32_t product = 0;
    bool is_input = false;
};

// A line of the device list.
struct Record {
    Device device;
    bool enabled = false;
    std::string reason;
    int32_t category = 0;
    std::set<std::string> category_paths;
};

// Which rule settled a decision.
enum class Settled {
    kAutomation,
    kLeftToInput,
    kDefault,
    kByClass,
    kBySource,
    kByVendor,
    kByProduct,
    kByNothing,
};

struct Decision {
    Settled settled = Settled::kByNothing;
    bool allowed = false;
    std::string reason;                  // empty if the device is not listed
    std::set<std::string> switched_off;  // names of interfaces
};

class Model {
  public:
    bool automation = false;
    std::vector<Attached> attached;

    // Whether the file is accepted.
    bool Load(const PolicyFile& file);
    // Judges a device and lists it.
    Decision Judge(const Device& device);
    void Remove(const Device& device);

    const std::string& status() const { return status_; }
    const std::map<int32_t, Record>& usb_list() const { return usb_list_; }
    const std::map<int32_t, Record>& input_list() const { return input_list_; }

  private:
    struct Vendor {
        bool whole = false;
        std::set<int32_t> products;
    };
    struct Match {
        Settled settled;
        std::string text;
    };

    bool Fail(const std::string& status);
    bool LoadRules(const std::vector<Rule>& rules);
    bool LoadVendor(const Rule& rule);

    bool IsVendorHid(int32_t id) const;
    bool IsLeftToInput(const Device& device) const;
    std::optional<Match> MatchInterfaces(const std::vector<int32_t>& classes) const;
    std::optional<Match> MatchSources(int32_t bits) const;
    std::optional<Match> MatchVendor(const Device& device) const;
    Decision Settle(const Device& device) const;
    void List(const Device& device, const Decision& decision);

    std::string mode_ = "default";
    std::string status_ = "SUCCESS";
    std::set<int32_t> classes_;
    std::map<int32_t, Vendor> vendors_;
    std::map<int32_t, Record> usb_list_;
    std::map<int32_t, Record> input_list_;
};

}  // namespace reference
