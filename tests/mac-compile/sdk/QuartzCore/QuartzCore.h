// Declaration-only stand-in for Core Animation: what the Mac sources use, as Apple's headers declare it.
#pragma once

#include <CoreGraphics/CoreGraphics.h>
#import <Foundation/Foundation.h>

@interface CALayer : NSObject
@property CGFloat cornerRadius;
@property BOOL masksToBounds;
@end
