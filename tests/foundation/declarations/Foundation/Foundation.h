#pragma once

// What the room uses of macOS's Foundation and Core Foundation, declared by hand from their documentation and
// no more than that: so that a compiler can hold the parts for macOS to it on a system that has neither.
// Nothing is ever linked with this.

#include <cstddef>
#include <cstdint>

using BOOL = signed char;
using NSInteger = long;
using NSUInteger = unsigned long;
using NSStringEncoding = NSUInteger;
using NSTimeInterval = double;

#define YES static_cast<BOOL>(1)
#define NO static_cast<BOOL>(0)
#define nil nullptr

@class NSArray, NSData, NSDate, NSDictionary, NSString;

__attribute__((objc_root_class))
@interface NSObject
+ (instancetype)alloc;
+ (Class)class;
- (Class)class;
- (instancetype)init;
- (instancetype)retain;
- (void)release;
- (instancetype)autorelease;
- (BOOL)isKindOfClass:(Class)kind;
@end

@interface NSAutoreleasePool : NSObject
@end

constexpr NSStringEncoding NSUTF8StringEncoding = 4;

@interface NSString : NSObject
- (instancetype)initWithBytes:(const void *)bytes
                       length:(NSUInteger)length
                     encoding:(NSStringEncoding)encoding;
- (NSData *)dataUsingEncoding:(NSStringEncoding)encoding;
- (NSString *)stringByDeletingLastPathComponent;
- (BOOL)isEqualToString:(NSString *)other;
@end

@interface NSData : NSObject
+ (instancetype)dataWithBytesNoCopy:(void *)bytes length:(NSUInteger)length freeWhenDone:(BOOL)frees;
- (const void *)bytes;
- (NSUInteger)length;
@end

@interface NSNumber : NSObject
+ (NSNumber *)numberWithBool:(BOOL)value;
- (BOOL)boolValue;
@end

@interface NSArray : NSObject
+ (instancetype)arrayWithObject:(id)object;
- (NSUInteger)count;
- (id)objectAtIndex:(NSUInteger)index;
@end

@interface NSDictionary : NSObject
+ (instancetype)dictionaryWithObject:(id)object forKey:(id)key;
+ (instancetype)dictionaryWithContentsOfFile:(NSString *)path;
- (id)objectForKey:(id)key;
@end

@interface NSDate : NSObject
+ (instancetype)dateWithTimeIntervalSinceNow:(NSTimeInterval)seconds;
+ (NSDate *)distantPast;
@end

@interface NSThread : NSObject
+ (void)sleepUntilDate:(NSDate *)date;
@end

extern NSString *const NSDefaultRunLoopMode;

@interface NSRunLoop : NSObject
+ (NSRunLoop *)currentRunLoop;
- (BOOL)runMode:(NSString *)mode beforeDate:(NSDate *)limit;
@end

struct NSOperatingSystemVersion {
    NSInteger majorVersion;
    NSInteger minorVersion;
    NSInteger patchVersion;
};

@interface NSProcessInfo : NSObject
+ (NSProcessInfo *)processInfo;
- (NSArray *)arguments;
- (NSOperatingSystemVersion)operatingSystemVersion;
@end

@interface NSBundle : NSObject
+ (NSBundle *)mainBundle;
+ (instancetype)bundleWithPath:(NSString *)path;
- (NSString *)bundlePath;
- (NSString *)executablePath;
- (NSDictionary *)infoDictionary;
- (id)objectForInfoDictionaryKey:(NSString *)key;
- (NSString *)localizedStringForKey:(NSString *)key value:(NSString *)value table:(NSString *)table;
- (NSString *)pathForResource:(NSString *)name
                       ofType:(NSString *)extension
                  inDirectory:(NSString *)folder
              forLocalization:(NSString *)language;
@end

@interface NSNotification : NSObject
- (id)object;
- (NSDictionary *)userInfo;
@end

@interface NSNotificationCenter : NSObject
- (void)removeObserver:(id)observer;
@end

@interface NSDistributedNotificationCenter : NSNotificationCenter
+ (NSDistributedNotificationCenter *)defaultCenter;
- (void)addObserver:(id)observer selector:(SEL)selector name:(NSString *)name object:(NSString *)object;
- (void)setSuspended:(BOOL)suspended;
- (void)postNotificationName:(NSString *)name object:(NSString *)object;
- (void)postNotificationName:(NSString *)name object:(NSString *)object userInfo:(NSDictionary *)userInfo;
@end

using CFStringRef = const struct __CFString *;
using CFArrayRef = const struct __CFArray *;

#define CFSTR(text) reinterpret_cast<CFStringRef>(__builtin___CFStringMakeConstantString(text))

extern "C" {
extern const CFStringRef kCFPreferencesCurrentApplication;
void CFPreferencesSetAppValue(CFStringRef key, const void *value, CFStringRef application);
}
