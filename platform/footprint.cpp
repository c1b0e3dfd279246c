// SPDX-License-Identifier: Apache-2.0

#include "platform/footprint.h"

#include <link.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

namespace android::vus::platform {

namespace {

// Nobody has changed what cannot be written, so the file has all of it.
bool isReadOnly(const ElfW(Phdr) & segment) {
    return segment.p_type == PT_LOAD && (segment.p_flags & PF_W) == 0;
}

// True if the dynamic linker has written there all the same, which no library here needs.
bool hasTextRelocations(const dl_phdr_info& object) {
    for (size_t i = 0; i < object.dlpi_phnum; ++i) {
        if (object.dlpi_phdr[i].p_type != PT_DYNAMIC) continue;
        const auto* entry =
                reinterpret_cast<const ElfW(Dyn)*>(object.dlpi_addr + object.dlpi_phdr[i].p_vaddr);
        for (; entry->d_tag != DT_NULL; ++entry) {
            if (entry->d_tag == DT_TEXTREL) return true;
        }
    }
    return false;
}

int releaseReadOnlyOf(dl_phdr_info* object, size_t, void*) {
    if (hasTextRelocations(*object)) return 0;
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    for (size_t i = 0; i < object->dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = object->dlpi_phdr[i];
        if (!isReadOnly(segment)) continue;
        const uintptr_t address = object->dlpi_addr + segment.p_vaddr;
        const uintptr_t begin = address & ~(page - 1);
        // A page that it shares with the next segment is the next segment's.
        const uintptr_t end = (address + segment.p_memsz) & ~(page - 1);
        if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED);
    }
    return 0;
}

}  // namespace

void shareOneHeap() {
    mallopt(M_ARENA_MAX, 1);
}

void releaseCodeOfStart() {
    dl_iterate_phdr(releaseReadOnlyOf, nullptr);
}

}  // namespace android::vus::platform
