// Declaration-only stand-in for Apple's ScreenCaptureKit headers (see CoreFoundation.h):
// exactly the interfaces the macOS adapter calls, with Apple's availability.
#pragma once
#include <ApplicationServices/ApplicationServices.h>
#include <Foundation/Foundation.h>
#include <ImageIO/ImageIO.h>

#define SC_AVAILABLE(version) __attribute__((availability(macos, introduced = version)))

NS_ASSUME_NONNULL_BEGIN

SC_AVAILABLE(12.3) extern NSString* const SCStreamErrorDomain;
typedef NS_ENUM(NSInteger, SCStreamErrorCode) { SCStreamErrorUserDeclined SC_AVAILABLE(12.3) = -3801 };

SC_AVAILABLE(12.3)
@interface SCRunningApplication : NSObject
@property(readonly) NSString* bundleIdentifier;
@property(readonly) NSString* applicationName;
@property(readonly) pid_t processID;
@end

SC_AVAILABLE(12.3)
@interface SCWindow : NSObject
@property(readonly) CGWindowID windowID;
@property(readonly) CGRect frame;
@property(readonly, nullable) NSString* title;
@property(readonly) NSInteger windowLayer;
@property(readonly, nullable) SCRunningApplication* owningApplication;
@property(readonly, getter=isOnScreen) BOOL onScreen;
@end

SC_AVAILABLE(12.3)
@interface SCShareableContent : NSObject
+ (void)getShareableContentExcludingDesktopWindows:(BOOL)excludeDesktopWindows
                               onScreenWindowsOnly:(BOOL)onScreenWindowsOnly
                                 completionHandler:(void (^)(SCShareableContent* _Nullable shareableContent,
                                                             NSError* _Nullable error))completionHandler;
@property(readonly) NSArray<SCWindow*>* windows;
@end

SC_AVAILABLE(12.3)
@interface SCContentFilter : NSObject
- (instancetype)initWithDesktopIndependentWindow:(SCWindow*)window;
@end

SC_AVAILABLE(12.3)
@interface SCStreamConfiguration : NSObject
@property(nonatomic, assign) size_t width;
@property(nonatomic, assign) size_t height;
@property(nonatomic, assign) BOOL showsCursor;
@property(nonatomic, assign) BOOL ignoreShadowsSingleWindow SC_AVAILABLE(14.0);
@end

SC_AVAILABLE(14.0)
@interface SCScreenshotManager : NSObject
+ (void)captureImageWithFilter:(SCContentFilter*)contentFilter
                 configuration:(SCStreamConfiguration*)config
             completionHandler:(nullable void (^)(CGImageRef _Nullable sampleBuffer,
                                                  NSError* _Nullable error))completionHandler;
@end

NS_ASSUME_NONNULL_END
