// SPDX-License-Identifier: Apache-2.0
//
// ClientCalls: the calls into the clients' callbacks, one after the other into each client, and
// none that can hold up the service.
//
// A thread that makes a synchronous call into another process cannot give it up. So the call is
// made by a helper thread, and the caller waits for its return for 5 s at most. If it has not
// returned by then, the helper stays behind in the client, and the client is passed over: nobody
// calls it or waits for it until that call returns (or the client dies). What it misses in the
// meantime is not kept for it; it can ask for the list of devices when it is back.
//
// A client that is called by its own doing is the exception: when it is itself the caller whom the
// service is serving, the call is made on the calling thread, from where binder takes it to the
// very thread of the client that waits for the service's answer. A client with one thread could not
// be reached in any other way. If it does not return, its own call is not answered, and that is
// all: after 5 s it is passed over as any other client, and what its call still had to do for
// others is done by a helper.
//
// Helpers are made when they are needed and a few of them are kept. There are never more than
// kMaxHelpers; a client for whom there is none, or for whom none can be made, misses the event.
//
// Thread-safe. No lock is held while a client is called. Helpers that are left behind may outlive
// this object.

#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>

#include <binder/IBinder.h>
#include <utils/StrongPointer.h>

namespace android::vus {

class ClientCalls {
  public:
    static constexpr std::chrono::milliseconds kPatience{5000};
    static constexpr size_t kMaxHelpers = 64;

    struct Client {
        sp<IBinder> binder;  // who it is
        pid_t process;       // the process that registered it, 0 if that is this one
    };

    explicit ClientCalls(std::chrono::milliseconds patience = kPatience);
    ~ClientCalls();
    ClientCalls(const ClientCalls&) = delete;
    ClientCalls& operator=(const ClientCalls&) = delete;

    // Has `body` call the client, when all calls into it that were asked for before are over, and
    // waits for its return. Returns without it if the client is passed over. What `body` holds
    // must live as long as `body` does: it may return long after this has.
    //
    // When the client is the caller itself and does not return in time, this does not either; then
    // a helper calls `ifStuck`.
    void call(
            const Client& client, std::function<void()> body,
            std::function<void()> ifStuck = [] {});

    // The process whose call the calling thread is serving, 0 if it is serving none.
    static pid_t callingProcess();

  private:
    class Shared;

    const std::shared_ptr<Shared> shared_;
};

}  // namespace android::vus
