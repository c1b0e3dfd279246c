// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/reporter.h"

#include <algorithm>
#include <thread>
#include <tuple>
#include <utility>

#include <android-base/stringprintf.h>

namespace android::vus::hotplug {

namespace {

constexpr int32_t kRemoved = 0;
constexpr std::chrono::seconds kPatience(2);
constexpr size_t kGoneHidDevices = 256;
// Of a call that has failed.
constexpr int kMoreCalls = 4;

bool has_ended(const binder::Status& status) {
    return status.transactionError() == DEAD_OBJECT;
}

// All that a reader fills in.
auto fields(const DeviceInfo& info) {
    return std::tie(info.deviceType, info.deviceId, info.deviceClass, info.interfaceClassList,
                    info.vendorId, info.productId, info.deviceName);
}

// Nor another one that came with the same number.
bool may_be_one_device(const Sighting& one, const Sighting& other) {
    return one.incarnation == 0 || other.incarnation == 0 || one.incarnation == other.incarnation;
}

// Nor held where it was not: what it became is another thing to tell.
bool is_same(const Sighting& one, const Sighting& other) {
    return one.info && other.info && fields(*one.info) == fields(*other.info) &&
           one.held == other.held && may_be_one_device(one, other);
}

// An answer that is waited for as long as this object is there, be it that the question waits for
// its turn, or that nobody wants to know any more.
class Wait {
  public:
    Wait(Patience* patience, Subject device) : patience_(patience), device_(std::move(device)) {
        patience_->begin(device_, Patience::Clock::now());
    }
    ~Wait() { patience_->end(device_); }
    Wait(const Wait&) = delete;
    Wait& operator=(const Wait&) = delete;

  private:
    Patience* const patience_;
    const Subject device_;
};

// Whether the record is of a device that may have been this one before it was switched off.
bool was_refused_as(const DeviceInfo& record, const DeviceInfo& present) {
    return record.status == 0 && record.vendorId == present.vendorId &&
           record.productId == present.productId &&
           record.interfaceClassList.size() == present.interfaceClassList.size();
}

std::string class_text(const DeviceInfo& info) {
    if (info.deviceType != kUsbType) return base::StringPrintf("sources %#x", info.deviceClass);
    std::string text = "classes ";
    for (const int32_t code : info.interfaceClassList) {
        if (text.back() != ' ') text += ",";
        text += std::to_string(code);
    }
    return text.back() == ' ' ? text + "-" : text;
}

}  // namespace

Reporter::Reporter(Switches* switches, Manner manner)
      : switches_(switches), manner_(std::move(manner)), patience_(kPatience) {}

void Reporter::set_service(const sp<IVUsbService>& service) {
    const MutexLock lock(mutex_);
    session_ = service == nullptr ? nullptr : std::make_shared<Session>(service);
}

void Reporter::policy_changed() {
    const MutexLock lock(mutex_);
    if (session_ != nullptr) session_ = session_->under_another_policy();
}

void Reporter::judge(const Subject& device, Read read, Ask when) {
    const SharedSession present = session();
    if (present == nullptr) {
        if (manner_.fail_closed) {
            run(
                    device,
                    [this, device, read = std::move(read), when] {
                        ask(nullptr, device, read, when);
                    },
                    judgement(when));
        }
        return;
    }
    const auto wait = std::make_shared<Wait>(&patience_, device);
    run(
            device,
            [this, present, device, read = std::move(read), when, wait] {
                ask(present, device, read, when);
            },
            judgement(when));
}

void Reporter::judge_here(const Subject& device, const Read& read, Ask when) {
    const SharedSession present = session();
    // Nobody's silence takes back a "yes" that is only asked about if the device has changed.
    const bool waits = present != nullptr &&
                       (when == Ask::kAlways || record_of(device).verdict != Verdict::kAllowed);
    std::optional<Wait> wait;
    if (waits) wait.emplace(&patience_, device);
    if (waits && manner_.wake) manner_.wake();
    ask(present, device, read, when);
}

void Reporter::forget_here(const Subject& device) {
    resume(device);
    let_go(session(), device);
}

void Reporter::removed(const Subject& device) {
    // It has come and gone while it waited for its turn.
    if (lanes_.take_back(device.key()) && !has_record(device)) return;
    run(
            device, [this, present = session(), device] { let_go(present, device); },
            Lanes::Job::kRemoval);
}

void Reporter::hid_removed(const std::string& hid_device) {
    const MutexLock lock(mutex_);
    gone_hid_.push_back(hid_device);
    if (gone_hid_.size() > kGoneHidDevices) gone_hid_.pop_front();
    for (const auto& [key, record] : records_) {
        if (record.seen.hid_device != hid_device) continue;
        lanes_.add(
                key,
                [this, present = session_, device = record.subject] { forget(present, device); },
                Lanes::Job::kRemoval);
    }
}

// By itself: another one may be held behind the same port by now.
void Reporter::held_no_more(const Subject& held) {
    lanes_.add(held.key(), [this, present = session(), held] { forget(present, held); });
}

void Reporter::came_silenced(const Subject& input) {
    if (manner_.closings != nullptr) manner_.closings->add(input);
    const MutexLock lock(mutex_);
    Record& record = records_[input.key()];
    record.subject = input;
    record.wanted = record.done = std::max(record.wanted, Hold::kSilence);
}

void Reporter::ask(const SharedSession& session, const Subject& device, const Read& read,
                   Ask when) {
    Sighting seen = read();
    resume(device);
    if (seen.unread) return close_unread(session, device, when);
    const Record known = record_of(device);
    if (seen.info && seen.bare) recall(session, known, &seen);
    if (needs_no_answer(session, known, seen, when)) return;
    // It has gone since somebody saw it, perhaps because it was refused.
    if (!seen.info) return let_go(session, device);
    note_whether_allowed(device, seen);
    const bool outdated = known.told != session && known.verdict != Verdict::kElsewhere;
    const bool reshaped = known.seen.shape != seen.shape && known.verdict != Verdict::kElsewhere;
    // The daemon keeps the first record of an id, and what a later driver makes of it is in none.
    if (knows(session, known) && (outdated || reshaped || !is_same(known.seen, seen))) {
        tell_removed(session, known);
    }
    if (session == nullptr) {
        close_unasked(known, *seen.info, when);
        return;
    }
    remove_stale(session.get(), device, *seen.info);
    ask_service(session, device, seen);
}

// Before anything is asked of the daemon, which may not answer that either.
void Reporter::note_whether_allowed(const Subject& device, const Sighting& seen) {
    const MutexLock lock(mutex_);
    const auto known = records_.find(device.key());
    if (known == records_.end() && !seen.vouched) return;
    Record& record = records_[device.key()];
    record.subject = device;
    record.allowed_as_is =
            seen.vouched || (record.verdict == Verdict::kAllowed && is_same(record.seen, seen));
}

// What an earlier reporter has closed is closed still.
void Reporter::resume(const Subject& device) {
    if (manner_.closings == nullptr || !manner_.closings->take_earlier(device)) return;
    const MutexLock lock(mutex_);
    Record& record = records_[device.key()];
    record.subject = device;
    record.wanted = record.done = std::max(record.wanted, Hold::kSilence);
}

// A device that is off does not show what it is: it is what it was when it was refused. That is
// known here, or from the daemon's list if it was an earlier reporter's.
void Reporter::recall(const SharedSession& session, const Record& known, Sighting* seen) {
    const bool whole = known.wanted == Hold::kWholeDevice;
    if (whole || (known.verdict == Verdict::kRefused && known.seen.layout == seen->layout)) {
        seen->info = known.seen.info;
        seen->layout = known.seen.layout;
        seen->shape = known.seen.shape;
    } else if (session != nullptr && known.told == nullptr && known.verdict == Verdict::kNone) {
        const auto listed = session->listed(known.subject.key());
        if (!listed || !was_refused_as(*listed, *seen->info)) return;
        seen->info->interfaceClassList = listed->interfaceClassList;
        const MutexLock lock(mutex_);
        Record& record = records_[known.subject.key()];
        record.subject = known.subject;
        record.wanted = record.done = Hold::kRefusal;
    } else {
        return;
    }
    // A vendor's own HID would not be recognised: nothing that is off has a HID device.
    if (seen->info && is_hid(*seen->info)) {
        for (int32_t& code : seen->info->interfaceClassList) code = kVendorSpecificClass;
    }
}

bool Reporter::needs_no_answer(const SharedSession& session, const Record& known,
                               const Sighting& seen, Ask when) {
    if (seen.info && !seen.settled) return true;
    // Without a configuration there is nothing to judge, and no reason to forget a refusal.
    if (known.verdict == Verdict::kRefused && seen.info && seen.layout.empty() &&
        !known.seen.layout.empty()) {
        return true;
    }
    if (session == nullptr || known.told != session || !is_same(known.seen, seen)) {
        return false;
    }
    // The kernel never uses an input device's number again: it was found, and is announced now. By
    // that it may have been silenced once more.
    if (seen.info->deviceType != kUsbType) {
        if (known.wanted == Hold::kSilence) follow(known.subject, known.verdict);
        return true;
    }
    if (when == Ask::kAlways || known.verdict == Verdict::kNone) return false;
    if (known.seen.shape != seen.shape) return false;
    follow(known.subject, known.verdict);
    return true;
}

void Reporter::ask_service(const SharedSession& session, const Subject& device,
                           const Sighting& seen) {
    remember(session, device, seen);
    if (manner_.asked) manner_.asked(device, seen);
    bool answer = false;
    const binder::Status status =
            insist([&] { return session->service().isDeviceAllowed(*seen.info, &answer); });
    print(device, *seen.info, !status.isOk() ? "unanswered" : answer ? "allowed" : "not-allowed");
    if (status.isOk()) {
        const Verdict verdict = verdict_of(session.get(), *seen.info, answer);
        if (manner_.answered && verdict != Verdict::kElsewhere)
            manner_.answered(device, seen, answer);
        follow(device, verdict);
    } else if (!has_ended(status)) {
        hold_silent(device, "the daemon cannot be asked");
    } else if (manner_.fail_closed && record_of(device).verdict == Verdict::kNone) {
        hold_silent(device, "the daemon has ended");
    }
}

// The driver's buffers, or the daemon's memory, may be full for a moment. The pauses are over
// before anybody loses patience.
binder::Status Reporter::insist(const std::function<binder::Status()>& call) const {
    binder::Status status = call();
    auto pause = manner_.pause;
    for (int more = kMoreCalls; more > 0 && !status.isOk() && !has_ended(status); --more) {
        std::this_thread::sleep_for(pause);
        pause *= 2;
        status = call();
    }
    return status;
}

void Reporter::remember(const SharedSession& session, const Subject& device, const Sighting& seen) {
    const MutexLock lock(mutex_);
    Record& record = records_[device.key()];
    record.subject = device;
    record.seen = seen;
    record.told = session;
    if (seen.held) record.wanted = record.done = std::max(record.wanted, Hold::kRefusal);
    if (seen.hid_device.empty()) return;
    // Its HID device has a driver again: what that had brought before is no more.
    for (const auto& [key, other] : records_) {
        if (!other.gone || other.seen.hid_device != seen.hid_device || key == device.key())
            continue;
        lanes_.add(key, [this, session, gone = other.subject] { forget(session, gone); });
    }
}

Reporter::Verdict Reporter::verdict_of(Session* session, const DeviceInfo& info, bool answer) {
    if (answer) return Verdict::kAllowed;
    if (info.deviceType != kUsbType || !is_hid(info) || session->lists(info)) {
        return Verdict::kRefused;
    }
    return Verdict::kElsewhere;
}

void Reporter::let_go(const SharedSession& session, const Subject& device) {
    {
        const MutexLock lock(mutex_);
        const auto known = records_.find(device.key());
        if (known == records_.end()) return;
        Record& record = known->second;
        const std::string& hid_device = record.seen.hid_device;
        record.gone = record.verdict == Verdict::kRefused && !hid_device.empty() &&
                      std::count(gone_hid_.begin(), gone_hid_.end(), hid_device) == 0;
        if (record.gone) return;
    }
    forget(session, device);
}

void Reporter::forget(const SharedSession& session, const Subject& device) {
    const Record known = record_of(device);
    drop(device);
    if (knows(session, known)) tell_removed(session, known);
}

void Reporter::drop(const Subject& device) {
    if (manner_.closings != nullptr) manner_.closings->remove(device);
    const MutexLock lock(mutex_);
    records_.erase(device.key());
}

void Reporter::tell_removed(const SharedSession& session, const Record& record) {
    const binder::Status status = insist(
            [&] { return session->service().updateDeviceList(*record.seen.info, kRemoved); });
    print(record.subject, *record.seen.info, status.isOk() ? "removed" : "unanswered");
}

// Whether the session's daemon was told of the device, under whatever policy.
bool Reporter::knows(const SharedSession& session, const Record& record) {
    return session != nullptr && record.told != nullptr && record.told->is_with_daemon_of(*session);
}

// The daemon may have a record of the device from an earlier reporter, or of another one that had
// its number.
void Reporter::remove_stale(Session* session, const Subject& device, const DeviceInfo& present) {
    const auto listed = session->take_listed(device.key());
    if (!listed || fields(*listed) == fields(present)) return;
    const binder::Status status =
            insist([&] { return session->service().updateDeviceList(*listed, kRemoved); });
    print(device, *listed, status.isOk() ? "removed" : "unanswered");
}

Reporter::SharedSession Reporter::session() {
    const MutexLock lock(mutex_);
    return session_;
}

bool Reporter::has_record(const Subject& device) {
    const MutexLock lock(mutex_);
    return records_.count(device.key()) != 0;
}

// Empty for a device of which nothing is known.
Reporter::Record Reporter::record_of(const Subject& device) {
    const MutexLock lock(mutex_);
    const auto known = records_.find(device.key());
    if (known != records_.end()) return known->second;
    Record unknown;
    unknown.subject = device;
    return unknown;
}

void Reporter::print(const Subject& device, const DeviceInfo& info,
                     const std::string& answer) const {
    if (!manner_.report) return;
    manner_.report(base::StringPrintf("%s %s %04x:%04x %s %s", device.name.c_str(),
                                      info.deviceType == kUsbType ? "usb" : "input", info.vendorId,
                                      info.productId, class_text(info).c_str(), answer.c_str()));
}

void Reporter::notice(const std::string& line) const {
    if (manner_.notice) manner_.notice(line);
}

}  // namespace android::vus::hotplug
