// What the agent uses of SystemConfiguration; see CoreFoundation.h beside this folder.
#pragma once
#include <CoreFoundation/CoreFoundation.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef const struct __SCDynamicStore *SCDynamicStoreRef;
typedef struct {
    CFIndex version;
    void *info;
    const void *(*retain)(const void *info);
    void (*release)(const void *info);
    CFStringRef (*copyDescription)(const void *info);
} SCDynamicStoreContext;
typedef void (*SCDynamicStoreCallBack)(SCDynamicStoreRef store, CFArrayRef changedKeys, void *info);

extern SCDynamicStoreRef SCDynamicStoreCreate(CFAllocatorRef allocator, CFStringRef name,
                                              SCDynamicStoreCallBack callBack, SCDynamicStoreContext *context);
extern CFPropertyListRef SCDynamicStoreCopyValue(SCDynamicStoreRef store, CFStringRef key);
extern CFStringRef SCDynamicStoreCopyConsoleUser(SCDynamicStoreRef store, uid_t *uid, gid_t *gid);
extern CFStringRef SCDynamicStoreCopyComputerName(SCDynamicStoreRef store, CFStringEncoding *encoding);
extern CFStringRef SCDynamicStoreCopyLocalHostName(SCDynamicStoreRef store);
extern CFDictionaryRef SCDynamicStoreCopyProxies(SCDynamicStoreRef store);

extern const CFStringRef kSCPropNetProxiesHTTPSEnable;
extern const CFStringRef kSCPropNetProxiesHTTPSProxy;
extern const CFStringRef kSCPropNetProxiesHTTPSPort;
extern const CFStringRef kSCPropNetProxiesExceptionsList;
extern const CFStringRef kSCPropNetProxiesProxyAutoConfigEnable;
extern const CFStringRef kSCPropNetProxiesProxyAutoConfigURLString;

#ifdef __cplusplus
}
#endif
