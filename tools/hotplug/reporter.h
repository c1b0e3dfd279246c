// SPDX-License-Identifier: Apache-2.0
//
// Reporter: what is told to the daemon, device by device, and what follows from its answers, or
// from their absence.
//
// Every device has a lane (see lanes.h) for what is asked and told, so that this stays in order and
// no device waits for another, and one for its switches, because those must work while the first
// waits for an answer. What a device's switches are to be is written down, and the second lane
// makes it so; so it does not matter in which order the two come to it.
//
// The reporter believes nothing:
//  - A "no" is seen to: interfaces that are still on are switched off, an input device is closed.
//  - When interfaces of such a device come back, because somebody gives it another configuration,
//    they are off again at once; the second time within 10 s the device is, as a whole, whatever
//    was said of it meanwhile.
//  - No answer within 2 s is a "no" until there is one, unless it was a "yes" before and the device
//    is what it was, or a gate has let it in by the policy. So is the daemon's absence, if it was
//    asked for ("fail closed"), for devices that come meanwhile.
//  - What a device is that cannot be read is not asked about: it is closed until it can be.
//  - A call that fails though the daemon lives is made again, and is no answer in the end.
//  - Whatever was switched off here, or held back by a gate, is switched on by a "yes"; also what
//    an earlier reporter switched off, and what nobody else did.
//  - The daemon keeps the first record of an id. So a device that has become another one, or that
//    is asked about under another policy, is reported as removed first, and so is what an earlier
//    reporter told it and is true no more.
//
// Thread-safe.

#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "android/vus/IVUsbService.h"
#include "android/vus/mutex.h"
#include "tools/hotplug/closings.h"
#include "tools/hotplug/lanes.h"
#include "tools/hotplug/patience.h"
#include "tools/hotplug/session.h"
#include "tools/hotplug/subject.h"
#include "tools/hotplug/switches.h"

namespace android::vus::hotplug {

// Whether a device of which nothing has changed is asked about again.
enum class Ask {
    kAlways,
    kIfChanged,
    kFoundAlone,  // it was there before the reporter, and there is nobody to be asked
};

// What is there.
struct Present {
    std::set<std::string> keys;        // of devices (see Subject), and names of HID devices
    std::set<std::string> closed_hid;  // those of the latter that have no driver
};

class Reporter {
  public:
    using Clock = Patience::Clock;
    // Sees a device as it is now.
    using Read = std::function<Sighting()>;
    using Print = std::function<void(const std::string&)>;

    struct Manner {
        bool fail_closed = false;
        Print report;  // gets a line for each report, if it is set
        Print notice;  // gets a line for what is switched without, or against, an answer
        // Hears what the daemon is asked, if it is set, before it is.
        std::function<void(const Subject& device, const Sighting& seen)> asked = nullptr;
        // Hears each verdict, about what was seen, before it is followed, if it is set.
        std::function<void(const Subject& device, const Sighting& seen, bool allowed)> answered =
                nullptr;
        // Whether the policy refuses the device, as far as anybody can tell while the daemon is
        // away. What was there before is closed for that, if this is set, and left alone else.
        std::function<bool(const DeviceInfo& info)> refuses = nullptr;
        // Called when next_deadline() may have changed on another thread, if it is set.
        std::function<void()> wake = nullptr;
        // What is closed here, for who comes after us; not kept if it is not set.
        Closings* closings = nullptr;
        // Before a call is made again that has failed though the daemon lives; twice as long before
        // each further one.
        std::chrono::milliseconds pause = std::chrono::milliseconds(100);
    };

    // `switches` outlives the reporter.
    Reporter(Switches* switches, Manner manner);

    // The service to report to. Null while there is none: what was reported is forgotten, because a
    // new service must be told of everything. A report that waits in a lane is still made to the
    // service that was there when it was asked for, unless it has been asked for again.
    void set_service(const sp<IVUsbService>& service);

    // The service has another policy: what was answered before is to be asked again.
    void policy_changed();

    // Asks for the device's verdict, and sees to it.
    void judge(const Subject& device, Read read, Ask when = Ask::kAlways);
    // The device has gone: that is reported if it was. An input device that is refused stays with
    // the HID device behind it, whose driver it may have lost because of that.
    void removed(const Subject& device);
    void hid_removed(const std::string& hid_device);
    // An input device that a gate held has gone with what it was held behind, or is let in.
    void held_no_more(const Subject& held);
    // Interfaces of the device have appeared, of another configuration than was judged.
    void interfaces_back(const Subject& device, Clock::time_point now);
    // Reports the removal of every device that is not among those present, be it known here or from
    // the daemon's list. HID devices that have no driver, and of which nothing is known, get one:
    // what that makes of them is judged.
    void keep_only(const Present& present);

    // Switches off what has waited for an answer for too long, and tries again what the system had
    // no thread for, and what the kernel did not switch.
    void lose_patience(Clock::time_point now);
    std::optional<Clock::time_point> next_deadline() const;

    // Something could not be read, or not all of it be let in: what is present is to be looked at
    // again, a second later, and each time that follows soon twice as long, a minute at most.
    void look_again_later();
    // Whether it is time for that, which is then over.
    bool take_another_look(Clock::time_point now);

    // The same by a caller who is on the device's lane already (see run()).
    void judge_here(const Subject& device, const Read& read, Ask when);
    // It is there, but none that is judged. What was known of it, or left by an earlier reporter,
    // is no more.
    void forget_here(const Subject& device);
    // Does it among what is asked about the device.
    void run(const Subject& device, std::function<void()> job,
             Lanes::Job meaning = Lanes::Job::kOther) {
        lanes_.add(device.key(), std::move(job), meaning);
    }
    static Lanes::Job judgement(Ask when) {
        return when == Ask::kAlways ? Lanes::Job::kJudgement : Lanes::Job::kWeakJudgement;
    }
    // Whether there is somebody to be asked.
    bool has_service() { return session() != nullptr; }
    // An input device has come silenced, and is to be so until a "yes".
    void came_silenced(const Subject& input);

    // Waits until every report has been made and followed.
    void drain() { lanes_.drain(); }

  private:
    using SharedSession = std::shared_ptr<Session>;

    enum class Verdict {
        kNone,
        kAllowed,
        kRefused,
        kElsewhere,  // it is for the input side to be judged
    };

    // What keeps a device from working, the weakest first.
    enum class Hold {
        kNone,
        kSilence,  // nobody has answered
        kRefusal,  // somebody has
        kWholeDevice,
    };

    struct Record {
        Subject subject;
        SharedSession told;  // who knows of it; null if nobody does
        Sighting seen;       // as told
        Verdict verdict = Verdict::kNone;
        bool was_refused = false;    // in whatever configuration
        bool allowed_as_is = false;  // what is asked about now; so nobody's silence closes it
        Hold wanted = Hold::kNone;
        Hold done = Hold::kNone;
        bool verify = false;   // what was done may have come undone
        bool gone = false;     // an input device that its HID device may bring again
        bool unbound = false;  // that HID device has lost its driver because of this record
        std::optional<Clock::time_point> due;             // when it is to be switched once more
        Clock::duration pause = Clock::duration::zero();  // before that; none if it has worked
        std::optional<Clock::time_point> last_return;
    };

    // On the device's own lane.
    void ask(const SharedSession& session, const Subject& device, const Read& read, Ask when);
    void resume(const Subject& device);
    void note_whether_allowed(const Subject& device, const Sighting& seen);
    void recall(const SharedSession& session, const Record& known, Sighting* seen);
    void ask_service(const SharedSession& session, const Subject& device, const Sighting& seen);
    binder::Status insist(const std::function<binder::Status()>& call) const;
    static Verdict verdict_of(Session* session, const DeviceInfo& info, bool answer);
    void remember(const SharedSession& session, const Subject& device, const Sighting& seen);
    void let_go(const SharedSession& session, const Subject& device);
    void forget(const SharedSession& session, const Subject& device);
    void drop(const Subject& device);
    void tell_removed(const SharedSession& session, const Record& record);
    static bool knows(const SharedSession& session, const Record& record);
    void remove_stale(Session* session, const Subject& device, const DeviceInfo& present);
    void compare_list(const SharedSession& session, const Present& present);
    bool adopt(const SharedSession& session, const std::string& key,
               std::set<std::string>* closed_hid);
    // Answers whether there is nothing to be asked of what was seen.
    bool needs_no_answer(const SharedSession& session, const Record& known, const Sighting& seen,
                         Ask when);

    // What the switches are to be.
    void follow(const Subject& device, Verdict verdict);
    void want(const Subject& device, Hold hold);
    void hold_silent(const Subject& device, const std::string& why);
    void close_unasked(const Record& known, const DeviceInfo& info, Ask when);
    void close_unread(const SharedSession& session, const Subject& device, Ask when);
    void queue_switching(const Subject& device);

    // On the lane of its switches.
    void make_so(const Subject& device);
    void switch_later(const Subject& device, Hold before);
    void note_switched(const Subject& device);
    std::vector<Subject> take_due(Clock::time_point now);
    // False if it has to be done once more.
    bool switch_as(const Record& before, Hold wanted);
    bool switch_usb(const Subject& device, Hold before, Hold wanted);
    void doubt_what_was_off(const Subject& device);
    bool switch_input(const Record& before, Hold wanted);
    void close_input(const Record& before);
    bool open_input(const Record& before);
    void open_held(const Record& before);
    void switch_hid(const Record& record, std::function<void()> job);

    bool has_record(const Subject& device);
    Record record_of(const Subject& device);
    SharedSession session();
    void print(const Subject& device, const DeviceInfo& info, const std::string& answer) const;
    void notice(const std::string& line) const;

    Switches* const switches_;
    const Manner manner_;
    Patience patience_;
    mutable Mutex mutex_;
    SharedSession session_ GUARDED_BY(mutex_);
    std::map<std::string, Record> records_ GUARDED_BY(mutex_);  // by key
    std::deque<std::string> gone_hid_ GUARDED_BY(mutex_);       // the last HID devices that went
    std::optional<Clock::time_point> another_look_ GUARDED_BY(mutex_);
    Clock::time_point last_look_ GUARDED_BY(mutex_);
    Clock::duration look_pause_ GUARDED_BY(mutex_) = Clock::duration::zero();
    Lanes lanes_;  // last: its threads use the others
};

}  // namespace android::vus::hotplug
