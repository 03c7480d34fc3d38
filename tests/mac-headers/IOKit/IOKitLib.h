// Stand-in (see objc/NSObject.h): the I/O registry calls Duskwell uses.
#pragma once
#include <CoreFoundation/CoreFoundation.h>

typedef unsigned int mach_port_t;
typedef int kern_return_t;
typedef kern_return_t IOReturn;
typedef uint32_t IOOptionBits;
typedef mach_port_t io_object_t;
typedef io_object_t io_iterator_t;
typedef io_object_t io_registry_entry_t;
typedef io_object_t io_service_t;
#define MACH_PORT_NULL 0
#define IO_OBJECT_NULL ((io_object_t)0)
#define KERN_SUCCESS 0
#define kIOReturnSuccess KERN_SUCCESS

extern "C" {
CFMutableDictionaryRef IOServiceMatching(const char* name) CF_RETURNS_RETAINED;
kern_return_t IOServiceGetMatchingServices(mach_port_t mainPort, CFDictionaryRef matching CF_CONSUMED,
                                           io_iterator_t* existing);
io_service_t IOServiceGetMatchingService(mach_port_t mainPort, CFDictionaryRef matching CF_CONSUMED);
io_object_t IOIteratorNext(io_iterator_t iterator);
kern_return_t IOObjectRelease(io_object_t object);
CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key, CFAllocatorRef allocator,
                                          IOOptionBits options) CF_RETURNS_RETAINED;
}
