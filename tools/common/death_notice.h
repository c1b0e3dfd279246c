// SPDX-License-Identifier: Apache-2.0
//
// Turns the daemon's death, of which a binder thread hears, into a descriptor that can be polled.
// Thread-safe.

#pragma once

#include <sys/eventfd.h>

#include <android-base/unique_fd.h>
#include <binder/IBinder.h>

namespace android::vus {

class DeathNotice : public IBinder::DeathRecipient {
  public:
    DeathNotice() : event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    void binderDied(const wp<IBinder>& /*who*/) override { eventfd_write(event_.get(), 1); }

    // Readable while there is a death that taken() has not told of.
    int fd() const { return event_.get(); }
    bool taken() {
        eventfd_t deaths = 0;
        return eventfd_read(event_.get(), &deaths) == 0;
    }

  private:
    const base::unique_fd event_;
};

}  // namespace android::vus
