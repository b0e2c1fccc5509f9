/* The public header as a C99 application sees it (built with -std=c99 -pedantic-errors).
 * It checks at compile time that the callback types take exactly the documented
 * arguments, and records the record layout as C lays it out, for PublicHeaderTest.cpp to
 * compare with the C++ view and the fixed sizes. */
/* clang-format off */
#include "rux/rux_client.h" /* first: the header stands on its own */
/* clang-format on */

#include <stddef.h>

#include "PublicHeaderLayout.h"

/* Pointers of the documented types; initialising the header's callback types from them
 * fails to compile (incompatible pointer types) if a typedef drifts. */
static void (*const on_status)(status_e) = 0;
static void (*const on_response)(int, status_e) = 0;
static void (*const on_hst)(int, status_e, hst_state_e) = 0;
static void (*const on_flag)(int, status_e, bool*) = 0;
static void (*const on_rec)(int, status_e, data_recommendation_s*) = 0;
static void (*const on_submode)(int, status_e, submode_info_s const*) = 0;
static void (*const on_v2)(long, status_v2_e) = 0;
static void (*const on_hst_ind)(hst_state_e) = 0;
static void (*const on_subway_ind)(rux_subway_state_e) = 0;
static void (*const on_cap_ind)(bool) = 0;
static void (*const on_rec_ind)(data_recommendation_s) = 0;
static void (*const on_submode_ind)(submode_info_s const*) = 0;
static void (*const on_cell_list_ind)(cell_list_info_ind_s) = 0;

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
    return !a && !b && !c && !d && !e && !f && !g && !h && !i && !j && !k && !l && !m;
}

/* The same rows, in the same order, as kLayout in PublicHeaderTest.cpp. */
#define SIZE(type) \
    { "sizeof(" #type ")", sizeof(type) }
#define AT(type, field) \
    { "offsetof(" #type ", " #field ")", offsetof(type, field) }

/* clang-format off */
static const rux_layout_entry kLayout[] = {
    SIZE(status_e), SIZE(status_v2_e), SIZE(nr5g_scs_type_e), SIZE(bool), SIZE(plmn_id_s),
    SIZE(cell_info_s), AT(cell_info_s, cell_identity), AT(cell_info_s, pci),
    SIZE(data_stall_params_s), AT(data_stall_params_s, application_type),
    AT(data_stall_params_s, param4),
    SIZE(lte_dubious_cell_info_s), AT(lte_dubious_cell_info_s, band),
    AT(lte_dubious_cell_info_s, pci), AT(lte_dubious_cell_info_s, aux_value),
    AT(lte_dubious_cell_info_s, cell_identity),
    SIZE(nr_dubious_cell_info_s), AT(nr_dubious_cell_info_s, cell_identity),
    AT(nr_dubious_cell_info_s, scs),
    SIZE(cell_barring_info_s), AT(cell_barring_info_s, lte_cells),
    AT(cell_barring_info_s, nr_cell_count), AT(cell_barring_info_s, nr_cells),
    SIZE(preferred_cell_info_s), AT(preferred_cell_info_s, param1),
    AT(preferred_cell_info_s, flag3), AT(preferred_cell_info_s, location),
    SIZE(preferred_cell_list_s), AT(preferred_cell_list_s, cells),
    AT(preferred_cell_list_s, cells2),
    SIZE(cell_list_entry_s), AT(cell_list_entry_s, param1), AT(cell_list_entry_s, common_valid),
    AT(cell_list_entry_s, location), AT(cell_list_entry_s, hdr_value3),
    AT(cell_list_entry_s, shared_plmn_len), AT(cell_list_entry_s, shared_plmn),
    SIZE(set_cell_list_info_s), AT(set_cell_list_info_s, lte_cell_list),
    AT(set_cell_list_info_s, nr_cell_list_len), AT(set_cell_list_info_s, nr_cell_list),
    SIZE(dubious_cell_v2_s), AT(dubious_cell_v2_s, band_count), AT(dubious_cell_v2_s, band_list),
    SIZE(dubious_cell_info_v2_s), AT(dubious_cell_info_v2_s, lte_cell_list),
    AT(dubious_cell_info_v2_s, nr_list_valid), AT(dubious_cell_info_v2_s, nr_cell_list),
    SIZE(data_recommendation_s), AT(data_recommendation_s, subscription),
    SIZE(submode_info_s), AT(submode_info_s, tx_concurrency),
    SIZE(cell_list_feedback_entry_s), AT(cell_list_feedback_entry_s, feedback_cause),
    AT(cell_list_feedback_entry_s, shared_plmn),
    SIZE(cell_list_info_ind_s), AT(cell_list_info_ind_s, lte_cell_list),
    AT(cell_list_info_ind_s, nr_cell_list),
};
/* clang-format on */

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
