// SPDX-License-Identifier: Apache-2.0

// One cycle over the USB tree: a walk through the USB devices directory that leaves a linked tree
// in the calling thread's lists and records for the device-id map. Not for users of UsbDevice.
//
// On sysfs a cycle takes over what the cycle before it read. The kernel numbers each entry of the
// directory, and an entry has its number exactly as long as the device or interface behind it is
// there: a device that is plugged again has another one, and so has an interface after a change of
// the configuration. Read in full are
// - entries with a new number, and those that were not read to their ends,
// - the device that is being judged, and its interfaces,
// - an interface whose driver came, went or was bound anew, and one that may since have become
//   something: a driver is bound, and the interface's directory has other directories in it.
// What an interface is, is looked at again where its function had no name yet, and where it is an
// HID device that the input subsystem may yet serve.
// So of another device than the judged one may be outdated what only the dump shows, which takes
// nothing over: its own driver and configuration, and an alternate setting. A missing attribute is
// said to be missing when it is read, no oftener (kept: oddity 31). On any other file
// system numbers mean nothing, and every cycle reads everything.
//
// A cycle belongs to its thread. A Topology is immutable and may be shared between threads.

#pragma once

#include <stdint.h>
#include <sys/stat.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "android/vus/sysfs.h"
#include "android/vus/usbdevice.h"
#include "android/vus/usbdevice_internal.h"
#include "android/vus/usbdevice_places.h"

namespace android::vus::usb {

// Where numbers of entries are believed.
enum class Keeping { kNowhere, kOnSysfs, kAnywhere };

// What tells that an interface may have become something else.
struct InterfaceShape {
    ino_t binding = 0;          // number of the link to its driver; 0 without a driver
    nlink_t directories = 0;    // how many are in its own
    bool is_below_bus = false;  // where its name says, so that it can be asked there
};

// An interface as a cycle read it. The links of its node are null.
struct KeptInterface {
    usbinterface node = {};
    InterfaceShape shape;
    bool is_classified = false;      // not if it belongs to no device, or may yet become another
    std::vector<std::string> lines;  // that classifying it logged
};

// An entry as a cycle read it: one of the three.
struct KeptEntry {
    std::shared_ptr<const usbbusnode> bus;
    std::shared_ptr<const usbdevice> device;
    std::shared_ptr<const KeptInterface> interface;
};

// What a whole cycle read, by the numbers of the entries.
using Topology = std::unordered_map<uint64_t, KeptEntry>;

class Cycle {
  public:
    struct Options {
        Keeping keeping = Keeping::kNowhere;
        std::shared_ptr<const Topology> before;  // what may be taken over; may be null
        std::chrono::milliseconds patience{0};   // for locked attributes
        std::optional<int32_t> judged;           // the device that is read in full
    };

    explicit Cycle(Options options);
    ~Cycle();  // releases the nodes
    Cycle(const Cycle&) = delete;
    Cycle& operator=(const Cycle&) = delete;

    // Makes a node of every entry. Returns false, with errno telling why, if there is no directory.
    bool read_entries();
    // Links the nodes, classifies the interfaces, and returns their records.
    DeviceIdMap connect();

    // Whether the listing failed before its end.
    bool broke_off() const { return directory_.failed(); }
    // Whether something was not read for want of descriptors or memory.
    bool lacked_means() const { return lacked_means_; }
    // What the next cycle may take over; null if nothing may be. After connect().
    std::shared_ptr<const Topology> topology() const;

  private:
    // An entry that became a node. What was taken over is remembered, to be handed on.
    struct Entry {
        uint64_t number;
        Node node;
        KeptEntry kept;
        InterfaceShape shape;
        bool is_classified = false;
        std::vector<std::string> lines;
    };

    bool may_keep() const;
    void read(const dirent64& listed);
    bool take_over(const dirent64& listed);
    bool is_unchanged(const KeptInterface& kept);
    std::optional<Place> place_below_bus(const char* entry, const struct stat& linked);
    InterfaceShape shape_of(const char* entry);
    void read_judged_again();
    bool is_judged(const Entry& entry) const;
    void classify_or_repeat(Entry* entry);
    static KeptEntry keep(const Entry& entry);

    const Options options_;
    Patience patience_;
    DirectoryReader directory_;
    Places places_;
    bool keeps_ = false;
    bool lacked_means_ = false;
    std::vector<Entry> entries_;  // in the order of the directory
};

}  // namespace android::vus::usb
