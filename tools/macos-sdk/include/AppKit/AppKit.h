// Declaration-only stand-in for Apple's AppKit headers (see CoreFoundation.h).
#pragma once
#include <ApplicationServices/ApplicationServices.h>
#include <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

typedef NS_ENUM(NSInteger, NSApplicationActivationPolicy){
    NSApplicationActivationPolicyRegular = 0,
    NSApplicationActivationPolicyAccessory = 1,
    NSApplicationActivationPolicyProhibited = 2,
};

typedef NS_OPTIONS(NSUInteger, NSApplicationActivationOptions){
    NSApplicationActivateAllWindows = 1 << 0,
    NSApplicationActivateIgnoringOtherApps TAVLIN_DEPRECATED_MACOS_14_0(
        "ignoringOtherApps is deprecated in macOS 14 and will have no effect.") = 1 << 1,
};

typedef int pid_t;

API_AVAILABLE(macos(10.6))
@interface NSRunningApplication : NSObject
@property(readonly, getter=isTerminated) BOOL terminated;
@property(readonly, getter=isHidden) BOOL hidden;
@property(readonly, getter=isActive) BOOL active;
@property(readonly) NSApplicationActivationPolicy activationPolicy;
@property(nullable, readonly, copy) NSString* localizedName;
@property(nullable, readonly, copy) NSString* bundleIdentifier;
@property(readonly) pid_t processIdentifier;
- (BOOL)hide;
- (BOOL)unhide;
- (BOOL)activateWithOptions:(NSApplicationActivationOptions)options;
+ (nullable instancetype)runningApplicationWithProcessIdentifier:(pid_t)pid;
@end

@interface NSWorkspace : NSObject
@property(class, readonly, strong) NSWorkspace* sharedWorkspace;
@property(readonly, copy) NSArray<NSRunningApplication*>* runningApplications API_AVAILABLE(macos(10.6));
@property(nullable, readonly, strong) NSRunningApplication* frontmostApplication API_AVAILABLE(macos(10.7));
@end

// The menu-bar item, its menu and the application object.
@class NSMenu;

@interface NSResponder : NSObject
@end

typedef NS_ENUM(NSUInteger, NSEventType) { NSEventTypeApplicationDefined = 15 };
typedef NS_OPTIONS(NSUInteger, NSEventModifierFlags) { NSEventModifierFlagShift = 1 << 17 };
typedef CGPoint NSPoint;
static const NSPoint NSZeroPoint = {0, 0};
typedef double NSTimeInterval;
@class NSGraphicsContext;

@interface NSEvent : NSObject
+ (nullable NSEvent*)otherEventWithType:(NSEventType)type
                               location:(NSPoint)location
                          modifierFlags:(NSEventModifierFlags)flags
                              timestamp:(NSTimeInterval)time
                           windowNumber:(NSInteger)wNum
                                context:(nullable NSGraphicsContext*)unusedPassNil
                                subtype:(short)subtype
                                  data1:(NSInteger)d1
                                  data2:(NSInteger)d2;
@end

@interface NSApplication : NSResponder
@property(class, readonly, strong) NSApplication* sharedApplication;
- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)activationPolicy;
- (void)run;
- (void)stop:(nullable id)sender;
- (void)postEvent:(NSEvent*)event atStart:(BOOL)flag;
- (void)terminate:(nullable id)sender;
- (void)activateIgnoringOtherApps:(BOOL)flag
    API_AVAILABLE(macos(10.0)) TAVLIN_DEPRECATED_MACOS_14_0("Use NSApp.activate instead.");
- (void)activate API_AVAILABLE(macos(14.0));
@end

typedef NSInteger NSControlStateValue;
static const NSControlStateValue NSControlStateValueOff = 0;
static const NSControlStateValue NSControlStateValueOn = 1;

@interface NSMenuItem : NSObject
+ (NSMenuItem*)separatorItem;
- (instancetype)initWithTitle:(NSString*)string action:(nullable SEL)selector keyEquivalent:(NSString*)charCode;
@property(nullable, weak) id target;
@property NSInteger tag;
@property NSControlStateValue state;
@property(getter=isEnabled) BOOL enabled;
@end

@protocol NSMenuDelegate
@optional
- (void)menuNeedsUpdate:(NSMenu*)menu;
@end

@interface NSMenu : NSObject
- (instancetype)initWithTitle:(NSString*)title;
- (void)addItem:(NSMenuItem*)newItem;
- (void)removeAllItems;
@property BOOL autoenablesItems;
@property(nullable, weak) id<NSMenuDelegate> delegate;
@end

@interface NSStatusBarButton : NSObject
@property(copy) NSString* title;
@end

@interface NSStatusItem : NSObject
@property(readonly, strong, nullable) NSStatusBarButton* button;
@property(strong, nullable) NSMenu* menu;
@end

static const CGFloat NSVariableStatusItemLength = -1.0;

@interface NSStatusBar : NSObject
@property(class, readonly, strong) NSStatusBar* systemStatusBar;
- (NSStatusItem*)statusItemWithLength:(CGFloat)length;
- (void)removeStatusItem:(NSStatusItem*)item;
@end

typedef NS_OPTIONS(NSUInteger, NSWindowStyleMask){
    NSWindowStyleMaskTitled = 1 << 0,
    NSWindowStyleMaskClosable = 1 << 1,
};
typedef NS_ENUM(NSUInteger, NSBackingStoreType){
    NSBackingStoreBuffered = 2,
};

@interface NSWindow : NSResponder
- (instancetype)initWithContentRect:(CGRect)contentRect
                          styleMask:(NSWindowStyleMask)style
                            backing:(NSBackingStoreType)backingStoreType
                              defer:(BOOL)flag;
@property(copy) NSString* title;
@property BOOL releasedWhenClosed;
- (void)center;
- (void)makeKeyAndOrderFront:(nullable id)sender;
@end

// NSGeometry.h: NSRect is CGRect on 64-bit systems.
typedef CGRect NSRect;

@interface NSScreen : NSObject
@property(class, readonly, copy) NSArray<NSScreen*>* screens;
@property(readonly) NSRect frame;
@property(readonly) CGFloat backingScaleFactor API_AVAILABLE(macos(10.7));
@end

// The general pasteboard (NSPasteboard.h).
typedef NSString* NSPasteboardType;
#ifdef __cplusplus
extern "C" {
#endif
extern NSPasteboardType const NSPasteboardTypeString API_AVAILABLE(macos(10.6));
#ifdef __cplusplus
}
#endif

@interface NSPasteboard : NSObject
@property(class, readonly, strong) NSPasteboard* generalPasteboard;
@property(readonly) NSInteger changeCount;
@property(nullable, readonly, copy) NSArray<NSPasteboardType>* types;
- (NSInteger)clearContents API_AVAILABLE(macos(10.6));
- (BOOL)setString:(NSString*)string forType:(NSPasteboardType)dataType;
- (nullable NSString*)stringForType:(NSPasteboardType)dataType;
@end

NS_ASSUME_NONNULL_END
