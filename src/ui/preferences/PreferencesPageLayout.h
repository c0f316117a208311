#pragma once

class QFrame;
class QLabel;
class QVBoxLayout;
class QWidget;

// The building blocks every preferences page is laid out with; the window's style sheet draws them by their
// object names.
namespace PreferencesPageLayout {

// The page's own layout: vertical, margins 24, spacing 18, aligned to the top.
QVBoxLayout *pageLayout(QWidget *page);
// A label named "SettingsTitle".
QLabel *titleLabel(QWidget *parent);
// A "SettingsCard" frame with a vertical layout of the given margins and spacing.
QFrame *card(QWidget *parent, int left, int top, int right, int bottom, int spacing);
// A horizontal line named "CardDivider".
QFrame *divider(QWidget *parent);
// A word-wrapped label with the given object name ("SettingsHelpText", "WarningText", ...).
QLabel *wrappedLabel(QWidget *parent, const char *objectName);

} // namespace PreferencesPageLayout
