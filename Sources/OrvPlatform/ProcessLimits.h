#pragma once

namespace orv {

/// Lets this process have as many descriptors open as its hard limit allows (up to some thousands):
/// a network scan runs hundreds of programs at once. Where the limit cannot be raised, less runs
/// side by side.
void raiseDescriptorLimit();

}  // namespace orv
