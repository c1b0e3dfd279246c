// SPDX-License-Identifier: Apache-2.0
//
// libbinder talks to the driver. One of its sources is compiled with a definition without
// which every call is dropped on its way there, and nothing notices until run time.
#include <binder/BpBinder.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>

#include "tests/support/fake_driver.h"

namespace android::vus {
namespace {

TEST(Driver, CallReachesItAndItsAnswerComesBack) {
    ProcessState::self();
    const int before = DriverExchanges();
    Parcel request, reply;
    EXPECT_EQ(DEAD_OBJECT,
              IPCThreadState::self()->transact(1, IBinder::PING_TRANSACTION, request, &reply, 0));
    EXPECT_LT(before, DriverExchanges());
}

TEST(Driver, DeathNoticeIsAskedForFromIt) {
    sp<BpBinder> remote = BpBinder::create(7);
    struct Recipient : IBinder::DeathRecipient {
        void binderDied(const wp<IBinder>&) override {}
    };
    sp<Recipient> recipient = new Recipient;
    const int before = DriverExchanges();
    EXPECT_EQ(OK, remote->linkToDeath(recipient));
    EXPECT_LT(before, DriverExchanges());
}

}  // namespace
}  // namespace android::vus
