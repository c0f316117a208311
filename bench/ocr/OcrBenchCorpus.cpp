#include "OcrBenchCorpus.h"
#include "OcrBenchTexts.h"

#include <QFont>
#include <QFontMetrics>
#include <QPainter>
#include <QRandomGenerator>

namespace {

struct Theme
{
    QColor background;
    QColor text;
};

// Typical window and panel colours of light and dark desktops.
const Theme kLightThemes[] = {{QColor(QRgb(0xffffff)), QColor(QRgb(0x1d1d1f))},
                              {QColor(QRgb(0xf5f5f7)), QColor(QRgb(0x333333))},
                              {QColor(QRgb(0xececec)), QColor(QRgb(0x000000))}};
const Theme kDarkThemes[] = {{QColor(QRgb(0x1e1e1e)), QColor(QRgb(0xe0e0e0))},
                             {QColor(QRgb(0x2b2b2b)), QColor(QRgb(0xffffff))},
                             {QColor(QRgb(0x282c34)), QColor(QRgb(0xabb2bf))}};

QFont fontFor(const QString &language, int pixelSize, int variant)
{
    QString family;
    if (language == QLatin1String("code"))
        family = variant % 2 ? QStringLiteral("Noto Sans Mono") : QStringLiteral("DejaVu Sans Mono");
    else if (language == QLatin1String("en"))
        family = variant % 2 ? QStringLiteral("Nimbus Sans") : QStringLiteral("DejaVu Sans");
    else
        family = QStringLiteral("Noto Sans CJK SC");
    QFont font(family);
    font.setPixelSize(pixelSize);
    font.setHintingPreference(QFont::PreferNoHinting);
    return font;
}

// Lines of text drawn on a page of the theme's background; `textRect` is where the lines are, in logical
// pixels.
struct Page
{
    QImage image;
    QRect textRect;
    int lineStep = 0;
};

Page renderPage(const QStringList &lines, const QFont &font, const Theme &theme, int ratio, int marginX,
                int marginY, qreal spacing)
{
    const QFontMetrics metrics(font);
    int textWidth = 0;
    for (const QString &line : lines)
        textWidth = qMax(textWidth, metrics.horizontalAdvance(line));
    Page page;
    page.lineStep = qRound(metrics.height() * spacing);
    const int textHeight = page.lineStep * (int(lines.size()) - 1) + metrics.height();
    const QSize logical(textWidth + 2 * marginX, textHeight + 2 * marginY);
    page.textRect = QRect(marginX, marginY, textWidth, textHeight);
    page.image = QImage(logical * ratio, QImage::Format_RGB32);
    page.image.setDevicePixelRatio(ratio);
    page.image.fill(theme.background);
    QPainter painter(&page.image);
    painter.setRenderHint(QPainter::TextAntialiasing, true);
    painter.setFont(font);
    painter.setPen(theme.text);
    for (int i = 0; i < lines.size(); ++i)
        painter.drawText(QPoint(marginX, marginY + metrics.ascent() + i * page.lineStep), lines.at(i));
    return page;
}

QStringList pickLines(QRandomGenerator &random, const QString &language, int count)
{
    const QStringList &texts = vontrelBenchOcrTexts(language);
    QStringList lines;
    const int first = int(random.bounded(texts.size()));
    for (int i = 0; i < count; ++i)
        lines << texts.at((first + i) % texts.size());
    return lines;
}

} // namespace

QVector<OcrBenchSample> vontrelBenchOcrSamples(int variants)
{
    QRandomGenerator random(20240314);
    QVector<OcrBenchSample> samples;
    const QStringList languages = {QStringLiteral("en"), QStringLiteral("zh"), QStringLiteral("mixed"),
                                   QStringLiteral("code")};
    const int sizes[] = {11, 12, 13, 14, 16, 18, 20};
    for (const QString &language : languages) {
        for (int pixelSize : sizes) {
            for (int ratio : {1, 2}) {
                for (bool dark : {false, true}) {
                    for (int variant = 0; variant < variants; ++variant) {
                        OcrBenchSample sample;
                        sample.language = language;
                        sample.pixelSize = pixelSize;
                        sample.ratio = ratio;
                        sample.dark = dark;
                        sample.lines = 1 + int(random.bounded(8));
                        const QStringList lines = pickLines(random, language, sample.lines);
                        sample.truth = lines.join(QLatin1Char('\n'));

                        const Theme theme =
                            dark ? kDarkThemes[random.bounded(3)] : kLightThemes[random.bounded(3)];
                        // A loosely dragged region: a few pixels of margin on each side, UI line spacing.
                        const int marginX = 4 + int(random.bounded(12));
                        const int marginY = 3 + int(random.bounded(10));
                        const qreal spacing = 1.15 + random.bounded(0.35);
                        sample.image = renderPage(lines, fontFor(language, pixelSize, variant), theme, ratio,
                                                  marginX, marginY, spacing)
                                           .image;
                        sample.name = QStringLiteral("%1-%2px-x%3-%4-%5")
                                          .arg(language)
                                          .arg(pixelSize)
                                          .arg(ratio)
                                          .arg(dark ? QStringLiteral("dark") : QStringLiteral("light"))
                                          .arg(variant);
                        samples.append(sample);
                    }
                }
            }
        }
    }
    return samples;
}

namespace {

// Fonts beyond the clean set's, so that the surroundings are not judged on one typeface.
QFont messyFont(QRandomGenerator &random, const QString &language, int pixelSize)
{
    static const QStringList latin = {QStringLiteral("DejaVu Sans"), QStringLiteral("Nimbus Sans"),
                                      QStringLiteral("DejaVu Serif"), QStringLiteral("URW Gothic"),
                                      QStringLiteral("Nimbus Sans Narrow")};
    static const QStringList cjk = {QStringLiteral("Noto Sans CJK SC"), QStringLiteral("Noto Serif CJK SC")};
    static const QStringList mono = {QStringLiteral("DejaVu Sans Mono"), QStringLiteral("Noto Sans Mono"),
                                     QStringLiteral("Nimbus Mono PS")};
    const QStringList &families =
        language == QLatin1String("code") ? mono : (language == QLatin1String("zh") ? cjk : latin);
    QFont font;
    QStringList chosen{families.at(int(random.bounded(families.size())))};
    if (language != QLatin1String("code") && language != QLatin1String("en"))
        chosen << cjk.at(int(random.bounded(cjk.size())));
    font.setFamilies(chosen);
    font.setPixelSize(pixelSize);
    font.setHintingPreference(random.bounded(2) ? QFont::PreferNoHinting : QFont::PreferFullHinting);
    return font;
}

QColor jitter(QRandomGenerator &random, QColor colour, int amount)
{
    const auto shift = [&](int v) {
        return std::clamp(v + int(random.bounded(2 * amount + 1)) - amount, 0, 255);
    };
    return QColor(shift(colour.red()), shift(colour.green()), shift(colour.blue()));
}

QColor pick(QRandomGenerator &random, std::initializer_list<QRgb> colours)
{
    return QColor(*(colours.begin() + random.bounded(int(colours.size()))));
}

// A new canvas of `logical` size in the background colour, the page drawn at `at`.
QImage canvasWith(const Page &page, QSize logical, QPoint at, const QColor &fill, int ratio)
{
    QImage canvas(logical * ratio, QImage::Format_RGB32);
    canvas.setDevicePixelRatio(ratio);
    canvas.fill(fill);
    QPainter painter(&canvas);
    painter.drawImage(at, page.image);
    return canvas;
}

} // namespace

QStringList vontrelBenchOcrArtefactKinds()
{
    return {QStringLiteral("outline"),     QStringLiteral("edge frame"),   QStringLiteral("cut line above"),
            QStringLiteral("icon"),        QStringLiteral("window dark"),  QStringLiteral("window light"),
            QStringLiteral("table rules"), QStringLiteral("desktop dark"), QStringLiteral("desktop light")};
}

QVector<OcrBenchSample> vontrelBenchOcrArtefactSamples(int perCombination, quint32 seed)
{
    QRandomGenerator random(seed);
    // Bold text (titles, buttons, table heads) from a generator of its own, so the rest of a seed's corpus
    // stays as it was.
    QRandomGenerator weights(seed ^ 0x9e3779b9U);
    QVector<OcrBenchSample> samples;
    const QStringList languages = {QStringLiteral("en"), QStringLiteral("zh"), QStringLiteral("mixed"),
                                   QStringLiteral("code")};
    int serial = 0;
    for (const QString &kind : vontrelBenchOcrArtefactKinds()) {
        for (int ratio : {1, 2}) {
            for (bool dark : {false, true}) {
                for (int n = 0; n < perCombination; ++n) {
                    OcrBenchSample sample;
                    sample.kind = kind;
                    sample.language = languages.at(int(random.bounded(languages.size())));
                    sample.pixelSize = 11 + int(random.bounded(10));
                    sample.ratio = ratio;
                    sample.dark = dark;
                    sample.lines = 1 + int(random.bounded(6));
                    const QStringList lines = pickLines(random, sample.language, sample.lines);
                    sample.truth = lines.join(QLatin1Char('\n'));
                    Theme theme = dark ? kDarkThemes[random.bounded(3)] : kLightThemes[random.bounded(3)];
                    theme.background = jitter(random, theme.background, 6);
                    QFont font = messyFont(random, sample.language, sample.pixelSize);
                    sample.bold = weights.bounded(4) == 0;
                    font.setBold(sample.bold);
                    const int px = sample.pixelSize;
                    const qreal spacing = 1.1 + random.bounded(0.4);
                    const QColor border =
                        dark ? pick(random, {0x4a4a4a, 0x5c5c5c, 0x6e6e6e, 0x3d6fb6})
                             : pick(random, {0x8c8c8c, 0xb0b0b0, 0xc8c8c8, 0x4a90d9, 0x000000});

                    QImage image;
                    if (kind == QLatin1String("outline") || kind == QLatin1String("edge frame")) {
                        // A text field or a framed box: padding inside the outline, the drag's slack outside.
                        const bool edge = kind == QLatin1String("edge frame");
                        const int pad = 2 + int(random.bounded(px / 2 + 3));
                        const int width = edge && random.bounded(2) ? 2 : 1;
                        const int slack = edge ? 0 : 1 + int(random.bounded(px / 2 + 4));
                        const Page page = renderPage(lines, font, theme, ratio, pad, pad, spacing);
                        const QSize logical = page.image.size() / ratio + QSize(2, 2) * (slack + width);
                        image = canvasWith(page, logical, QPoint(slack + width, slack + width),
                                           theme.background, ratio);
                        QPainter painter(&image);
                        const QColor frame = edge && random.bounded(2) ? theme.text : border;
                        painter.fillRect(QRect(slack, slack, logical.width() - 2 * slack, width), frame);
                        painter.fillRect(QRect(slack, logical.height() - slack - width,
                                               logical.width() - 2 * slack, width),
                                         frame);
                        painter.fillRect(QRect(slack, slack, width, logical.height() - 2 * slack), frame);
                        painter.fillRect(QRect(logical.width() - slack - width, slack, width,
                                               logical.height() - 2 * slack),
                                         frame);
                    } else if (kind == QLatin1String("cut line above")) {
                        // The lower part of the line before is in the region too.
                        QStringList withAbove = pickLines(random, sample.language, 1) + lines;
                        const int marginX = 3 + int(random.bounded(10));
                        const Page page = renderPage(withAbove, font, theme, ratio, marginX, 0, spacing);
                        const QFontMetrics metrics(font);
                        const int keep = qRound(metrics.height() * (0.3 + random.bounded(0.4)));
                        const int cut = metrics.height() - keep;
                        const int below = 2 + int(random.bounded(10));
                        const QRect logical(0, cut, page.image.width() / ratio,
                                            page.image.height() / ratio - cut + below);
                        image = QImage(logical.size() * ratio, QImage::Format_RGB32);
                        image.setDevicePixelRatio(ratio);
                        image.fill(theme.background);
                        QPainter painter(&image);
                        painter.drawImage(QPoint(0, -cut), page.image);
                    } else if (kind == QLatin1String("icon")) {
                        // File lists and menus: an icon before each line, or before the first only.
                        const int size = qRound(px * (1.0 + random.bounded(0.6)));
                        const int gap = 3 + int(random.bounded(px / 2 + 2));
                        const int left = 2 + int(random.bounded(8));
                        const int marginY = 2 + int(random.bounded(8));
                        const Page page =
                            renderPage(lines, font, theme, ratio, 0, marginY,
                                       qMax(spacing, 1.0 * size / QFontMetrics(font).height() + 0.1));
                        const int right = 3 + int(random.bounded(10));
                        const QSize logical(left + size + gap + page.image.width() / ratio + right,
                                            page.image.height() / ratio);
                        image =
                            canvasWith(page, logical, QPoint(left + size + gap, 0), theme.background, ratio);
                        QPainter painter(&image);
                        painter.setRenderHint(QPainter::Antialiasing, true);
                        const bool everyLine = random.bounded(2);
                        const int style = int(random.bounded(3));
                        const QColor fill =
                            pick(random, {0x3d7be0, 0xe8a33d, 0x5fa55a, 0xd9534f, 0x7a7a7a, 0x8e44ad});
                        const QFontMetrics metrics(font);
                        for (int i = 0; i < (everyLine ? lines.size() : 1); ++i) {
                            const int centreY = marginY + i * page.lineStep + metrics.height() / 2;
                            const QRectF box(left, centreY - size / 2.0, size, size);
                            painter.setPen(Qt::NoPen);
                            painter.setBrush(fill);
                            if (style == 0) {
                                painter.drawEllipse(box);
                            } else if (style == 1) {
                                painter.drawRoundedRect(box, size / 5.0, size / 5.0);
                            } else {
                                // A folder: a tab and a body.
                                painter.drawRoundedRect(
                                    QRectF(box.x(), box.y() + size * 0.1, size * 0.5, size * 0.3), 1, 1);
                                painter.drawRoundedRect(
                                    QRectF(box.x(), box.y() + size * 0.25, size, size * 0.65), 2, 2);
                            }
                            if (style != 2) {
                                // A symbol inside, as app and avatar icons have.
                                painter.setBrush(Qt::white);
                                painter.drawEllipse(box.center(), size * 0.18, size * 0.18);
                            }
                        }
                    } else if (kind.startsWith(QLatin1String("window"))) {
                        // The edge of the window beside or below, with or without its own border line.
                        const bool darkBand = kind == QLatin1String("window dark");
                        const QColor band = darkBand ? pick(random, {0x000000, 0x15171a, 0x2d2d2d, 0x3c3f41})
                                                     : pick(random, {0xffffff, 0xf0f0f0, 0xdcdcdc, 0xe8eef7});
                        const int marginX = 3 + int(random.bounded(10));
                        const int marginY = 3 + int(random.bounded(8));
                        const Page page = renderPage(lines, font, theme, ratio, marginX, marginY, spacing);
                        const QSize pageSize = page.image.size() / ratio;
                        const int side = int(random.bounded(4)); // left, right, top, bottom
                        const int extent =
                            random.bounded(2) ? 1 + int(random.bounded(3)) : 3 + int(random.bounded(px * 2));
                        const bool horizontal = side < 2;
                        const QSize logical = pageSize + (horizontal ? QSize(extent, 0) : QSize(0, extent));
                        const QPoint at(side == 0 ? extent : 0, side == 2 ? extent : 0);
                        image = canvasWith(page, logical, at, band, ratio);
                        if (random.bounded(2) && extent > 2) {
                            QPainter painter(&image);
                            const QRect line = side == 0   ? QRect(extent - 1, 0, 1, logical.height())
                                               : side == 1 ? QRect(pageSize.width(), 0, 1, logical.height())
                                               : side == 2 ? QRect(0, extent - 1, logical.width(), 1)
                                                           : QRect(0, pageSize.height(), logical.width(), 1);
                            painter.fillRect(line, border);
                        }
                    } else if (kind == QLatin1String("table rules")) {
                        const int marginX = 2 + int(random.bounded(10));
                        const int gap = 2 + int(random.bounded(px / 2 + 2));
                        const int beyond = int(random.bounded(px));
                        const int width = random.bounded(3) ? 1 : 2;
                        const Page page = renderPage(lines, font, theme, ratio, marginX, 0, spacing);
                        const QSize pageSize = page.image.size() / ratio;
                        const int top = beyond + width + gap;
                        const QSize logical(pageSize.width(), pageSize.height() + 2 * top);
                        image = canvasWith(page, logical, QPoint(0, top), theme.background, ratio);
                        QPainter painter(&image);
                        const QColor rule = random.bounded(2) ? border : jitter(random, theme.text, 20);
                        painter.fillRect(QRect(0, beyond, logical.width(), width), rule);
                        painter.fillRect(QRect(0, logical.height() - beyond - width, logical.width(), width),
                                         rule);
                        if (random.bounded(2)) {
                            // A column rule at one side, as in a grid.
                            painter.fillRect(QRect(random.bounded(2) ? 0 : logical.width() - width, 0, width,
                                                   logical.height()),
                                             rule);
                        }
                    } else {
                        // The region reaches past the window onto the desktop on one to three sides.
                        const bool darkDesktop = kind == QLatin1String("desktop dark");
                        const QColor desktop =
                            darkDesktop ? pick(random, {0x000000, 0x1d1f21, 0x2e3440, 0x243447, 0x3b2f4a})
                                        : pick(random, {0xf0f0f0, 0xd8dee9, 0xc0c0c0, 0xa8c8e8, 0xe0d8c8});
                        const int marginX = 4 + int(random.bounded(12));
                        const int marginY = 3 + int(random.bounded(10));
                        const Page page = renderPage(lines, font, theme, ratio, marginX, marginY, spacing);
                        const QSize pageSize = page.image.size() / ratio;
                        int outside[4] = {0, 0, 0, 0}; // left, top, right, bottom
                        const int sides = 1 + int(random.bounded(3));
                        for (int i = 0; i < sides; ++i)
                            outside[random.bounded(4)] = 4 + int(random.bounded(qMax(8, px * 2)));
                        const QSize logical(pageSize.width() + outside[0] + outside[2],
                                            pageSize.height() + outside[1] + outside[3]);
                        image = canvasWith(page, logical, QPoint(outside[0], outside[1]), desktop, ratio);
                        if (random.bounded(2)) {
                            QPainter painter(&image);
                            painter.setPen(QPen(border, 1));
                            painter.setBrush(Qt::NoBrush);
                            painter.drawRect(
                                QRect(QPoint(outside[0], outside[1]), pageSize).adjusted(-1, -1, 0, 0));
                        }
                    }
                    sample.image = image;
                    sample.name =
                        QStringLiteral("%1-%2-%3px-x%4-%5-%6")
                            .arg(QString(kind).replace(QLatin1Char(' '), QLatin1Char('_')), sample.language)
                            .arg(sample.pixelSize)
                            .arg(ratio)
                            .arg(dark ? QStringLiteral("dark") : QStringLiteral("light"))
                            .arg(serial++);
                    samples.append(sample);
                }
            }
        }
    }
    return samples;
}
