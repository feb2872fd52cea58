// By this name libcurl includes what SystemConfiguration.h declares here.
#pragma once
#include <SystemConfiguration/SystemConfiguration.h>
