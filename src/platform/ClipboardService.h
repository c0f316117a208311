#pragma once

#include <QByteArray>
#include <QImage>
#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>

// The session's window onto the system clipboard (general mode, not the X11 selection): text and image,
// change notification, and a complete snapshot of every format that can be put back later. GUI thread only.
class ClipboardService final : public QObject
{
    Q_OBJECT

public:
    // Every format the clipboard offered, in its order, with a copy of its bytes. Empty = empty clipboard.
    struct Snapshot
    {
        QStringList formats;
        QMap<QString, QByteArray> dataByFormat;

        bool isEmpty() const { return formats.isEmpty() && dataByFormat.isEmpty(); }
    };

    explicit ClipboardService(QObject *parent = nullptr);

    // The clipboard's plain text; empty when it has none.
    QString getText() const;
    // The clipboard's image; null when it has none.
    QImage getImage() const;
    // True when the clipboard holds non-empty text; white space alone counts as text.
    bool hasText() const;
    bool hasImage() const;
    void setText(const QString &text);
    void setImage(const QImage &image);

    // Copies every format the clipboard offers now; empty when it has no data.
    Snapshot snapshot() const;
    // Replaces the clipboard with exactly the snapshot's formats; an empty snapshot empties the clipboard.
    void restore(const Snapshot &snapshot);

signals:
    // Every change of the system clipboard reported by the toolkit, including those made by restore().
    void clipboardChanged();
};

Q_DECLARE_METATYPE(ClipboardService::Snapshot)
