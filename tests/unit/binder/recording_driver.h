// SPDX-License-Identifier: Apache-2.0
//
// A binder driver that answers every call with a dead reply and counts what it is asked.
// Linked with --wrap=open,--wrap=ioctl,--wrap=mmap, it lets libbinder run on a host whose
// kernel has no driver.

#pragma once

namespace android::vus {

// How often libbinder has exchanged commands with the driver (BINDER_WRITE_READ).
int DriverExchanges();

}  // namespace android::vus
