// SPDX-License-Identifier: Apache-2.0
//
// Clients that register, withdraw and die while devices are judged and removed.

#include <malloc.h>

#include <array>
#include <random>
#include <thread>

#include "android/vus/BnVUsbServiceCallback.h"
#include "tests/support/cases.h"
#include "tests/support/fake_binder.h"
#include "tests/unit/concurrency/concurrency_fixture.h"

namespace android::vus {
namespace {

constexpr int kRounds = CasesOf(100);

// Counts what it is told, and lists the devices from within each call, as clients do.
class CountingClient : public BnVUsbServiceCallback {
  public:
    explicit CountingClient(const sp<VUsbService>& service) : service_(service) {}

    binder::Status onDeviceAdded(const DeviceInfo&) override { return CallBack(&added); }
    binder::Status onDeviceRemoved(const DeviceInfo&) override { return CallBack(&removed); }

    std::atomic<int> added{0};
    std::atomic<int> removed{0};

  private:
    binder::Status CallBack(std::atomic<int>* count) {
        ++*count;
        std::vector<DeviceInfo> list;
        return service_->getDeviceList(&list);
    }

    const sp<VUsbService> service_;
};

// A client of another process: its object, and the service's proxy of it.
struct Client {
    explicit Client(const sp<VUsbService>& service)
          : object(new CountingClient(service)),
            remote(new FakeRemoteBinder(object)),
            proxy(interface_cast<IVUsbServiceCallback>(sp<IBinder>(remote))) {}

    sp<CountingClient> object;
    sp<FakeRemoteBinder> remote;
    sp<IVUsbServiceCallback> proxy;
};

class CallbackStormTest : public ConcurrencyTest {
  protected:
    void TearDown() override {
        service_->callbacks_.clear();
        ConcurrencyTest::TearDown();
    }

    Client NewClient() { return Client(service_); }
    size_t RegistryCount() {
        const std::lock_guard<std::mutex> lock(service_->lock_);
        return service_->callbacks_.size();
    }

    void JudgeAndRemove(const DeviceInfo& info) {
        for (int round = 0; round < kRounds; ++round) {
            EXPECT_TRUE(Judge(info));
            ReportRemoved(info);
        }
    }
};

TEST_F(CallbackStormTest, AClientThatStaysHearsEverythingWhileOthersComeAndGo) {
    constexpr int kDevices = 3;
    LoadPolicy("<usbconfig mode=\"default\"/>");
    std::vector<DeviceInfo> disks;
    for (int i = 1; i <= kDevices; ++i) {
        const std::string entry = "1-" + std::to_string(i);
        disks.push_back(UsbInfo(tree_->AddDevice(entry, FlashDrive()), FlashDrive()));
    }
    const Client stays = NewClient();
    service_->registerVusCallback(stays.proxy);

    std::vector<std::function<void()>> bodies;
    for (const DeviceInfo& disk : disks) bodies.push_back([&] { JudgeAndRemove(disk); });
    for (int i = 0; i < 2; ++i) {
        bodies.push_back([this] {
            for (int round = 0; round < kRounds; ++round) {
                const Client withdraws = NewClient();
                service_->registerVusCallback(withdraws.proxy);
                service_->registerVusCallback(withdraws.proxy);
                service_->unregisterVusCallback(withdraws.proxy);
                service_->unregisterVusCallback(withdraws.proxy);
                EXPECT_EQ(withdraws.remote->LinkCount(), 0u);
            }
        });
        bodies.push_back([this] {
            for (int round = 0; round < kRounds; ++round) {
                const Client dies = NewClient();
                service_->registerVusCallback(dies.proxy);
                dies.remote->Die();
            }
        });
    }
    bodies.push_back([this] {
        // One that is dead before it registers is never entered.
        for (int round = 0; round < kRounds; ++round) {
            const Client dead = NewClient();
            dead.remote->Die();
            service_->registerVusCallback(dead.proxy);
            EXPECT_EQ(dead.remote->LinkCount(), 0u);
        }
    });
    ASSERT_EQ(bodies.size(), 8u);
    RunTogether(bodies);

    EXPECT_EQ(stays.object->added, kDevices * kRounds);
    EXPECT_EQ(stays.object->removed, kDevices * kRounds);
    EXPECT_EQ(RegistryCount(), 1u);
    service_->unregisterVusCallback(stays.proxy);
    EXPECT_EQ(RegistryCount(), 0u);
}

// Sixty-four clients, all of which die while the walk over them is under way.
TEST_F(CallbackStormTest, ClientsThatDieInTheMiddleOfAWalkStopNobody) {
    constexpr int kClients = 64;
    LoadPolicy("<usbconfig mode=\"default\"/>");
    const DeviceInfo disk = UsbInfo(tree_->AddDevice("1-1", FlashDrive()), FlashDrive());
    std::vector<Client> clients;
    for (int i = 0; i < kClients; ++i) {
        clients.push_back(NewClient());
        service_->registerVusCallback(clients.back().proxy);
    }
    const Client stays = NewClient();
    service_->registerVusCallback(stays.proxy);
    ASSERT_EQ(RegistryCount(), kClients + 1u);

    RunTogether({[&] { JudgeAndRemove(disk); },
                 [&] {
                     for (const Client& client : clients) client.remote->Die();
                 }});

    EXPECT_EQ(stays.object->added, kRounds);
    EXPECT_EQ(stays.object->removed, kRounds);
    EXPECT_EQ(RegistryCount(), 1u);
}

// The clients of a storm: 64 at any moment, and a thousand registrations among them. One thread
// each has a quarter of both.
constexpr int kCrowds = 4;
constexpr int kClientsOfCrowd = 64 / kCrowds;
constexpr int kRegistrationsOfCrowd = 1000 / kCrowds;
constexpr int kDisks = 4;
constexpr int kStormEvents = 2 * kDisks * kRounds;

#ifdef VUS_SANITIZED
// What the heap holds is the sanitizer's own affair.
void ExpectToLeaveNoMemoryBehind(const std::function<void()>& storm) {
    storm();
}
#else
// If each registration of a storm left but the smallest block of the heap behind, it would be this.
// What the threads' caches keep is less.
constexpr size_t kStormLeak = 1000 * 32;

void ExpectToLeaveNoMemoryBehind(const std::function<void()>& storm) {
    const size_t before = mallinfo2().uordblks;
    storm();
    EXPECT_LT(mallinfo2().uordblks, before + kStormLeak);
}
#endif

// Clients that register, withdraw and die at random; a new one takes the place of one that died.
// The first of them stays. No client acts on two threads: one that died while it withdraws would
// end the service, on purpose.
class Crowd {
  public:
    struct Member {
        Client client;
        int registrations;  // that are in force
    };

    Crowd(const sp<VUsbService>& service, uint32_t seed) : service_(service), random_(seed) {
        for (int i = 0; i < kClientsOfCrowd; ++i) members_.push_back({Client(service_), 0});
        Register(&members_.front());
    }

    // At the pace of the events, so that the one is not over before the other begins.
    void Run(const std::atomic<int>& events) {
        while (registered_ < kRegistrationsOfCrowd) {
            while (registered_ * kStormEvents > events * kRegistrationsOfCrowd) {
                std::this_thread::yield();
            }
            Act(&members_[1 + random_() % (kClientsOfCrowd - 1)]);
        }
    }

    const Client& stays() const { return members_.front().client; }
    const std::vector<Member>& members() const { return members_; }
    const std::vector<Client>& dead() const { return dead_; }

    void WithdrawAll() {
        for (Member& member : members_) {
            while (member.registrations > 0) Withdraw(&member);
        }
    }

  private:
    void Act(Member* member) {
        switch (random_() % 8) {
            case 0:
                return Die(member);
            case 1:
            case 2:
            case 3:
                return Withdraw(member);
            default:
                return Register(member);
        }
    }
    void Register(Member* member) {
        service_->registerVusCallback(member->client.proxy);
        ++member->registrations;
        ++registered_;
    }
    // Of one that is not registered, too: the service does not mind.
    void Withdraw(Member* member) {
        service_->unregisterVusCallback(member->client.proxy);
        if (member->registrations > 0) --member->registrations;
    }
    void Die(Member* member) {
        member->client.remote->Die();
        dead_.push_back(member->client);
        *member = {Client(service_), 0};
    }

    const sp<VUsbService> service_;
    std::mt19937 random_;
    std::vector<Member> members_;
    std::vector<Client> dead_;
    int registered_ = 0;
};

struct Heard {
    explicit Heard(const Client& client)
          : added(client.object->added), removed(client.object->removed) {}

    int added;
    int removed;
};

class ManyClientsTest : public CallbackStormTest {
  protected:
    void SetUp() override {
        CallbackStormTest::SetUp();
        LoadPolicy("<usbconfig mode=\"default\"/>");
        for (size_t i = 0; i < disks_.size(); ++i) {
            const std::string entry = "1-" + std::to_string(i + 1);
            disks_[i] = UsbInfo(tree_->AddDevice(entry, FlashDrive()), FlashDrive());
        }
    }

    // A whole storm, from the first client to the last.
    void Storm(uint32_t seed) {
        std::vector<Crowd> crowds;
        for (uint32_t i = 0; i < kCrowds; ++i) crowds.emplace_back(service_, seed + i);
        RunStorm(&crowds);
        for (const Crowd& crowd : crowds) {
            // One event for each added and each removed device.
            EXPECT_EQ(crowd.stays().object->added, kStormEvents / 2);
            EXPECT_EQ(crowd.stays().object->removed, kStormEvents / 2);
        }
        ExpectRegistryToHold(crowds);
        ExpectOneMoreEventToReachTheRegistered(crowds);
        for (Crowd& crowd : crowds) crowd.WithdrawAll();
        EXPECT_EQ(RegistryCount(), 0u);
    }

  private:
    void RunStorm(std::vector<Crowd>* crowds) {
        std::atomic<int> events{0};
        std::vector<std::function<void()>> bodies;
        for (const DeviceInfo& disk : disks_) {
            bodies.push_back([this, &disk, &events] {
                for (int round = 0; round < kRounds; ++round) {
                    EXPECT_TRUE(Judge(disk));
                    ++events;
                    ReportRemoved(disk);
                    ++events;
                }
            });
        }
        for (Crowd& crowd : *crowds) bodies.push_back([&crowd, &events] { crowd.Run(events); });
        RunTogether(bodies);
    }

    void ExpectRegistryToHold(const std::vector<Crowd>& crowds) {
        size_t registrations = 0;
        for (const Crowd& crowd : crowds) {
            EXPECT_FALSE(crowd.dead().empty());
            for (const Crowd::Member& member : crowd.members()) {
                EXPECT_EQ(member.client.remote->LinkCount(),
                          static_cast<size_t>(member.registrations));
                registrations += static_cast<size_t>(member.registrations);
            }
        }
        EXPECT_EQ(RegistryCount(), registrations);
    }

    // Each registration is told once; who is dead or has withdrawn hears nothing.
    void ExpectOneMoreEventToReachTheRegistered(const std::vector<Crowd>& crowds) {
        std::vector<std::pair<Client, int>> expected;
        for (const Crowd& crowd : crowds) {
            for (const auto& [client, count] : crowd.members())
                expected.emplace_back(client, count);
            for (const Client& client : crowd.dead()) expected.emplace_back(client, 0);
        }
        std::vector<Heard> before;
        for (const auto& [client, count] : expected) before.emplace_back(client);
        EXPECT_TRUE(Judge(disks_[0]));
        ReportRemoved(disks_[0]);
        for (size_t i = 0; i < expected.size(); ++i) {
            const auto& [client, count] = expected[i];
            EXPECT_EQ(client.object->added - before[i].added, count);
            EXPECT_EQ(client.object->removed - before[i].removed, count);
        }
    }

    std::array<DeviceInfo, kDisks> disks_;
};

TEST_F(ManyClientsTest, EveryRegistrationIsToldOfEverythingAndLeavesNothing) {
    const uint32_t seed = std::random_device{}();
    RecordProperty("seed", std::to_string(seed));
    SCOPED_TRACE("seed " + std::to_string(seed));
    // The first storm is for what is allocated once.
    Storm(seed);
    ExpectToLeaveNoMemoryBehind([&] { Storm(seed); });
}

}  // namespace
}  // namespace android::vus
