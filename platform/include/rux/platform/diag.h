/*
 * The device's diagnostic channel, as the library uses it.
 *
 * Five operations: initialise the channel, register a command table, ask whether a
 * log code is enabled, allocate a log packet for a code and size, commit it. The
 * packet header (the first RUX_DIAG_PACKET_HEADER_SIZE bytes of an allocated packet)
 * belongs to the channel; callers write only behind it.
 *
 * On the device these map onto the device's own library; host builds use the
 * in-memory backend in platform/host (see rux/platform/host.h for its test controls).
 */
#ifndef RUX_PLATFORM_DIAG_H
#define RUX_PLATFORM_DIAG_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define RUX_DIAG_PACKET_HEADER_SIZE 12

/* Handler of a registered command: request bytes and length in, response out
 * (the library never sends a response; it returns null). */
typedef void* (*rux_diag_cmd_handler_t)(void* request, uint16_t length);

typedef struct {
    uint16_t first_cmd_code;
    uint16_t last_cmd_code;
    rux_diag_cmd_handler_t handler;
} rux_diag_cmd_entry_t;

typedef struct {
    uint16_t delay_flag;
    uint16_t cmd_code;
    uint16_t subsys_id;
    uint16_t count;
    uint16_t proc_id;
    const rux_diag_cmd_entry_t* entries;
} rux_diag_cmd_table_t;

/* Initialises the channel; the argument is reserved and passed as null. */
int rux_diag_init(void* reserved);
/* Registers a command table; the table must outlive the process's use of the channel. */
void rux_diag_register_table(const rux_diag_cmd_table_t* table);
/* Non-zero when packets for this log code are wanted. */
int rux_diag_log_enabled(uint16_t code);
/* A packet of `size` bytes, header included, or null when none can be had. */
void* rux_diag_log_alloc(uint16_t code, size_t size);
/* Hands a packet from rux_diag_log_alloc to the channel, which takes ownership. */
void rux_diag_log_commit(void* packet);

#ifdef __cplusplus
}
#endif

#endif
