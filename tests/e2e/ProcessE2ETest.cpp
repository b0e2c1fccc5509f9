// Whole processes against rux-sim: applications that end without deregistering, each run
// of the exit helper in a mode of its own. (The examples/ applications run against rux-sim
// in the package test, built as users build them.)
#include <gtest/gtest.h>
#include <stdlib.h>

#include "Subprocess.h"

namespace rux::test {
namespace {

TEST(ProcessE2ETest, ExitsWithStatusZeroAfterAReplyWithRequestsOutstandingAndFromAThread) {
    const std::string path = uniqueSocketPath("rux-e2e-exit");
    ::setenv("RUX_SOCKET_PATH", path.c_str(), 1);
    SimProcess sim(path);
    ASSERT_TRUE(sim.ready()) << sim.dump();
    ASSERT_EQ(sim.command("silent SET_HST_STATE_REQ"), "ok");  // the helper's queries are answered
    size_t n = 0;
    for (const std::string mode : {"reply", "outstanding", "thread-exit"}) {
        SCOPED_TRACE(mode);
        Subprocess app({RUX_EXIT_HELPER, mode});
        EXPECT_EQ(app.waitExit(), 0) << app.dump();
        EXPECT_EQ(app.count("query 3 0"), 1u) << app.dump();
        EXPECT_EQ(app.count("issued"), mode == "reply" ? 0u : 1u) << app.dump();
        EXPECT_EQ(app.count("dtor: ENTER"), 1u) << app.dump();  // the session, at exit
        EXPECT_TRUE(sim.waitForCount("disconnected session=" + std::to_string(++n), 1))
            << sim.dump();
    }
    EXPECT_EQ(sim.count("tid=1 REGISTER_CLIENT_REQ {}"), 3u) << sim.dump();
}

}  // namespace
}  // namespace rux::test
