// SPDX-License-Identifier: Apache-2.0
//
// vus_hotplug: tells the daemon of devices that come and go. See hotplug.h.

#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#ifdef __ANDROID__
#include <android-base/logging.h>
#endif
#include <android-base/unique_fd.h>
#include <binder/ProcessState.h>

#ifndef __ANDROID__
#include "platform/footprint.h"
#include "platform/unblocked_output.h"
#endif
#include "tools/common/interrupts.h"
#include "tools/common/service_finder.h"
#include "tools/hotplug/closings.h"
#include "tools/hotplug/gate.h"
#include "tools/hotplug/hotplug.h"
#include "tools/hotplug/metering.h"
#include "tools/hotplug/options.h"
#include "tools/hotplug/preview.h"
#include "tools/hotplug/sysfs_gate.h"
#include "tools/hotplug/sysfs_switches.h"

namespace {

using android::base::unique_fd;
using android::vus::DeviceInfo;
using android::vus::hotplug::Closings;
using android::vus::hotplug::Gate;
using android::vus::hotplug::Hotplug;
using android::vus::hotplug::kUsage;
using android::vus::hotplug::Metering;
using android::vus::hotplug::Options;
using android::vus::hotplug::PolicyPreview;
using android::vus::hotplug::Reporter;
using android::vus::hotplug::Sighting;
using android::vus::hotplug::Subject;
using android::vus::hotplug::Switches;
using android::vus::hotplug::SysfsGate;
using android::vus::hotplug::SysfsSwitches;

void print_line(const std::string& line) {
    // One call a line, so that lines of several threads do not mix.
    printf("%s\n", line.c_str());
    fflush(stdout);
}

// Under Android's init nobody has the standard streams.
void say(const std::string& line) {
#ifdef __ANDROID__
    LOG(WARNING) << line;
#endif
    fprintf(stderr, "vus_hotplug: %s\n", line.c_str());
}

int fail(const std::string& why) {
    say(why);
    return 1;
}

int run_once(Hotplug* hotplug, Metering* metering) {
    std::string why_not;
    const bool done = hotplug->run_once(&why_not);
    metering->finish();
    return done ? 0 : fail(why_not);
}

// What comes while nobody answers is held: that is what a gate is for.
void follow_gate(Gate* gate, Reporter::Manner* manner) {
    manner->fail_closed = true;
    manner->answered = [gate](const Subject& device, const Sighting& seen, bool allowed) {
        gate->answered(device, allowed, seen.incarnation);
    };
}

// Of what was there before the reporter, while the daemon is away.
void follow_policy(PolicyPreview* preview, Reporter::Manner* manner) {
    manner->refuses = [preview](const DeviceInfo& info) {
        return preview->refuses(
                {info.deviceClass, info.interfaceClassList, info.vendorId, info.productId});
    };
}

// The file has one writer, who stays. Also for what is only silent until it has been looked at.
void note(Closings* closings, const std::string& input, bool silent) {
    if (silent) {
        closings->add({input});
    } else {
        closings->remove({input});
    }
}

int open_the_door() {
    SysfsSwitches switches(say);
    SysfsGate kernel;
    PolicyPreview preview;
    Gate(&kernel, &switches, &preview, say).open_everything();
    return 0;
}

void give_back_what_the_start_needed() {
#ifndef __ANDROID__
    android::vus::platform::releaseCodeOfStart();
#endif
}

int run(const Options& options) {
    const unique_fd end = options.once ? unique_fd() : android::vus::open_interrupts();
    Metering metering(options, print_line, say);
    Closings closings(Closings::kFile);
    SysfsSwitches switches(say, [&](const std::string& input, bool silent) {
        metering.silenced(input, silent);
        if (!options.once) note(&closings, input, silent);
    });
    SysfsGate kernel;
    PolicyPreview preview;
    Gate gate(&kernel, &switches, &preview, say,
              options.interfaces ? Gate::Composites::kInPart : Gate::Composites::kWhole);
    // Before anything can fail: without binder there is no daemon, and what comes waits all the
    // same.
    if (options.gate && options.fail_closed) gate.shut();
    std::string why_not;
    if (!android::vus::has_binder(&why_not)) return fail(why_not);
    android::ProcessState::self()->startThreadPool();
    Reporter::Manner manner;
    if (!options.once) manner.closings = &closings;
    manner.fail_closed = options.fail_closed;
    if (options.verbose) manner.report = print_line;
    manner.notice = say;
    if (options.fail_closed) follow_policy(&preview, &manner);
    if (options.gate) follow_gate(&gate, &manner);
    metering.listen(&manner);
    Switches* const used = options.gate ? static_cast<Switches*>(&gate) : &switches;
    Hotplug hotplug(android::vus::find_service, used, manner, options.gate ? &gate : nullptr,
                    metering.meter());
    if (options.once) return run_once(&hotplug, &metering);
    give_back_what_the_start_needed();
    if (!hotplug.run(end.get())) {
        return fail(std::string("the kernel's events cannot be heard: ") + strerror(errno));
    }
    metering.finish();
    // At once: a report can be stuck behind a device that does not answer.
    _exit(0);
}

// Nobody may read what is printed, or the reader may have gone: neither changes what is done.
void expect_no_reader() {
    signal(SIGPIPE, SIG_IGN);
#ifndef __ANDROID__
    android::vus::platform::unblockStandardStreams();
#endif
}

void take_little_memory() {
#ifndef __ANDROID__
    android::vus::platform::shareOneHeap();
#endif
}

}  // namespace

int main(int argc, char** argv) {
    expect_no_reader();
    take_little_memory();
    const Options options =
            android::vus::hotplug::parse_options(std::vector<std::string>(argv + 1, argv + argc));
    if (!options.error.empty()) {
        fprintf(stderr, "vus_hotplug: %s\n%s", options.error.c_str(), kUsage);
        return 2;
    }
    if (options.help) {
        fputs(kUsage, stdout);
        return 0;
    }
    if (options.version) {
        fputs(android::vus::hotplug::version_line().c_str(), stdout);
        return 0;
    }
    return options.open ? open_the_door() : run(options);
}
