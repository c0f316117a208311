// Declaration-only stand-in for Vision: what the Mac sources use, as Apple's headers declare it. The
// observation classes between VNObservation and VNRecognizedTextObservation are left out.
#pragma once

#include <CoreGraphics/CoreGraphics.h>
#import <Foundation/Foundation.h>

@class VNRequest;

typedef void (^VNRequestCompletionHandler)(VNRequest *request, NSError *error);
typedef NSString *VNImageOption;

typedef enum : NSInteger {
    VNRequestTextRecognitionLevelAccurate = 0,
    VNRequestTextRecognitionLevelFast
} VNRequestTextRecognitionLevel;

@interface VNObservation : NSObject
@end

@interface VNRecognizedText : NSObject
@property(readonly, copy) NSString *string;
@end

@interface VNRecognizedTextObservation : VNObservation
- (NSArray<VNRecognizedText *> *)topCandidates:(NSUInteger)maxCandidateCount;
@end

@interface VNRequest : NSObject
- (instancetype)initWithCompletionHandler:(VNRequestCompletionHandler)completionHandler;
@property(readonly, copy) NSArray<__kindof VNObservation *> *results;
@end

@interface VNImageBasedRequest : VNRequest
@end

@interface VNRecognizeTextRequest : VNImageBasedRequest
- (NSArray<NSString *> *)supportedRecognitionLanguagesAndReturnError:(NSError **)error;
@property(copy) NSArray<NSString *> *recognitionLanguages;
@property VNRequestTextRecognitionLevel recognitionLevel;
@property BOOL usesLanguageCorrection;
@property BOOL automaticallyDetectsLanguage;
@end

@interface VNImageRequestHandler : NSObject
- (instancetype)initWithCGImage:(CGImageRef)image options:(NSDictionary<VNImageOption, id> *)options;
- (BOOL)performRequests:(NSArray<VNRequest *> *)requests error:(NSError **)error;
@end
