// SPDX-License-Identifier: Apache-2.0
//
// What follows from answers, and from their absence: what a device's switches are to be, and how
// they come to be so.

#include <algorithm>
#include <utility>

#include "tools/hotplug/reporter.h"

namespace android::vus::hotplug {

namespace {

// Interfaces that come within this time come of the same change.
constexpr std::chrono::milliseconds kOneReturn(100);
// Who brings a refused device's interfaces back twice within this time will do so again.
constexpr std::chrono::seconds kReturnsSoon(10);
constexpr std::chrono::milliseconds kThreadRetry(100);
// Twice as long each time: what works again after some time is open after that time once more.
constexpr std::chrono::milliseconds kFirstPause(100);
constexpr std::chrono::hours kLongestPause(1);
constexpr std::chrono::seconds kFirstLook(1);
constexpr std::chrono::seconds kLongestLook(60);

}  // namespace

void Reporter::interfaces_back(const Subject& device, Clock::time_point now) {
    {
        const MutexLock lock(mutex_);
        const auto known = records_.find(device.key());
        if (known == records_.end()) return;
        Record& record = known->second;
        if (record.wanted == Hold::kNone && !record.was_refused) return;
        record.verify = true;
        queue_switching(device);
        const auto since = record.last_return ? now - *record.last_return : Clock::duration::max();
        if (since < kOneReturn) return;
        record.last_return = now;
        if (since < kReturnsSoon && record.was_refused) record.wanted = Hold::kWholeDevice;
        if (record.wanted == Hold::kNone) return;
    }
    notice("closed " + device.name + ": its interfaces have come back");
}

std::optional<Reporter::Clock::time_point> Reporter::next_deadline() const {
    std::optional<Clock::time_point> next = patience_.next_deadline();
    const auto at_latest = [&next](Clock::time_point when) {
        next = next ? std::min(*next, when) : when;
    };
    if (lanes_.wants_retry()) at_latest(Clock::now() + kThreadRetry);
    const MutexLock lock(mutex_);
    for (const auto& [key, record] : records_) {
        if (record.due) at_latest(*record.due);
    }
    if (another_look_) at_latest(*another_look_);
    return next;
}

void Reporter::look_again_later() {
    {
        const MutexLock lock(mutex_);
        if (another_look_) return;
        const Clock::time_point now = Clock::now();
        const bool soon = now < last_look_ + 2 * kLongestLook;
        look_pause_ = soon ? std::clamp<Clock::duration>(2 * look_pause_, kFirstLook, kLongestLook)
                           : kFirstLook;
        another_look_ = now + look_pause_;
    }
    if (manner_.wake) manner_.wake();
}

bool Reporter::take_another_look(Clock::time_point now) {
    const MutexLock lock(mutex_);
    if (!another_look_ || now < *another_look_) return false;
    last_look_ = now;
    another_look_.reset();
    return true;
}

void Reporter::lose_patience(Clock::time_point now) {
    lanes_.retry();
    for (const Subject& device : take_due(now)) queue_switching(device);
    for (const Subject& device : patience_.lost(now)) hold_silent(device, "no answer within 2 s");
}

void Reporter::follow(const Subject& device, Verdict verdict) {
    {
        const MutexLock lock(mutex_);
        Record& record = records_[device.key()];
        record.verdict = verdict;
        if (verdict == Verdict::kRefused) {
            record.was_refused = true;
            // The daemon has switched it off.
            record.done = std::max(record.done, Hold::kRefusal);
        }
    }
    want(device, verdict == Verdict::kRefused ? Hold::kRefusal : Hold::kNone);
}

void Reporter::hold_silent(const Subject& device, const std::string& why) {
    const Record known = record_of(device);
    if (known.wanted != Hold::kNone || known.allowed_as_is) return;
    notice("closed " + device.name + ": " + why);
    want(device, Hold::kSilence);
}

// The daemon is away.
void Reporter::close_unasked(const Record& known, const DeviceInfo& info, Ask when) {
    if (known.verdict != Verdict::kNone) return;
    if (when != Ask::kFoundAlone) return hold_silent(known.subject, "the daemon is away");
    // What may be nothing but input devices is judged as those.
    const bool is_question = info.deviceType != kUsbType || !is_hid(info);
    if (is_question && manner_.refuses && manner_.refuses(info)) {
        hold_silent(known.subject, "the daemon is away, and the policy refuses it");
    }
}

// Without what could not be read it would be another device.
void Reporter::close_unread(const SharedSession& session, const Subject& device, Ask when) {
    if (session == nullptr && when == Ask::kFoundAlone) return;
    look_again_later();
    const Record known = record_of(device);
    // What closed it may have failed as well.
    if (known.wanted != Hold::kNone) return want(device, known.wanted);
    hold_silent(device, "what it is cannot be read");
}

void Reporter::want(const Subject& device, Hold hold) {
    const MutexLock lock(mutex_);
    Record& record = records_[device.key()];
    record.subject = device;
    if (hold != Hold::kNone && hold < record.wanted) return;
    if (hold == Hold::kNone && record.wanted == Hold::kNone) return;
    // What is only said once more is tried at once, but no more often for that.
    if (record.wanted != hold) record.pause = Clock::duration::zero();
    record.wanted = hold;
    // A refusal is seen to each time that it is heard.
    record.verify = true;
    queue_switching(device);
}

void Reporter::queue_switching(const Subject& device) {
    lanes_.add(
            device.key() + " switches", [this, device] { make_so(device); },
            Lanes::Job::kSwitching);
}

void Reporter::make_so(const Subject& device) {
    Record before;
    Hold wanted = Hold::kNone;
    {
        const MutexLock lock(mutex_);
        const auto known = records_.find(device.key());
        if (known == records_.end()) return;
        Record& record = known->second;
        before = record;
        record.due.reset();
        wanted = record.wanted;
        if (wanted == record.done && !record.verify) return;
        record.done = wanted;
        record.verify = false;
    }
    if (wanted == Hold::kNone && before.done == Hold::kNone) return;
    // A refused USB device is in the daemon's list, and what is held is the gate's.
    const bool is_ours = wanted == Hold::kSilence ||
                         (wanted == Hold::kRefusal && !device.is_usb() && !before.seen.held);
    if (manner_.closings != nullptr && is_ours) manner_.closings->add(device);
    // What a gate has just seen to be off need not be looked at again.
    const bool is_so = wanted == before.done && before.seen.held && before.seen.off;
    if (!is_so && !switch_as(before, wanted)) return switch_later(device, before.done);
    if (before.pause != Clock::duration::zero()) note_switched(device);
    if (manner_.closings != nullptr && !is_ours) manner_.closings->remove(device);
}

// It is as it was, or in part: who looks next does it again.
void Reporter::switch_later(const Subject& device, Hold before) {
    {
        const MutexLock lock(mutex_);
        const auto known = records_.find(device.key());
        if (known == records_.end()) return;
        Record& record = known->second;
        record.verify = true;
        if (record.done == Hold::kNone) record.done = std::max(before, Hold::kSilence);
        record.pause = std::clamp<Clock::duration>(2 * record.pause, kFirstPause, kLongestPause);
        record.due = Clock::now() + record.pause;
    }
    if (manner_.wake) manner_.wake();
}

void Reporter::note_switched(const Subject& device) {
    const MutexLock lock(mutex_);
    const auto known = records_.find(device.key());
    if (known != records_.end()) known->second.pause = Clock::duration::zero();
}

std::vector<Subject> Reporter::take_due(Clock::time_point now) {
    std::vector<Subject> devices;
    const MutexLock lock(mutex_);
    for (auto& [key, record] : records_) {
        if (!record.due || *record.due > now) continue;
        record.due.reset();
        devices.push_back(record.subject);
    }
    return devices;
}

bool Reporter::switch_as(const Record& before, Hold wanted) {
    if (!before.subject.is_usb()) return switch_input(before, wanted);
    return switch_usb(before.subject, before.done, wanted);
}

bool Reporter::switch_usb(const Subject& device, Hold before, Hold wanted) {
    switch (wanted) {
        case Hold::kNone:
            doubt_what_was_off(device);
            if (before == Hold::kWholeDevice && !switches_->open_device(device)) return false;
            if (!switches_->open_interfaces(device)) return false;
            notice("opened " + device.name);
            break;
        case Hold::kSilence:
        case Hold::kRefusal:
            return switches_->close_interfaces(device);
        case Hold::kWholeDevice:
            return switches_->close_device(device);
    }
    return true;
}

// What was off while the daemon looked at it looked like a keyboard, and may be a vendor's own HID:
// that it is left to the input side is not said of what it will be now.
void Reporter::doubt_what_was_off(const Subject& device) {
    const MutexLock lock(mutex_);
    const auto known = records_.find(device.key());
    if (known == records_.end() || known->second.verdict != Verdict::kElsewhere) return;
    known->second.verdict = Verdict::kNone;
}

bool Reporter::switch_input(const Record& before, Hold wanted) {
    const Subject& device = before.subject;
    switch (wanted) {
        case Hold::kNone:
            return open_input(before);
        case Hold::kSilence:
            return switches_->hush_input(device.name);
        case Hold::kRefusal:
        case Hold::kWholeDevice:
            if (!before.unbound) close_input(before);
            break;
    }
    return true;
}

void Reporter::close_input(const Record& before) {
    const Subject& device = before.subject;
    const std::string& hid_device = before.seen.hid_device;
    if (before.seen.held) return notice("held " + hid_device);
    switches_->hush_input(device.name);
    notice("closed " + device.name + (hid_device.empty() ? "" : " and " + hid_device));
    if (hid_device.empty()) return;
    switch_hid(before, [this, device, hid_device] {
        const bool unbound = switches_->unbind_hid(hid_device);
        const MutexLock lock(mutex_);
        const auto known = records_.find(device.key());
        if (known != records_.end()) known->second.unbound |= unbound;
    });
}

bool Reporter::open_input(const Record& before) {
    const Subject& device = before.subject;
    if (before.seen.held) {
        open_held(before);
        return true;
    }
    if (!switches_->unhush_input(device.name)) return false;
    notice("opened " + device.name);
    if (before.seen.hid_device.empty()) return true;
    switch_hid(before, [this, device, hid_device = before.seen.hid_device] {
        if (!record_of(device).unbound) return;
        switches_->probe_hid(hid_device);
        // The driver makes a new input device; this one is no more.
        lanes_.add(device.key(), [this, present = session(), device] { forget(present, device); });
    });
    return true;
}

// What it becomes is another device.
void Reporter::open_held(const Record& before) {
    notice("opened " + before.seen.hid_device);
    switch_hid(before, [this, before] {
        if (!switches_->open_held(before.seen.usb_device, before.seen.hid_device)) {
            look_again_later();
        }
        // Not what is held of the next one at that port.
        lanes_.add(before.subject.key(), [this, present = session(), before] {
            const bool is_there =
                    record_of(before.subject).seen.incarnation == before.seen.incarnation;
            if (is_there) forget(present, before.subject);
        });
    });
}

// Among what is asked of the USB device, if it is one's: a keyboard that loses its HID device's
// driver while the daemon looks at it would be taken for a vendor's own HID.
void Reporter::switch_hid(const Record& record, std::function<void()> job) {
    const Subject& usb_device = record.seen.usb_device;
    lanes_.add(usb_device.number == 0 ? record.seen.hid_device : usb_device.key(), std::move(job));
}

}  // namespace android::vus::hotplug
