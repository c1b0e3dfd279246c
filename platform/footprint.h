// SPDX-License-Identifier: Apache-2.0
//
// What a small service does about its memory on a Linux host. Android's allocator and linker see to
// it themselves.

#pragma once

namespace android::vus::platform {

// Has all threads share one heap. The heap that the allocator gives each new thread otherwise costs
// a service with a handful of them more than the few allocations of a call gain. To be called
// before there are threads.
void shareOneHeap();

// Gives back the pages of programs and libraries that the start alone needed: the symbol tables
// that the dynamic linker searched, what was mapped around it. What is used again comes back by
// itself, from the file's pages in the system's cache.
void releaseCodeOfStart();

}  // namespace android::vus::platform
