// What most tests pay for anyway. No test may rely on it: each includes what it uses.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/Precompiled.h"
