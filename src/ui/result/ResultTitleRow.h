#pragma once

#include "ui/ThemeColors.h"

#include <QObject>

class QHBoxLayout;
class QLabel;
class QPushButton;
class QWidget;

// The result window's top row: icon, title, the pin toggle and the close button.
class ResultTitleRow final : public QObject
{
    Q_OBJECT

public:
    ResultTitleRow(QWidget *window, const ThemeColors &colors);

    QHBoxLayout *layout() const { return m_layout; }
    // Shows the pin as on or off; emits nothing.
    void showPinned(bool pinned);
    void retranslate();

signals:
    void pinClicked();
    void closeClicked();

private:
    QHBoxLayout *m_layout = nullptr;
    QLabel *m_title = nullptr;
    QPushButton *m_pin = nullptr;
    QPushButton *m_close = nullptr;
    bool m_pinned = false;
};
