// The public header as a C++ application sees it: every enum is an int-sized type that
// holds any int, so a caller's cast is well defined.
#include <type_traits>

#include "rux/rux_client.h"

template <typename... E>
constexpr bool kFullRangeInts = (... && (sizeof(E) == 4 &&
                                         std::is_same_v<std::underlying_type_t<E>, int>));
static_assert(
    kFullRangeInts<status_e, status_v2_e, hst_state_e, slot_id_e, coverage_state_e, scan_state_e,
                   rux_flight_mode_state_e, rux_device_fold_state_e, rux_subway_state_e,
                   cell_mitigation_type_e, traffic_direction_e, application_type_e, nr5g_scs_type_e,
                   data_recommendation_action_e, data_recommendation_subs_e, multi_sim_submode_e,
                   tx_concurrency_e, cell_feedback_cause_e>);
