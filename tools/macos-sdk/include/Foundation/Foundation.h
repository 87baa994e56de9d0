// Declaration-only stand-in for Apple's Foundation headers (see CoreFoundation.h).
#pragma once
#include <CoreFoundation/CoreFoundation.h>

typedef long NSInteger;
typedef unsigned long NSUInteger;
#if defined(__arm64__) || defined(__aarch64__)
typedef bool BOOL;
#else
typedef signed char BOOL;
#endif
#define YES ((BOOL)1)
#define NO ((BOOL)0)
#define nil nullptr

#define NS_ENUM(_type, _name) CF_ENUM(_type, _name)
#define NS_OPTIONS(_type, _name) CF_OPTIONS(_type, _name)
#define NS_ASSUME_NONNULL_BEGIN _Pragma("clang assume_nonnull begin")
#define NS_ASSUME_NONNULL_END _Pragma("clang assume_nonnull end")

NS_ASSUME_NONNULL_BEGIN

__attribute__((objc_root_class))
@interface NSObject
+ (instancetype)alloc;
+ (instancetype)new;
- (instancetype)init;
@end

typedef NSUInteger NSStringEncoding;
enum : NSStringEncoding { NSUTF8StringEncoding = 4 };

@interface NSString : NSObject
+ (nullable instancetype)stringWithUTF8String:(const char*)nullTerminatedCString;
- (nullable instancetype)initWithBytes:(const void*)bytes length:(NSUInteger)len encoding:(NSStringEncoding)encoding;
@property(nullable, readonly) const char* UTF8String;
@property(readonly) NSUInteger length;
- (BOOL)isEqualToString:(NSString*)aString;
@end


typedef struct {
  unsigned long state;
  id __unsafe_unretained _Nullable* _Nullable itemsPtr;
  unsigned long* _Nullable mutationsPtr;
  unsigned long extra[5];
} NSFastEnumerationState;

@protocol NSFastEnumeration
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState*)state
                                  objects:(id __unsafe_unretained _Nullable[_Nonnull])buffer
                                    count:(NSUInteger)len;
@end

@interface NSError : NSObject
@property(readonly, copy) NSString* domain;
@property(readonly, copy) NSString* localizedDescription;
@property(readonly) NSInteger code;
@end

@interface NSArray<__covariant ObjectType> : NSObject <NSFastEnumeration>
@property(readonly) NSUInteger count;
- (ObjectType)objectAtIndex:(NSUInteger)index;
@property(nonatomic, readonly, nullable) ObjectType firstObject;
@end

@interface NSURL : NSObject
+ (NSURL*)fileURLWithPath:(NSString*)path;
@property(nullable, readonly, copy) NSString* path;
@end

@interface NSBundle : NSObject
@property(class, readonly, strong) NSBundle* mainBundle;
@property(readonly, copy) NSString* bundlePath;
@end

typedef NS_ENUM(NSUInteger, NSSearchPathDirectory){
    NSCachesDirectory = 13,
};
typedef NS_OPTIONS(NSUInteger, NSSearchPathDomainMask){
    NSUserDomainMask = 1,
};

@interface NSFileManager : NSObject
@property(class, readonly, strong) NSFileManager* defaultManager;
- (NSString*)displayNameAtPath:(NSString*)path;
- (NSArray<NSURL*>*)URLsForDirectory:(NSSearchPathDirectory)directory inDomains:(NSSearchPathDomainMask)domainMask;
@end

#ifdef __cplusplus
extern "C" {
#endif
NSString* NSHomeDirectory(void);
#ifdef __cplusplus
}
#endif

NS_ASSUME_NONNULL_END
