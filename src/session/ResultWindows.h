#pragma once

#include "session/IResultView.h"

#include <QList>
#include <QString>

#include <functional>

// The open result windows: the current one (replaced by the next session unless pinned) and the pinned
// ones (kept until the user closes them). Each has an id "window_%1" that runs are tagged with, so a late
// answer finds its window or nothing. Owns the views.
class ResultWindows final
{
public:
    using Factory = std::function<IResultView *()>;
    // The requests a view with this id sends to the session; pinning and closing are seen here first.
    using RequestsFor = std::function<IResultView::Requests(const QString &id)>;

    ResultWindows(Factory factory, RequestsFor requestsFor);
    ~ResultWindows();
    ResultWindows(const ResultWindows &) = delete;
    ResultWindows &operator=(const ResultWindows &) = delete;

    // The current window stops being current; unless pinned, it is discarded.
    void releaseCurrent();
    // Hides and frees the window without a report from it, pinned or not.
    void discard(const QString &id);
    // Releases the current window and makes a new current one. Null without a factory.
    IResultView *open(bool pinned);

    IResultView *current() const { return m_current ? m_current->view : nullptr; }
    QString currentId() const { return m_current ? m_current->id : QString(); }
    // The window with this id, current or pinned; null once it is closed.
    IResultView *find(const QString &id) const;
    QList<IResultView *> pinned() const;

private:
    struct Entry
    {
        QString id;
        IResultView *view = nullptr;
        bool pinned = false;
    };

    Entry *entry(const QString &id) const;
    void onPinChanged(const QString &id, bool pinned);
    void onClosed(const QString &id);
    void drop(Entry *entry);

    Factory m_factory;
    RequestsFor m_requestsFor;
    QList<Entry *> m_entries;
    Entry *m_current = nullptr;
    qint64 m_nextNumber = 1;
};
