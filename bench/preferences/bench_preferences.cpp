// How long the preferences window takes to appear and to follow a language or appearance switch.
// Run with QT_QPA_PLATFORM=offscreen (or under X11) and a private XDG_CONFIG_HOME.
#include "config/ConfigManager.h"
#include "i18n/LanguageManager.h"
#include "ui/preferences/PreferencesWindow.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QPalette>
#include <QTextStream>

#include <algorithm>
#include <vector>

namespace {

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0.0 : values.at(values.size() / 2);
}

QPalette paletteFor(bool dark)
{
    QPalette palette;
    palette.setColor(QPalette::Window, dark ? QColor(0x2d, 0x2d, 0x2d) : QColor(0xef, 0xef, 0xef));
    palette.setColor(QPalette::WindowText, dark ? QColor(0xe0, 0xe0, 0xe0) : QColor(0x33, 0x33, 0x33));
    return palette;
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Vontrel"));
    QCoreApplication::setApplicationName(QStringLiteral("Vontrel"));
    ConfigManager::instance()->resetToDefaults();
    QTextStream out(stdout);

    QElapsedTimer timer;
    timer.start();
    auto *window = new PreferencesWindow;
    const double constructMs = double(timer.nsecsElapsed()) / 1e6;
    timer.restart();
    window->show();
    QCoreApplication::processEvents();
    const double showMs = double(timer.nsecsElapsed()) / 1e6;

    const int rounds = 20;
    std::vector<double> languageMs;
    std::vector<double> themeMs;
    for (int i = 0; i < rounds; ++i) {
        timer.restart();
        LanguageManager::instance()->applyLanguage(i % 2 ? QStringLiteral("en") : QStringLiteral("zh-CN"));
        QCoreApplication::processEvents(); // the LanguageChange events are posted
        languageMs.push_back(double(timer.nsecsElapsed()) / 1e6);

        timer.restart();
        QApplication::setPalette(paletteFor(i % 2 == 0));
        QCoreApplication::processEvents();
        themeMs.push_back(double(timer.nsecsElapsed()) / 1e6);
    }

    out << "preferences window: construct " << constructMs << " ms, first show " << showMs << " ms\n";
    out << "language switch (all pages re-labelled), median of " << rounds << ": " << median(languageMs)
        << " ms, max " << *std::max_element(languageMs.begin(), languageMs.end()) << " ms\n";
    out << "light/dark switch (style sheet re-applied), median of " << rounds << ": " << median(themeMs)
        << " ms, max " << *std::max_element(themeMs.begin(), themeMs.end()) << " ms\n";
    delete window;
    return 0;
}
