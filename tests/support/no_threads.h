// SPDX-License-Identifier: Apache-2.0
//
// A process that cannot have another thread, as one that has reached a limit: as long as this
// lives, each is to have a stack that there is no memory for.

#pragma once

#include <pthread.h>

#include <gtest/gtest.h>

namespace android::vus {

class NoThreads {
  public:
    NoThreads() {
        pthread_attr_t hopeless;
        EXPECT_EQ(pthread_getattr_default_np(&usual_), 0);
        EXPECT_EQ(pthread_attr_init(&hopeless), 0);
        EXPECT_EQ(pthread_attr_setstacksize(&hopeless, size_t{1} << 62), 0);
        EXPECT_EQ(pthread_setattr_default_np(&hopeless), 0);
        pthread_attr_destroy(&hopeless);
    }
    ~NoThreads() {
        EXPECT_EQ(pthread_setattr_default_np(&usual_), 0);
        pthread_attr_destroy(&usual_);
    }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

  private:
    pthread_attr_t usual_;
};

}  // namespace android::vus
