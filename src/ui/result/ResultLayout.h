#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

#include <initializer_list>

class QTextEdit;
class QVBoxLayout;
class QWidget;

// How the result window shares its height between the source and the result area.
namespace ResultLayout {

// Neither text area grows past this; longer text scrolls.
constexpr int kResultCap = 400;
constexpr int kSourceCapWithResult = 160;
constexpr int kSourceCapAlone = 240;

// What each shown area would like (its text at full height, capped) and needs at least (one line).
struct HeightWishes
{
    bool sourceShown = false;
    bool resultShown = false;
    int sourceWanted = 0;
    int sourceLeast = 0;
    int resultWanted = 0;
    int resultLeast = 0;
    // A request is running or the result is still empty: the result area keeps room for what is coming.
    bool waiting = false;
    // The height the two areas may share; negative while the window is not shown (no budget yet).
    int room = -1;
};

struct HeightPlan
{
    int source = 0;
    int result = 0;
};

// The heights to give the areas (0 for an area not shown). When both wishes do not fit the room, each area
// gives way in proportion to its wish, never below its least height.
HeightPlan heightPlan(const HeightWishes &wishes);

// The height that shows all of the area's text at its current width, between one line and `cap` (0: one
// line only). Lays the document out at the viewport's width first.
int textAreaHeight(QTextEdit *area, int cap);

// The height the `sharing` widgets may take together in a column no taller than `maxHeight`: what the
// column's other shown rows, its margins and spacing leave.
int roomFor(const QVBoxLayout *column, int maxHeight, std::initializer_list<const QWidget *> sharing);

// Where a window of this size sits centred on the available area of the screen under the cursor.
QPoint centredUnderCursor(const QSize &size);

// Where a window at `frame` goes so that content it grew with stays on `available`: moved up (and left) only
// as far as needed, never past the area's top-left corner.
QPoint keptOn(const QRect &available, const QRect &frame);

} // namespace ResultLayout
