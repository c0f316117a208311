// Stand-ins for the session test: a recogniser that answers by the image's width and can be held, a view
// without widgets that records what the session showed, and the clipboard read and written as formats.
#pragma once

#include "SessionRig.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <QPointer>
#include <QSemaphore>

#include <functional>
#include <map>
#include <memory>

namespace SessionFakes {

using Formats = QList<QPair<QString, QByteArray>>;

// Answers by the image's width; the recognition of a held width waits until released.
class FakeOcrProvider final : public IOcrProvider
{
public:
    QString recognize(QImage image) override
    {
        if (const auto gate = gates.find(image.width()); gate != gates.end())
            gate->second->acquire();
        return answers.value(image.width(), answer);
    }
    bool isAvailable() override { return available; }
    // Before the recognition starts: the map is read from the pool thread.
    void hold(int width) { gates[width] = std::make_unique<QSemaphore>(); }
    void release(int width) { gates.at(width)->release(); }
    void releaseAll()
    {
        for (auto &gate : gates)
            gate.second->release(100);
    }

    QString answer;
    QHash<int, QString> answers;
    bool available = true;
    std::map<int, std::unique_ptr<QSemaphore>> gates;
};

// Records what the session asked the window to show; the user's side is called through its requests.
class FakeView final : public QObject, public IResultView
{
public:
    void setRequests(Requests value) override { requests = std::move(value); }
    void showRecognising(const QImage &) override { recognising = true; }
    void showSource(const QString &text, bool) override { source = text; }
    void beginResult() override
    {
        result.clear();
        error.clear();
        processing = true;
        stopped = false;
    }
    void appendResult(const QString &chunk) override { result += chunk; }
    void endResult(ResultEnd end) override
    {
        processing = false;
        stopped = end == ResultEnd::Stopped;
    }
    void showError(const QString &message) override
    {
        processing = false;
        error = message;
    }
    void showMessage(Message) override {}
    void present() override { presented = true; }
    void setPinned(bool value) override
    {
        if (value == pinned)
            return;
        pinned = value;
        if (const auto request = requests.pinChanged)
            request(value);
    }
    bool isPinned() const override { return pinned; }
    bool isVisible() const { return presented; }
    void discard() override
    {
        requests = {};
        deleteLater();
    }
    // The user hides the window.
    void close()
    {
        if (const auto request = requests.closed)
            request();
    }

    Requests requests;
    bool recognising = false;
    bool presented = false;
    bool pinned = false;
    bool processing = false;
    bool stopped = false;
    QString source;
    QString result;
    QString error;
};

inline void setClipboard(const Formats &formats)
{
    auto *data = new QMimeData;
    for (const auto &[format, bytes] : formats)
        data->setData(format, bytes);
    QGuiApplication::clipboard()->setMimeData(data);
}

inline Formats clipboardFormats()
{
    Formats formats;
    if (const QMimeData *data = QGuiApplication::clipboard()->mimeData()) {
        for (const QString &format : data->formats())
            formats.append({format, data->data(format)});
    }
    return formats;
}

// The session under test with its fakes, and the user's side of the copy keystroke.
class SessionFixture
{
protected:
    bool startRig()
    {
        QGuiApplication::clipboard()->clear();
        m_ocr = new FakeOcrProvider;
        m_rig = std::make_unique<SessionRig>(std::unique_ptr<IOcrProvider>(m_ocr), false,
                                             [] { return new FakeView; });
        return m_rig->listening;
    }
    void stopRig()
    {
        m_ocr->releaseAll();
        m_rig.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    FakeView *current() const { return dynamic_cast<FakeView *>(m_rig->controller->currentWindow()); }
    FakeView *pressAndWait(int hotkey, int bound = 10000)
    {
        QPointer<FakeView> old = current();
        m_rig->controller->onHotkeyTriggered(hotkey);
        return m_rig->waitForNewWindow<FakeView>(old, bound);
    }
    // A capture hotkey whose region selection yields an image of this width.
    void captureWidth(int width = 40)
    {
        m_rig->controller->onHotkeyTriggered(HotkeyManager::CaptureHotkey);
        emit m_rig->capture.captureDone(QImage(width, 20, QImage::Format_RGB32));
    }
    void setCopy(std::function<bool()> sender) { m_rig->fake()->copy = std::move(sender); }
    void copyAnswers(const QString &selection)
    {
        setCopy([selection] {
            QGuiApplication::clipboard()->setText(selection);
            return true;
        });
    }

    std::unique_ptr<SessionRig> m_rig;
    FakeOcrProvider *m_ocr = nullptr;
};

} // namespace SessionFakes
