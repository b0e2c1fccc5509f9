// Whole processes against rux-sim: applications that end without deregistering, each run
// of the exit helper in a mode of its own. (The examples/ applications run against rux-sim
// in the package test, built as users build them.)
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include "Subprocess.h"

namespace rux::test {
namespace {

struct Run {
    const char* name;
    const char* mode;
    std::vector<std::string> expectedLines;  // each must appear in the helper's output
};
void PrintTo(const Run& r, std::ostream* os) {
    *os << r.name;
}

class ProcessE2ETest : public ::testing::TestWithParam<Run> {};

TEST_P(ProcessE2ETest, RunsAgainstTheSimulatorAndExitsWithStatusZero) {
    const auto& run = GetParam();
    const std::string path = SimProcess::uniqueSocketPath(run.name);
    ::setenv("RUX_SOCKET_PATH", path.c_str(), 1);
    SimProcess sim(path);
    ASSERT_TRUE(sim.ready()) << sim.dump();
    ASSERT_EQ(sim.command("silent SET_HST_STATE_REQ"), "ok");  // the helper's queries are answered

    Subprocess app({RUX_EXIT_HELPER, run.mode});
    const auto status = app.waitExit();
    EXPECT_TRUE(status && WIFEXITED(*status) && WEXITSTATUS(*status) == 0)
        << (status ? *status : -1) << "\n"
        << app.dump();
    for (const auto& expected : run.expectedLines)
        EXPECT_TRUE(app.waitForLine(expected)) << expected << "\n" << app.dump();
    EXPECT_TRUE(sim.waitForLine("tid=1 REGISTER_CLIENT_REQ {}")) << sim.dump();
    EXPECT_TRUE(sim.waitForLine("disconnected session=")) << sim.dump();
}

INSTANTIATE_TEST_SUITE_P(
    Programs, ProcessE2ETest,
    ::testing::Values(Run{"ExitAfterReply", "reply", {"query 3 0"}},
                      Run{"ExitWithRequestsOutstanding", "outstanding", {"query 3 0", "issued"}},
                      Run{"ExitFromAnotherThread", "thread-exit", {"query 3 0", "issued"}}),
    [](const ::testing::TestParamInfo<Run>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace rux::test
