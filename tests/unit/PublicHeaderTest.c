/* The public header as a strict C99 application sees it (-std=c99 -pedantic-errors): it
 * compiles on its own, its callback types take exactly the documented arguments, and the
 * records and status codes have the sizes, offsets and numbers listed below (the order of
 * the fields an application fills shows in the converter tests' request bytes). Every
 * check is made by the compiler: a negative array size, or a comparison of incompatible
 * pointer types. The C++ view shares the layout on this ABI; PublicHeaderTest.cpp checks
 * its enums. */
/* clang-format off */
#include "rux/rux_client.h" /* first: the header stands on its own */
/* clang-format on */

#include <stddef.h>

#define SIZE(type, size) typedef char size_of_##type[sizeof(type) == (size) ? 1 : -1];
#define AT(type, field, offset) \
    typedef char offset_of_##type##_##field[offsetof(type, field) == (offset) ? 1 : -1];
#define IS(name, value) typedef char value_of_##name[(name) == (value) ? 1 : -1];
/* clang-format off */
SIZE(status_v2_e, 4) SIZE(nr5g_scs_type_e, 4) SIZE(bool, 1) SIZE(plmn_id_s, 6)
SIZE(cell_info_s, 32) SIZE(data_stall_params_s, 28) SIZE(lte_dubious_cell_info_s, 28)
SIZE(nr_dubious_cell_info_s, 40) SIZE(cell_barring_info_s, 40) SIZE(preferred_cell_info_s, 48)
SIZE(preferred_cell_list_s, 32) SIZE(cell_list_entry_s, 128) SIZE(set_cell_list_info_s, 5136)
SIZE(dubious_cell_v2_s, 168) SIZE(dubious_cell_info_v2_s, 10768)
SIZE(cell_list_feedback_entry_s, 80) SIZE(cell_list_info_ind_s, 3216)
/* The records the library fills: the tests read them by name, so their order is here. */
AT(data_recommendation_s, subscription, 4) AT(submode_info_s, tx_concurrency, 4)
AT(cell_list_feedback_entry_s, feedback_cause, 36) AT(cell_list_feedback_entry_s, shared_plmn, 42)
AT(cell_list_info_ind_s, lte_cell_list, 8) AT(cell_list_info_ind_s, nr_cell_list, 1616)
/* The status codes -1 to 7 (the v2 family's numbers are its conversion table's). */
IS(RUX_STATUS_INVALID, -1) IS(RUX_STATUS_SUCCESS, 0) IS(RUX_STATUS_INVALID_ARG, 1)
IS(RUX_STATUS_INTERNAL_ERR, 2) IS(RUX_STATUS_NOT_SUPPORTED, 3)
IS(RUX_STATUS_INVALID_OPERATION, 4) IS(RUX_STATUS_SERVICE_UP, 5)
IS(RUX_STATUS_SERVICE_DOWN, 6) IS(RUX_STATUS_INVALID_SLOT, 7)
/* clang-format on */

#define TAKES(cb, ...) typedef char takes_##cb[sizeof((cb)0 == (void (*)(__VA_ARGS__))0)];
TAKES(rux_status_cb, status_e)
TAKES(rux_response_cb, int, status_e)
TAKES(rux_get_hst_state_cb, int, status_e, hst_state_e)
TAKES(rux_dppd_flag_cb, int, status_e, bool*)
TAKES(rux_dppd_recommendation_cb, int, status_e, data_recommendation_s*)
TAKES(rux_submode_info_cb, int, status_e, submode_info_s const*)
TAKES(rux_response_v2_cb, long, status_v2_e)
TAKES(rux_hst_state_ind_cb, hst_state_e)
TAKES(rux_subway_state_ind_cb, rux_subway_state_e)
TAKES(rux_dppd_capability_ind_cb, bool)
TAKES(rux_dppd_recommendation_ind_cb, data_recommendation_s)
TAKES(rux_submode_info_ind_cb, submode_info_s const*)
TAKES(rux_cell_list_info_ind_cb, cell_list_info_ind_s)
