// Declaration-only stand-in for Apple's ApplicationServices headers (HIServices
// accessibility, CoreGraphics geometry), as the macOS adapter uses them.
#pragma once
#include <CoreFoundation/CoreFoundation.h>
#include <sys/types.h>

CF_EXTERN_C_BEGIN

// CoreGraphics geometry (CGGeometry.h)
typedef double CGFloat;
struct CGPoint {
  CGFloat x;
  CGFloat y;
};
typedef struct CGPoint CGPoint;
struct CGSize {
  CGFloat width;
  CGFloat height;
};
typedef struct CGSize CGSize;
struct CGRect {
  CGPoint origin;
  CGSize size;
};
typedef struct CGRect CGRect;

// CoreGraphics: CGWindow.h
typedef uint32_t CGWindowID;
typedef CF_OPTIONS(uint32_t, CGWindowListOption){
    kCGWindowListOptionAll = 0,
    kCGWindowListOptionOnScreenOnly = (1 << 0),
    kCGWindowListOptionOnScreenAboveWindow = (1 << 1),
    kCGWindowListOptionOnScreenBelowWindow = (1 << 2),
    kCGWindowListOptionIncludingWindow = (1 << 3),
    kCGWindowListExcludeDesktopElements = (1 << 4),
};
CFArrayRef CGWindowListCopyWindowInfo(CGWindowListOption option, CGWindowID relativeToWindow) API_AVAILABLE(macos(10.5));
bool CGPreflightScreenCaptureAccess(void) API_AVAILABLE(macos(10.15));
extern const CFStringRef kCGWindowNumber;
extern const CFStringRef kCGWindowLayer;
extern const CFStringRef kCGWindowBounds;
extern const CFStringRef kCGWindowOwnerPID;
extern const CFStringRef kCGWindowOwnerName;
extern const CFStringRef kCGWindowName;
extern const CFStringRef kCGWindowIsOnscreen;
extern const CFStringRef kCGWindowAlpha;
bool CGRectMakeWithDictionaryRepresentation(CFDictionaryRef dict, CGRect* rect) API_AVAILABLE(macos(10.5));

// CoreGraphics: CGError.h, CGEventTypes.h, CGEvent.h, CGRemoteOperation.h
typedef CF_ENUM(int32_t, CGError){
    kCGErrorSuccess = 0,
    kCGErrorFailure = 1000,
};
typedef struct __CGEvent* CGEventRef;
typedef struct __CGEventSource* CGEventSourceRef;
typedef uint16_t CGKeyCode;
typedef unsigned long UniCharCount;
typedef CF_ENUM(uint32_t, CGEventType){
    kCGEventNull = 0,
    kCGEventLeftMouseDown = 1,
    kCGEventLeftMouseUp = 2,
    kCGEventRightMouseDown = 3,
    kCGEventRightMouseUp = 4,
    kCGEventMouseMoved = 5,
    kCGEventLeftMouseDragged = 6,
    kCGEventRightMouseDragged = 7,
    kCGEventKeyDown = 10,
    kCGEventKeyUp = 11,
    kCGEventFlagsChanged = 12,
    kCGEventScrollWheel = 22,
    kCGEventOtherMouseDown = 25,
    kCGEventOtherMouseUp = 26,
    kCGEventOtherMouseDragged = 27,
};
typedef CF_ENUM(uint32_t, CGMouseButton){
    kCGMouseButtonLeft = 0,
    kCGMouseButtonRight = 1,
    kCGMouseButtonCenter = 2,
};
typedef CF_ENUM(uint32_t, CGEventTapLocation){
    kCGHIDEventTap = 0,
    kCGSessionEventTap,
    kCGAnnotatedSessionEventTap,
};
typedef CF_ENUM(uint32_t, CGScrollEventUnit){
    kCGScrollEventUnitPixel = 0,
    kCGScrollEventUnitLine = 1,
};
typedef CF_ENUM(uint32_t, CGEventField){
    kCGMouseEventNumber = 0,
    kCGMouseEventClickState = 1,
    kCGKeyboardEventKeycode = 9,
};
typedef CF_OPTIONS(uint64_t, CGEventFlags){
    kCGEventFlagMaskAlphaShift = 0x00010000,
    kCGEventFlagMaskShift = 0x00020000,
    kCGEventFlagMaskControl = 0x00040000,
    kCGEventFlagMaskAlternate = 0x00080000,
    kCGEventFlagMaskCommand = 0x00100000,
    kCGEventFlagMaskNumericPad = 0x00200000,
    kCGEventFlagMaskHelp = 0x00400000,
    kCGEventFlagMaskSecondaryFn = 0x00800000,
    kCGEventFlagMaskNonCoalesced = 0x00000100,
};
CGEventRef CGEventCreate(CGEventSourceRef source) API_AVAILABLE(macos(10.4));
CGPoint CGEventGetLocation(CGEventRef event) API_AVAILABLE(macos(10.4));
CGEventRef CGEventCreateMouseEvent(CGEventSourceRef source, CGEventType mouseType, CGPoint mouseCursorPosition,
                                   CGMouseButton mouseButton) API_AVAILABLE(macos(10.4));
CGEventRef CGEventCreateKeyboardEvent(CGEventSourceRef source, CGKeyCode virtualKey, bool keyDown) API_AVAILABLE(macos(10.4));
CGEventRef CGEventCreateScrollWheelEvent2(CGEventSourceRef source, CGScrollEventUnit units, uint32_t wheelCount,
                                          int32_t wheel1, int32_t wheel2, int32_t wheel3) API_AVAILABLE(macos(10.13));
void CGEventKeyboardSetUnicodeString(CGEventRef event, UniCharCount stringLength, const UniChar* unicodeString) API_AVAILABLE(macos(10.4));
void CGEventSetFlags(CGEventRef event, CGEventFlags flags) API_AVAILABLE(macos(10.4));
void CGEventSetIntegerValueField(CGEventRef event, CGEventField field, int64_t value) API_AVAILABLE(macos(10.4));
void CGEventPost(CGEventTapLocation tap, CGEventRef event) API_AVAILABLE(macos(10.4));
void CGEventPostToPid(pid_t pid, CGEventRef event) API_AVAILABLE(macos(10.11));
CGError CGWarpMouseCursorPosition(CGPoint newCursorPosition);

// HIServices: AXError.h
typedef CF_ENUM(SInt32, AXError){
    kAXErrorSuccess = 0,
    kAXErrorFailure = -25200,
    kAXErrorIllegalArgument = -25201,
    kAXErrorInvalidUIElement = -25202,
    kAXErrorInvalidUIElementObserver = -25203,
    kAXErrorCannotComplete = -25204,
    kAXErrorAttributeUnsupported = -25205,
    kAXErrorActionUnsupported = -25206,
    kAXErrorNotificationUnsupported = -25207,
    kAXErrorNotImplemented = -25208,
    kAXErrorNotificationAlreadyRegistered = -25209,
    kAXErrorNotificationNotRegistered = -25210,
    kAXErrorAPIDisabled = -25211,
    kAXErrorNoValue = -25212,
    kAXErrorParameterizedAttributeUnsupported = -25213,
    kAXErrorNotEnoughPrecision = -25214,
};

// HIServices: AXValue.h
typedef const struct __AXValue* AXValueRef;
typedef CF_ENUM(UInt32, AXValueType){
    kAXValueTypeCGPoint = 1,
    kAXValueTypeCGSize = 2,
    kAXValueTypeCGRect = 3,
    kAXValueTypeCFRange = 4,
    kAXValueTypeAXError = 5,
    kAXValueTypeIllegal = 0,
};
CFTypeID AXValueGetTypeID(void);
AXValueRef AXValueCreate(AXValueType theType, const void* valuePtr);
AXValueType AXValueGetType(AXValueRef value);
Boolean AXValueGetValue(AXValueRef value, AXValueType theType, void* valuePtr);

// HIServices: AXUIElement.h
typedef const struct __AXUIElement* AXUIElementRef;
typedef CF_OPTIONS(UInt32, AXCopyMultipleAttributeOptions){
    kAXCopyMultipleAttributeOptionStopOnError = 0x1,
};
extern CFStringRef kAXTrustedCheckOptionPrompt;

Boolean AXIsProcessTrusted(void);
Boolean AXIsProcessTrustedWithOptions(CFDictionaryRef options) API_AVAILABLE(macos(10.9));
CFTypeID AXUIElementGetTypeID(void);
AXUIElementRef AXUIElementCreateApplication(pid_t pid);
AXUIElementRef AXUIElementCreateSystemWide(void);
AXError AXUIElementCopyAttributeValue(AXUIElementRef element, CFStringRef attribute, CFTypeRef* value);
AXError AXUIElementCopyMultipleAttributeValues(AXUIElementRef element, CFArrayRef attributes,
                                               AXCopyMultipleAttributeOptions options, CFArrayRef* values);
AXError AXUIElementCopyActionNames(AXUIElementRef element, CFArrayRef* names);
AXError AXUIElementIsAttributeSettable(AXUIElementRef element, CFStringRef attribute, Boolean* settable);
AXError AXUIElementPerformAction(AXUIElementRef element, CFStringRef action);
AXError AXUIElementSetAttributeValue(AXUIElementRef element, CFStringRef attribute, CFTypeRef value);
AXError AXUIElementSetMessagingTimeout(AXUIElementRef element, float timeoutInSeconds);

CF_EXTERN_C_END
