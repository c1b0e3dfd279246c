// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/hotplug.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <chrono>

#include <android-base/file.h>
#include <binder/IInterface.h>

#include "tools/hotplug/device_reader.h"
#include "tools/hotplug/gated_actions.h"
#include "tools/hotplug/look_around.h"
#include "tools/hotplug/usb_entry.h"

namespace android::vus::hotplug {

namespace {

using std::chrono::milliseconds;

// How often the service manager is asked while the daemon is away, and never otherwise.
constexpr milliseconds kServiceRetry(100);
// How long a policy is waited for that is rewritten several times in a row.
constexpr milliseconds kRewriteTime(50);
// After a new policy the daemon has a board reset its controllers, one after the other.
constexpr milliseconds kResetTime(1500);

Tracker::Actions actions_of(Reporter* reporter) {
    return {[reporter](const Subject& device, Ask when) {
                reporter->judge(
                        device, [device] { return read_usb_device(device); }, when);
            },
            [reporter](const std::string& input, const std::string& event, Ask when) {
                reporter->judge(
                        {input}, [input, event] { return read_input_device(input, event); }, when);
            },
            [reporter](const Subject& device) { reporter->removed(device); },
            [reporter](const Subject& device) {
                reporter->interfaces_back(device, Tracker::Clock::now());
            },
            [reporter](const std::string& hid_device) { reporter->hid_removed(hid_device); }};
}

}  // namespace

Hotplug::Hotplug(std::function<FoundService()> find, Switches* switches, Reporter::Manner manner,
                 Gate* gate, Meter* meter)
      : find_(std::move(find)),
        gate_(gate),
        meter_(meter),
        notice_(manner.notice),
        wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
        reporter_(switches, waking(std::move(manner))),
        tracker_(gate == nullptr ? actions_of(&reporter_)
                                 : gated_actions(gate, &reporter_,
                                                 [this] { report_present(Ask::kIfChanged); })),
        death_notice_(new DeathNotice) {}

// The reporter is to be made with what it returns.
Reporter::Manner Hotplug::waking(Reporter::Manner manner) const {
    manner.wake = [this] { eventfd_write(wake_.get(), 1); };
    return manner;
}

Hotplug::~Hotplug() {
    if (service_ != nullptr) service_->unlinkToDeath(death_notice_);
}

bool Hotplug::run_once(std::string* why_not) {
    if (gate_ != nullptr) gate_->shut();
    if (!connect(why_not)) return false;
    reporter_.drain();
    return true;
}

bool Hotplug::run(int stop_fd) {
    // Before the first look around, so that nothing that appears meanwhile is missed.
    if (!events_.open()) return false;
    tell_of_little_room();
    if (gate_ != nullptr) gate_->shut();
    std::string why_not;
    if (!connect(&why_not)) report_present(Ask::kFoundAlone);
    while (true) {
        pollfd sources[] = {{events_.fd(), POLLIN, 0},
                            {death_notice_->fd(), POLLIN, 0},
                            {stop_fd, POLLIN, 0},
                            {wake_.get(), POLLIN, 0},
                            {policy_watch_.fd(), POLLIN, 0}};
        poll(sources, std::size(sources), timeout_ms());
        if (sources[2].revents != 0) return true;
        if (sources[0].revents != 0) handle_events();
        eventfd_t wakes = 0;
        if (sources[3].revents != 0) eventfd_read(wake_.get(), &wakes);
        tracker_.judge_overdue(Tracker::Clock::now());
        reporter_.lose_patience(Reporter::Clock::now());
        follow_service(/*may_have_ended=*/sources[1].revents != 0);
        follow_policy(/*may_be_new=*/sources[4].revents != 0, Tracker::Clock::now());
        // Who connects looks at everything.
        if (reporter_.take_another_look(Reporter::Clock::now()) && service_ != nullptr) {
            report_present(Ask::kIfChanged);
        }
    }
}

void Hotplug::tell_of_little_room() const {
    const int room = events_.room_bytes();
    if (!notice_ || room >= UeventSocket::kWishedBytes) return;
    notice_("the kernel keeps only " + std::to_string(room / 1024) +
            " KiB of events for us: after more of them at once everything present is looked at");
}

// Connects to the daemon if it is there, and tells it of everything that is present.
bool Hotplug::connect(std::string* why_not) {
    const FoundService found = find_();
    *why_not = found.why_not;
    if (found.service == nullptr) return false;
    const sp<IBinder> binder = IInterface::asBinder(found.service);
    if (binder->linkToDeath(death_notice_) != OK) {
        *why_not = "the daemon has just ended";
        return false;
    }
    service_ = binder;
    policy_watch_.watch();
    ask_again_at_.reset();
    reporter_.set_service(found.service);
    report_present(Ask::kAlways);
    return true;
}

void Hotplug::report_present(Ask when) {
    look_around(when, &tracker_, &reporter_, gate_, meter_);
}

// -1, which is for ever, while no device settles and the daemon is there.
int Hotplug::timeout_ms() const {
    auto wait = service_ == nullptr ? kServiceRetry : milliseconds::max();
    for (const auto& deadline :
         {tracker_.next_deadline(), reporter_.next_deadline(), ask_again_at_}) {
        if (!deadline) continue;
        const auto left = std::chrono::ceil<milliseconds>(*deadline - Tracker::Clock::now());
        wait = std::min(wait, std::max(left, milliseconds(0)));
    }
    return wait == milliseconds::max() ? -1 : static_cast<int>(wait.count());
}

void Hotplug::handle_event(Event* event) {
    if (event->number == 0 && event->action != "remove") {
        const auto number = try_usb_number(base::Basename(event->path));
        if (!number) reporter_.look_again_later();
        event->number = number.value_or(0);
    }
    if (meter_ != nullptr) meter_->heard(*event);
    tracker_.handle(*event, Tracker::Clock::now());
}

// One message a call of poll() would do, but poll() costs as much as a message.
void Hotplug::handle_events() {
    using Heard = UeventSocket::Heard;
    bool lost = false;
    Event event;
    while (true) {
        const Heard heard = events_.hear(&event);
        if (heard == Heard::kEvent) handle_event(&event);
        // It may have been anything. What the kernel had room for is heard first: nothing older
        // than what is present may be heard afterwards.
        lost |= heard == Heard::kLost || heard == Heard::kFailed;
        if (heard == Heard::kNothing || heard == Heard::kFailed) break;
    }
    if (lost && meter_ != nullptr) meter_->events_lost();
    if (lost) report_present(Ask::kIfChanged);
}

void Hotplug::follow_service(bool may_have_ended) {
    if (may_have_ended && death_notice_->taken()) {
        service_ = nullptr;
        reporter_.set_service(nullptr);
    }
    std::string why_not;
    if (service_ == nullptr) connect(&why_not);
}

// From now on everything that comes is asked about under the new policy. What does not come anew,
// because no board has reset its controller, is asked about when that is over.
void Hotplug::follow_policy(bool may_be_new, Tracker::Clock::time_point now) {
    if (may_be_new && policy_watch_.taken() && service_ != nullptr) {
        // First who drops the answers: what the reporter has asked from then on is not asked again.
        if (gate_ != nullptr) gate_->policy_changed();
        reporter_.policy_changed();
        ask_again_at_ = now + (board_resets_controllers() ? kResetTime : kRewriteTime);
    }
    if (!ask_again_at_ || now < *ask_again_at_) return;
    ask_again_at_.reset();
    report_present(Ask::kIfChanged);
}

}  // namespace android::vus::hotplug
