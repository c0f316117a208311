// Empty implementations of the Objective-C classes the Mac sources send messages to, so that their class
// references resolve when the compile check links. Only the class symbols matter; no method ever runs.
#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>
#import <Vision/Vision.h>

#pragma clang diagnostic ignored "-Wincomplete-implementation"
#pragma clang diagnostic ignored "-Wobjc-property-implementation"
#pragma clang diagnostic ignored "-Wprotocol"

__kindof NSApplication *NSApp = nil;
// Foundation's shared empty dictionary, which clang uses for the literal @{}.
extern "C" {
NSDictionary *__NSDictionary0__ = nil;
}

@implementation NSObject
@end
@implementation NSString
@end
@implementation NSArray
@end
@implementation NSMutableArray
@end
@implementation NSResponder
@end
@implementation NSRunningApplication
@end
@implementation NSWorkspace
@end
@implementation VNRequest
@end
@implementation VNImageBasedRequest
@end
@implementation VNRecognizeTextRequest
@end
@implementation VNImageRequestHandler
@end
