/*
 * librux_client: the C interface to the Rux service.
 *
 * An application registers once with register_rux_client(), then tells the service
 * about device and radio conditions (HST, subway, flight mode, fold, coverage, scan
 * state, L2NR selection, data-stall parameters, cell barring, preferred, dubious and
 * listed cells) and queries it (HST state, DPPD, multi-SIM sub-mode). It calls
 * deregister_rux_client() last; register_rux_client() also installs it with atexit().
 *
 * House rules (they hold for every function below unless its comment says otherwise):
 *
 * Results. A request returns as soon as its message is queued and never waits for the
 * service. The return value is the request's transaction id: a positive odd number
 * (1, 3, 5, ... in a fresh process, wrapping back to 1 after INT_MAX). The completion
 * callback later receives that id as its first argument. Failures that can be seen at
 * once come back as a negative return value instead:
 *   - status_e family (every int-returning function except the two cell-list ones):
 *     -1 when there is no client (register_rux_client not called, or it failed).
 *   - cell-list family (set_cell_list_info, set_dubious_cell_array_v2): a negative
 *     status_v2_e, and no callback follows.
 * In the status_e family an argument that cannot be converted (an enum value out of
 * range, a bad record) does not fail the call: it returns a transaction id and the
 * completion callback receives RUX_STATUS_INVALID_ARG, or RUX_STATUS_INVALID_SLOT
 * for a bad slot_id_e.
 *
 * Threads. Any application thread may call any function. Callbacks run on the
 * library's own threads, never on the caller's:
 *   - replies from the service, indications and the service-down status: the
 *     receiver thread of the service connection;
 *   - replies the library makes itself (arguments that could not be converted), send
 *     failures and the service-up status: the library's SDK thread.
 * So two callbacks can run at the same time. Callbacks run under no library lock and
 * may issue new requests; they must not call deregister_rux_client() and should
 * return promptly. The single exception: register_rux_client() calls its callback
 * with RUX_STATUS_INTERNAL_ERR on the caller's thread when it cannot set up the client.
 *
 * Memory. The library copies every argument (records, arrays and what their pointers
 * point at) before the call returns; the caller keeps ownership and may reuse or free
 * them at once. Pointers handed to callbacks point at storage owned by the library and
 * are valid only during the call: copy what you need before returning.
 *
 * Completion callbacks. Each reply is delivered at most once, to the callback given
 * with its request. The first non-null callback ever given to a set_* function becomes
 * the fallback callback (it is never replaced): a reply of the void(int, status_e)
 * kind whose own callback is null or already used goes to the fallback instead.
 * get_* functions and the cell-list functions never set the fallback. Callbacks of
 * requests still outstanding at deregister_rux_client() are never called.
 *
 * Null callbacks. set_* and get_hst_state accept a null completion callback (the
 * reply then goes to the fallback callback if there is one, otherwise it is dropped).
 * The DPPD and multi-SIM queries return -1 for a null callback; the cell-list
 * functions return RUX_STATUS_V2_INVALID_ARG. Passing null to an indication
 * registration turns that indication off.
 *
 * Optional values. A 32-bit unsigned field documented as optional holding
 * RUX_VALUE_NOT_GIVEN is left out of the request. mcc and mnc above 999 are invalid:
 * the calls whose comments say so refuse a cell that has them.
 */
#ifndef RUX_RUX_CLIENT_H
#define RUX_RUX_CLIENT_H

#include <stdbool.h>
#include <stdint.h>

#include "rux/rux_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Appended to every enum: keeps the type 32 bits wide and makes every int a valid
 * value of it, so an out-of-range value from a caller or the service reaches the
 * library's checks intact. Not values to use. */
#define RUX_ENUM_RANGE(prefix) \
    prefix##_RANGE_MIN_ = (-2147483647 - 1), prefix##_RANGE_MAX_ = 2147483647

/* ------------------------------------------------------------------------------------
 * Limits and markers
 * ------------------------------------------------------------------------------------ */

#define MAX_SIZE_CELL_LIST 20     /* cells per list in set_cell_list_info_s */
#define MAX_SIZE_SHARED_PLMN 6    /* shared PLMNs per cell */
#define MAX_DUBIOUS_CELLS 32      /* cells per list sent by the dubious-cell and barring calls */
#define MAX_DUBIOUS_CELL_BANDS 32 /* bands per cell in dubious_cell_info_v2_s */
#define MAX_PREFERRED_CELLS 64    /* cells per list sent by set_preferred_cell_list */
#define RUX_VALUE_NOT_GIVEN 0xFFFFFFFFu /* an optional 32-bit value that is absent */

/* ------------------------------------------------------------------------------------
 * Status codes
 * ------------------------------------------------------------------------------------ */

/* Result of every completion and of the service-status callback. */
typedef enum {
    RUX_STATUS_INVALID = -1, /* no valid status */
    RUX_STATUS_SUCCESS = 0,
    RUX_STATUS_INVALID_ARG = 1,       /* an argument could not be converted */
    RUX_STATUS_INTERNAL_ERR = 2,      /* internal failure; the client could not be set up
                                         or a message could not be sent */
    RUX_STATUS_NOT_SUPPORTED = 3,     /* the service does not support the request */
    RUX_STATUS_INVALID_OPERATION = 4, /* not allowed in the service's current state */
    RUX_STATUS_SERVICE_UP = 5,        /* the service is available */
    RUX_STATUS_SERVICE_DOWN = 6,      /* the service was lost */
    RUX_STATUS_INVALID_SLOT = 7,      /* the slot id could not be converted */
    RUX_ENUM_RANGE(RUX_STATUS)
} status_e;

/* Result of the cell-list functions, both as a return value and in their callbacks. */
typedef enum {
    RUX_STATUS_V2_SUCCESS = 0,
    RUX_STATUS_V2_INVALID = -1,     /* no valid status */
    RUX_STATUS_V2_INVALID_ARG = -2, /* null callback or record, list too long, bad cell */
    RUX_STATUS_V2_INTERNAL_ERR = -3,
    RUX_STATUS_V2_NOT_SUPPORTED = -4,
    RUX_STATUS_V2_INVALID_OPERATION = -5, /* also: no client (register_rux_client first) */
    RUX_STATUS_V2_SERVICE_UP = -7,
    RUX_STATUS_V2_SERVICE_DOWN = -8,
    RUX_STATUS_V2_INVALID_SLOT = -9,
    RUX_ENUM_RANGE(RUX_STATUS_V2)
} status_v2_e;

/* ------------------------------------------------------------------------------------
 * Request enums
 * ------------------------------------------------------------------------------------ */

typedef enum {
    RUX_HST_STATE_UNKNOWN = 0,
    RUX_HST_STATE_SET = 1,
    RUX_HST_STATE_NOT_SET = 2,
    RUX_ENUM_RANGE(RUX_HST_STATE)
} hst_state_e;

typedef enum {
    RUX_SLOT_ID_FIRST = 0,
    RUX_SLOT_ID_SECOND = 1,
    RUX_SLOT_ID_THIRD = 2,
    RUX_ENUM_RANGE(RUX_SLOT_ID)
} slot_id_e;

typedef enum {
    RUX_COVERAGE_STATE_DEFAULT = 0,
    RUX_COVERAGE_STATE_IN_COVERAGE_HOLE = 1,
    RUX_COVERAGE_STATE_OUT_OF_COVERAGE_HOLE = 2,
    RUX_ENUM_RANGE(RUX_COVERAGE_STATE)
} coverage_state_e;

/* Out-of-service scan state. */
typedef enum {
    RUX_SCAN_STATE_SLOW = 0,
    RUX_SCAN_STATE_NORMAL = 1,
    RUX_ENUM_RANGE(RUX_SCAN_STATE)
} scan_state_e;

typedef enum {
    RUX_FLIGHT_MODE_STATE_DEFAULT = 0,
    RUX_FLIGHT_MODE_STATE_NOT_IN_FLIGHT = 1,
    RUX_FLIGHT_MODE_STATE_IN_FLIGHT = 2,
    RUX_FLIGHT_MODE_STATE_LANDING = 3,
    RUX_ENUM_RANGE(RUX_FLIGHT_MODE_STATE)
} rux_flight_mode_state_e;

typedef enum {
    RUX_DEVICE_FOLD_STATE_DEFAULT = 0,
    RUX_DEVICE_FOLD_STATE_OPEN = 1,
    RUX_DEVICE_FOLD_STATE_CLOSE = 2,
    RUX_ENUM_RANGE(RUX_DEVICE_FOLD_STATE)
} rux_device_fold_state_e;

typedef enum {
    RUX_SUBWAY_STATE_UNKNOWN = 0,
    RUX_SUBWAY_STATE_IN_SUBWAY = 1,
    RUX_SUBWAY_STATE_IN_CARRIAGE = 2,
    RUX_SUBWAY_STATE_OUT_SUBWAY = 3,
    RUX_ENUM_RANGE(RUX_SUBWAY_STATE)
} rux_subway_state_e;

/* What a set_cell_list_info request is about, and what its feedback is about. */
typedef enum {
    RUX_CELL_MITIGATION_PREFERRED = 1,
    RUX_CELL_MITIGATION_INFO = 2,
    RUX_ENUM_RANGE(RUX_CELL_MITIGATION)
} cell_mitigation_type_e;

typedef enum {
    RUX_TRAFFIC_DIRECTION_UPLINK = 0,
    RUX_TRAFFIC_DIRECTION_DOWNLINK = 1,
    RUX_ENUM_RANGE(RUX_TRAFFIC_DIRECTION)
} traffic_direction_e;

typedef enum {
    RUX_APPLICATION_TYPE_CONV_AUDIO = 1,
    RUX_APPLICATION_TYPE_CONV_VIDEO = 2,
    RUX_APPLICATION_TYPE_STREAMING_AUDIO = 3,
    RUX_APPLICATION_TYPE_STREAMING_VIDEO = 4,
    RUX_APPLICATION_TYPE_GAMING = 5,
    RUX_APPLICATION_TYPE_WEB_BROWSING = 6,
    RUX_APPLICATION_TYPE_FILE_TRANSFER = 7,
    RUX_ENUM_RANGE(RUX_APPLICATION_TYPE)
} application_type_e;

/* NR subcarrier spacing. set_nr_dubious_cell_array and set_cell_barring_info refuse any
 * other value; set_dubious_cell_array_v2 sends it as "invalid" and the service decides. */
typedef enum {
    RUX_NR5G_SCS_15 = 0,
    RUX_NR5G_SCS_30 = 1,
    RUX_NR5G_SCS_60 = 2,
    RUX_NR5G_SCS_120 = 3,
    RUX_NR5G_SCS_240 = 4,
    RUX_ENUM_RANGE(RUX_NR5G_SCS)
} nr5g_scs_type_e;

/* ------------------------------------------------------------------------------------
 * Reply enums
 * ------------------------------------------------------------------------------------ */

typedef enum {
    RUX_DATA_ALLOWED = 1,
    RUX_DATA_NOT_ALLOWED = 2,
    RUX_ENUM_RANGE(RUX_DATA_ACTION)
} data_recommendation_action_e;

/* The subscription a recommendation applies to: default data (DDS) or the other. */
typedef enum {
    RUX_SUBS_DDS = 1,
    RUX_SUBS_NDDS = 2,
    RUX_ENUM_RANGE(RUX_SUBS)
} data_recommendation_subs_e;

typedef enum {
    RUX_SUBMODE_DSDS = 0,
    RUX_SUBMODE_DSDA = 1,
    RUX_ENUM_RANGE(RUX_SUBMODE)
} multi_sim_submode_e;

typedef enum {
    RUX_TX_CONCURRENCY_INVALID = -1,
    RUX_TX_CONCURRENCY_FULL = 0,    /* DSDA with full transmit concurrency */
    RUX_TX_CONCURRENCY_SHARING = 1, /* DSDA with transmit sharing */
    RUX_ENUM_RANGE(RUX_TX_CONCURRENCY)
} tx_concurrency_e;

/* Why the service reports a cell back after set_cell_list_info. */
typedef enum {
    RUX_CELL_FB_CAUSE_CONFLICT = 0,
    RUX_CELL_FB_CAUSE_DELETE = 1,
    RUX_ENUM_RANGE(RUX_CELL_FB_CAUSE)
} cell_feedback_cause_e;

/* ------------------------------------------------------------------------------------
 * Records
 *
 * Band fields hold the service's operating-band numbers. Cell identities are 28 bits
 * for LTE and 36 bits for NR, carried in the widths below.
 * ------------------------------------------------------------------------------------ */

typedef struct {
    uint16_t mcc;                   /* at most 999 */
    uint16_t mnc;                   /* at most 999 */
    uint8_t mnc_includes_pcs_digit; /* non-zero: three-digit MNC */
} plmn_id_s;

typedef struct {
    int32_t latitude;
    int32_t longitude;
} location_s;

typedef struct {
    plmn_id_s plmn;
    uint64_t cell_identity;
    uint32_t band;
    uint32_t freq;
    uint32_t pci;
} cell_info_s;

/* Data-stall detection parameters of one slot (set_data_stall_parameters). */
typedef struct {
    traffic_direction_e traffic_direction;
    bool flag;
    application_type_e application_type;
    int32_t param1; /* the four thresholds: -1 (no value) or more */
    int32_t param2;
    int32_t param3;
    int32_t param4;
} data_stall_params_s;

/* One dubious LTE cell (set_lte_dubious_cell_array, cell_barring_info_s). */
typedef struct {
    uint16_t mcc;
    uint16_t mnc;
    uint8_t mnc_includes_pcs_digit;
    uint32_t band;
    uint32_t freq;
    uint16_t pci;
    uint32_t aux_value;
    uint32_t cell_identity;
} lte_dubious_cell_info_s;

/* One dubious NR cell (set_nr_dubious_cell_array, cell_barring_info_s). */
typedef struct {
    uint16_t mcc;
    uint16_t mnc;
    uint8_t mnc_includes_pcs_digit;
    uint32_t band;
    uint32_t freq;
    uint16_t pci;
    uint32_t aux_value;
    uint64_t cell_identity;
    nr5g_scs_type_e scs;
} nr_dubious_cell_info_s;

/* Cells to bar (set_cell_barring_info). Only the first MAX_DUBIOUS_CELLS cells of
 * each list are sent; a list may be null when its count is 0. */
typedef struct {
    uint64_t value;
    uint8_t lte_cell_count;
    const lte_dubious_cell_info_s* lte_cells;
    uint8_t nr_cell_count;
    const nr_dubious_cell_info_s* nr_cells;
} cell_barring_info_s;

/* One preferred cell (preferred_cell_list_s). */
typedef struct {
    cell_info_s cell_info;
    uint32_t param1;
    bool flag1;
    bool flag2;
    bool flag3;
    location_s location;
} preferred_cell_info_s;

/* Preferred cells (set_preferred_cell_list). Only the first MAX_PREFERRED_CELLS cells
 * of each list are sent; a list may be null when its count is 0. */
typedef struct {
    uint32_t value;
    uint8_t cell_count;
    const preferred_cell_info_s* cells;
    uint8_t cell_count2;
    const preferred_cell_info_s* cells2;
} preferred_cell_list_s;

/* One cell of set_cell_list_info_s. Fields marked optional take RUX_VALUE_NOT_GIVEN. */
typedef struct {
    cell_info_s cell_info;
    uint32_t param1; /* optional */
    uint32_t flag2;  /* optional boolean: 0 false, anything else true */
    uint32_t param3;
    uint32_t param4;
    uint8_t common_valid;  /* the common properties below are given */
    uint32_t common_value; /* optional */
    uint8_t common_flag;
    location_s location;
    uint8_t hdr_valid;   /* the header properties below are given */
    uint32_t hdr_value1; /* optional */
    uint32_t hdr_value2; /* optional */
    uint32_t hdr_value3;
    uint8_t shared_plmn_valid; /* shared_plmn_len and shared_plmn are given */
    uint8_t shared_plmn_len;   /* at most MAX_SIZE_SHARED_PLMN */
    plmn_id_s shared_plmn[MAX_SIZE_SHARED_PLMN];
} cell_list_entry_s;

/* set_cell_list_info's record. */
typedef struct {
    cell_mitigation_type_e mitigation_type;
    uint8_t flag;
    uint8_t lte_cell_list_len; /* at most MAX_SIZE_CELL_LIST */
    cell_list_entry_s lte_cell_list[MAX_SIZE_CELL_LIST];
    uint8_t nr_cell_list_len; /* at most MAX_SIZE_CELL_LIST */
    cell_list_entry_s nr_cell_list[MAX_SIZE_CELL_LIST];
} set_cell_list_info_s;

/* One cell of dubious_cell_info_v2_s; scs is read for NR cells only. */
typedef struct {
    plmn_id_s plmn;
    uint64_t cell_identity;
    uint32_t band;
    uint32_t freq;
    uint32_t pci;
    nr5g_scs_type_e scs;
    uint8_t band_count; /* at most MAX_DUBIOUS_CELL_BANDS */
    uint32_t band_list[MAX_DUBIOUS_CELL_BANDS];
} dubious_cell_v2_s;

/* set_dubious_cell_array_v2's record. A list is read only when its valid flag is
 * non-zero; its length is at most MAX_DUBIOUS_CELLS (more fails the call). */
typedef struct {
    slot_id_e slot;
    uint8_t lte_list_valid;
    uint8_t lte_cell_list_len;
    dubious_cell_v2_s lte_cell_list[MAX_DUBIOUS_CELLS];
    uint8_t nr_list_valid;
    uint8_t nr_cell_list_len;
    dubious_cell_v2_s nr_cell_list[MAX_DUBIOUS_CELLS];
} dubious_cell_info_v2_s;

/* DPPD recommendation (get_dppd_recommendation, DPPD recommendation indication). */
typedef struct {
    data_recommendation_action_e action;
    data_recommendation_subs_e subscription;
} data_recommendation_s;

/* Multi-SIM sub-mode (get_multi_sim_submode_info, multi-SIM indication). */
typedef struct {
    multi_sim_submode_e sub_mode;
    tx_concurrency_e tx_concurrency;
} submode_info_s;

/* One cell of the service's feedback on set_cell_list_info. */
typedef struct {
    cell_info_s cell_info;
    uint32_t cause_bitmask;
    cell_feedback_cause_e feedback_cause; /* an unknown cause arrives as CONFLICT */
    uint8_t shared_plmn_len;              /* 0 unless the service marked shared PLMNs given */
    plmn_id_s shared_plmn[MAX_SIZE_SHARED_PLMN];
} cell_list_feedback_entry_s;

/* Cell-list indication record; fields past each list's length are zero. Each list holds
 * at most MAX_SIZE_CELL_LIST cells and each cell MAX_SIZE_SHARED_PLMN shared PLMNs: what
 * the service sends beyond that is left out. An unknown mitigation type arrives as
 * RUX_CELL_MITIGATION_PREFERRED. */
typedef struct {
    cell_mitigation_type_e mitigation_type;
    uint8_t lte_cell_list_len;
    cell_list_feedback_entry_s lte_cell_list[MAX_SIZE_CELL_LIST];
    uint8_t nr_cell_list_len;
    cell_list_feedback_entry_s nr_cell_list[MAX_SIZE_CELL_LIST];
} cell_list_info_ind_s;

/* The record sizes are part of the binary interface (LP64 targets). */
#if defined(__LP64__) && (defined(__cplusplus) || defined(__GNUC__) || \
                          (defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L))
#ifdef __cplusplus
#define RUX_CHECK_SIZE(type, size) static_assert(sizeof(type) == (size), #type " size")
#else
#define RUX_CHECK_SIZE(type, size) \
    __extension__ _Static_assert(sizeof(type) == (size), #type " size")
#endif
RUX_CHECK_SIZE(status_e, 4);
RUX_CHECK_SIZE(slot_id_e, 4);
RUX_CHECK_SIZE(cell_list_entry_s, 128);
RUX_CHECK_SIZE(set_cell_list_info_s, 5136);
RUX_CHECK_SIZE(dubious_cell_v2_s, 168);
RUX_CHECK_SIZE(dubious_cell_info_v2_s, 10768);
RUX_CHECK_SIZE(cell_list_info_ind_s, 3216);
RUX_CHECK_SIZE(data_stall_params_s, 28);
RUX_CHECK_SIZE(lte_dubious_cell_info_s, 28);
RUX_CHECK_SIZE(nr_dubious_cell_info_s, 40);
RUX_CHECK_SIZE(cell_barring_info_s, 40);
RUX_CHECK_SIZE(preferred_cell_list_s, 32);
RUX_CHECK_SIZE(preferred_cell_info_s, 48);
RUX_CHECK_SIZE(data_recommendation_s, 8);
RUX_CHECK_SIZE(submode_info_s, 8);
#undef RUX_CHECK_SIZE
#endif

/* ------------------------------------------------------------------------------------
 * Callback types
 * ------------------------------------------------------------------------------------ */

/* Service status: RUX_STATUS_SERVICE_DOWN on loss of service, RUX_STATUS_INTERNAL_ERR
 * when a message could not be sent or the client could not be set up, and whatever
 * the service itself reports. */
typedef void (*rux_status_cb)(status_e status);
/* Completion of a plain request. */
typedef void (*rux_response_cb)(int transaction_id, status_e status);
typedef void (*rux_get_hst_state_cb)(int transaction_id, status_e status, hst_state_e state);
/* DPPD capability or UI option; status is always RUX_STATUS_SUCCESS. */
typedef void (*rux_dppd_flag_cb)(int transaction_id, status_e status, bool* flag);
/* DPPD recommendation; status is always RUX_STATUS_SUCCESS. */
typedef void (*rux_dppd_recommendation_cb)(int transaction_id, status_e status,
                                           data_recommendation_s* recommendation);
typedef void (*rux_submode_info_cb)(int transaction_id, status_e status,
                                    submode_info_s const* info);
/* Completion of a cell-list request. */
typedef void (*rux_response_v2_cb)(long transaction_id, status_v2_e status);

/* Indications. */
typedef void (*rux_hst_state_ind_cb)(hst_state_e state);
typedef void (*rux_subway_state_ind_cb)(rux_subway_state_e state);
typedef void (*rux_dppd_capability_ind_cb)(bool capable);
typedef void (*rux_dppd_recommendation_ind_cb)(data_recommendation_s recommendation);
typedef void (*rux_submode_info_ind_cb)(submode_info_s const* info);
typedef void (*rux_cell_list_info_ind_cb)(cell_list_info_ind_s info);

/* ------------------------------------------------------------------------------------
 * Registration
 * ------------------------------------------------------------------------------------ */

/* Sets up the client, starts the library's threads, connects to the service and
 * registers. `cb` receives every later service-status change; it receives
 * RUX_STATUS_INTERNAL_ERR at once, on the calling thread, if the client cannot be set
 * up. A null `cb` does nothing. Calling it again keeps the client and replaces `cb`. */
RUX_EXPORT void register_rux_client(rux_status_cb cb);

/* Stops the client. Outstanding completion callbacks and the status callback are
 * never called afterwards. Transaction ids keep counting after a new registration. */
RUX_EXPORT void deregister_rux_client(void);

/* Install indication callbacks, replacing earlier ones. Without a client they store
 * nothing. register_hst_state_report and register_subway_state_report send nothing;
 * the other two also ask the service to start sending their indications. */
RUX_EXPORT void register_hst_state_report(rux_hst_state_ind_cb cb);
RUX_EXPORT void register_subway_state_report(rux_subway_state_ind_cb cb);
RUX_EXPORT void register_dppd_indication(rux_dppd_capability_ind_cb capability_cb,
                                         rux_dppd_recommendation_ind_cb recommendation_cb);
RUX_EXPORT void register_multi_sim_submode_indication(rux_submode_info_ind_cb cb);

/* ------------------------------------------------------------------------------------
 * State and control requests: transaction id, or -1 without a client
 * ------------------------------------------------------------------------------------ */

/* An unknown state completes with RUX_STATUS_INVALID_ARG. */
RUX_EXPORT int set_hst_state(hst_state_e state, rux_response_cb cb);
RUX_EXPORT int get_hst_state(rux_get_hst_state_cb cb);

/* A bad slot completes with RUX_STATUS_INVALID_SLOT, an unknown state with
 * RUX_STATUS_INVALID_ARG. */
RUX_EXPORT int set_coverage_state(slot_id_e slot, coverage_state_e state, rux_response_cb cb);

/* A bad slot completes with RUX_STATUS_INVALID_SLOT. An unknown scan state is not an
 * error: it is sent as "invalid" and the service decides. */
RUX_EXPORT int set_out_of_service_state(slot_id_e slot, scan_state_e state, rux_response_cb cb);

/* A bad slot completes with RUX_STATUS_INVALID_SLOT. */
RUX_EXPORT int set_l2nr_selection(slot_id_e slot, rux_response_cb cb);
RUX_EXPORT int enable_cell_barring_feature(slot_id_e slot, bool enable, rux_response_cb cb);

/* Checked in this order: a null record, then a non-zero count with a null list (NR
 * first) complete with RUX_STATUS_INVALID_ARG; a bad slot with RUX_STATUS_INVALID_SLOT;
 * then the NR cells and the LTE cells as set_nr_dubious_cell_array and
 * set_lte_dubious_cell_array check them. Only the first MAX_DUBIOUS_CELLS cells of each
 * list are read and sent. */
RUX_EXPORT int set_cell_barring_info(slot_id_e slot, cell_barring_info_s const* info,
                                     rux_response_cb cb);

/* Checked in this order: a null record or a threshold below -1 completes with
 * RUX_STATUS_INVALID_ARG, a bad slot with RUX_STATUS_INVALID_SLOT, an unknown traffic
 * direction with RUX_STATUS_INVALID_ARG. An unknown application type is not an error:
 * it is sent as "unspecified". */
RUX_EXPORT int set_data_stall_parameters(slot_id_e slot, data_stall_params_s const* params,
                                         rux_response_cb cb);

/* `count` cells from `cells`; only the first MAX_DUBIOUS_CELLS are read and sent.
 * Checked in this order: a null `cells` with a non-zero count completes with
 * RUX_STATUS_INVALID_ARG, a bad slot with RUX_STATUS_INVALID_SLOT, then a cell with mcc
 * or mnc above 999, or an NR cell whose scs is not an nr5g_scs_type_e value, with
 * RUX_STATUS_INVALID_ARG (such an scs is refused, not sent as "invalid"). */
RUX_EXPORT int set_lte_dubious_cell_array(slot_id_e slot, unsigned long count,
                                          lte_dubious_cell_info_s const* cells, rux_response_cb cb);
RUX_EXPORT int set_nr_dubious_cell_array(slot_id_e slot, unsigned long count,
                                         nr_dubious_cell_info_s const* cells, rux_response_cb cb);

/* Only the first MAX_PREFERRED_CELLS cells of each list are read and sent. Checked in
 * this order: a null record, then a non-zero count with a null list (second list first)
 * complete with RUX_STATUS_INVALID_ARG; a bad slot with RUX_STATUS_INVALID_SLOT; then a
 * cell with mcc or mnc above 999, second list first, with RUX_STATUS_INVALID_ARG. */
RUX_EXPORT int set_preferred_cell_list(slot_id_e slot, preferred_cell_list_s const* list,
                                       rux_response_cb cb);

/* An unknown state completes with RUX_STATUS_INVALID_ARG. */
RUX_EXPORT int set_flight_mode_state(rux_flight_mode_state_e state, rux_response_cb cb);
RUX_EXPORT int set_device_fold_state(rux_device_fold_state_e state, rux_response_cb cb);
RUX_EXPORT int set_subway_state(rux_subway_state_e state, rux_response_cb cb);

/* ------------------------------------------------------------------------------------
 * DPPD and multi-SIM queries: transaction id, or -1 without a client or with a null
 * callback. These never set the fallback callback.
 * ------------------------------------------------------------------------------------ */

RUX_EXPORT int get_dppd_capability(rux_dppd_flag_cb cb);
RUX_EXPORT int update_dppd_ui_option(bool enable, rux_dppd_flag_cb cb);
RUX_EXPORT int get_dppd_recommendation(rux_dppd_recommendation_cb cb);
RUX_EXPORT int get_multi_sim_submode_info(rux_submode_info_cb cb);

/* ------------------------------------------------------------------------------------
 * Cell lists: transaction id, or a negative status_v2_e and no callback
 * ------------------------------------------------------------------------------------ */

/* Sends `info` and installs `ind_cb` (replacing any earlier one) for the service's
 * feedback on cell lists. Returns RUX_STATUS_V2_INVALID_OPERATION without a client;
 * RUX_STATUS_V2_INVALID_ARG for a null `info`, `cb` or `ind_cb`, a list longer than
 * MAX_SIZE_CELL_LIST or a cell whose shared_plmn_valid is set with a shared_plmn_len
 * above MAX_SIZE_SHARED_PLMN. `ind_cb` is installed once the three pointers are known
 * not to be null, so it stays installed when the record is refused. mcc and mnc are not
 * checked here; an unknown mitigation_type is sent as "dubious" (0). */
RUX_EXPORT int set_cell_list_info(set_cell_list_info_s const* info, rux_response_v2_cb cb,
                                  rux_cell_list_info_ind_cb ind_cb);

/* Returns RUX_STATUS_V2_INVALID_OPERATION without a client; RUX_STATUS_V2_INVALID_ARG
 * for a null `info` or `cb`, a bad slot, a list longer than MAX_DUBIOUS_CELLS, or a
 * cell with mcc or mnc above 999 or more than MAX_DUBIOUS_CELL_BANDS bands. A list whose
 * valid flag is zero is not read. An NR cell's unknown scs is sent as "invalid". */
RUX_EXPORT int set_dubious_cell_array_v2(dubious_cell_info_v2_s const* info, rux_response_v2_cb cb);

#ifdef __cplusplus
}
#endif

#endif /* RUX_RUX_CLIENT_H */
