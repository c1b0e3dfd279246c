// SPDX-License-Identifier: Apache-2.0
//
// The daemon process: what it does at start-up, and how it goes down.
//
// Run with the argument "run-startup-tasks" the executable makes sure that a policy file exists
// and exits. Run in any other way it is the service: crash handler first, then the service with
// its policy and its watcher, then the binder threads. It never ends by itself.
//
// Called from the main thread, but for signalHandler, which runs on the thread that crashed.

#pragma once

#include <csignal>

namespace android::vus {

// True if the first argument, compared whole, asks for the start-up task.
bool wantsStartupTasks(int argc, char** argv);

// Creates the default policy if there is a configuration directory without one. An existing
// policy is never touched, and the directory is never created.
void RunStartupTasks();

// Makes signalHandler answer SIGSEGV and SIGABRT.
void installCrashHandler();

// Lets a write to a pipe that nobody reads any more fail, instead of ending the daemon: the reader
// of a dump, or of the log, may go away at any time.
void ignoreBrokenPipes();

// Serves binder calls on a pool of threads, the calling thread among them.
void serveBinderCalls();

// Puts the last good policy back, says so in the status file, logs a stack trace of the calling
// thread and ends the process with the signal's number as its exit status. The policy in force
// may be what caused the crash, so the next start must not find it again: a handler that crashes or
// hangs itself ends in the same way, but for the report.
[[noreturn]] void signalHandler(int signum, siginfo_t* info, void* context);

}  // namespace android::vus
