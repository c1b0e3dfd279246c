// SPDX-License-Identifier: Apache-2.0

#include "android/vus/client_calls.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <android-base/logging.h>
#include <binder/IPCThreadState.h>

#include "android/vus/mutex.h"

namespace android::vus {

namespace {

using Clock = std::chrono::steady_clock;

// How many helpers are kept for the next call. One is enough unless several devices are told of
// at the same moment.
constexpr size_t kIdleHelpers = 2;

// The clients in which the thread is at the moment. One that calls the service from its callback,
// which binder brings back to this thread, may be called again from here: it is waiting for us.
thread_local std::vector<const IBinder*> insideOf;

bool isInside(const sp<IBinder>& client) {
    return std::find(insideOf.begin(), insideOf.end(), client.get()) != insideOf.end();
}

void callInside(const sp<IBinder>& client, const std::function<void()>& body) {
    insideOf.push_back(client.get());
    body();
    insideOf.pop_back();
}

bool isCaller(const ClientCalls::Client& client) {
    return client.process != 0 && client.process == ClientCalls::callingProcess();
}

long long secondsSince(Clock::time_point begun) {
    return std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - begun).count();
}

}  // namespace

// What the callers and the helpers share.
class ClientCalls::Shared : public std::enable_shared_from_this<Shared> {
  public:
    explicit Shared(std::chrono::milliseconds patience) : patience_(patience) {}

    void call(const Client& client, std::function<void()> body, std::function<void()> ifStuck);
    void close();

  private:
    // A client that is being called, or that somebody waits to call. Guarded by mutex_, except for
    // what never changes.
    struct Entry {
        explicit Entry(const Client& whom) : client(whom) {}

        const Client client;
        std::condition_variable_any changed;
        std::deque<uint64_t> waiting;  // the tickets of those who wait, in their order
        uint64_t tickets = 0;
        uint64_t calls = 0;  // begun so far: the number of the one that is running
        bool running = false;
        Clock::time_point begun;
        bool passedOver = false;
        uint64_t missed = 0;
    };
    using EntryPtr = std::shared_ptr<Entry>;

    // What a helper does: a call into a client, or, without one, something else.
    struct Job {
        EntryPtr entry;
        std::function<void()> body;
    };

    // What is to be said of a client whose call has ended.
    struct Return {
        bool late = false;
        long long seconds = 0;
        uint64_t missed = 0;
    };

    // Waits until it is the caller's turn to call the client, and begins the call; nothing if the
    // client is passed over.
    EntryPtr begin(const Client& client);
    void waitForTurn(Entry* entry) REQUIRES(mutex_);
    // Makes a call on this thread, with a helper that watches over it.
    void callFromHere(const EntryPtr& entry, const std::function<void()>& body,
                      std::function<void()> ifStuck);
    // Waits for the return of the client's call of that number; false if it is late.
    bool awaitReturn(Entry* entry, uint64_t number);
    void end(Entry* entry);
    Return finish(Entry* entry) REQUIRES(mutex_);

    // Hands a call to a helper; false if there is none to be had.
    bool hand(Job job);
    bool handToIdle(Job* job);
    bool handToNew(Job* job);
    void help(Job job);
    // After a job: true if the helper is to stay for another one, and counts as idle.
    bool endAndStay(Entry* entry);
    // Waits for another call; false if there will be none.
    bool awaitJob(Job* job);

    bool isLate(const Entry& entry) const REQUIRES(mutex_) {
        return entry.running && Clock::now() >= entry.begun + patience_;
    }
    // Marks a client whose call is late as passed over; true if it was not yet.
    static bool passOver(Entry* entry) { return !std::exchange(entry->passedOver, true); }
    void logPassedOver(const Client& client) const;
    static void logReturn(const Client& client, const Return& ended);

    const std::chrono::milliseconds patience_;
    Mutex mutex_;
    std::map<const IBinder*, EntryPtr> entries_ GUARDED_BY(mutex_);
    std::deque<Job> jobs_ GUARDED_BY(mutex_);  // handed to idle helpers, and not yet taken
    std::condition_variable_any work_;
    size_t helpers_ GUARDED_BY(mutex_) = 0;
    size_t idle_ GUARDED_BY(mutex_) = 0;
    bool closed_ GUARDED_BY(mutex_) = false;
};

void ClientCalls::Shared::call(const Client& client, std::function<void()> body,
                               std::function<void()> ifStuck) {
    const EntryPtr entry = begin(client);
    if (entry == nullptr) return;
    // Nobody else's to change before the call is over.
    const uint64_t number = entry->calls;
    if (isCaller(client)) {
        callFromHere(entry, body, std::move(ifStuck));
    } else if (!hand({entry, std::move(body)})) {
        LOG(WARNING) << "no thread to call the client of process " << client.process
                     << ": it misses an event";
        end(entry.get());
    } else {
        awaitReturn(entry.get(), number);
    }
}

void ClientCalls::Shared::callFromHere(const EntryPtr& entry, const std::function<void()>& body,
                                       std::function<void()> ifStuck) {
    // Without a helper nobody takes over from a caller that keeps itself waiting; that is all.
    hand({nullptr,
          [self = shared_from_this(), entry, number = entry->calls, ifStuck = std::move(ifStuck)] {
              if (!self->awaitReturn(entry.get(), number)) ifStuck();
          }});
    callInside(entry->client.binder, body);
    end(entry.get());
}

ClientCalls::Shared::EntryPtr ClientCalls::Shared::begin(const Client& client) {
    bool first = false;
    {
        const MutexLock<> lock(mutex_);
        EntryPtr& known = entries_[client.binder.get()];
        if (known == nullptr) known = std::make_shared<Entry>(client);
        EntryPtr entry = known;
        waitForTurn(entry.get());
        if (!isLate(*entry)) {
            entry->running = true;
            entry->begun = Clock::now();
            ++entry->calls;
            entry->changed.notify_all();  // the others wait with a deadline from now on
            return entry;
        }
        ++entry->missed;
        first = passOver(entry.get());
    }
    if (first) logPassedOver(client);
    return nullptr;
}

// Returns when nobody is in the client and nobody came earlier, or when the call into it is late.
void ClientCalls::Shared::waitForTurn(Entry* entry) {
    const uint64_t ticket = entry->tickets++;
    entry->waiting.push_back(ticket);
    while (!isLate(*entry) && (entry->running || entry->waiting.front() != ticket)) {
        if (entry->running) {
            entry->changed.wait_until(mutex_, entry->begun + patience_);
        } else {
            entry->changed.wait(mutex_);  // for the one before us to see that it is its turn
        }
    }
    entry->waiting.erase(std::find(entry->waiting.begin(), entry->waiting.end(), ticket));
}

bool ClientCalls::Shared::awaitReturn(Entry* entry, uint64_t number) {
    bool first = false;
    {
        const MutexLock<> lock(mutex_);
        const auto isOver = [&] { return !entry->running || entry->calls != number; };
        while (!isOver() && !isLate(*entry)) {
            entry->changed.wait_until(mutex_, entry->begun + patience_);
        }
        if (isOver()) return true;
        first = passOver(entry);
    }
    if (first) logPassedOver(entry->client);
    return false;
}

void ClientCalls::Shared::logPassedOver(const Client& client) const {
    LOG(WARNING) << "the client of process " << client.process << " has not returned for "
                 << std::chrono::duration_cast<std::chrono::seconds>(patience_).count()
                 << " s: it is passed over";
}

void ClientCalls::Shared::end(Entry* entry) {
    Return ended;
    {
        const MutexLock<> lock(mutex_);
        ended = finish(entry);
    }
    logReturn(entry->client, ended);
}

ClientCalls::Shared::Return ClientCalls::Shared::finish(Entry* entry) {
    const Return ended{std::exchange(entry->passedOver, false), secondsSince(entry->begun),
                       std::exchange(entry->missed, 0)};
    entry->running = false;
    entry->changed.notify_all();
    if (entry->waiting.empty()) entries_.erase(entry->client.binder.get());
    return ended;
}

void ClientCalls::Shared::logReturn(const Client& client, const Return& ended) {
    if (!ended.late) return;
    LOG(INFO) << "the client of process " << client.process << " is back after " << ended.seconds
              << " s: it has missed " << ended.missed << " events";
}

bool ClientCalls::Shared::hand(Job job) {
    return handToIdle(&job) || handToNew(&job);
}

bool ClientCalls::Shared::handToIdle(Job* job) {
    const MutexLock<> lock(mutex_);
    if (idle_ <= jobs_.size()) return false;
    jobs_.push_back(std::move(*job));
    work_.notify_one();
    return true;
}

bool ClientCalls::Shared::handToNew(Job* job) {
    {
        const MutexLock<> lock(mutex_);
        if (helpers_ == kMaxHelpers) return false;
        ++helpers_;
    }
    try {
        std::thread(&Shared::help, shared_from_this(), *job).detach();
        return true;
    } catch (const std::system_error&) {
        const MutexLock<> lock(mutex_);
        --helpers_;
        return false;
    }
}

// A helper's life: its first call, and then whatever else is handed to it.
void ClientCalls::Shared::help(Job job) {
    pthread_setname_np(pthread_self(), "vus_client_call");
    do {
        job.entry == nullptr ? job.body() : callInside(job.entry->client.binder, job.body);
        job.body = nullptr;
        if (!endAndStay(job.entry.get())) return;
        job.entry = nullptr;
    } while (awaitJob(&job));
}

// Idle from the moment in which the caller goes on: its next call is for this helper again.
bool ClientCalls::Shared::endAndStay(Entry* entry) {
    Return ended;
    bool stays = false;
    {
        const MutexLock<> lock(mutex_);
        if (entry != nullptr) ended = finish(entry);
        stays = idle_ < kIdleHelpers && !closed_;
        if (stays) {
            ++idle_;
        } else {
            --helpers_;
        }
    }
    if (entry != nullptr) logReturn(entry->client, ended);
    return stays;
}

bool ClientCalls::Shared::awaitJob(Job* job) {
    const MutexLock<> lock(mutex_);
    while (jobs_.empty() && !closed_) work_.wait(mutex_);
    --idle_;
    if (jobs_.empty()) {
        --helpers_;
        return false;
    }
    *job = std::move(jobs_.front());
    jobs_.pop_front();
    return true;
}

void ClientCalls::Shared::close() {
    const MutexLock<> lock(mutex_);
    closed_ = true;
    work_.notify_all();
}

ClientCalls::ClientCalls(std::chrono::milliseconds patience)
      : shared_(std::make_shared<Shared>(patience)) {}

ClientCalls::~ClientCalls() {
    shared_->close();
}

void ClientCalls::call(const Client& client, std::function<void()> body,
                       std::function<void()> ifStuck) {
    if (isInside(client.binder)) return body();
    shared_->call(client, std::move(body), std::move(ifStuck));
}

pid_t ClientCalls::callingProcess() {
    const IPCThreadState* const state = IPCThreadState::selfOrNull();
    if (state == nullptr) return 0;
    const pid_t process = state->getCallingPid();
    return process == getpid() ? 0 : process;
}

}  // namespace android::vus
