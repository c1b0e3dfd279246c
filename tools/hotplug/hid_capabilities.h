// SPDX-License-Identifier: Apache-2.0
//
// What an input device would be able to send, usage by usage of a HID report descriptor, by the
// kernel's rules. Of many usages it matters only which kind of code they become. Not thread-safe.

#pragma once

#include <linux/input-event-codes.h>
#include <stdint.h>

#include <bitset>

namespace android::vus::hotplug {

// A field of a report that the device sends.
struct HidField {
    uint32_t application;  // the usage of the innermost such collection
    uint32_t physical;     // likewise
    bool relative;
    bool single_bit;
};

class HidCapabilities {
  public:
    void add(const HidField& field, uint32_t usage);
    // The input source bits by which it would be reported; 0 if it would be by none.
    int32_t sources() const;

  private:
    void add_desktop(const HidField& field, unsigned id);
    void add_button(const HidField& field, unsigned id);
    void add_digitizer(const HidField& field, unsigned id);
    void add_consumer(const HidField& field, unsigned id);
    void add_unknown(const HidField& field);

    std::bitset<KEY_CNT> keys_;
    std::bitset<REL_CNT> relative_;
    std::bitset<ABS_CNT> absolute_;
    bool direct_ = false;
};

}  // namespace android::vus::hotplug
