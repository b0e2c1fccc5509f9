/* The public header as a C99 application sees it (built with -std=c99 -pedantic-errors).
 * It checks at compile time that the callback types take exactly the documented
 * arguments, and records the record layout as C lays it out, for PublicHeaderTest.cpp to
 * compare with the C++ view and the fixed sizes. */
/* clang-format off */
#include "rux/rux_client.h" /* first: the header stands on its own */
/* clang-format on */

#include <stddef.h>

#include "PublicHeaderLayout.h"

/* Functions with the documented signatures; assigning them to the header's callback types
 * fails to compile (incompatible pointer types) if a typedef drifts. */
/* clang-format off */
static void on_status(status_e s) { (void)s; }
static void on_response(int tid, status_e s) { (void)tid; (void)s; }
static void on_hst(int tid, status_e s, hst_state_e st) { (void)tid; (void)s; (void)st; }
static void on_flag(int tid, status_e s, bool* f) { (void)tid; (void)s; (void)f; }
static void on_rec(int tid, status_e s, data_recommendation_s* r) { (void)tid; (void)s; (void)r; }
static void on_submode(int tid, status_e s, submode_info_s const* i) { (void)tid; (void)s; (void)i; }
static void on_v2(long tid, status_v2_e s) { (void)tid; (void)s; }
static void on_hst_ind(hst_state_e s) { (void)s; }
static void on_subway_ind(rux_subway_state_e s) { (void)s; }
static void on_cap_ind(bool c) { (void)c; }
static void on_rec_ind(data_recommendation_s r) { (void)r; }
static void on_submode_ind(submode_info_s const* i) { (void)i; }
static void on_cell_list_ind(cell_list_info_ind_s i) { (void)i; }
/* clang-format on */

int rux_c_callback_types_match(void) {
    rux_status_cb a = on_status;
    rux_response_cb b = on_response;
    rux_get_hst_state_cb c = on_hst;
    rux_dppd_flag_cb d = on_flag;
    rux_dppd_recommendation_cb e = on_rec;
    rux_submode_info_cb f = on_submode;
    rux_response_v2_cb g = on_v2;
    rux_hst_state_ind_cb h = on_hst_ind;
    rux_subway_state_ind_cb i = on_subway_ind;
    rux_dppd_capability_ind_cb j = on_cap_ind;
    rux_dppd_recommendation_ind_cb k = on_rec_ind;
    rux_submode_info_ind_cb l = on_submode_ind;
    rux_cell_list_info_ind_cb m = on_cell_list_ind;
    return a && b && c && d && e && f && g && h && i && j && k && l && m;
}

#define ENTRY(expr) \
    { #expr, expr }
#define SIZE_AND_FIELD(type, field) ENTRY(sizeof(type)), ENTRY(offsetof(type, field))

static const rux_layout_entry kLayout[] = {
    ENTRY(sizeof(status_e)),
    ENTRY(sizeof(status_v2_e)),
    ENTRY(sizeof(nr5g_scs_type_e)),
    ENTRY(sizeof(bool)),
    ENTRY(sizeof(plmn_id_s)),
    SIZE_AND_FIELD(cell_info_s, cell_identity),
    ENTRY(offsetof(cell_info_s, pci)),
    SIZE_AND_FIELD(data_stall_params_s, application_type),
    ENTRY(offsetof(data_stall_params_s, param4)),
    SIZE_AND_FIELD(lte_dubious_cell_info_s, band),
    ENTRY(offsetof(lte_dubious_cell_info_s, pci)),
    ENTRY(offsetof(lte_dubious_cell_info_s, aux_value)),
    ENTRY(offsetof(lte_dubious_cell_info_s, cell_identity)),
    SIZE_AND_FIELD(nr_dubious_cell_info_s, cell_identity),
    ENTRY(offsetof(nr_dubious_cell_info_s, scs)),
    SIZE_AND_FIELD(cell_barring_info_s, lte_cells),
    ENTRY(offsetof(cell_barring_info_s, nr_cell_count)),
    ENTRY(offsetof(cell_barring_info_s, nr_cells)),
    SIZE_AND_FIELD(preferred_cell_info_s, param1),
    ENTRY(offsetof(preferred_cell_info_s, flag3)),
    ENTRY(offsetof(preferred_cell_info_s, location)),
    SIZE_AND_FIELD(preferred_cell_list_s, cells),
    ENTRY(offsetof(preferred_cell_list_s, cells2)),
    SIZE_AND_FIELD(cell_list_entry_s, param1),
    ENTRY(offsetof(cell_list_entry_s, common_valid)),
    ENTRY(offsetof(cell_list_entry_s, location)),
    ENTRY(offsetof(cell_list_entry_s, hdr_value3)),
    ENTRY(offsetof(cell_list_entry_s, shared_plmn_len)),
    ENTRY(offsetof(cell_list_entry_s, shared_plmn)),
    SIZE_AND_FIELD(set_cell_list_info_s, lte_cell_list),
    ENTRY(offsetof(set_cell_list_info_s, nr_cell_list_len)),
    ENTRY(offsetof(set_cell_list_info_s, nr_cell_list)),
    SIZE_AND_FIELD(dubious_cell_v2_s, band_count),
    ENTRY(offsetof(dubious_cell_v2_s, band_list)),
    SIZE_AND_FIELD(dubious_cell_info_v2_s, lte_cell_list),
    ENTRY(offsetof(dubious_cell_info_v2_s, nr_list_valid)),
    ENTRY(offsetof(dubious_cell_info_v2_s, nr_cell_list)),
    SIZE_AND_FIELD(data_recommendation_s, subscription),
    SIZE_AND_FIELD(submode_info_s, tx_concurrency),
    SIZE_AND_FIELD(cell_list_feedback_entry_s, feedback_cause),
    ENTRY(offsetof(cell_list_feedback_entry_s, shared_plmn)),
    SIZE_AND_FIELD(cell_list_info_ind_s, lte_cell_list),
    ENTRY(offsetof(cell_list_info_ind_s, nr_cell_list)),
};

const rux_layout_entry* rux_c_layout(size_t* count) {
    *count = sizeof kLayout / sizeof kLayout[0];
    return kLayout;
}

/* Enumerators are plain int constants in C, usable where C wants a constant. */
static const int kStatusCodes[] = {RUX_STATUS_INVALID, RUX_STATUS_SUCCESS, RUX_STATUS_INVALID_SLOT,
                                   RUX_STATUS_V2_INVALID_SLOT, MAX_SIZE_CELL_LIST};

int rux_c_constant(int index) {
    return kStatusCodes[index];
}
