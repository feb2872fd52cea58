// What the agent uses of IOKit; see CoreFoundation.h beside this folder.
#pragma once
#include <CoreFoundation/CoreFoundation.h>
#include <mach/mach_types.h>
#include <mach/port.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef mach_port_t io_object_t;
typedef io_object_t io_service_t;
typedef io_object_t io_registry_entry_t;
typedef io_object_t io_iterator_t;
typedef char io_name_t[128];
typedef UInt32 IOOptionBits;
#define IO_OBJECT_NULL ((io_object_t)0)

#define kIOServicePlane "IOService"
#define kIOPlatformSerialNumberKey "IOPlatformSerialNumber"  // in the SDK's IOKit/IOKitKeys.h
#define kIOPlatformUUIDKey "IOPlatformUUID"
enum { kIORegistryIterateRecursively = 1, kIORegistryIterateParents = 2 };

extern const mach_port_t kIOMainPortDefault;  // since macOS 12

// The matching dictionary is consumed by the two calls that take one.
extern CFMutableDictionaryRef IOServiceMatching(const char *name);
extern io_service_t IOServiceGetMatchingService(mach_port_t mainPort, CFDictionaryRef matching);
extern kern_return_t IOServiceGetMatchingServices(mach_port_t mainPort, CFDictionaryRef matching,
                                                  io_iterator_t *existing);
extern io_object_t IOIteratorNext(io_iterator_t iterator);
extern kern_return_t IOObjectRelease(io_object_t object);
extern io_registry_entry_t IORegistryEntryFromPath(mach_port_t mainPort, const char *path);
extern CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key, CFAllocatorRef allocator,
                                                 IOOptionBits options);
extern CFTypeRef IORegistryEntrySearchCFProperty(io_registry_entry_t entry, const char *plane, CFStringRef key,
                                                 CFAllocatorRef allocator, IOOptionBits options);

#ifdef __cplusplus
}
#endif
