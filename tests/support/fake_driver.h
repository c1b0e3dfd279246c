// SPDX-License-Identifier: Apache-2.0
//
// A binder driver that takes every command, answers every call with a dead reply, and counts what
// it is asked. With it the process state and proxies can be made on a host without the kernel's
// driver: link with --wrap=open,--wrap=ioctl,--wrap=mmap.

#pragma once

namespace android::vus {

// How often libbinder has exchanged commands with the driver (BINDER_WRITE_READ).
int DriverExchanges();

}  // namespace android::vus
