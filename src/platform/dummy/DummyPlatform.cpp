#include "platform/dummy/DummyPlatform.h"

#include "ocr/IOcrProvider.h"

#include <QCoreApplication>
#include <QWindow>

namespace {

class NoHotkeys final : public IHotkeyBackend
{
public:
    QString platformTag() const override { return QStringLiteral("none"); }
    std::pair<quint32, quint32> nativeKey(const HotkeyChord &) const override { return {0, 0}; }
    int installHandler(QString *error) override
    {
        *error = QStringLiteral("Global hotkeys are not supported on this system");
        return 1;
    }
    void removeHandler() override {}
    int registerHotkey(int, const HotkeyChord &, const QString &, QString *error) override
    {
        return installHandler(error);
    }
    void unregisterHotkey(int) override {}
};

class NoSelection final : public ISelectedTextProvider
{
public:
    QString selectedText() override { return QString(); }
};

class NoRecognition final : public IOcrProvider
{
public:
    QString recognize(QImage) override { return QString(); }
    bool isAvailable() override { return false; }
};

class NoAutoStart final : public IAutoStartBackend
{
public:
    bool isEnabled() const override { return false; }
    bool enable() override { return false; }
    bool disable() override { return true; }
};

} // namespace

std::unique_ptr<Platform> Platform::create()
{
    return std::make_unique<DummyPlatform>();
}

std::unique_ptr<IHotkeyBackend> DummyPlatform::createHotkeyBackend()
{
    return std::make_unique<NoHotkeys>();
}

std::unique_ptr<ISelectedTextProvider> DummyPlatform::createSelectedTextProvider()
{
    return std::make_unique<NoSelection>();
}

std::unique_ptr<IOcrProvider> DummyPlatform::createOcrProvider(const QString &)
{
    return std::make_unique<NoRecognition>();
}

std::unique_ptr<IAutoStartBackend> DummyPlatform::createAutoStartBackend()
{
    return std::make_unique<NoAutoStart>();
}

void DummyPlatform::grabScreen(QScreen *, QObject *context, std::function<void(const ScreenGrab &)> done)
{
    if (context)
        done({QImage(), QStringLiteral("Screen capture is not supported on this system")});
}

Platform::GuideText DummyPlatform::permissionGuideText(Permission) const
{
    return {QCoreApplication::translate("Permissions", "Not supported on this system"), sessionLimitation()};
}

QString DummyPlatform::sessionLimitation() const
{
    return QCoreApplication::translate(
        "Permissions", "Vontrel has no support for this system's desktop: global hotkeys, screen capture and "
                       "reading the selected text are unavailable. Translating typed or copied text works.");
}

void DummyPlatform::activateWindow(QWindow *window, quint64)
{
    if (!window)
        return;
    window->raise();
    window->requestActivate();
}
