// The exported assertion module: the fixed message, a handler that never
// returns, and the stored flags.
#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "drlib.h"

namespace {

// Reads up to `want` bytes from fd, giving up after `timeout_ms` of silence.
std::string read_bytes(int fd, size_t want, int timeout_ms) {
    std::string out;
    char buf[256];
    while (out.size() < want) {
        pollfd pfd{fd, POLLIN, 0};
        if (poll(&pfd, 1, timeout_ms) <= 0) break;
        const ssize_t n = read(fd, buf, sizeof buf);
        if (n <= 0) break;
        out.append(buf, static_cast<size_t>(n));
    }
    return out;
}

}  // namespace

// Runs first in this program: the flag starts set and keeps what it is given.
TEST(AssertModule, WeakFlagAndAbortBehaviour) {
    EXPECT_EQ(get_assert_weak(), 1U);
    enable_assert_weak(0U);
    EXPECT_EQ(get_assert_weak(), 0U);
    enable_assert_weak(0xABCDU);
    EXPECT_EQ(get_assert_weak(), 0xABCDU);
    enable_assert_weak(1U);

    setup_abort_callback();
    EXPECT_EQ(get_abort_behavior(), 0U);
    set_abort_behavior(7U);
    EXPECT_EQ(get_abort_behavior(), 0U);
    set_abort_behavior(0xFFFFFFFFU);
    EXPECT_EQ(get_abort_behavior(), 0U);
}

TEST(AssertModule, HandlerPrintsFixedMessageAndNeverReturns) {
    const std::string rule = "\r\n-------------------------------------------------------------";
    const std::string expected =
        rule + rule + "\r\nASSERT ERROR\"tl > 1e-6\":file\"Alg_DR/src/dr_mech\"Line\"289\"\r\n";
    ASSERT_EQ(rule.size(), 2U + 61U);

    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::fflush(stdout);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(fds[0]);
        dup2(fds[1], STDOUT_FILENO);
        assert_fail_handle("tl > 1e-6", "Alg_DR/src/dr_mech", 289, "dr_mech_stride_backward");
        _exit(99);  // unreachable if the handler keeps its promise
    }
    close(fds[1]);
    std::string got = read_bytes(fds[0], expected.size(), 5000);
    got += read_bytes(fds[0], 1, 100);  // anything further would be an error
    EXPECT_EQ(got, expected);
    EXPECT_EQ(got.find("dr_mech_stride_backward"), std::string::npos);

    // The handler must still be running: the child has not exited.
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, WNOHANG), 0);
    kill(child, SIGKILL);
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
    close(fds[0]);
}
