// SPDX-License-Identifier: Apache-2.0
//
// Policies of a given size.

#pragma once

#include <stdint.h>

#include <string>

namespace android::vus {

// A whitelist as administrators write them: every class that a rule may name once, and for the rest
// vendors, of which every fourth is listed as a whole and the others with two products. Nothing in
// it names vendors below kFirstVendor. A rule is an element: a class, a vendor, a product.
inline constexpr int32_t kFirstVendor = 1000;
std::string WhitelistPolicy(int32_t rules);

// A whitelist of nothing but products: no class and no whole vendor ends a search early.
std::string ProductPolicy(int32_t rules);

// Puts the policy in force.
void LoadPolicy(const std::string& xml);

}  // namespace android::vus
