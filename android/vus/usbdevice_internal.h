// SPDX-License-Identifier: Apache-2.0

// What the source files of UsbDevice share: one entry of the USB devices directory, walks over the
// node lists, and bounded copies. Not for users of the class.

#pragma once

#include <dirent.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <sstream>
#include <string_view>
#include <utility>

#include <android-base/logging.h>
#include <android-base/unique_fd.h>

#include "android/vus/usbdevice.h"

namespace android::vus::usb {

// Formats the path of `name` below an entry of the USB devices directory, cut to the buffer.
// Returns the length that the whole path takes.
int format_path(char (&path)[kSysfsValueSize], const char* entry, const char* name);
// Whether a path of that formatted length is whole in its buffer.
bool path_fits(int length);

// One entry of the USB devices directory, opened once for all of its attributes: reading them below
// a descriptor spares the kernel the walk through the whole path, links included, for each of them.
//
// Values and messages are those of read_sysfs_file_int() and read_sysfs_file_string(), which also
// do the work where the entry cannot be opened as a directory.
class SysfsEntry {
  public:
    explicit SysfsEntry(const char* entry);

    int32_t read_int(const char* attribute, int32_t base) const;
    void read_string(const char* attribute, char* buf, int32_t len) const;
    // The length that the path of `name` below this entry takes.
    int path_length(const char* name) const;
    // The last component of the "driver" link; left alone if there is no such link.
    void read_driver(char (&driver)[kSysfsNameSize]) const;

  private:
    const char* entry_;
    int length_;  // of the entry's own path, with a '/' at its end
    base::unique_fd directory_;
};

// Stores what follows the last "/" of the link at `path` (below `directory`, if that is open).
void read_link_name(int directory, const char* path, char (&name)[kSysfsNameSize]);

// The entries of a directory, in the order in which the kernel lists them.
//
// Read by the system call into a buffer of its own: a decision reads some hundred small
// directories, and opendir() would allocate and free 32 KiB for each.
class DirectoryReader {
  public:
    // A directory that cannot be opened has no entries; errno tells why.
    explicit DirectoryReader(const char* path);

    bool ok() const { return fd_.ok(); }
    // The next entry, "." and ".." included, valid until the next call; null at the end.
    const dirent64* next();
    // Whether the entry itself is a directory. A link to one is not.
    bool is_directory(const dirent64& entry) const;

  private:
    base::unique_fd fd_;
    long filled_ = 0;
    long position_ = 0;
    alignas(dirent64) char buffer_[kSysfsValueSize];
};

// Links the nodes of the calling thread's lists into the tree, classifies the interfaces, and
// returns the records of those that belong to a device.
DeviceIdMap connect_nodes();

inline int32_t device_id(const usbdevice& device) {
    return static_cast<int32_t>(device.busnum * 1000 + device.devnum);
}

// Copies `text` as far as it fits with its terminator and zeroes the rest of the field. Returns
// whether all of it fitted.
template <size_t kSize>
bool copy_text(char (&field)[kSize], std::string_view text) {
    const size_t length = std::min(text.size(), kSize - 1);
    memcpy(field, text.data(), length);
    memset(field + length, 0, kSize - length);
    return length == text.size();
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
