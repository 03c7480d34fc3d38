// Stand-in (see objc/NSObject.h): the power-source calls Duskwell uses.
#pragma once
#include <CoreFoundation/CoreFoundation.h>

extern "C" {
CFTypeRef IOPSCopyPowerSourcesInfo(void) CF_RETURNS_RETAINED;
CFArrayRef IOPSCopyPowerSourcesList(CFTypeRef blob) CF_RETURNS_RETAINED;
CFDictionaryRef IOPSGetPowerSourceDescription(CFTypeRef blob, CFTypeRef ps);
}
