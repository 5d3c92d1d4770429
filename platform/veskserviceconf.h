// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Service jobs, system services and port declarations.
// Statuses are negative on failure unless said otherwise.
#pragma once

#include <cstddef>

#include "platform/vesk_export.h"

extern "C" {

/// Input of the port composer; every byte without a value is zero.
struct VESK_PORT_REQUEST {
    int kind;      ///< 1
    int zero;      ///< 0
    int protocol;  ///< 1 TCP, 2 UDP
    int port;      ///< 1..65535
    void* reserved1;
    void* reserved2;
};
static_assert(sizeof(VESK_PORT_REQUEST) == 32);
static_assert(offsetof(VESK_PORT_REQUEST, kind) == 0);
static_assert(offsetof(VESK_PORT_REQUEST, zero) == 4);
static_assert(offsetof(VESK_PORT_REQUEST, protocol) == 8);
static_assert(offsetof(VESK_PORT_REQUEST, port) == 12);
static_assert(offsetof(VESK_PORT_REQUEST, reserved1) == 16);
static_assert(offsetof(VESK_PORT_REQUEST, reserved2) == 24);

struct VESK_PORT_INFO;
struct VESK_SECTION_INFO;
struct VESK_SERVICE_PORTS;

/// Input of the section composer; every byte without a value is zero.
struct VESK_SECTION_DESCRIPTION {
    char name[256];
    char unused1[448];
    char display_name[704];
    char description[128];
    char unused2[128];
    int kind;  ///< 1
    int unused3;
    void* reserved;
    VESK_PORT_INFO* port_info;
    void* unused4;
};
static_assert(sizeof(VESK_SECTION_DESCRIPTION) == 1696);
static_assert(offsetof(VESK_SECTION_DESCRIPTION, name) == 0);
static_assert(offsetof(VESK_SECTION_DESCRIPTION, display_name) == 704);
static_assert(offsetof(VESK_SECTION_DESCRIPTION, description) == 1408);
static_assert(offsetof(VESK_SECTION_DESCRIPTION, kind) == 1664);
static_assert(offsetof(VESK_SECTION_DESCRIPTION, reserved) == 1672);
static_assert(offsetof(VESK_SECTION_DESCRIPTION, port_info) == 1680);

/// Names a section of a declaration file and what to do with it; every byte without a value is zero.
struct VESK_SECTION_REQUEST {
    int word0;   ///< 2
    int word1;   ///< 1
    int action;  ///< 1 set, 3 remove
    int word3;   ///< 4
    char file[256];
    char section[256];
    int word4;  ///< 2
    char unused[20];
};
static_assert(sizeof(VESK_SECTION_REQUEST) == 552);
static_assert(offsetof(VESK_SECTION_REQUEST, word0) == 0);
static_assert(offsetof(VESK_SECTION_REQUEST, word1) == 4);
static_assert(offsetof(VESK_SECTION_REQUEST, action) == 8);
static_assert(offsetof(VESK_SECTION_REQUEST, word3) == 12);
static_assert(offsetof(VESK_SECTION_REQUEST, file) == 16);
static_assert(offsetof(VESK_SECTION_REQUEST, section) == 272);
static_assert(offsetof(VESK_SECTION_REQUEST, word4) == 528);

/// Starts a job and returns when it is ready, or fails after a bounded wait. Starting a running job succeeds.
VESK_EXPORT int VLIBServicectlJobStart(const char* job);
/// Stops a job and returns when it is down. Stopping a stopped job is a success.
VESK_EXPORT int VLIBServicectlJobStop(const char* job);
/// Asks a running job to read its configuration again; fails when it is not running.
VESK_EXPORT int VLIBServicectlJobReload(const char* job);
/// Stops the job and starts it again; returns when it is ready. `flags` is 0.
VESK_EXPORT int VLIBServicectlRestart(const char* job, int flags);
/// Nonzero when the job is running. `flags` is 0.
VESK_EXPORT int VLIBServicectlIsJobRunning(const char* job, int flags);
/// Starts or stops a system service.
VESK_EXPORT int VLIBServiceStart(const char* service, int flags);
VESK_EXPORT int VLIBServiceStop(const char* service, int flags);

/// Build the objects that a declaration is made of; the caller releases them with `free`. -1 on failure.
VESK_EXPORT int VESKServiceComposePortInfo(const VESK_PORT_REQUEST* request, VESK_PORT_INFO** info);
VESK_EXPORT int VESKServiceComposeSectionInfo(const VESK_SECTION_DESCRIPTION* description,
                                              VESK_SECTION_INFO** info);
/// Writes or removes the section that `request` names.
VESK_EXPORT int VLIBServiceConfSectionSet(const VESK_SECTION_REQUEST* request, const VESK_SECTION_INFO* info);
VESK_EXPORT int VLIBServiceConfSectionRemove(const VESK_SECTION_REQUEST* request);
/// Tests a port against the ports that other services have declared.
/// @return 1 for a conflict, another non-negative value for none; `*ports`, where set, is freed with
///         `VESKServiceConfPortsFree`
VESK_EXPORT int VLIBIsPortConflict(const char* service, const char* port, const char* protocol, int flags,
                                   VESK_SERVICE_PORTS** ports);
VESK_EXPORT void VESKServiceConfPortsFree(VESK_SERVICE_PORTS* ports);

}  // extern "C"
