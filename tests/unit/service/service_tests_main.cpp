// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include "world.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    android::vus::EnterPrivateRoot();
    return RUN_ALL_TESTS();
}
