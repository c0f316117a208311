#include "platform/ClipboardService.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

namespace {

QClipboard *clipboard()
{
    return QGuiApplication::clipboard();
}

} // namespace

ClipboardService::ClipboardService(QObject *parent)
    : QObject(parent)
{
    connect(clipboard(), &QClipboard::dataChanged, this, &ClipboardService::clipboardChanged);
}

QString ClipboardService::getText() const
{
    return clipboard()->text(QClipboard::Clipboard);
}

QImage ClipboardService::getImage() const
{
    return clipboard()->image(QClipboard::Clipboard);
}

bool ClipboardService::hasText() const
{
    const QMimeData *data = clipboard()->mimeData(QClipboard::Clipboard);
    if (!data || !data->hasText())
        return false;
    // White space is text too: a clipboard holding a blank is not empty.
    return !data->text().isEmpty();
}

bool ClipboardService::hasImage() const
{
    const QMimeData *data = clipboard()->mimeData(QClipboard::Clipboard);
    return data && data->hasImage();
}

void ClipboardService::setText(const QString &text)
{
    clipboard()->setText(text, QClipboard::Clipboard);
}

void ClipboardService::setImage(const QImage &image)
{
    clipboard()->setImage(image, QClipboard::Clipboard);
}

ClipboardService::Snapshot ClipboardService::snapshot() const
{
    Snapshot result;
    const QMimeData *data = clipboard()->mimeData(QClipboard::Clipboard);
    if (!data)
        return result;
    result.formats = data->formats();
    for (const QString &format : std::as_const(result.formats))
        result.dataByFormat.insert(format, data->data(format));
    return result;
}

void ClipboardService::restore(const Snapshot &snapshot)
{
    auto *data = new QMimeData; // the clipboard takes ownership
    for (const QString &format : snapshot.formats)
        data->setData(format, snapshot.dataByFormat.value(format));
    clipboard()->setMimeData(data, QClipboard::Clipboard);
}
