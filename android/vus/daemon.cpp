// SPDX-License-Identifier: Apache-2.0

#include "android/vus/daemon.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string_view>

#include <android-base/logging.h>
#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>

#include "android/vus/gathered_log.h"
#include "android/vus/policy_files.h"
#include "android/vus/stack_trace.h"

namespace android::vus {

namespace {

constexpr std::string_view kStartupTasksArgument = "run-startup-tasks";

// Far longer than restoring the policy and unwinding a stack take on the slowest device.
constexpr unsigned kCrashHandlerSeconds = 30;

static_assert(std::atomic<int>::is_always_lock_free, "it is used by signal handlers");
static_assert(std::atomic<pid_t>::is_always_lock_free, "it is used by signal handlers");

std::atomic<int> firstSignal{0};

// Ends a crash whose handler crashed or hung, with the status of the crash. Async-signal-safe.
[[noreturn]] void endPlainly() {
    static std::atomic<pid_t> ending{0};
    const pid_t self = gettid();
    pid_t other = 0;
    if (ending.compare_exchange_strong(other, self)) {
        PolicyFiles::rollBackPlainly();
    } else if (other != self) {
        while (true) pause();  // that thread ends the process
    }
    _exit(firstSignal);
}

// Lets the first thread that crashes pass, once; holds any other one until the process ends. exit()
// destroys tables that the other threads are still using, and a second handler at work would
// truncate the policy that the first has just put back.
void passFirstCrash(int signum) {
    static std::atomic<pid_t> crashedThread{0};
    const pid_t self = gettid();
    pid_t first = 0;
    if (crashedThread.compare_exchange_strong(first, self)) {
        firstSignal = signum;
        return;
    }
    if (first == self) endPlainly();
    while (true) pause();
}

// A crash within the handler has to reach it again, and so has the alarm: the kernel blocks the
// signal that is handled, and abort() may have blocked all the others.
void unblockSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGSEGV, SIGABRT, SIGALRM}) sigaddset(&signals, signal);
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

// The crashed thread may have died with a lock that its handler needs (the heap's, the logging
// library's). Better a crash without a report than a daemon that hangs and is never restarted.
void endProcessIfHandlerHangs() {
    struct sigaction action = {};
    action.sa_handler = [](int) { endPlainly(); };
    sigaction(SIGALRM, &action, nullptr);
    alarm(kCrashHandlerSeconds);
}

}  // namespace

bool wantsStartupTasks(int argc, char** argv) {
    return argc >= 2 && argv[1] == kStartupTasksArgument;
}

void RunStartupTasks() {
    LOG(INFO) << "vus main called with run-startup-tasks";
    PolicyFiles::createDefault();
}

void installCrashHandler() {
    struct sigaction action = {};
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_SIGINFO;
    action.sa_sigaction = signalHandler;
    sigaction(SIGSEGV, &action, nullptr);
    sigaction(SIGABRT, &action, nullptr);
}

void ignoreBrokenPipes() {
    signal(SIGPIPE, SIG_IGN);
}

void serveBinderCalls() {
    const sp<ProcessState> process = ProcessState::self();
    process->startThreadPool();
    process->giveThreadPoolName();
    IPCThreadState::self()->joinThreadPool(/*isMain=*/true);
}

// Not restricted to async-signal-safe operations (kept: oddity 12): the process is ending anyway.
// What that may do to the handler itself ends in endPlainly().
void signalHandler(int signum, siginfo_t* /*info*/, void* /*context*/) {
    passFirstCrash(signum);
    endProcessIfHandlerHangs();
    unblockSignals();
    stopGatheringLog();

    // "Segmentation fault" for every signal, an abort included; kept: oddity 11.
    LOG(INFO) << "Segmentation faultsignum" << signum << "\n";
    PolicyFiles::rollBackAfterCrash();

    logStackTrace();
    exit(signum);
}

}  // namespace android::vus
