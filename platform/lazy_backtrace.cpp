// SPDX-License-Identifier: Apache-2.0
//
// libbacktrace as every program here loads it: a library of that name which holds the one function
// that is called from outside, and which loads the platform's own when it is called.
//
// libutils needs libbacktrace, and that needs a decompressor of 2.7 MB: together they cost each
// program most of a megabyte of memory, from its start on, for a stack trace that it may never
// print. The dynamic linker takes a library that is loaded already for any of the same name, so
// libutils is content with this one.

#include <dlfcn.h>

#include <backtrace/Backtrace.h>

namespace {

using Create = Backtrace* (*)(pid_t, pid_t, BacktraceMap*);

// Null if the library is missing, or is not what it was when this was built.
Create platformCreate() {
    void* const library = dlopen(VUS_PLATFORM_BACKTRACE, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return nullptr;
    return reinterpret_cast<Create>(dlsym(library, "_ZN9Backtrace6CreateEiiP12BacktraceMap"));
}

}  // namespace

// Unlike the platform's, it can answer null.
Backtrace* Backtrace::Create(pid_t pid, pid_t tid, BacktraceMap* map) {
    const ::Create create = platformCreate();
    return create == nullptr ? nullptr : create(pid, tid, map);
}
