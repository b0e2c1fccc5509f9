// The public header as a C++ application sees it: the status codes have their fixed
// numbers, and C and C++ lay the records out identically, at the sizes the binary
// interface fixes.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <type_traits>

#include "PublicHeaderLayout.h"
#include "rux/rux_client.h"

namespace {

// Every enum is an int-sized type that holds any int, so a caller's cast is well defined.
template <typename... E>
constexpr bool kFullRangeInts = (... && (sizeof(E) == 4 &&
                                         std::is_same_v<std::underlying_type_t<E>, int>));
static_assert(
    kFullRangeInts<status_e, status_v2_e, hst_state_e, slot_id_e, coverage_state_e, scan_state_e,
                   rux_flight_mode_state_e, rux_device_fold_state_e, rux_subway_state_e,
                   cell_mitigation_type_e, traffic_direction_e, application_type_e, nr5g_scs_type_e,
                   data_recommendation_action_e, data_recommendation_subs_e, multi_sim_submode_e,
                   tx_concurrency_e, cell_feedback_cause_e>);

// The status codes, -1 to 7 and 0 to -9 without -6, as C++ and the C compiler see them.
static_assert(RUX_STATUS_INVALID == -1 && RUX_STATUS_SUCCESS == 0 && RUX_STATUS_INVALID_ARG == 1 &&
              RUX_STATUS_INTERNAL_ERR == 2 && RUX_STATUS_NOT_SUPPORTED == 3 &&
              RUX_STATUS_INVALID_OPERATION == 4 && RUX_STATUS_SERVICE_UP == 5 &&
              RUX_STATUS_SERVICE_DOWN == 6 && RUX_STATUS_INVALID_SLOT == 7);
static_assert(RUX_STATUS_V2_SUCCESS == 0 && RUX_STATUS_V2_INVALID == -1 &&
              RUX_STATUS_V2_INVALID_ARG == -2 && RUX_STATUS_V2_INTERNAL_ERR == -3 &&
              RUX_STATUS_V2_NOT_SUPPORTED == -4 && RUX_STATUS_V2_INVALID_OPERATION == -5 &&
              RUX_STATUS_V2_SERVICE_UP == -7 && RUX_STATUS_V2_SERVICE_DOWN == -8 &&
              RUX_STATUS_V2_INVALID_SLOT == -9);

TEST(PublicHeaderTest, CSeesTheSameConstantsAndCallbackTypes) {
    const int expected[] = {-1, 0, 7, -9, 20};  // see PublicHeaderTest.c
    for (int i = 0; i < 5; ++i) EXPECT_EQ(rux_c_constant(i), expected[i]) << i;
    EXPECT_EQ(rux_c_callback_types_match(), 1);
}

struct Row {
    const char* expression;
    size_t cpp;    // its value in C++
    size_t fixed;  // the value the binary interface fixes
};
#define SIZE(type, size)                        \
    Row {                                       \
        "sizeof(" #type ")", sizeof(type), size \
    }
#define AT(type, field, offset)                                          \
    Row {                                                                \
        "offsetof(" #type ", " #field ")", offsetof(type, field), offset \
    }

// clang-format off
const Row kLayout[] = {
    SIZE(status_e, 4), SIZE(status_v2_e, 4), SIZE(nr5g_scs_type_e, 4), SIZE(bool, 1),
    SIZE(plmn_id_s, 6),
    SIZE(cell_info_s, 32), AT(cell_info_s, cell_identity, 8), AT(cell_info_s, pci, 24),
    SIZE(data_stall_params_s, 28), AT(data_stall_params_s, application_type, 8),
    AT(data_stall_params_s, param4, 24),
    SIZE(lte_dubious_cell_info_s, 28), AT(lte_dubious_cell_info_s, band, 8),
    AT(lte_dubious_cell_info_s, pci, 16), AT(lte_dubious_cell_info_s, aux_value, 20),
    AT(lte_dubious_cell_info_s, cell_identity, 24),
    SIZE(nr_dubious_cell_info_s, 40), AT(nr_dubious_cell_info_s, cell_identity, 24),
    AT(nr_dubious_cell_info_s, scs, 32),
    SIZE(cell_barring_info_s, 40), AT(cell_barring_info_s, lte_cells, 16),
    AT(cell_barring_info_s, nr_cell_count, 24), AT(cell_barring_info_s, nr_cells, 32),
    SIZE(preferred_cell_info_s, 48), AT(preferred_cell_info_s, param1, 32),
    AT(preferred_cell_info_s, flag3, 38), AT(preferred_cell_info_s, location, 40),
    SIZE(preferred_cell_list_s, 32), AT(preferred_cell_list_s, cells, 8),
    AT(preferred_cell_list_s, cells2, 24),
    SIZE(cell_list_entry_s, 128), AT(cell_list_entry_s, param1, 32),
    AT(cell_list_entry_s, common_valid, 48), AT(cell_list_entry_s, location, 60),
    AT(cell_list_entry_s, hdr_value3, 80), AT(cell_list_entry_s, shared_plmn_len, 85),
    AT(cell_list_entry_s, shared_plmn, 86),
    SIZE(set_cell_list_info_s, 5136), AT(set_cell_list_info_s, lte_cell_list, 8),
    AT(set_cell_list_info_s, nr_cell_list_len, 2568), AT(set_cell_list_info_s, nr_cell_list, 2576),
    SIZE(dubious_cell_v2_s, 168), AT(dubious_cell_v2_s, band_count, 32),
    AT(dubious_cell_v2_s, band_list, 36),
    SIZE(dubious_cell_info_v2_s, 10768), AT(dubious_cell_info_v2_s, lte_cell_list, 8),
    AT(dubious_cell_info_v2_s, nr_list_valid, 5384), AT(dubious_cell_info_v2_s, nr_cell_list, 5392),
    SIZE(data_recommendation_s, 8), AT(data_recommendation_s, subscription, 4),
    SIZE(submode_info_s, 8), AT(submode_info_s, tx_concurrency, 4),
    SIZE(cell_list_feedback_entry_s, 80), AT(cell_list_feedback_entry_s, feedback_cause, 36),
    AT(cell_list_feedback_entry_s, shared_plmn, 42),
    SIZE(cell_list_info_ind_s, 3216), AT(cell_list_info_ind_s, lte_cell_list, 8),
    AT(cell_list_info_ind_s, nr_cell_list, 1616),
};
// clang-format on

// Every row C records has a C++ row of the same value, and both have the fixed value.
TEST(PublicHeaderTest, CAndCppLayTheRecordsOutIdenticallyAtTheFixedSizes) {
    size_t count = 0;
    const rux_layout_entry* c = rux_c_layout(&count);
    ASSERT_EQ(count, std::size(kLayout));
    for (size_t i = 0; i < count; ++i) {
        EXPECT_EQ(kLayout[i].cpp, kLayout[i].fixed) << kLayout[i].expression;
        EXPECT_EQ(std::string(c[i].expression), kLayout[i].expression);
        EXPECT_EQ(c[i].value, kLayout[i].cpp) << c[i].expression;
    }
}

}  // namespace
