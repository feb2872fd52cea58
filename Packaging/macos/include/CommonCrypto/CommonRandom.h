#pragma once
#include <CommonCrypto/CommonCryptoError.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef CCCryptorStatus CCRNGStatus;
extern CCRNGStatus CCRandomGenerateBytes(void* bytes, size_t count);

#ifdef __cplusplus
}
#endif
