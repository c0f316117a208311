#include "session/ResultWindows.h"

ResultWindows::ResultWindows(Factory factory, RequestsFor requestsFor)
    : m_factory(std::move(factory))
    , m_requestsFor(std::move(requestsFor))
{}

ResultWindows::~ResultWindows()
{
    // Deleted at once rather than later: the event loop has usually ended when the session goes, and views
    // left for it would never be freed. Silenced first, so hiding a visible window reports to nobody.
    for (Entry *entry : std::as_const(m_entries)) {
        entry->view->setRequests({});
        delete entry->view;
        delete entry;
    }
}

void ResultWindows::releaseCurrent()
{
    if (m_current && !m_current->pinned)
        drop(m_current);
    m_current = nullptr;
}

void ResultWindows::discard(const QString &id)
{
    if (Entry *found = entry(id))
        drop(found);
}

IResultView *ResultWindows::open(bool pinned)
{
    releaseCurrent();
    if (!m_factory)
        return nullptr;

    auto *entry = new Entry{QStringLiteral("window_%1").arg(m_nextNumber++), m_factory(), false};
    m_entries.append(entry);
    m_current = entry;

    IResultView::Requests requests = m_requestsFor ? m_requestsFor(entry->id) : IResultView::Requests{};
    const QString id = entry->id;
    requests.pinChanged = [this, id, forward = std::move(requests.pinChanged)](bool pinned) {
        onPinChanged(id, pinned);
        if (forward)
            forward(pinned);
    };
    requests.closed = [this, id, forward = std::move(requests.closed)] {
        // Dropping the view clears its requests, this function among them: nothing captured is used after.
        const auto next = forward;
        ResultWindows *self = this;
        const QString closedId = id;
        if (next)
            next();
        self->onClosed(closedId);
    };
    entry->view->setRequests(std::move(requests));
    if (pinned)
        entry->view->setPinned(true);
    return entry->view;
}

ResultWindows::Entry *ResultWindows::entry(const QString &id) const
{
    for (Entry *entry : m_entries) {
        if (entry->id == id)
            return entry;
    }
    return nullptr;
}

IResultView *ResultWindows::find(const QString &id) const
{
    const Entry *found = entry(id);
    return found ? found->view : nullptr;
}

QList<IResultView *> ResultWindows::pinned() const
{
    QList<IResultView *> views;
    for (const Entry *entry : m_entries) {
        if (entry->pinned)
            views.append(entry->view);
    }
    return views;
}

void ResultWindows::onPinChanged(const QString &id, bool pinned)
{
    Entry *changed = entry(id);
    if (!changed)
        return;
    changed->pinned = pinned;
    // An unpinned window with no current one takes that place, so the next session replaces it.
    if (!pinned && !m_current)
        m_current = changed;
}

void ResultWindows::onClosed(const QString &id)
{
    if (Entry *closed = entry(id))
        drop(closed);
}

void ResultWindows::drop(Entry *entry)
{
    m_entries.removeOne(entry);
    if (m_current == entry)
        m_current = nullptr;
    entry->view->setRequests({});
    entry->view->discard();
    delete entry;
}
