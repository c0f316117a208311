#include "ui/preferences/PreferencesPageLayout.h"

#include <QFrame>
#include <QLabel>
#include <QVBoxLayout>

namespace PreferencesPageLayout {

QVBoxLayout *pageLayout(QWidget *page)
{
    auto *layout = new QVBoxLayout(page);
    layout->setContentsMargins(24, 24, 24, 24);
    layout->setSpacing(18);
    layout->setAlignment(Qt::AlignTop);
    return layout;
}

QLabel *titleLabel(QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setObjectName(QStringLiteral("SettingsTitle"));
    return label;
}

QFrame *card(QWidget *parent, int left, int top, int right, int bottom, int spacing)
{
    auto *frame = new QFrame(parent);
    frame->setObjectName(QStringLiteral("SettingsCard"));
    auto *layout = new QVBoxLayout(frame);
    layout->setContentsMargins(left, top, right, bottom);
    layout->setSpacing(spacing);
    return frame;
}

QFrame *divider(QWidget *parent)
{
    auto *line = new QFrame(parent);
    line->setObjectName(QStringLiteral("CardDivider"));
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Plain);
    return line;
}

QLabel *wrappedLabel(QWidget *parent, const char *objectName)
{
    auto *label = new QLabel(parent);
    label->setObjectName(QString::fromLatin1(objectName));
    label->setWordWrap(true);
    return label;
}

} // namespace PreferencesPageLayout
