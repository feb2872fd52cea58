#include <cstdlib>
#include <sched.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "OrvPlatform/HostFacts.h"

namespace orv {
namespace {

constexpr int notPossible = 77;

/// In a process of its own with a network of its own, whose one interface is down.
int addressesAreFound() {
    if (::unshare(CLONE_NEWNET) != 0) return notPossible;
    if (std::system("ip address add 192.0.2.7/32 dev lo") != 0) return notPossible;
    const bool isFound = SystemHostFacts().ipAddresses() == std::vector<std::string>{"192.0.2.7"};
    return isFound ? EXIT_SUCCESS : EXIT_FAILURE;
}

TEST(HostFactsLinuxTest, anInterfaceThatIsDownHasItsAddressesAllTheSame) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) ::_exit(addressesAreFound());
    int status = 0;
    ::waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == notPossible) {
        GTEST_SKIP() << "A network of its own takes root's rights and the ip program.";
    }
    EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace orv
