// What OpenSSL uses of CommonCrypto, for the cross build; the Mac's own headers have the rest.
#pragma once
#include <stdint.h>

typedef int32_t CCCryptorStatus;
enum { kCCSuccess = 0 };
