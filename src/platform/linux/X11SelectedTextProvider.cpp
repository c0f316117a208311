#include "platform/linux/X11SelectedTextProvider.h"

#include "log/LogCategories.h"

#include <QClipboard>
#include <QDebug>
#include <QGuiApplication>

QString X11SelectedTextProvider::selectedText()
{
    QClipboard *clipboard = QGuiApplication::clipboard();
    if (!clipboard->supportsSelection()) {
        qCDebug(lcPlatform).noquote() << "X11SelectedTextProvider: this session has no PRIMARY selection";
        return QString();
    }
    const QString text = clipboard->text(QClipboard::Selection).trimmed();
    qCDebug(lcPlatform).noquote() << "X11SelectedTextProvider: PRIMARY selection length =" << text.size();
    return text;
}
