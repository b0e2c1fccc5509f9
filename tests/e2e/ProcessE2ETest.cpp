// Whole processes against rux-sim: applications that end without deregistering, and the
// example applications built from examples/ with only the public header.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include "Subprocess.h"

namespace rux::test {
namespace {

struct Run {
    const char* name;
    std::vector<std::string> argv;
    const char* simSetup;                    // a control line, or ""
    std::vector<std::string> expectedLines;  // each must appear in the program's output
};
void PrintTo(const Run& r, std::ostream* os) { *os << r.name; }

class ProcessE2ETest : public ::testing::TestWithParam<Run> {};

TEST_P(ProcessE2ETest, RunsAgainstTheSimulatorAndExitsWithStatusZero) {
    const auto& run = GetParam();
    const std::string path = SimProcess::uniqueSocketPath(run.name);
    ::setenv("RUX_SOCKET_PATH", path.c_str(), 1);
    SimProcess sim(path);
    ASSERT_TRUE(sim.ready()) << sim.dump();
    if (*run.simSetup) {
        ASSERT_EQ(sim.command(run.simSetup), "ok");
    }

    Subprocess app(run.argv);
    const auto status = app.waitExit();
    EXPECT_TRUE(status && WIFEXITED(*status) && WEXITSTATUS(*status) == 0)
        << (status ? *status : -1) << "\n" << app.dump();
    for (const auto& expected : run.expectedLines)
        EXPECT_TRUE(app.waitForLine(expected)) << expected << "\n" << app.dump();
    EXPECT_TRUE(sim.waitForLine("tid=1 REGISTER_CLIENT_REQ {}")) << sim.dump();
    EXPECT_TRUE(sim.waitForLine("disconnected session=")) << sim.dump();
}

const char* const kSilent = "silent SET_HST_STATE_REQ";

INSTANTIATE_TEST_SUITE_P(
    Programs, ProcessE2ETest,
    ::testing::Values(
        Run{"ExitAfterReply", {RUX_EXIT_HELPER, "reply"}, "", {"reply 3 0"}},
        Run{"ExitWithRequestsOutstanding", {RUX_EXIT_HELPER, "outstanding"}, kSilent, {"query 3 0", "issued"}},
        Run{"ExitFromAnotherThread", {RUX_EXIT_HELPER, "thread-exit"}, kSilent, {"query 3 0", "issued"}},
        Run{"ExampleC", {RUX_EXAMPLE_C}, "value hst-state HST_STATE_SET",
            {"set_hst_state #3: status 0", "get_hst_state #5: status 0, state 1", "hello_rux: done"}},
        Run{"ExampleCpp", {RUX_EXAMPLE_CPP}, "status SET_SUBWAY_STATE_REQ STATUS_NOT_SUPPORTED",
            {"request #3: status 0", "request #5: status 3", "request #7: status 0",
             "get_hst_state #9: status 0, state 2", "get_dppd_capability #11: status 0, capable yes",
             "get_dppd_recommendation #13: status 0, action 1, subscription 1",
             "get_multi_sim_submode_info #15: status 0, sub-mode 1, tx concurrency 0",
             "set_cell_list_info #17: status 0", "hello_rux_cpp: 8 of 8 answered"}}),
    [](const ::testing::TestParamInfo<Run>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace rux::test
