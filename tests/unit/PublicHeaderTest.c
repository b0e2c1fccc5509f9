/* The public header as a strict C99 application sees it (-std=c99 -pedantic-errors): it
 * compiles on its own, its callback types take exactly the documented arguments, and its
 * records and status codes have the values PublicHeaderLayout.h fixes. Every check is made
 * by the compiler: a negative array size, or a comparison of incompatible pointer types. */
/* clang-format off */
#include "rux/rux_client.h" /* first: the header stands on its own */
/* clang-format on */

#include <stddef.h>

#include "PublicHeaderLayout.h"

#define SIZE(type, size) typedef char size_of_##type[sizeof(type) == (size) ? 1 : -1];
#define AT(type, field, offset) \
    typedef char offset_of_##type##_##field[offsetof(type, field) == (offset) ? 1 : -1];
#define IS(name, value) typedef char value_of_##name[(name) == (value) ? 1 : -1];
RUX_FIXED_LAYOUT(SIZE, AT)
RUX_FIXED_NUMBERS(IS)

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
