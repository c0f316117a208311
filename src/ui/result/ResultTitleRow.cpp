#include "ui/result/ResultTitleRow.h"

#include "ui/IconTint.h"
#include "ui/result/ResultWindowStyle.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

namespace {

QPushButton *makeButton(QWidget *parent, const char *name)
{
    auto *button = new QPushButton(parent);
    button->setObjectName(QLatin1String(name));
    button->setFixedSize(24, 24);
    button->setCursor(Qt::PointingHandCursor);
    button->setIconSize(QSize(16, 16));
    return button;
}

} // namespace

ResultTitleRow::ResultTitleRow(QWidget *window, const ThemeColors &colors)
    : QObject(window)
    , m_layout(new QHBoxLayout)
{
    m_layout->setContentsMargins(0, 0, 0, 0);
    m_layout->setSpacing(6);
    auto *icon = new QLabel(window);
    icon->setFixedSize(18, 18);
    icon->setAlignment(Qt::AlignCenter);
    icon->setPixmap(
        tintedMenuIcon(QStringLiteral(":/icons/vontrel-menu-icon.svg"), QColor(colors.textPrimary))
            .pixmap(18, 18));
    m_layout->addWidget(icon);
    m_title = new QLabel(window);
    m_title->setStyleSheet(ResultWindowStyle::title(colors));
    m_layout->addWidget(m_title);
    m_layout->addStretch();

    m_pin = makeButton(window, "pinButton");
    connect(m_pin, &QPushButton::clicked, this, &ResultTitleRow::pinClicked);
    m_layout->addWidget(m_pin);
    m_close = makeButton(window, "closeButton");
    m_close->setIcon(tintedMenuIcon(QStringLiteral(":/icons/close.svg"), QColor(colors.errorColor)));
    m_close->setStyleSheet(ResultWindowStyle::closeButton(colors));
    connect(m_close, &QPushButton::clicked, this, &ResultTitleRow::closeClicked);
    m_layout->addWidget(m_close);

    showPinned(false);
    retranslate();
}

void ResultTitleRow::showPinned(bool pinned)
{
    m_pinned = pinned;
    const ThemeColors colors = vontrelThemeColors();
    const QString icon = pinned ? QStringLiteral(":/icons/ic-baseline-push-pin.svg")
                                : QStringLiteral(":/icons/ic-baseline-pin-off.svg");
    m_pin->setIcon(tintedMenuIcon(icon, QColor(pinned ? colors.accentText : colors.iconColor)));
    m_pin->setStyleSheet(ResultWindowStyle::pinButton(pinned, colors));
    retranslate();
}

void ResultTitleRow::retranslate()
{
    m_title->setText(tr("Vontrel"));
    m_close->setToolTip(tr("Close"));
    m_pin->setToolTip(m_pinned ? tr("Unpin window") : tr("Pin window"));
}
