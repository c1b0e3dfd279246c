// SPDX-License-Identifier: Apache-2.0
//
// Android's service manager asks SELinux who may register and find a service. A Linux
// host has no such policy: this stand-in allows everything, and says so here rather than
// in a patch of the service manager. On Android, the platform's own is used.

#pragma once

#include <linux/types.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/types.h>

#include <linux/android/binder.h>

// Ask the kernel for no security contexts. One without an LSM that supplies them fails
// every call to a service manager that asked ("failed to get security context").
#define FLAT_BINDER_FLAG_TXN_SECURITY_CTX 0

#ifndef __unused
#define __unused __attribute__((__unused__))
#endif

typedef unsigned short security_class_t;

struct selabel_handle {
    char unused;
};

union selinux_callback {
    int (*func_log)(int type, const char* format, ...);
    int (*func_audit)(void* data, security_class_t cls, char* buf, size_t len);
};

enum { SELINUX_CB_LOG, SELINUX_CB_AUDIT };

static inline void selinux_set_callback(int type __unused, union selinux_callback cb __unused) {}

static inline int selinux_log_callback(int type __unused, const char* format __unused, ...) {
    return 0;
}

static inline struct selabel_handle* selinux_android_service_context_handle(void) {
    static struct selabel_handle handle;
    return &handle;
}

static inline int selinux_status_open(int fallback __unused) {
    return 0;
}

static inline int selinux_status_updated(void) {
    return 0;
}

static inline void selabel_close(struct selabel_handle* handle __unused) {}

static inline int getcon(char** context) {
    *context = strdup("u:r:servicemanager:s0");
    return *context ? 0 : -1;
}

static inline int getpidcon(pid_t pid __unused, char** context) {
    *context = strdup("u:r:unknown:s0");
    return *context ? 0 : -1;
}

static inline void freecon(char* context) {
    free(context);
}

static inline int selabel_lookup(struct selabel_handle* handle __unused, char** context,
                                 const char* key __unused, int type __unused) {
    *context = strdup("u:object_r:default:s0");
    return *context ? 0 : -1;
}

static inline int selinux_check_access(const char* source __unused, const char* target __unused,
                                       const char* cls __unused, const char* permission __unused,
                                       void* audit_data __unused) {
    return 0;
}
