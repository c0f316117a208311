#pragma once

// The services wired to a session controller as start-up does; one loopback stream answers every request.

#include "FakePlatform.h"
#include "LoopbackHttpServer.h"
#include "SseBuilder.h"

#include "ai/ActionService.h"
#include "capture/CaptureService.h"
#include "config/ConfigManager.h"
#include "ocr/IOcrProvider.h"
#include "platform/ClipboardService.h"
#include "platform/HotkeyManager.h"
#include "platform/Platform.h"
#include "session/SessionController.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>
#include <QTest>
#include <QThreadPool>

#include <memory>

// The chunks as streamed deltas, or one error event; held open after the chunks until releaseHeld().
inline ScriptedResponse stream(const QStringList &chunks, bool hold = false, const QString &error = {})
{
    ScriptedResponse response = ScriptedResponse::sse();
    if (!error.isEmpty())
        response.send("data: {\"error\":{\"message\":\"" + error.toUtf8() + "\"}}\n\n");
    for (const QString &chunk : chunks)
        response.send(Sse::delta(chunk));
    if (hold)
        response.holdUntilReleased();
    return response.send("data: [DONE]\n\n");
}

struct SessionRig
{
    // With desktop: the real system (X11), its hotkeys and selection reader; otherwise a FakePlatform and
    // neither.
    SessionRig(std::unique_ptr<IOcrProvider> ocrProvider, bool desktop, ResultWindows::Factory views)
        : platform(desktop ? Platform::create() : std::make_unique<FakePlatform>())
        , hotkeys(desktop ? new HotkeyManager(platform->createHotkeyBackend()) : nullptr)
        , ocr(std::move(ocrProvider))
        , selectedText(desktop ? platform->createSelectedTextProvider() : nullptr)
        , controller(std::make_unique<SessionController>(std::move(views)))
    {
        listening = serveAsProvider(server);
        controller->setConfig(ConfigManager::instance());
        controller->setPlatform(platform.get());
        controller->setCaptureService(&capture);
        controller->setClipboardService(&clipboard);
        controller->setSelectedTextProvider(selectedText.get());
        controller->setHotkeyManager(hotkeys.get());
        controller->setOcrProvider(ocr.get());
        controller->setActionService(&actions);
    }
    // Default settings with the server as the provider, which streams "Hello" in two pieces.
    static bool serveAsProvider(LoopbackHttpServer &server)
    {
        const bool listening = server.listen();
        server.setFallback(stream({QStringLiteral("Hel"), QStringLiteral("lo")}));
        ConfigManager *config = ConfigManager::instance();
        config->resetToDefaults();
        config->setApiUrl(server.baseUrl("/v1"));
        config->setApiKey(QStringLiteral("test-key"));
        config->setModel(QStringLiteral("test-model"));
        return listening;
    }
    ~SessionRig()
    {
        controller.reset();
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    // Waits for a shown current window other than `old`.
    template<typename View>
    View *waitForNewWindow(const View *old, int bound)
    {
        View *window = nullptr;
        auto ready = [&] {
            window = dynamic_cast<View *>(controller->currentWindow());
            return window && window != old && window->isVisible();
        };
        return QTest::qWaitFor(ready, bound) ? window : nullptr;
    }

    // The text after "Input:" in the user message of request `index` (-1: the last one).
    QString promptInput(int index = 0) const
    {
        const QList<RecordedRequest> requests = server.requests();
        return inputOf(requests.at(index < 0 ? requests.size() - 1 : index));
    }
    static QString inputOf(const RecordedRequest &request)
    {
        const QJsonDocument body = QJsonDocument::fromJson(request.body);
        const QString prompt = body["messages"].toArray().last()["content"].toString();
        const qsizetype at = prompt.lastIndexOf(QStringLiteral("\n\nInput:\n"));
        return at < 0 ? QString() : prompt.mid(at + 9);
    }

    // The provider as a user meets it: a text with "fail" in it fails the first time it is sent; one with
    // "slow" sends a first piece and then holds its answer open until releaseHeld(); any other is answered
    // at once with "answer to" and the text.
    void answerByText()
    {
        server.setHandler([failed = QSet<QString>()](const RecordedRequest &request) mutable {
            const QString input = inputOf(request);
            if (input.contains(QLatin1String("fail")) && !failed.contains(input)) {
                failed.insert(input);
                return stream({}, false, QStringLiteral("model overloaded"));
            }
            if (input.contains(QLatin1String("slow")))
                return stream({QStringLiteral("partial ") + input}, true);
            return stream({QStringLiteral("answer to ") + input});
        });
    }

    // The offscreen rig's system, for the test to set permissions and the copy keystroke.
    FakePlatform *fake() const { return static_cast<FakePlatform *>(platform.get()); }

    LoopbackHttpServer server; // in the order start-up creates the services
    std::unique_ptr<Platform> platform;
    CaptureService capture;
    ClipboardService clipboard;
    std::unique_ptr<HotkeyManager> hotkeys;
    std::unique_ptr<IOcrProvider> ocr;
    std::unique_ptr<ISelectedTextProvider> selectedText;
    ActionService actions{nullptr};
    std::unique_ptr<SessionController> controller;
    bool listening = false;
};
