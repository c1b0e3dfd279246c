// SPDX-License-Identifier: Apache-2.0
//
// cutils/sched_policy.h includes this, and Debian does not package it. libbinder includes
// that header and uses nothing of it.

#pragma once
