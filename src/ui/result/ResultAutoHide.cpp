#include "ui/result/ResultAutoHide.h"

#include "log/LogCategories.h"

#include <QDebug>
#include <QEvent>
#include <QGuiApplication>
#include <QTimer>
#include <QWidget>
#include <QWindow>

namespace {

constexpr int kGraceMs = 200;
// Within the grace period a lost activation is judged again once the activation has settled.
constexpr int kSettleMs = 250;

} // namespace

ResultAutoHide::ResultAutoHide(QWidget *window, std::function<bool()> isPinned)
    : QObject(window)
    , m_window(window)
    , m_isPinned(std::move(isPinned))
{
    window->installEventFilter(this);
}

ResultAutoHide::~ResultAutoHide()
{
    watch(false);
}

bool ResultAutoHide::mayHide() const
{
    return !m_isPinned() && !m_inGrace && m_window->isVisible();
}

void ResultAutoHide::watch(bool on)
{
    QObject::disconnect(m_focusWindowConnection);
    QObject::disconnect(m_appStateConnection);
    if (!on)
        return;
    m_focusWindowConnection =
        connect(qGuiApp, &QGuiApplication::focusWindowChanged, this, &ResultAutoHide::onFocusWindowChanged);
    m_appStateConnection =
        connect(qGuiApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
            if (mayHide() && state != Qt::ApplicationActive) {
                qCDebug(lcUi).noquote() << "ResultWindow: application inactive, hiding";
                m_window->hide();
            }
        });
}

bool ResultAutoHide::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != m_window)
        return false;
    switch (event->type()) {
    case QEvent::Show:
        m_inGrace = true;
        QTimer::singleShot(kGraceMs, this, [this] { m_inGrace = false; });
        watch(true);
        break;
    case QEvent::Hide:
        watch(false);
        break;
    case QEvent::WindowDeactivate:
    case QEvent::FocusOut:
        if (m_isPinned())
            return true;
        if (!m_inGrace) {
            qCDebug(lcUi).noquote() << "ResultWindow: deactivated, hiding";
            m_window->hide();
            return true;
        }
        QTimer::singleShot(kSettleMs, this, [this] {
            if (!m_isPinned() && !m_window->isActiveWindow())
                m_window->hide();
        });
        return true;
    default:
        break;
    }
    return false;
}

void ResultAutoHide::onFocusWindowChanged(QWindow *focus)
{
    if (!mayHide() || !focus)
        return;
    QWindow *own = m_window->windowHandle();
    if (!own || focus == own)
        return;
    // A context menu or another popup opened from this window is still this window's business.
    if (focus->transientParent() == own && (focus->flags() & Qt::Popup) == Qt::Popup)
        return;
    qCDebug(lcUi).noquote() << "ResultWindow: focus moved to another window, hiding";
    m_window->hide();
}
