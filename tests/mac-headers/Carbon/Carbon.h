// Stand-in (see objc/NSObject.h): the Carbon hot-key calls, and some of the old global names
// Carbon brings along that clash with ours (Events.h's Button(), AssertMacros.h's check,
// verify and require macros).
#pragma once
#include <CoreFoundation/CoreFoundation.h>

typedef int32_t OSStatus;
typedef uint32_t OSType;
typedef uint32_t UInt32;
typedef uint32_t OptionBits;
typedef unsigned long ItemCount;
typedef struct OpaqueEventHandlerCallRef* EventHandlerCallRef;
typedef struct OpaqueEventRef* EventRef;
typedef struct OpaqueEventTargetRef* EventTargetRef;
typedef struct OpaqueEventHandlerRef* EventHandlerRef;
typedef struct OpaqueEventHotKeyRef* EventHotKeyRef;
typedef OSStatus (*EventHandlerProcPtr)(EventHandlerCallRef inHandlerCallRef, EventRef inEvent, void* inUserData);
typedef EventHandlerProcPtr EventHandlerUPP;
struct EventTypeSpec {
    OSType eventClass;
    UInt32 eventKind;
};
struct EventHotKeyID {
    OSType signature;
    UInt32 id;
};

enum { noErr = 0 };
enum { kEventClassKeyboard = 0x6B657962 /* 'keyb' */ };
enum { kEventHotKeyPressed = 5 };
enum { cmdKey = 1 << 8, optionKey = 1 << 11 };

extern "C" {
EventTargetRef GetApplicationEventTarget(void);
OSStatus InstallEventHandler(EventTargetRef inTarget, EventHandlerUPP inHandler, ItemCount inNumTypes,
                             const EventTypeSpec* inList, void* inUserData, EventHandlerRef* outRef);
OSStatus RegisterEventHotKey(UInt32 inHotKeyCode, UInt32 inHotKeyModifiers, EventHotKeyID inHotKeyID,
                             EventTargetRef inTarget, OptionBits inOptions, EventHotKeyRef* outRef);
Boolean Button(void);
}

#define check(assertion) ((void)(assertion))
#define verify(assertion) ((void)(assertion))
#define require(assertion, exceptionLabel) \
    do {                                   \
        if (!(assertion)) goto exceptionLabel; \
    } while (0)
