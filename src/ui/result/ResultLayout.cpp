#include "ui/result/ResultLayout.h"

#include <QAbstractTextDocumentLayout>
#include <QCursor>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QScreen>
#include <QTextDocument>
#include <QTextEdit>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace ResultLayout {

namespace {

constexpr int kSourceCapWhileWaiting = 280;
constexpr int kResultMinWhileWaiting = 160;

} // namespace

HeightPlan heightPlan(const HeightWishes &wishes)
{
    if (!wishes.sourceShown)
        return {0, wishes.resultShown ? wishes.resultWanted : 0};
    if (!wishes.resultShown)
        return {wishes.sourceWanted, 0};

    int source = wishes.sourceWanted;
    int result = wishes.resultWanted;
    if (wishes.waiting) {
        source = std::min(source, kSourceCapWhileWaiting);
        result = std::max(result, kResultMinWhileWaiting);
    }
    const int total = source + result;
    if (wishes.room < 0 || total <= wishes.room)
        return {source, result};

    const int room = std::max(wishes.room, wishes.sourceLeast + wishes.resultLeast);
    int s = wishes.sourceLeast;
    int r = wishes.resultLeast;
    if (total > 0 && room > 0) {
        s = std::max(static_cast<int>(static_cast<qint64>(source) * room / total), wishes.sourceLeast);
        r = std::max(static_cast<int>(static_cast<qint64>(result) * room / total), wishes.resultLeast);
        // Rounding leaves a few pixels: the source takes what it still wants, the result the rest.
        int rest = room - s - r;
        if (rest > 0) {
            const int toSource = std::min(rest, std::max(source - s, 0));
            s += toSource;
            rest -= toSource;
            r += rest;
        }
    }
    return {std::min(s, kResultCap), std::min(r, kResultCap)};
}

int textAreaHeight(QTextEdit *area, int cap)
{
    QTextDocument *doc = area->document();
    QWidget *viewport = area->viewport();
    // Setting the width lays the whole document out again even when it does not change, which would make
    // every streamed chunk cost as much as the entire text so far.
    if (viewport->width() > 0 && !qFuzzyCompare(doc->textWidth(), qreal(viewport->width())))
        doc->setTextWidth(viewport->width());

    int chrome = 34;
    if (area->height() > 0 && viewport->height() > 0)
        chrome = std::max(area->height() - viewport->height(), 0) + 2;

    const int low = QFontMetrics(area->font()).height() + chrome;
    const int high = std::max(cap, low);
    const int docHeight = static_cast<int>(std::ceil(doc->documentLayout()->documentSize().height()));
    return std::clamp(docHeight + chrome, low, high);
}

int roomFor(const QVBoxLayout *column, int maxHeight, std::initializer_list<const QWidget *> sharing)
{
    int rows = 0;
    int used = 0;
    for (int i = 0; i < column->count(); ++i) {
        QLayoutItem *item = column->itemAt(i);
        const QWidget *widget = item->widget();
        if (widget && widget->isHidden())
            continue;
        ++rows;
        if (std::find(sharing.begin(), sharing.end(), widget) == sharing.end())
            used += item->sizeHint().height();
    }
    const QMargins margins = column->contentsMargins();
    return maxHeight - margins.top() - margins.bottom() - used - (std::max(rows, 1) - 1) * column->spacing();
}

QPoint centredUnderCursor(const QSize &size)
{
    QScreen *screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (!screen)
        return {};
    const QRect available = screen->availableGeometry();
    return {available.left() + (available.width() - size.width()) / 2,
            available.top() + (available.height() - size.height()) / 2};
}

QPoint keptOn(const QRect &available, const QRect &frame)
{
    QPoint at = frame.topLeft();
    at.setY(std::max(available.top(), std::min(at.y(), available.bottom() + 1 - frame.height())));
    at.setX(std::max(available.left(), std::min(at.x(), available.right() + 1 - frame.width())));
    return at;
}

} // namespace ResultLayout
