#include "OrvPlatform/ProcessLimits.h"

#include <algorithm>
#include <sys/resource.h>

namespace orv {

void raiseDescriptorLimit() {
    // Below what any system refuses; more would make programs that close "all" descriptors slow.
    constexpr rlim_t wanted = 4096;
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= wanted) return;
    limit.rlim_cur = std::min(wanted, limit.rlim_max);
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace orv
