// The exported assertion module: the fixed message, a handler that never
// returns, and the stored flags.
#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "drlib_toolkit.h"

namespace {

std::string read_bytes(int fd, size_t want, int timeout_ms) {  // gives up after timeout_ms of silence
    std::string out;
    char buf[256];
    pollfd pfd{fd, POLLIN, 0};
    while (out.size() < want && poll(&pfd, 1, timeout_ms) > 0) {
        const ssize_t n = read(fd, buf, sizeof buf);
        if (n <= 0) break;
        out.append(buf, static_cast<size_t>(n));
    }
    return out;
}

}  // namespace

// Defined first, so it sees the flag before anything has written it.
TEST(AssertModule, WeakFlagAndAbortBehaviour) {
    EXPECT_EQ(get_assert_weak(), 1U);
    enable_assert_weak(0xABCDU);
    EXPECT_EQ(get_assert_weak(), 0xABCDU);
    setup_abort_callback();
    set_abort_behavior(7U);
    EXPECT_EQ(get_abort_behavior(), 0U);
}

TEST(AssertModule, HandlerPrintsFixedMessageAndNeverReturns) {
    const std::string rule = "\r\n" + std::string(61, '-');
    const std::string expected = rule + rule + "\r\nASSERT ERROR\"tl > 1e-6\":file\"Alg_DR/src/dr_mech\"Line\"289\"\r\n";
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::fflush(stdout);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(fds[0]);
        dup2(fds[1], STDOUT_FILENO);
        assert_fail_handle("tl > 1e-6", "Alg_DR/src/dr_mech", 289, "dr_mech_stride_backward");
        _exit(99);  // reached only if the handler returned
    }
    close(fds[1]);
    std::string got = read_bytes(fds[0], expected.size(), 5000);
    got += read_bytes(fds[0], 1, 100);  // anything further is an error
    EXPECT_EQ(got, expected);  // the function name is not printed

    int status = 0;
    EXPECT_EQ(waitpid(child, &status, WNOHANG), 0) << "the handler returned or the child ended";
    kill(child, SIGKILL);
    EXPECT_TRUE(waitpid(child, &status, 0) == child && WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    close(fds[0]);
}
