// SPDX-License-Identifier: Apache-2.0

#include "android/vus/daemon.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

#include <android-base/logging.h>
#include <backtrace/Backtrace.h>
#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>

#include "android/vus/paths.h"
#include "android/vus/util.h"
#include "android/vus/vu_service.h"

namespace android::vus {

namespace {

constexpr std::string_view kStartupTasksArgument = "run-startup-tasks";

// Exactly as it is written: no line end after the last line.
constexpr char kDefaultPolicy[] =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<usbconfig mode=\"default\">\n"
        "</usbconfig>";

constexpr char kCrashStatus[] = "Unable to apply the USB Admin config rules";

// Far longer than restoring the policy and unwinding a stack take on the slowest device.
constexpr unsigned kCrashHandlerSeconds = 30;

bool exists(const char* path) {
    struct stat entry;
    return stat(path, &entry) == 0;
}

bool isDirectory(const char* path) {
    struct stat entry;
    return stat(path, &entry) == 0 && S_ISDIR(entry.st_mode);
}

void writeDefaultPolicy() {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(kPolicyFile, "we"), fclose);
    if (file != nullptr) fputs(kDefaultPolicy, file.get());
}

// Lets the first thread that crashes pass; holds any other one until the process ends. exit()
// destroys tables that the other threads are still using, and a second handler at work would
// truncate the policy that the first has just put back.
void holdAllButFirstCrash() {
    static std::atomic<pid_t> crashedThread{0};
    const pid_t self = gettid();
    pid_t first = 0;
    if (crashedThread.compare_exchange_strong(first, self) || first == self) return;
    while (true) pause();
}

std::atomic<int> crashExitStatus{0};
static_assert(std::atomic<int>::is_always_lock_free, "it is read by a signal handler");

// The crashed thread may have died with a lock that its handler needs (the heap's, the logging
// library's). Better a crash without a report, and at worst without a roll-back, than a daemon that
// hangs and is never restarted.
void endProcessIfHandlerHangs(int signum) {
    crashExitStatus = signum;
    struct sigaction action = {};
    action.sa_handler = [](int) { _exit(crashExitStatus); };
    sigaction(SIGALRM, &action, nullptr);
    alarm(kCrashHandlerSeconds);
}

// Keeps the watcher from confirming a policy while it is being rolled back, and from answering the
// roll-back. It is never given back. A watcher that is stuck is waited for no longer than this,
// and one that crashed itself not at all.
void takePolicyFilesForGood() {
    (void)VUsbService::policyFilesMutex.try_lock_for(std::chrono::seconds(2));
}

void logStackTrace(Backtrace& unwinder) {
    if (!unwinder.Unwind(0)) LOG(ERROR) << "signalHandler: Failed to unwind callstack.";
    LOG(INFO) << "Stack Trace\n";
    for (size_t frame = 0; frame < unwinder.NumFrames(); ++frame) {
        LOG(ERROR) << unwinder.FormatFrameData(frame);
    }
}

}  // namespace

bool wantsStartupTasks(int argc, char** argv) {
    return argc >= 2 && argv[1] == kStartupTasksArgument;
}

void RunStartupTasks() {
    LOG(INFO) << "vus main called with run-startup-tasks";
    if (!isDirectory(kConfigDir)) {
        LOG(INFO) << "no Directory exist";
        return;
    }
    LOG(INFO) << "Directory exist, creating file";
    if (!exists(kPolicyFile)) writeDefaultPolicy();
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

// Not restricted to async-signal-safe operations, on purpose: the process is ending anyway.
void signalHandler(int signum, siginfo_t* /*info*/, void* /*context*/) {
    holdAllButFirstCrash();
    endProcessIfHandlerHangs(signum);

    // "Segmentation fault" for every signal, an abort included, on purpose.
    LOG(INFO) << "Segmentation faultsignum" << signum << "\n";
    takePolicyFilesForGood();
    Util::copyFileContent(kPolicyBackupFile, kPolicyFile);
    Util::updateErrorFile(Util::statusFilePath, kCrashStatus);

    // Never freed: exit() does not unwind this stack, and a crashed heap is best left alone.
    const std::unique_ptr<Backtrace> unwinder(
            Backtrace::Create(BACKTRACE_CURRENT_PROCESS, BACKTRACE_CURRENT_THREAD));
    logStackTrace(*unwinder);
    exit(signum);
}

}  // namespace android::vus
