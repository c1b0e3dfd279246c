// SPDX-License-Identifier: Apache-2.0
//
// The registered clients: registration, withdrawal, death, and walks over clients that misbehave.

#include <thread>

#include "service_fixture.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

using Recipient = VUsbService::CallbackDeathRecipient;

class CallbacksTest : public ServiceTest {
  protected:
    // A client in another process, as the service sees it: its proxy, and the far end's object.
    struct Client {
        sp<RecordingCallback> object = new RecordingCallback;
        sp<FakeRemoteBinder> binder = new FakeRemoteBinder(object);
        sp<IVUsbServiceCallback> proxy = interface_cast<IVUsbServiceCallback>(sp<IBinder>(binder));
    };

    void Register(const Client& client) {
        EXPECT_TRUE(service_->registerVusCallback(client.proxy).isOk());
    }
    void Withdraw(const Client& client) {
        EXPECT_TRUE(service_->unregisterVusCallback(client.proxy).isOk());
    }
    void TellAll() { service_->updateDeviceList(UsbDeviceInfo(1002, {8}, "disk"), 0); }

    sp<Recipient> RecipientOf(const Client& client) {
        const auto entry = service_->callbacks_.lower_bound(client.binder.get());
        return entry == service_->callbacks_.end() ? nullptr : entry->second;
    }
};

TEST_F(CallbacksTest, ARegistrationIsKeyedByItsBinder) {
    const Client client;
    Register(client);
    ASSERT_EQ(service_->callbacks_.size(), 1u);
    EXPECT_EQ(service_->callbacks_.begin()->first, client.binder.get());
    EXPECT_EQ(service_->callbacks_.begin()->second->callback(), client.proxy);
    EXPECT_EQ(client.binder->LinkCount(), 1u);
}

TEST_F(CallbacksTest, RegisteringLogsInOrder) {
    const Client client;
    Register(client);
    EXPECT_THAT(Messages(), ElementsAre("registerVusCallback called" + Text(client.proxy.get()),
                                        "registerVusCallback binder " + Text(client.binder.get()),
                                        "Size of callbacks at registerVusCallback 1"));
    EXPECT_THAT(logs_.Errors(), ElementsAre("Size of callbacks at registerVusCallback 1"));
}

TEST_F(CallbacksTest, OnADebugBuildEveryEntryIsLoggedInMapOrder) {
    VUsbService::debugBuild = true;
    const Client one;
    const Client two;
    Register(one);
    logs_.Clear();
    Register(two);
    std::vector<std::string> expected = {
            "registerVusCallback called" + Text(two.proxy.get()),
            "registerVusCallback binder " + Text(two.binder.get()),
            "Size of callbacks at registerVusCallback 2",
    };
    for (const auto& [binder, recipient] : service_->callbacks_) {
        expected.push_back("registerVusCallback--: iterating map key:" + Text(binder) +
                           " value:" + Text(recipient.get()));
    }
    EXPECT_EQ(Messages(), expected);
    EXPECT_THAT(logs_.Errors(), ElementsAre("Size of callbacks at registerVusCallback 2"));
}

TEST_F(CallbacksTest, ADeathLinkThatFailsRegistersNothing) {
    const Client client;
    client.binder->Die();
    Register(client);
    EXPECT_TRUE(service_->callbacks_.empty());
    EXPECT_THAT(logs_.Errors(), ElementsAre("Failed to link death recipient to binder"));
}

TEST_F(CallbacksTest, AClientOfTheSameProcessCannotBeLinked) {
    const sp<RecordingCallback> local = new RecordingCallback;
    EXPECT_TRUE(service_->registerVusCallback(local).isOk());
    EXPECT_TRUE(service_->callbacks_.empty());
    EXPECT_THAT(logs_.Errors(), ElementsAre("Failed to link death recipient to binder"));
}

TEST_F(CallbacksTest, AnUnlinkedRecipientIsReleased) {
    const Client client;
    client.binder->Die();
    const int32_t before = client.proxy->getStrongCount();
    Register(client);
    EXPECT_EQ(client.proxy->getStrongCount(), before);
}

TEST_F(CallbacksTest, TwoRegistrationsTakeTwoWithdrawals) {
    const Client client;
    Register(client);
    Register(client);
    EXPECT_EQ(service_->callbacks_.size(), 2u);
    EXPECT_EQ(client.binder->LinkCount(), 2u);
    TellAll();
    EXPECT_THAT(client.object->Events(), ElementsAre("removed disk", "removed disk"));

    Withdraw(client);
    EXPECT_EQ(service_->callbacks_.size(), 1u);
    EXPECT_EQ(client.binder->LinkCount(), 1u);
    Withdraw(client);
    EXPECT_TRUE(service_->callbacks_.empty());
    EXPECT_EQ(client.binder->LinkCount(), 0u);
    logs_.Clear();
    Withdraw(client);
    EXPECT_THAT(Messages(), ElementsAre("unregisterVusCallback called" + Text(client.proxy.get()),
                                        "unregisterVusCallback binder" + Text(client.binder.get()),
                                        "Given callback not registered with this list"));
    EXPECT_THAT(logs_.Errors(), IsEmpty());
}

TEST_F(CallbacksTest, TheOldestRegistrationIsWithdrawnFirst) {
    const Client client;
    Register(client);
    const sp<Recipient> oldest = RecipientOf(client);
    Register(client);
    Withdraw(client);
    EXPECT_NE(RecipientOf(client), oldest);
}

TEST_F(CallbacksTest, WithdrawingLogsInOrder) {
    const Client client;
    Register(client);
    logs_.Clear();
    Withdraw(client);
    EXPECT_THAT(Messages(), ElementsAre("unregisterVusCallback called" + Text(client.proxy.get()),
                                        "unregisterVusCallback binder" + Text(client.binder.get()),
                                        "Callback successfully removed from list",
                                        "Size of callbacks at unregisterVusCallback0"));
    EXPECT_THAT(logs_.Errors(), IsEmpty());
}

TEST_F(CallbacksTest, OnADebugBuildTheRemainingEntriesAreLogged) {
    VUsbService::debugBuild = true;
    const Client leaving;
    const Client staying;
    Register(leaving);
    Register(staying);
    logs_.Clear();
    Withdraw(leaving);
    EXPECT_EQ(Messages().back(), "unregisterVusCallback--: before erase iterating map key:" +
                                         Text(staying.binder.get()) +
                                         " value:" + Text(RecipientOf(staying).get()));
    EXPECT_EQ(Messages().size(), 5u);
}

TEST_F(CallbacksTest, WithdrawingAStrangerChangesNothing) {
    const Client known;
    const Client stranger;
    Register(known);
    Withdraw(stranger);
    EXPECT_EQ(service_->callbacks_.size(), 1u);
    EXPECT_EQ(Messages().back(), "Given callback not registered with this list");
}

TEST_F(CallbacksTest, AFailedUnlinkStillRemovesTheEntry) {
    const Client client;
    Register(client);
    client.binder->unlink_result = DEAD_OBJECT;
    logs_.Clear();
    Withdraw(client);
    EXPECT_TRUE(service_->callbacks_.empty());
    EXPECT_THAT(logs_.Errors(), ElementsAre("Failed to unlink death recipient from binder"));
    EXPECT_EQ(Messages().back(), "Size of callbacks at unregisterVusCallback0");
}

TEST_F(CallbacksTest, TheInternalRemovalTellsWhetherTheLinkIsGone) {
    const Client client;
    Register(client);
    Register(client);
    EXPECT_TRUE(service_->UnregisterInternal(service_->callbacks_.begin()));
    client.binder->unlink_result = DEAD_OBJECT;
    EXPECT_FALSE(service_->UnregisterInternal(service_->callbacks_.begin()));
    EXPECT_TRUE(service_->callbacks_.empty());
}

TEST_F(CallbacksTest, AWithdrawnClientIsReleased) {
    const Client client;
    const int32_t before = client.proxy->getStrongCount();
    Register(client);
    EXPECT_GT(client.proxy->getStrongCount(), before);
    Withdraw(client);
    EXPECT_EQ(client.proxy->getStrongCount(), before);
}

TEST_F(CallbacksTest, ADeadClientIsDropped) {
    const Client dying;
    const Client living;
    Register(dying);
    Register(living);
    logs_.Clear();
    dying.binder->Die();
    EXPECT_THAT(Messages(), ElementsAre("Received binderDied",
                                        "Size of callbacks at unregisterVusCallback binderDied 1",
                                        "Callback from dead process unregistered"));
    EXPECT_THAT(logs_.Errors(), IsEmpty());
    ASSERT_EQ(service_->callbacks_.size(), 1u);
    EXPECT_EQ(service_->callbacks_.begin()->first, living.binder.get());
}

TEST_F(CallbacksTest, AClientThatRegisteredTwiceDiesTwice) {
    const Client client;
    Register(client);
    Register(client);
    logs_.Clear();
    client.binder->Die();
    EXPECT_TRUE(service_->callbacks_.empty());
    EXPECT_THAT(Messages(),
                ElementsAre("Received binderDied",
                            "Size of callbacks at unregisterVusCallback binderDied 1",
                            "Callback from dead process unregistered", "Received binderDied",
                            "Size of callbacks at unregisterVusCallback binderDied 0",
                            "Callback from dead process unregistered"));
}

TEST_F(CallbacksTest, OnADebugBuildEachCallIsLoggedWithItsAddress) {
    VUsbService::debugBuild = true;
    const Client client;
    Register(client);
    logs_.Clear();
    service_->addDeviceList(UsbDeviceInfo(1002, {8}, "disk"), true, "");
    TellAll();
    EXPECT_THAT(Messages(),
                Contains("addDeviceList: sending callback to client of onDeviceAdded  " +
                         Text(client.proxy.get())));
    EXPECT_THAT(Messages(),
                Contains("updateDeviceList--: sending callback to client onDeviceRemoved " +
                         Text(client.proxy.get())));
    EXPECT_THAT(logs_.Errors(), IsEmpty());
}

TEST_F(CallbacksTest, OnAReleaseBuildNoAddressOfACallIsLogged) {
    const Client client;
    Register(client);
    service_->addDeviceList(UsbDeviceInfo(1002, {8}, "disk"), true, "");
    TellAll();
    EXPECT_THAT(Messages(), Not(Contains(HasSubstr("sending callback to client"))));
    EXPECT_THAT(Messages(), Not(Contains(HasSubstr("iterating map"))));
}

TEST_F(CallbacksTest, ClientsAreToldInMapOrder) {
    std::vector<Client> clients(5);
    std::vector<const IBinder*> told;
    for (Client& client : clients) {
        IBinder* const binder = client.binder.get();
        client.object->on_removed = [&told, binder](const DeviceInfo&) { told.push_back(binder); };
        Register(client);
    }
    TellAll();
    std::vector<const IBinder*> expected;
    for (const auto& [binder, recipient] : service_->callbacks_) expected.push_back(binder);
    EXPECT_EQ(told, expected);
}

// Walks over clients that misbehave. Each client may be first or last in the map, by its address,
// so each test has a well-behaved client that must hear of every event in any case.

TEST_F(CallbacksTest, AClientMayWithdrawItselfFromItsCallback) {
    const Client leaving;
    const Client staying;
    Register(leaving);
    Register(staying);
    leaving.object->on_removed = [&](const DeviceInfo&) { Withdraw(leaving); };
    TellAll();
    TellAll();
    EXPECT_THAT(leaving.object->Events(), ElementsAre("removed disk"));
    EXPECT_THAT(staying.object->Events(), ElementsAre("removed disk", "removed disk"));
}

TEST_F(CallbacksTest, AClientMayWithdrawAllOthersFromItsCallback) {
    std::vector<Client> clients(3);
    for (const Client& client : clients) {
        Register(client);
        client.object->on_removed = [&](const DeviceInfo&) {
            for (const Client& other : clients) Withdraw(other);
        };
    }
    TellAll();
    for (const Client& client : clients) {
        EXPECT_THAT(client.object->Events(), ElementsAre("removed disk"));
    }
    EXPECT_TRUE(service_->callbacks_.empty());
}

TEST_F(CallbacksTest, AClientRegisteredFromACallbackHearsOfTheNextEvent) {
    const Client first;
    const Client late;
    Register(first);
    first.object->on_removed = [&](const DeviceInfo&) {
        first.object->on_removed = nullptr;
        Register(late);
    };
    TellAll();
    EXPECT_THAT(late.object->Events(), IsEmpty());
    TellAll();
    EXPECT_THAT(late.object->Events(), ElementsAre("removed disk"));
}

TEST_F(CallbacksTest, AClientMayCallTheServiceFromItsCallback) {
    const Client client;
    Register(client);
    std::vector<int32_t> listed;
    client.object->on_added = [&](const DeviceInfo&) {
        listed = ListedIds();
        service_->updateDeviceList(InputDevice(7, 0x101), 0);
        bool allowed = false;
        service_->isDeviceAllowed(InputDevice(8, 0x101), &allowed);
        DumpText();
    };
    service_->addDeviceList(InputDevice(7, 0x101), true, "");
    service_->addDeviceList(UsbDeviceInfo(1002, {8}), true, "");
    EXPECT_THAT(listed, ElementsAre(7));
    EXPECT_THAT(ListedIds(), ElementsAre(8, 1002));
}

TEST_F(CallbacksTest, ABinderErrorOfOneClientDoesNotKeepTheOthersFromHearing) {
    std::vector<Client> clients(3);
    for (const Client& client : clients) Register(client);
    for (const Client& client : clients) {
        client.object->answer =
                binder::Status::fromExceptionCode(binder::Status::EX_ILLEGAL_STATE, "not today");
    }
    TellAll();
    service_->addDeviceList(UsbDeviceInfo(1002, {8}, "disk"), true, "");
    for (const Client& client : clients) {
        EXPECT_THAT(client.object->Events(), ElementsAre("removed disk", "added disk"));
    }
    EXPECT_EQ(service_->callbacks_.size(), 3u);
}

TEST_F(CallbacksTest, AClientThatDiesInTheMiddleOfTheWalkDoesNotKeepTheOthersFromHearing) {
    std::vector<Client> clients(3);
    bool died = false;
    for (const Client& client : clients) {
        Register(client);
        // Whoever is told first takes its neighbour down.
        client.object->on_removed = [&](const DeviceInfo&) {
            if (died) return;
            died = true;
            clients[&client == &clients[1] ? 2 : 1].binder->Die();
        };
    }
    TellAll();
    size_t told = 0;
    for (const Client& client : clients) told += client.object->Events().size();
    EXPECT_EQ(told, 2u) << "both that live";
    EXPECT_EQ(service_->callbacks_.size(), 2u);
}

TEST_F(CallbacksTest, ASlowClientHoldsUpNobodyElse) {
    const Client slow;
    Register(slow);
    Gate entered;
    Gate leave;
    slow.object->on_removed = [&](const DeviceInfo&) {
        entered.Open();
        leave.Wait();
    };
    std::thread removal([&] { TellAll(); });
    entered.Wait();

    // All this while the slow client is still being told.
    const Client other;
    Register(other);
    service_->addDeviceList(InputDevice(7, 0x101), true, "");
    EXPECT_THAT(ListedIds(), ElementsAre(7));
    Withdraw(other);
    const Client dying;
    Register(dying);
    dying.binder->Die();
    DumpText();
    bool allowed = false;
    service_->isDeviceAllowed(InputDevice(8, 0x101), &allowed);
    EXPECT_EQ(service_->callbacks_.size(), 1u);

    leave.Open();
    removal.join();
}

// The fatal checks.

using CallbacksDeathTest = CallbacksTest;

TEST_F(CallbacksDeathTest, ARecipientNeedsACallback) {
    VUsbService* const owner = service_.get();
    EXPECT_DEATH(LogToStderr([&] { sp<Recipient> r = new Recipient(nullptr, owner); }),
                 "Check failed: callback_\\.get\\(\\) \n");
}

TEST_F(CallbacksDeathTest, ARecipientNeedsAnOwner) {
    const Client client;
    EXPECT_DEATH(LogToStderr([&] { sp<Recipient> r = new Recipient(client.proxy, nullptr); }),
                 "Check failed: owner_ \n");
}

TEST_F(CallbacksDeathTest, ANullCallbackCannotBeRegistered) {
    EXPECT_DEATH(LogToStderr([&] { service_->registerVusCallback(nullptr); }),
                 "Check failed: callback_\\.get\\(\\) \n");
}

TEST_F(CallbacksDeathTest, ADeathNoticeMustBeForTheRecipientsOwnBinder) {
    const Client client;
    const Client other;
    Register(client);
    EXPECT_DEATH(LogToStderr([&] { RecipientOf(client)->binderDied(wp<IBinder>(other.binder)); }),
                 "Check failed: who\\.unsafe_get\\(\\) == binder\\.get\\(\\) \n");
}

TEST_F(CallbacksDeathTest, ADeathNoticeAfterAWithdrawalIsFatal) {
    const Client client;
    Register(client);
    const sp<Recipient> recipient = RecipientOf(client);
    Withdraw(client);
    EXPECT_DEATH(LogToStderr([&] { recipient->binderDied(wp<IBinder>(client.binder)); }),
                 "Check failed: iter != owner_->callbacks_\\.end\\(\\) \n");
}

TEST_F(CallbacksTest, WithdrawingNothingIsNotRegistered) {
    EXPECT_TRUE(service_->unregisterVusCallback(nullptr).isOk());
    EXPECT_EQ(Messages().back(), "Given callback not registered with this list");
}

}  // namespace
}  // namespace android::vus
