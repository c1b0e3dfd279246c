// SPDX-License-Identifier: Apache-2.0
//
// Clients that register, withdraw and die while devices are judged and removed.

#include "android/vus/BnVUsbServiceCallback.h"
#include "tests/support/fake_binder.h"
#include "tests/unit/concurrency/concurrency_fixture.h"

namespace android::vus {
namespace {

constexpr int kRounds = 100;

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

class CallbackStormTest : public ConcurrencyTest {
  protected:
    void TearDown() override {
        service_->callbacks_.clear();
        ConcurrencyTest::TearDown();
    }

    // A client of another process: its object, and the service's proxy of it.
    struct Client {
        sp<CountingClient> object;
        sp<FakeRemoteBinder> remote;
        sp<IVUsbServiceCallback> proxy;
    };
    Client NewClient() {
        Client client;
        client.object = new CountingClient(service_);
        client.remote = new FakeRemoteBinder(client.object);
        client.proxy = interface_cast<IVUsbServiceCallback>(sp<IBinder>(client.remote));
        return client;
    }
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

}  // namespace
}  // namespace android::vus
