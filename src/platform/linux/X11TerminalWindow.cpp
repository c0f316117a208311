#include "platform/linux/X11TerminalWindow.h"

#include "log/LogCategories.h"
#include "platform/linux/X11Session.h"

#include <QDebug>
#include <QSet>

#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>

namespace {

struct FreeDeleter
{
    void operator()(void *p) const { std::free(p); }
};
template<typename T>
using Reply = std::unique_ptr<T, FreeDeleter>;

// Both WM_CLASS strings as the emulators set them, lower-cased; several set only one of them to a telling
// name, and distributions rename some (st as stterm, urxvt as rxvt-unicode).
const QSet<QString> &terminalClasses()
{
    static const QSet<QString> classes = {
        QStringLiteral("xterm"),
        QStringLiteral("uxterm"),
        QStringLiteral("urxvt"),
        QStringLiteral("rxvt"),
        QStringLiteral("rxvt-unicode"),
        QStringLiteral("gnome-terminal"),
        QStringLiteral("gnome-terminal-server"),
        QStringLiteral("org.gnome.terminal"),
        QStringLiteral("org.gnome.console"),
        QStringLiteral("kgx"),
        QStringLiteral("org.gnome.ptyxis"),
        QStringLiteral("ptyxis"),
        QStringLiteral("konsole"),
        QStringLiteral("org.kde.konsole"),
        QStringLiteral("yakuake"),
        QStringLiteral("alacritty"),
        QStringLiteral("kitty"),
        QStringLiteral("foot"),
        QStringLiteral("footclient"),
        QStringLiteral("xfce4-terminal"),
        QStringLiteral("tilix"),
        QStringLiteral("com.gexperts.tilix"),
        QStringLiteral("terminator"),
        QStringLiteral("st"),
        QStringLiteral("st-256color"),
        QStringLiteral("stterm"),
        QStringLiteral("wezterm"),
        QStringLiteral("org.wezfurlong.wezterm"),
        QStringLiteral("lxterminal"),
        QStringLiteral("mate-terminal"),
        QStringLiteral("qterminal"),
        QStringLiteral("terminology"),
        QStringLiteral("sakura"),
        QStringLiteral("guake"),
        QStringLiteral("tilda"),
        QStringLiteral("eterm"),
        QStringLiteral("aterm"),
        QStringLiteral("cool-retro-term"),
        QStringLiteral("termite"),
        QStringLiteral("ghostty"),
        QStringLiteral("com.mitchellh.ghostty"),
        QStringLiteral("contour"),
        QStringLiteral("rio"),
    };
    return classes;
}

} // namespace

bool X11TerminalWindow::isTerminalClass(const QString &instanceName, const QString &className)
{
    const QSet<QString> &classes = terminalClasses();
    return classes.contains(instanceName.toLower()) || classes.contains(className.toLower());
}

bool X11TerminalWindow::focusedWindowIsTerminal()
{
    xcb_connection_t *connection = X11Session::connection();
    if (!connection)
        return false;
    Reply<xcb_get_input_focus_reply_t> focus(
        xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
    if (!focus || focus->focus == XCB_NONE || focus->focus == XCB_INPUT_FOCUS_POINTER_ROOT)
        return false;

    // Toolkits often focus a child of the top-level (a focus proxy, an embedded widget); WM_CLASS sits on
    // the client's top-level window. A handful of levels reaches it; the bound keeps a broken tree finite.
    xcb_window_t window = focus->focus;
    for (int depth = 0; depth < 8 && window != XCB_NONE; ++depth) {
        Reply<xcb_get_property_reply_t> property(xcb_get_property_reply(
            connection, xcb_get_property(connection, 0, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, 256),
            nullptr));
        const int length = property ? xcb_get_property_value_length(property.get()) : 0;
        if (length > 0) {
            // "instance\0class\0"
            const QByteArray value(static_cast<const char *>(xcb_get_property_value(property.get())), length);
            const QList<QByteArray> parts = value.split('\0');
            const QString instanceName = QString::fromLocal8Bit(parts.value(0));
            const QString className = QString::fromLocal8Bit(parts.value(1));
            const bool terminal = isTerminalClass(instanceName, className);
            qCDebug(lcPlatform).noquote() << "X11TerminalWindow: focused window class" << instanceName
                                          << className << "terminal =" << terminal;
            return terminal;
        }
        Reply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(connection, xcb_query_tree(connection, window), nullptr));
        if (!tree || tree->parent == tree->root)
            break;
        window = tree->parent;
    }
    return false;
}
