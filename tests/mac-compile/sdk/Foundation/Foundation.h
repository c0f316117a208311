// Declaration-only stand-in for Foundation (and the few Objective-C runtime names it brings along): what the
// Mac sources use, as Apple's headers declare it.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

typedef bool BOOL;
#define YES __objc_yes
#define NO __objc_no
#ifndef nil
#define nil nullptr
#endif

typedef long NSInteger;
typedef unsigned long NSUInteger;
typedef unsigned short unichar;

__attribute__((objc_root_class))
@interface NSObject {
    Class isa;
}
+ (instancetype)alloc;
- (instancetype)init;
@end

@protocol NSCopying
@end

typedef struct
{
    unsigned long state;
    id __unsafe_unretained *itemsPtr;
    unsigned long *mutationsPtr;
    unsigned long extra[5];
} NSFastEnumerationState;

@protocol NSFastEnumeration
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState *)state
                                  objects:(id __unsafe_unretained[])buffer
                                    count:(NSUInteger)len;
@end

@interface NSString : NSObject <NSCopying>
+ (instancetype)stringWithCharacters:(const unichar *)characters length:(NSUInteger)length;
@end

@interface NSArray<ObjectType> : NSObject <NSFastEnumeration>
+ (instancetype)arrayWithObjects:(const ObjectType[])objects count:(NSUInteger)cnt;
@property(readonly) NSUInteger count;
@property(readonly) ObjectType firstObject;
@end

@interface NSMutableArray<ObjectType> : NSArray <ObjectType>
+ (instancetype)arrayWithCapacity:(NSUInteger)numItems;
- (void)addObject:(ObjectType)anObject;
@end

@interface NSDictionary<KeyType, ObjectType> : NSObject
+ (instancetype)dictionaryWithObjects:(const ObjectType[])objects
                              forKeys:(const id<NSCopying>[])keys
                                count:(NSUInteger)cnt;
@end

@interface NSError : NSObject
@property(readonly, copy) NSString *localizedDescription;
@end
