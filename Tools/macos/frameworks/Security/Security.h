// What the agent uses of Security; see CoreFoundation.h beside this folder.
#pragma once
#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct __SecCertificate *SecCertificateRef;
typedef struct __SecTrust *SecTrustRef;
typedef struct __SecPolicy *SecPolicyRef;
enum { errSecSuccess = 0, errSecItemNotFound = -25300 };

extern SecCertificateRef SecCertificateCreateWithData(CFAllocatorRef allocator, CFDataRef der);
extern CFDataRef SecCertificateCopyData(SecCertificateRef certificate);
extern SecPolicyRef SecPolicyCreateSSL(Boolean server, CFStringRef hostName);
extern OSStatus SecTrustCreateWithCertificates(CFTypeRef certificates, CFTypeRef policies, SecTrustRef *trust);
extern OSStatus SecTrustCopyAnchorCertificates(CFArrayRef *anchors);
extern bool SecTrustEvaluateWithError(SecTrustRef trust, CFErrorRef *error);
extern CFStringRef SecCopyErrorMessageString(OSStatus status, void *reserved);

#ifdef __cplusplus
}
#endif
