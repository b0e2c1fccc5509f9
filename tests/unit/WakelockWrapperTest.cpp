// WakelockWrapper: one instance for every caller, whatever thread asks first.
#include <gtest/gtest.h>

#include <future>
#include <vector>

#include "event/WakelockWrapper.h"

namespace {

using rux::utils::WakelockWrapper;

TEST(WakelockWrapperTest, RacingFirstCallersShareOneInstance) {
    std::promise<void> go;
    std::shared_future<void> start = go.get_future().share();
    std::vector<std::future<WakelockWrapper*>> callers;
    for (int i = 0; i < 8; ++i)
        callers.push_back(std::async(std::launch::async, [start] {
            start.wait();
            return WakelockWrapper::getInstance().get();
        }));
    go.set_value();
    WakelockWrapper* first = nullptr;
    for (auto& c : callers) {
        WakelockWrapper* got = c.get();
        ASSERT_NE(got, nullptr);
        if (first == nullptr) first = got;
        EXPECT_EQ(got, first);
    }
    EXPECT_EQ(WakelockWrapper::getInstance().get(), first);
}

}  // namespace
