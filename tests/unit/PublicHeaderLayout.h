/* The binary interface of the public header beyond the sizes it checks itself: the sizes
 * of the other records and enums, the offsets that fix each record's layout, and the
 * numbers of the status codes. PublicHeaderTest.c (C99) and PublicHeaderTest.cpp expand
 * these lists into compile-time checks, so both languages are held to the same values. */
#ifndef RUX_TEST_PUBLIC_HEADER_LAYOUT_H
#define RUX_TEST_PUBLIC_HEADER_LAYOUT_H

/* clang-format off */
#define RUX_FIXED_LAYOUT(SIZE, AT) \
    SIZE(status_v2_e, 4) SIZE(nr5g_scs_type_e, 4) SIZE(bool, 1) SIZE(plmn_id_s, 6) \
    SIZE(cell_info_s, 32) AT(cell_info_s, cell_identity, 8) AT(cell_info_s, pci, 24) \
    AT(data_stall_params_s, application_type, 8) AT(data_stall_params_s, param4, 24) \
    AT(lte_dubious_cell_info_s, band, 8) AT(lte_dubious_cell_info_s, pci, 16) \
    AT(lte_dubious_cell_info_s, aux_value, 20) AT(lte_dubious_cell_info_s, cell_identity, 24) \
    AT(nr_dubious_cell_info_s, cell_identity, 24) AT(nr_dubious_cell_info_s, scs, 32) \
    AT(cell_barring_info_s, lte_cells, 16) AT(cell_barring_info_s, nr_cell_count, 24) \
    AT(cell_barring_info_s, nr_cells, 32) \
    AT(preferred_cell_info_s, param1, 32) AT(preferred_cell_info_s, flag3, 38) \
    AT(preferred_cell_info_s, location, 40) \
    AT(preferred_cell_list_s, cells, 8) AT(preferred_cell_list_s, cells2, 24) \
    AT(cell_list_entry_s, param1, 32) AT(cell_list_entry_s, common_valid, 48) \
    AT(cell_list_entry_s, location, 60) AT(cell_list_entry_s, hdr_value3, 80) \
    AT(cell_list_entry_s, shared_plmn_len, 85) AT(cell_list_entry_s, shared_plmn, 86) \
    AT(set_cell_list_info_s, lte_cell_list, 8) AT(set_cell_list_info_s, nr_cell_list_len, 2568) \
    AT(set_cell_list_info_s, nr_cell_list, 2576) \
    AT(dubious_cell_v2_s, band_count, 32) AT(dubious_cell_v2_s, band_list, 36) \
    AT(dubious_cell_info_v2_s, lte_cell_list, 8) AT(dubious_cell_info_v2_s, nr_list_valid, 5384) \
    AT(dubious_cell_info_v2_s, nr_cell_list, 5392) \
    AT(data_recommendation_s, subscription, 4) AT(submode_info_s, tx_concurrency, 4) \
    SIZE(cell_list_feedback_entry_s, 80) AT(cell_list_feedback_entry_s, feedback_cause, 36) \
    AT(cell_list_feedback_entry_s, shared_plmn, 42) \
    AT(cell_list_info_ind_s, lte_cell_list, 8) AT(cell_list_info_ind_s, nr_cell_list, 1616)

/* The status codes: -1 to 7, and 0 to -9 without -6. */
#define RUX_FIXED_NUMBERS(IS) \
    IS(RUX_STATUS_INVALID, -1) IS(RUX_STATUS_SUCCESS, 0) IS(RUX_STATUS_INVALID_ARG, 1) \
    IS(RUX_STATUS_INTERNAL_ERR, 2) IS(RUX_STATUS_NOT_SUPPORTED, 3) \
    IS(RUX_STATUS_INVALID_OPERATION, 4) IS(RUX_STATUS_SERVICE_UP, 5) \
    IS(RUX_STATUS_SERVICE_DOWN, 6) IS(RUX_STATUS_INVALID_SLOT, 7) \
    IS(RUX_STATUS_V2_SUCCESS, 0) IS(RUX_STATUS_V2_INVALID, -1) IS(RUX_STATUS_V2_INVALID_ARG, -2) \
    IS(RUX_STATUS_V2_INTERNAL_ERR, -3) IS(RUX_STATUS_V2_NOT_SUPPORTED, -4) \
    IS(RUX_STATUS_V2_INVALID_OPERATION, -5) IS(RUX_STATUS_V2_SERVICE_UP, -7) \
    IS(RUX_STATUS_V2_SERVICE_DOWN, -8) IS(RUX_STATUS_V2_INVALID_SLOT, -9)
/* clang-format on */

#endif
