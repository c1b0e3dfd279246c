// SPDX-License-Identifier: Apache-2.0
//
// Gate: no device has a driver before its verdict, and a refused one never has.
//
// The kernel is told not to look for drivers by itself (of USB and of HID devices), and to create
// interfaces switched off. So whatever comes waits until the gate lets it in, interface by
// interface. That outlives the gate: while nobody is there, the door is shut.
//
// What the gate does with a device:
//  - It has it configured, which takes no driver but the kernel's own for devices. One that this
//    leaves to a driver for whole devices is held, unless it is allowed by who made it. Such a
//    driver that takes one that is not let in loses it again.
//  - A hub that gives a hub's descriptor is bound by the hub's driver and no other; what that does
//    not take is no hub, whatever its class says. Root hubs shut their bus before they are bound.
//  - A HID interface is asked for its report descriptor before it has a driver: it is an input
//    device, judged by the sources that are foreseen, or its vendor's own. One that would be the
//    source of nothing is its vendor's own, whatever its applications are called.
//  - What the preview foresees to be allowed is let in, and the daemon is asked about what it has
//    become. About what is not, the daemon is asked while it is held, and has the last word.
//  - An input device that was let in, and that the preview foresees to be refused by now, is held
//    from then on as if it came. What else has drivers loses them by the daemon's word alone.
//  - An input device of a USB device is let in through HID's own driver only. Where that one does
//    not take it, it is no input device, and is judged as its vendor's own. While that driver is
//    not there, the interface is off.
//  - Of a composite device that listed classes admit, the interfaces of classes that neither admit
//    nor refuse come in, too; or they do not, where that is wanted (Composites). Vendor rules admit
//    the whole.
//  - A HID device of another bus shows no descriptor before it has a driver. Where its vendor and
//    product do not settle it, it is let in, and judged by what it is. One that is its vendor's own
//    is held again, and the daemon is asked by those two: no input device of it is.
//  - Every input device that comes of a USB or HID device is silent until it is known for what it
//    is: foreseen to be allowed as that, or allowed by the daemon.
//
// It is also the switches by which a reporter enforces what the daemon says, because what is
// switched on again is let in by the same rules.
//
// A reset may make something else of an interface: another HID device than was judged is asked
// again, and another driver than HID's, which the kernel tries then, loses it at once.
//
// What was bound before the gate came is none of its business: it is judged as it is.
//
// Thread-safe. Methods that take a device may wait for it, and for each other about the same one.

#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "android/vus/mutex.h"
#include "tools/hotplug/gate_system.h"
#include "tools/hotplug/hid_descriptor.h"
#include "tools/hotplug/preview.h"
#include "tools/hotplug/switches.h"

namespace android::vus::hotplug {

// An input device that is held back: it is none yet, but is judged as what it would be.
struct HeldInput {
    Subject subject;           // as if it were one
    std::string behind;        // the interface, or the HID device of no USB device's
    Subject usb_device;        // whose interface it is
    uint64_t incarnation = 0;  // of that one, when it was held
    DeviceInfo info;
};

// What the gate has made of a device.
struct Admission {
    // What it is could not be read: nothing was let in, and nothing else is said here.
    bool unread = false;
    // The kernel has not switched on, or has not tried, all that is to be let in.
    bool incomplete = false;
    // What the device says of itself; nothing if it is none that is judged, or has gone.
    std::optional<Identity> identity;
    uint64_t incarnation = 0;  // of which that was
    // Whether it is to be judged on the USB side: otherwise it is nothing but input devices.
    bool is_question = false;
    bool held = false;             // the USB device is not let in
    std::set<std::string> vendor;  // HID interfaces that are their vendor's own, let in or not
    std::vector<HeldInput> inputs;
    std::vector<Subject> released;         // inputs that are held no more
    std::vector<UsbInterface> interfaces;  // as the gate has left them
};

class Gate : public Switches {
  public:
    enum class Composites { kWhole, kInPart };

    // All of them outlive the gate. `notice` gets a line for what is not as it should be.
    Gate(GateSystem* system, Switches* switches, Preview* preview,
         std::function<void(const std::string&)> notice,
         Composites composites = Composites::kWhole);

    // Shuts the door. What of it this kernel does not have is said, and gone without.
    void shut();
    // Opens it for good, and everything that is held, or that whoever enforces verdicts closed.
    void open_everything();
    // A driver, or a device, has come. It may be the first of a bus that was not there before.
    void driver_came();

    void root_hub(const std::string& root_hub);
    // Lets in of the device what may come in: only a hub, if nobody is there to be asked.
    Admission admit(const Subject& device, bool anybody_there);
    // The same of a HID device of no USB device's own interface.
    Admission admit_hid(const std::string& hid_device);
    // What the daemon said before is of another policy.
    void policy_changed();
    // The daemon has answered: about a USB device, or about what is held of an input device, behind
    // which another USB device may be by now. 0: about whichever there is.
    void answered(const Subject& subject, bool allowed, uint64_t incarnation = 0);
    // Whether it has allowed this USB device, as it is.
    bool is_allowed(const Subject& device);
    // It has gone. Answers which inputs were held.
    std::vector<Subject> forget(const Subject& device);
    void forget_hid(const std::string& hid_device);
    // The same of everything that is not among those present, or has gone.
    std::vector<Subject> keep_only(const std::set<std::string>& keys);

    // An input device has come: silent, if it came of what is held back here.
    void input_appeared(const std::string& input);
    // It is seen for what it is. Answers whether it came silenced and is to be so until a "yes".
    // One that is foreseen to be allowed is vouched for.
    bool stays_silent(const std::string& input, Sighting* seen, bool anybody_there);
    void forget_input(const std::string& input);
    // What is known of what is held, as keys (see Present), besides the devices themselves.
    std::set<std::string> held_keys();

    bool close_interfaces(const Subject& device) override;
    bool open_interfaces(const Subject& device) override;
    bool close_device(const Subject& device) override { return switches_->close_device(device); }
    bool open_device(const Subject& device) override { return switches_->open_device(device); }
    bool hush_input(const std::string& input) override { return switches_->hush_input(input); }
    bool unhush_input(const std::string& input) override { return switches_->unhush_input(input); }
    bool unbind_hid(const std::string& hid_device) override;
    void probe_hid(const std::string& hid_device) override;
    bool open_held(const Subject& usb_device, const std::string& what) override;

  private:
    // What is known of a USB device for as long as it is the same, and has the same interfaces.
    struct State {
        Mutex mutex;  // held while something is let in or shut out
        uint64_t incarnation GUARDED_BY(mutex) = 0;
        std::optional<Identity> identity GUARDED_BY(mutex);
        std::string layout GUARDED_BY(mutex);
        int policy GUARDED_BY(mutex) = 0;                             // under which it was said
        std::optional<bool> said GUARDED_BY(mutex);                   // by the daemon
        std::map<std::string, bool> said_of_input GUARDED_BY(mutex);  // by interface
        // By interface; nothing for one that is no HID in truth, or would not tell: how often that
        // was is known, too.
        std::map<std::string, std::optional<HidNature>> natures GUARDED_BY(mutex);
        std::map<std::string, int> failures GUARDED_BY(mutex);
        // What an interface became when it got HID's driver, by name: that one was judged.
        std::map<std::string, std::string> hid_devices GUARDED_BY(mutex);
    };
    using SharedState = std::shared_ptr<State>;

    enum class Kind { kUsb, kInput, kVendorHid };
    struct Part {
        UsbInterface interface;
        Kind kind;
        bool wanted = false;
        bool refused = false;         // by itself, and for sure
        int32_t refused_sources = 0;  // of an input device, for which it is not
        bool is_done = true;          // or the kernel could not be had to do it
        bool is_as_seen = true;       // nothing was done that may have made it something else
    };

    SharedState state_of(const Subject& device);
    void configure(const std::string& device);
    bool unbind_from_other(const Subject& device);
    bool judge_whole(const Subject& device, State* state) REQUIRES(state->mutex);
    // Drops what is known if the device is another one, of which nobody was told that it came.
    bool recognise(const Subject& device, State* state) REQUIRES(state->mutex);
    static void drop_answers(State* state) REQUIRES(state->mutex);
    // `interfaces` are those that the device has now.
    Admission let_in(const Subject& device, State* state, std::vector<UsbInterface> interfaces)
            REQUIRES(state->mutex);
    // Those that shut answer false if the kernel has not switched something off.
    bool shut_what_was_taken(const Subject& device, State* state,
                             std::vector<UsbInterface>* interfaces) REQUIRES(state->mutex);
    bool shut_interface(const Subject& device, State* state, UsbInterface* interface)
            REQUIRES(state->mutex);
    static Admission unread();
    // Nothing if the kernel could not be had to try.
    std::optional<bool> bind_hub(const Subject& device, uint64_t incarnation,
                                 const std::vector<UsbInterface>& interfaces);
    std::vector<Part> parts_of(const Subject& device, State* state,
                               std::vector<UsbInterface> interfaces) REQUIRES(state->mutex);
    static void note_layout(const std::vector<UsbInterface>& interfaces, State* state)
            REQUIRES(state->mutex);
    // Whether the device is the one that was recognised. False if that cannot be told.
    bool is_still(const Subject& device, const State& state) REQUIRES(state.mutex);
    bool are_still(const std::vector<Part>& parts);
    Kind kind_of(const Subject& device, UsbInterface* interface, State* state)
            REQUIRES(state->mutex);
    std::optional<HidNature> nature_of(const Subject& device, UsbInterface* interface, State* state)
            REQUIRES(state->mutex);
    static void drop_natures(State* state) REQUIRES(state->mutex);
    static bool is_to_be_asked_again(const UsbInterface& interface, const State& state)
            REQUIRES(state.mutex);
    static void drop_nature_of_another(const UsbInterface& interface, State* state)
            REQUIRES(state->mutex);
    bool judge_parts(const Identity& identity, State* state, std::vector<Part>* parts)
            REQUIRES(state->mutex);
    static bool are_without_drivers(const std::vector<Part>& parts);
    static bool is_question(const std::vector<Part>& parts,
                            const std::vector<UsbInterface>& interfaces);
    void judge_input(const Identity& identity, State* state, Part* part) REQUIRES(state->mutex);
    // False if the parts are other ones by now: somebody has changed them, or an input device was
    // refused by HID's driver.
    bool bind_parts(const Subject& device, State* state, std::vector<Part>* parts)
            REQUIRES(state->mutex);
    bool bind_part(const Subject& device, Part* part, State* state) REQUIRES(state->mutex);
    bool bind_input(const Subject& device, Part* part, State* state) REQUIRES(state->mutex);
    bool probe_hid_devices_of(const Subject& device, State* state, const std::vector<Part>& parts)
            REQUIRES(state->mutex);
    void shut_parts(const Subject& device, State* state, std::vector<Part>* parts)
            REQUIRES(state->mutex);
    void hold_inputs(const Subject& device, const State& state, const std::vector<Part>& parts,
                     Admission* admission) REQUIRES(state.mutex);
    bool is_refused(const std::string& hid_device);
    Foreseen foresee_hid(const std::string& hid_device, const Identity& identity);
    Admission hold_vendors_hid(HeldInput held);
    Admission hold_hid(HeldInput held);
    void drop_silenced_that_went();
    void shut_bus(const char* file);
    void say_open(const char* part, int error);

    GateSystem* const system_;
    Switches* const switches_;
    Preview* const preview_;
    const std::function<void(const std::string&)> notice_;
    const Composites composites_;
    std::atomic<int> policies_{0};  // how many there have been
    Mutex mutex_;
    std::map<std::string, SharedState> states_ GUARDED_BY(mutex_);  // by the device's key
    std::set<const char*> open_ GUARDED_BY(mutex_);                 // buses that could not be shut
    std::set<std::string> said_open_ GUARDED_BY(mutex_);            // parts of the door, likewise
    std::map<std::string, HeldInput> held_ GUARDED_BY(mutex_);      // by key
    // Input devices that came, or were found, silenced, and have not been seen yet.
    std::set<std::string> silenced_ GUARDED_BY(mutex_);
    // HID devices: that lost their driver to a refusal; of which the daemon has said something
    // while they were held.
    std::set<std::string> refused_hid_ GUARDED_BY(mutex_);
    std::map<std::string, bool> said_of_hid_ GUARDED_BY(mutex_);
    // Those of other buses that have shown to be their vendor's own.
    std::set<std::string> vendors_hid_ GUARDED_BY(mutex_);
};

}  // namespace android::vus::hotplug
