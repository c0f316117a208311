#include "platform/mac/MacOcrAdapter.h"
#include "log/LogCategories.h"
#include "platform/mac/MacCf.h"

#include <CoreGraphics/CoreGraphics.h>
#import <Foundation/Foundation.h>
#import <Vision/Vision.h>

#include <QDebug>

namespace {

QString qStringFromNs(NSString *string)
{
    return macQStringFromCf((__bridge CFStringRef)string);
}

NSString *nsStringFromQ(const QString &string)
{
    return [NSString stringWithCharacters:reinterpret_cast<const unichar *>(string.utf16())
                                   length:NSUInteger(string.size())];
}

// Vision reads a CGImage; this one wraps the converted image's own pixels, which must outlive it.
CfRef<CGImageRef> cgImageOver(QImage &rgba)
{
    const CfRef<CGColorSpaceRef> colorSpace(CGColorSpaceCreateDeviceRGB());
    const CfRef<CGContextRef> context(CGBitmapContextCreate(
        rgba.bits(), size_t(rgba.width()), size_t(rgba.height()), 8, size_t(rgba.bytesPerLine()),
        colorSpace.get(), kCGImageAlphaPremultipliedLast | kCGBitmapByteOrder32Big));
    return CfRef<CGImageRef>(context ? CGBitmapContextCreateImage(context.get()) : nullptr);
}

void chooseLanguages(VNRecognizeTextRequest *request)
{
    NSError *error = nil;
    NSArray<NSString *> *supported = [request supportedRecognitionLanguagesAndReturnError:&error];
    if (!supported) {
        qCWarning(lcOcr).noquote() << "MacOcrAdapter: Failed to get supported languages:"
                                   << qStringFromNs(error.localizedDescription);
        return;
    }
    qCDebug(lcOcr).noquote() << "MacOcrAdapter: Supported languages count:" << supported.count;
    QStringList codes;
    for (NSString *code in supported)
        codes.append(qStringFromNs(code));
    qsizetype chinese = 0;
    const QStringList chosen = MacOcrAdapter::recognitionLanguages(codes, &chinese);
    qCDebug(lcOcr).noquote() << "MacOcrAdapter: Using languages:" << chosen.size() << "(Chinese:" << chinese
                             << ", English:" << chosen.size() - chinese << ")";
    if (chosen.isEmpty())
        return;
    NSMutableArray<NSString *> *languages = [NSMutableArray arrayWithCapacity:NSUInteger(chosen.size())];
    for (const QString &code : chosen)
        [languages addObject:nsStringFromQ(code)];
    request.recognitionLanguages = languages;
}

} // namespace

QString MacOcrAdapter::recognize(QImage image)
{
    if (image.isNull()) {
        qCWarning(lcOcr).noquote() << "MacOcrAdapter: Input image is null";
        return QString();
    }
    @autoreleasepool {
        QImage rgba = image.convertToFormat(QImage::Format_RGBA8888);
        const CfRef<CGImageRef> cgImage = cgImageOver(rgba);
        if (!cgImage) {
            qCWarning(lcOcr).noquote() << "MacOcrAdapter: Failed to create CGImage";
            return QString();
        }

        // performRequests: is synchronous, so the handler has run before it returns and may write to locals.
        QString text;
        QString *textOut = &text;
        __block NSError *recognitionError = nil;
        VNRecognizeTextRequest *request =
            [[VNRecognizeTextRequest alloc] initWithCompletionHandler:^(VNRequest *done, NSError *error) {
                if (error) {
                    recognitionError = error;
                    return;
                }
                for (VNRecognizedTextObservation *observation in done.results) {
                    VNRecognizedText *candidate = [observation topCandidates:1].firstObject;
                    if (candidate)
                        MacOcrAdapter::appendLine(*textOut, qStringFromNs(candidate.string));
                }
            }];
        request.recognitionLevel = VNRequestTextRecognitionLevelAccurate;
        request.usesLanguageCorrection = YES;
        if (@available(macOS 13.0, *))
            request.automaticallyDetectsLanguage = YES;
        chooseLanguages(request);

        VNImageRequestHandler *handler = [[VNImageRequestHandler alloc] initWithCGImage:cgImage.get()
                                                                                options:@{}];
        NSError *performError = nil;
        if (![handler performRequests:@[ request ] error:&performError]) {
            qCWarning(lcOcr).noquote() << "MacOcrAdapter: Failed to perform OCR request:"
                                       << qStringFromNs(performError.localizedDescription);
            return QString();
        }
        if (recognitionError) {
            qCWarning(lcOcr).noquote() << "MacOcrAdapter: OCR recognition error:"
                                       << qStringFromNs(recognitionError.localizedDescription);
            return QString();
        }
        return text;
    }
}
