#pragma once

/// What scripts can rely on; the help and the manual page list the same.
namespace orv::companion::exitCode {

inline constexpr int success = 0;
inline constexpr int failure = 1;       // it was tried and did not succeed, or something is wrong
inline constexpr int usage = 2;         // the command line is not understood
inline constexpr int notSetUp = 3;      // no usable settings, or the device is not registered
inline constexpr int noPermission = 4;  // a file may not be read or written by this user
inline constexpr int loginNeeded = 5;   // nobody is logged in, or not any more, or not with these
inline constexpr int unreachable = 6;   // the server cannot be reached
inline constexpr int interrupted = 130;

}  // namespace orv::companion::exitCode
