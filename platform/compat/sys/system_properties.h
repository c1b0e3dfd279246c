// SPDX-License-Identifier: Apache-2.0
//
// Of Android's C library: the bounds of a property, which cutils/properties.h is written
// in terms of. PROP_VALUE_MAX counts the terminating zero.

#pragma once

#define PROP_NAME_MAX 32
#define PROP_VALUE_MAX 92
