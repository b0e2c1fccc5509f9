// The public header as a C++ application sees it: every exported function has exactly the
// documented signature, the status codes have their fixed numbers, and C and C++ lay the
// records out identically, at the sizes the binary interface fixes.
#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <string>
#include <type_traits>

#include "PublicHeaderLayout.h"
#include "rux/rux_client.h"

namespace {

// Signatures spelled out with plain types, not the header's typedefs.
using StatusCb = void (*)(status_e);
using ResponseCb = void (*)(int, status_e);
using ResponseV2Cb = void (*)(long, status_v2_e);

template <typename Actual, typename Expected>
constexpr bool kSame = std::is_same_v<Actual, Expected>;

static_assert(kSame<decltype(register_rux_client), void(StatusCb)>);
static_assert(kSame<decltype(deregister_rux_client), void()>);
static_assert(kSame<decltype(register_hst_state_report), void(void (*)(hst_state_e))>);
static_assert(kSame<decltype(register_subway_state_report), void(void (*)(rux_subway_state_e))>);
static_assert(kSame<decltype(register_dppd_indication),
                    void(void (*)(bool), void (*)(data_recommendation_s))>);
static_assert(
    kSame<decltype(register_multi_sim_submode_indication), void(void (*)(submode_info_s const*))>);
static_assert(kSame<decltype(set_hst_state), int(hst_state_e, ResponseCb)>);
static_assert(kSame<decltype(get_hst_state), int(void (*)(int, status_e, hst_state_e))>);
static_assert(kSame<decltype(set_coverage_state), int(slot_id_e, coverage_state_e, ResponseCb)>);
static_assert(kSame<decltype(set_out_of_service_state), int(slot_id_e, scan_state_e, ResponseCb)>);
static_assert(kSame<decltype(set_l2nr_selection), int(slot_id_e, ResponseCb)>);
static_assert(kSame<decltype(enable_cell_barring_feature), int(slot_id_e, bool, ResponseCb)>);
static_assert(
    kSame<decltype(set_cell_barring_info), int(slot_id_e, cell_barring_info_s const*, ResponseCb)>);
static_assert(kSame<decltype(set_data_stall_parameters),
                    int(slot_id_e, data_stall_params_s const*, ResponseCb)>);
static_assert(kSame<decltype(set_lte_dubious_cell_array),
                    int(slot_id_e, unsigned long, lte_dubious_cell_info_s const*, ResponseCb)>);
static_assert(kSame<decltype(set_nr_dubious_cell_array),
                    int(slot_id_e, unsigned long, nr_dubious_cell_info_s const*, ResponseCb)>);
static_assert(kSame<decltype(set_preferred_cell_list),
                    int(slot_id_e, preferred_cell_list_s const*, ResponseCb)>);
static_assert(kSame<decltype(set_flight_mode_state), int(rux_flight_mode_state_e, ResponseCb)>);
static_assert(kSame<decltype(set_device_fold_state), int(rux_device_fold_state_e, ResponseCb)>);
static_assert(kSame<decltype(set_subway_state), int(rux_subway_state_e, ResponseCb)>);
static_assert(kSame<decltype(get_dppd_capability), int(void (*)(int, status_e, bool*))>);
static_assert(kSame<decltype(update_dppd_ui_option), int(bool, void (*)(int, status_e, bool*))>);
static_assert(
    kSame<decltype(get_dppd_recommendation), int(void (*)(int, status_e, data_recommendation_s*))>);
static_assert(kSame<decltype(get_multi_sim_submode_info),
                    int(void (*)(int, status_e, submode_info_s const*))>);
static_assert(kSame<decltype(set_cell_list_info), int(set_cell_list_info_s const*, ResponseV2Cb,
                                                      void (*)(cell_list_info_ind_s))>);
static_assert(
    kSame<decltype(set_dubious_cell_array_v2), int(dubious_cell_info_v2_s const*, ResponseV2Cb)>);

// Every enum is an int-sized type that holds any int, so a caller's cast is well defined.
template <typename E>
constexpr bool kFullRangeInt = sizeof(E) == 4 && std::is_same_v<std::underlying_type_t<E>, int>;
static_assert(kFullRangeInt<status_e> && kFullRangeInt<status_v2_e> && kFullRangeInt<hst_state_e> &&
              kFullRangeInt<slot_id_e> && kFullRangeInt<coverage_state_e> &&
              kFullRangeInt<scan_state_e> && kFullRangeInt<rux_flight_mode_state_e> &&
              kFullRangeInt<rux_device_fold_state_e> && kFullRangeInt<rux_subway_state_e> &&
              kFullRangeInt<cell_mitigation_type_e> && kFullRangeInt<traffic_direction_e> &&
              kFullRangeInt<application_type_e> && kFullRangeInt<nr5g_scs_type_e> &&
              kFullRangeInt<data_recommendation_action_e> &&
              kFullRangeInt<data_recommendation_subs_e> && kFullRangeInt<multi_sim_submode_e> &&
              kFullRangeInt<tx_concurrency_e> && kFullRangeInt<cell_feedback_cause_e>);

TEST(PublicHeaderTest, StatusCodesHaveTheirFixedNumbers) {
    const std::pair<int, int> status[] = {
        {RUX_STATUS_INVALID, -1},
        {RUX_STATUS_SUCCESS, 0},
        {RUX_STATUS_INVALID_ARG, 1},
        {RUX_STATUS_INTERNAL_ERR, 2},
        {RUX_STATUS_NOT_SUPPORTED, 3},
        {RUX_STATUS_INVALID_OPERATION, 4},
        {RUX_STATUS_SERVICE_UP, 5},
        {RUX_STATUS_SERVICE_DOWN, 6},
        {RUX_STATUS_INVALID_SLOT, 7},
        {RUX_STATUS_V2_SUCCESS, 0},
        {RUX_STATUS_V2_INVALID, -1},
        {RUX_STATUS_V2_INVALID_ARG, -2},
        {RUX_STATUS_V2_INTERNAL_ERR, -3},
        {RUX_STATUS_V2_NOT_SUPPORTED, -4},
        {RUX_STATUS_V2_INVALID_OPERATION, -5},
        {RUX_STATUS_V2_SERVICE_UP, -7},
        {RUX_STATUS_V2_SERVICE_DOWN, -8},
        {RUX_STATUS_V2_INVALID_SLOT, -9},
    };
    for (size_t i = 0; i < std::size(status); ++i)
        EXPECT_EQ(status[i].first, status[i].second) << "row " << i;

    // The same constants as the C compiler sees them.
    EXPECT_EQ(rux_c_constant(0), -1);
    EXPECT_EQ(rux_c_constant(1), 0);
    EXPECT_EQ(rux_c_constant(2), 7);
    EXPECT_EQ(rux_c_constant(3), -9);
    EXPECT_EQ(rux_c_constant(4), 20);
    EXPECT_EQ(rux_c_callback_types_match(), 1);
}

#define ROW(expr, expected) \
    {                       \
#expr, {            \
            expr, expected  \
        }                   \
    }
#define SIZE_AND_FIELD(type, field, size, offset) \
    ROW(sizeof(type), size), ROW(offsetof(type, field), offset)

// expression -> {value in C++, fixed value}
const std::map<std::string, std::pair<size_t, size_t>> kCppLayout = {
    ROW(sizeof(status_e), 4),
    ROW(sizeof(status_v2_e), 4),
    ROW(sizeof(nr5g_scs_type_e), 4),
    ROW(sizeof(bool), 1),
    ROW(sizeof(plmn_id_s), 6),
    SIZE_AND_FIELD(cell_info_s, cell_identity, 32, 8),
    ROW(offsetof(cell_info_s, pci), 24),
    SIZE_AND_FIELD(data_stall_params_s, application_type, 28, 8),
    ROW(offsetof(data_stall_params_s, param4), 24),
    SIZE_AND_FIELD(lte_dubious_cell_info_s, band, 28, 8),
    ROW(offsetof(lte_dubious_cell_info_s, pci), 16),
    ROW(offsetof(lte_dubious_cell_info_s, aux_value), 20),
    ROW(offsetof(lte_dubious_cell_info_s, cell_identity), 24),
    SIZE_AND_FIELD(nr_dubious_cell_info_s, cell_identity, 40, 24),
    ROW(offsetof(nr_dubious_cell_info_s, scs), 32),
    SIZE_AND_FIELD(cell_barring_info_s, lte_cells, 40, 16),
    ROW(offsetof(cell_barring_info_s, nr_cell_count), 24),
    ROW(offsetof(cell_barring_info_s, nr_cells), 32),
    SIZE_AND_FIELD(preferred_cell_info_s, param1, 48, 32),
    ROW(offsetof(preferred_cell_info_s, flag3), 38),
    ROW(offsetof(preferred_cell_info_s, location), 40),
    SIZE_AND_FIELD(preferred_cell_list_s, cells, 32, 8),
    ROW(offsetof(preferred_cell_list_s, cells2), 24),
    SIZE_AND_FIELD(cell_list_entry_s, param1, 128, 32),
    ROW(offsetof(cell_list_entry_s, common_valid), 48),
    ROW(offsetof(cell_list_entry_s, location), 60),
    ROW(offsetof(cell_list_entry_s, hdr_value3), 80),
    ROW(offsetof(cell_list_entry_s, shared_plmn_len), 85),
    ROW(offsetof(cell_list_entry_s, shared_plmn), 86),
    SIZE_AND_FIELD(set_cell_list_info_s, lte_cell_list, 5136, 8),
    ROW(offsetof(set_cell_list_info_s, nr_cell_list_len), 2568),
    ROW(offsetof(set_cell_list_info_s, nr_cell_list), 2576),
    SIZE_AND_FIELD(dubious_cell_v2_s, band_count, 168, 32),
    ROW(offsetof(dubious_cell_v2_s, band_list), 36),
    SIZE_AND_FIELD(dubious_cell_info_v2_s, lte_cell_list, 10768, 8),
    ROW(offsetof(dubious_cell_info_v2_s, nr_list_valid), 5384),
    ROW(offsetof(dubious_cell_info_v2_s, nr_cell_list), 5392),
    SIZE_AND_FIELD(data_recommendation_s, subscription, 8, 4),
    SIZE_AND_FIELD(submode_info_s, tx_concurrency, 8, 4),
    SIZE_AND_FIELD(cell_list_feedback_entry_s, feedback_cause, 80, 36),
    ROW(offsetof(cell_list_feedback_entry_s, shared_plmn), 42),
    SIZE_AND_FIELD(cell_list_info_ind_s, lte_cell_list, 3216, 8),
    ROW(offsetof(cell_list_info_ind_s, nr_cell_list), 1616),
};

TEST(PublicHeaderTest, RecordsHaveTheFixedSizesAndOffsets) {
    for (const auto& [expression, values] : kCppLayout)
        EXPECT_EQ(values.first, values.second) << expression;
}

TEST(PublicHeaderTest, CAndCppLayTheRecordsOutIdentically) {
    size_t count = 0;
    const rux_layout_entry* rows = rux_c_layout(&count);
    ASSERT_EQ(count, kCppLayout.size());
    for (size_t i = 0; i < count; ++i) {
        const auto it = kCppLayout.find(rows[i].expression);
        ASSERT_NE(it, kCppLayout.end()) << "C row without a C++ row: " << rows[i].expression;
        EXPECT_EQ(rows[i].value, it->second.first) << rows[i].expression;
    }
}

}  // namespace
