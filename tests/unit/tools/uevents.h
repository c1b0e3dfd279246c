// SPDX-License-Identifier: Apache-2.0
//
// Kernel events of a test's own: sent through the kernel, which passes them on to the listeners of
// the same network namespace as it does its own.

#pragma once

#include <stdint.h>

#include <string>

namespace android::vus {

// Moves this process into a network namespace of its own, so that it hears no event of the host's
// devices. False if the kernel does not allow that. To be called before any thread is started.
bool EnterPrivateNetwork();

// `path` is the device's below /sys. Fails the test if the kernel does not take the event.
void SendEvent(const std::string& action, const std::string& path, const std::string& subsystem);

// The same message, but not through the kernel: to one listener's port, or to all of a group.
void ForgeEvent(const std::string& path, uint32_t port, uint32_t group);

}  // namespace android::vus
