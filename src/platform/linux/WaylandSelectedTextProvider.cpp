#include "platform/linux/WaylandSelectedTextProvider.h"

#include "log/LogCategories.h"
#include "platform/linux/WaylandDataControl.h"

#include <QClipboard>
#include <QDebug>
#include <QGuiApplication>

#include <chrono>

QString WaylandSelectedTextProvider::selectedText()
{
    QClipboard *clipboard = QGuiApplication::clipboard();
    if (!clipboard->ownsSelection()) {
        using namespace std::chrono_literals;
        if (const std::optional<QString> text =
                WaylandDataControl::text(WaylandDataControl::Selection::Primary, 1000ms)) {
            qCDebug(lcPlatform).noquote()
                << "WaylandSelectedTextProvider: primary selection through data control, length ="
                << text->size();
            return text->trimmed();
        }
    }
    if (!clipboard->supportsSelection())
        return QString();
    return clipboard->text(QClipboard::Selection).trimmed();
}
