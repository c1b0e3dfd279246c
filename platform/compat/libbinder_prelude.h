// SPDX-License-Identifier: Apache-2.0
//
// What libbinder's sources and headers take for granted because Android's C and C++
// libraries pull it in, and Debian's do not. Included ahead of each of its sources, and
// ahead of every source that uses its headers.

#pragma once

#ifdef __cplusplus
#include <linux/types.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <vector>
#endif
