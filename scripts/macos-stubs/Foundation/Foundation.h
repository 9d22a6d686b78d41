#pragma once
// Stand-in for scripts/check-macos-syntax.sh, declared as Apple documents it (see CoreFoundation.h).
#include <CoreFoundation/CoreFoundation.h>
typedef signed char BOOL;
#define nil nullptr
#define YES ((BOOL)1)
#define NO ((BOOL)0)
typedef long NSInteger;
#define NS_ENUM(type, name) enum name : type name; enum name : type
@interface NSObject
+ (instancetype)alloc;
@end
@interface NSString : NSObject
@property(readonly) const char* UTF8String;
@end
@interface NSError : NSObject
@property(readonly, copy) NSString* localizedDescription;
@end
@interface NSProcessInfo : NSObject
+ (NSProcessInfo*)processInfo;
@property(readonly, copy) NSString* operatingSystemVersionString;
@end
