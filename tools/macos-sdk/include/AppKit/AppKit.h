// Declaration-only stand-in for Apple's AppKit headers (see CoreFoundation.h).
#pragma once
#include <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

typedef NS_ENUM(NSInteger, NSApplicationActivationPolicy){
    NSApplicationActivationPolicyRegular = 0,
    NSApplicationActivationPolicyAccessory = 1,
    NSApplicationActivationPolicyProhibited = 2,
};

typedef NS_OPTIONS(NSUInteger, NSApplicationActivationOptions){
    NSApplicationActivateAllWindows = 1 << 0,
    NSApplicationActivateIgnoringOtherApps = 1 << 1,
};

typedef int pid_t;

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
@property(readonly, copy) NSArray<NSRunningApplication*>* runningApplications;
@property(nullable, readonly, strong) NSRunningApplication* frontmostApplication;
@end

NS_ASSUME_NONNULL_END
