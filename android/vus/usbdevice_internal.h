// SPDX-License-Identifier: Apache-2.0

// What the source files of UsbDevice share: the steps of a cycle, and walks over the node lists.
// Not for users of the class.

#pragma once

#include <stddef.h>
#include <stdint.h>

#include <charconv>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/logging.h>

#include "android/vus/sysfs.h"
#include "android/vus/usbdevice.h"

namespace android::vus::usb {

// The node that an entry became: one of the three, or none.
struct Node {
    usbbusnode* bus = nullptr;
    usbdevice* device = nullptr;
    usbinterface* interface = nullptr;
    bool is_complete = false;   // everything was read that there is
    bool lacked_means = false;  // something was not, for want of descriptors or memory

    explicit operator bool() const {
        return bus != nullptr || device != nullptr || interface != nullptr;
    }
};

// Makes a node of an entry and appends it to the calling thread's list. With no patience, waits for
// as long as the kernel makes it.
Node read_entry(const char* entry, Patience* patience);
// Fills a node once more.
Node read_again(const Node& node, Patience* patience);

// Links the nodes of the calling thread's lists into the tree.
void link_nodes();
// Adds the record of an interface that belongs to a device, and was classified.
void add_record(const usbinterface& interface, DeviceIdMap* records);

// Finds out what an interface became. The lines that it logs about that are added to `lines`, if
// there is one. Returns whether all of its directories could be opened.
bool classify(usbinterface* interface, std::vector<std::string>* lines);

inline int32_t device_id(uint32_t busnum, uint32_t devnum) {
    return static_cast<int32_t>(busnum * 1000 + devnum);
}

inline int32_t device_id(const usbdevice& device) {
    return device_id(device.busnum, device.devnum);
}

// Parses the decimal number at `text`, cut to 32 bits. Returns the position after it, which is
// `text` itself if there is no digit.
inline const char* parse_number(const char* text, uint32_t* value) {
    unsigned long long number = 0;
    const auto result = std::from_chars(text, text + strlen(text), number);
    if (result.ec == std::errc::result_out_of_range) number = ~0ULL;
    if (result.ptr != text) *value = static_cast<uint32_t>(number);
    return result.ptr;
}

// A trace line: an INFO line that appears only with UsbDevice::verbose_log.
template <typename... Parts>
void trace(const Parts&... parts) {
    if (!UsbDevice::verbose_log) return;
    std::ostringstream line;
    (line << ... << parts);
    LOG(INFO) << line.str();
}

inline void append(listlinks* head, listlinks* node) {
    node->next = head;
    node->prev = head->prev;
    head->prev->next = node;
    head->prev = node;
}

// The nodes of a list, for a range-based for. The node at hand may not be removed.
template <typename Node>
class Nodes {
    static_assert(offsetof(Node, list) == 0, "a node is found at its links");

  public:
    class Iterator {
      public:
        explicit Iterator(listlinks* at) : at_(at) {}
        Node* operator*() const { return reinterpret_cast<Node*>(at_); }
        Iterator& operator++() {
            at_ = at_->next;
            return *this;
        }
        bool operator!=(const Iterator& other) const { return at_ != other.at_; }

      private:
        listlinks* at_;
    };

    explicit Nodes(listlinks& head) : head_(head) {}
    Iterator begin() const { return Iterator(head_.next); }
    Iterator end() const { return Iterator(&head_); }

  private:
    listlinks& head_;
};

inline Nodes<usbdevice> devices() {
    return Nodes<usbdevice>(UsbDevice::device_list);
}

inline Nodes<usbinterface> interfaces() {
    return Nodes<usbinterface>(UsbDevice::interface_list);
}

// Adds `node` at the end of a chain through next. A node that is in the chain already stays where
// it is: added again, it would close the chain to a ring that no walk comes out of.
template <typename Node>
void append_to_chain(Node** first, Node* node) {
    while (*first != nullptr) {
        if (*first == node) return;
        first = &(*first)->next;
    }
    *first = node;
}

}  // namespace android::vus::usb
