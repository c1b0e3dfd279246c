// SPDX-License-Identifier: Apache-2.0
//
// Precompiled for the test programs.

#pragma once

#include "cmake/headers/code.h"

#include <filesystem>
#include <optional>
#include <random>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android/vus/BnVUsbServiceCallback.h>
#include <android/vus/DeviceInfo.h>
#include <android/vus/IVUsbService.h>
