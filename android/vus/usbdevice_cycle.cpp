// SPDX-License-Identifier: Apache-2.0

#include "android/vus/usbdevice_cycle.h"

#include <errno.h>
#include <linux/magic.h>
#include <sys/vfs.h>

#include <utility>

#include "android/vus/paths.h"
#include "android/vus/plain_log.h"

namespace android::vus::usb {

namespace {

constexpr uint32_t kStorageClass = 8;

// Whether nothing can come that would make the interface something else while its driver stays.
bool is_settled(const KeptInterface& kept) {
    const usbinterface& node = kept.node;
    return !kept.is_classified || kept.shape.binding == 0 ||
           node.bInterfaceClass == kStorageClass || node.category != kCategoryNone;
}

// Whether the interface stays what it is: it has the name of its function, if it has one, and the
// input subsystem cannot come to serve it.
bool stays_what_it_is(const usbinterface& node) {
    if (node.category == kCategoryVendorHid) return false;
    const bool needs_name = node.category == kCategoryNetwork || node.category == kCategoryTty;
    return !needs_name || strcmp(node.category_path, "empty") != 0;
}

void forget_links(usbbusnode* bus) {
    bus->next = nullptr;
    bus->first_interface = nullptr;
    bus->first_child = nullptr;
}

void forget_links(usbdevice* device) {
    device->list = {};
    device->next = nullptr;
    device->first_interface = nullptr;
    device->first_child = nullptr;
    device->parent = nullptr;
}

void forget_links(usbinterface* interface) {
    interface->list = {};
    interface->next = nullptr;
    interface->parent = nullptr;
}

const char* name_of(const KeptEntry& kept) {
    if (kept.bus != nullptr) return kept.bus->name;
    return kept.device != nullptr ? kept.device->name : kept.interface->node.name;
}

template <typename NodeType>
std::shared_ptr<const NodeType> copy_of(const NodeType& node) {
    auto copy = std::make_shared<NodeType>(node);
    forget_links(copy.get());
    return copy;
}

}  // namespace

Cycle::Cycle(Options options)
      : options_(std::move(options)),
        patience_(options_.patience),
        directory_(kUsbDevicesDir),
        places_(directory_.fd()) {}

Cycle::~Cycle() {
    UsbDevice::delete_all_nodes();
    UsbDevice::empty_list();
}

bool Cycle::read_entries() {
    if (!directory_.ok()) {
        lacked_means_ = is_want_of_means(errno);
        return false;
    }
    keeps_ = may_keep();
    while (const dirent64* listed = directory_.next()) {
        if (!take_over(*listed)) read(*listed);
    }
    return true;
}

// With trace lines on, everything is read, because reading is what they tell of.
bool Cycle::may_keep() const {
    if (options_.keeping == Keeping::kNowhere || UsbDevice::verbose_log) return false;
    if (options_.keeping == Keeping::kAnywhere) return true;
    struct statfs status;
    return fstatfs(directory_.fd(), &status) == 0 && status.f_type == SYSFS_MAGIC;
}

void Cycle::read(const dirent64& listed) {
    Entry entry = {};
    entry.number = listed.d_ino;
    // Looked at first: what comes while the entry is read is seen by the next cycle.
    const bool is_interface = strchr(listed.d_name, ':') != nullptr;
    if (keeps_ && is_interface) entry.shape = shape_of(listed.d_name);
    entry.node = read_entry(listed.d_name, &patience_);
    lacked_means_ |= entry.node.lacked_means;
    if (entry.node) entries_.push_back(std::move(entry));
}

bool Cycle::take_over(const dirent64& listed) {
    if (!keeps_ || options_.before == nullptr) return false;
    const auto found = options_.before->find(listed.d_ino);
    if (found == options_.before->end()) return false;
    if (strcmp(name_of(found->second), listed.d_name) != 0) return false;
    Entry entry = {};
    entry.number = listed.d_ino;
    entry.kept = found->second;
    entry.node.is_complete = true;
    const KeptEntry& kept = entry.kept;
    if (kept.bus != nullptr) {
        entry.node.bus = new usbbusnode(*kept.bus);
        append_to_chain(&UsbDevice::bus_list, entry.node.bus);
    } else if (kept.device != nullptr) {
        entry.node.device = new usbdevice(*kept.device);
        append(&UsbDevice::device_list, &entry.node.device->list);
    } else {
        if (!is_unchanged(*kept.interface)) return false;
        entry.node.interface = new usbinterface(kept.interface->node);
        append(&UsbDevice::interface_list, &entry.node.interface->list);
    }
    entries_.push_back(std::move(entry));
    return true;
}

bool Cycle::is_unchanged(const KeptInterface& kept) {
    std::optional<Place> place;
    if (kept.shape.is_below_bus) place = places_.by_bus(kept.node.name);
    if (!place) place = places_.by_name(kept.node.name);
    struct stat status;
    const bool is_bound = place->look_at("driver", &status);
    if ((is_bound ? status.st_ino : 0) != kept.shape.binding) return false;
    if (is_settled(kept)) return true;
    return place->look(&status) && status.st_nlink == kept.shape.directories;
}

InterfaceShape Cycle::shape_of(const char* entry) {
    InterfaceShape shape;
    const Place by_name = places_.by_name(entry);
    struct stat directory;
    if (!by_name.look(&directory)) return shape;
    shape.directories = directory.st_nlink;
    const std::optional<Place> below_bus = place_below_bus(entry, directory);
    shape.is_below_bus = below_bus.has_value();
    struct stat driver;
    if (below_bus.value_or(by_name).look_at("driver", &driver)) shape.binding = driver.st_ino;
    return shape;
}

// Nothing if another directory is there, or none, than the one that is linked.
std::optional<Place> Cycle::place_below_bus(const char* entry, const struct stat& linked) {
    std::optional<Place> place = places_.by_bus(entry);
    struct stat found;
    if (place && place->look(&found) && found.st_dev == linked.st_dev &&
        found.st_ino == linked.st_ino) {
        return place;
    }
    return {};
}

// Only the links tell which entries belong to the judged device.
void Cycle::read_judged_again() {
    if (!options_.judged) return;
    std::vector<Entry*> judged;
    for (Entry& entry : entries_) {
        const bool is_kept = entry.kept.device != nullptr || entry.kept.interface != nullptr;
        if (is_kept && is_judged(entry)) judged.push_back(&entry);
    }
    for (Entry* entry : judged) {
        entry->kept = {};
        if (entry->node.interface != nullptr) entry->shape = shape_of(entry->node.interface->name);
        entry->node = read_again(entry->node, &patience_);
        lacked_means_ |= entry->node.lacked_means;
    }
}

bool Cycle::is_judged(const Entry& entry) const {
    const usbdevice* const device =
            entry.node.interface != nullptr ? entry.node.interface->parent : entry.node.device;
    return device != nullptr && device_id(*device) == *options_.judged;
}

DeviceIdMap Cycle::connect() {
    link_nodes();
    read_judged_again();
    DeviceIdMap records;
    for (Entry& entry : entries_) {
        const usbinterface* const interface = entry.node.interface;
        if (interface == nullptr || interface->parent == nullptr) continue;
        classify_or_repeat(&entry);
        add_record(*interface, &records);
    }
    return records;
}

// The log says the same of an interface that was taken over as of one that was read.
void Cycle::classify_or_repeat(Entry* entry) {
    if (entry->kept.interface != nullptr && entry->kept.interface->is_classified) {
        for (const std::string& line : entry->kept.interface->lines) logText(line);
        return;
    }
    if (entry->kept.interface != nullptr) entry->shape = entry->kept.interface->shape;
    entry->kept = {};
    entry->node.is_complete &= classify(entry->node.interface, keeps_ ? &entry->lines : nullptr);
    entry->is_classified = true;
}

std::shared_ptr<const Topology> Cycle::topology() const {
    if (!keeps_ || broke_off()) return nullptr;
    auto topology = std::make_shared<Topology>();
    topology->reserve(entries_.size());
    for (const Entry& entry : entries_) {
        if (entry.node.is_complete) topology->emplace(entry.number, keep(entry));
    }
    return topology;
}

KeptEntry Cycle::keep(const Entry& entry) {
    KeptEntry kept = entry.kept;
    if (kept.bus != nullptr || kept.device != nullptr || kept.interface != nullptr) return kept;
    if (entry.node.bus != nullptr) kept.bus = copy_of(*entry.node.bus);
    if (entry.node.device != nullptr) kept.device = copy_of(*entry.node.device);
    if (entry.node.interface != nullptr) {
        auto interface = std::make_shared<KeptInterface>();
        interface->node = *entry.node.interface;
        forget_links(&interface->node);
        interface->shape = entry.shape;
        interface->is_classified = entry.is_classified && stays_what_it_is(interface->node);
        if (interface->is_classified) interface->lines = entry.lines;
        kept.interface = std::move(interface);
    }
    return kept;
}

}  // namespace android::vus::usb
