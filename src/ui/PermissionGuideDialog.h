#pragma once

#include <QDialog>
#include <QtGlobal>

#include <functional>

class Platform;
class QLabel;
class QPushButton;

// A modal guide that explains which permission a feature lacks, opens the system's settings pane where it
// is granted, and lets the user check again. At most one guide exists at a time, and the guide of one
// permission opens at most once every 30 seconds. GUI thread only.
class PermissionGuideDialog final : public QDialog
{
    Q_OBJECT

public:
    enum PermissionType {
        ScreenRecording = 0,
        Accessibility = 1,
    };

    // True when the permission is granted, possibly after the guide was shown; false when it is still
    // missing, when a guide is already open (it is brought to the front instead), or within 30 s of the last
    // guide of this type (nothing is shown then).
    static bool ensurePermission(Platform &platform, PermissionType type, QWidget *parent = nullptr);

    PermissionGuideDialog(Platform &platform, PermissionType type, QWidget *parent = nullptr);

    PermissionType permissionType() const { return m_type; }

    // Test hooks. The clock gives monotonic milliseconds (default: a process-wide elapsed timer). The runner
    // replaces the modal run of the guide: it receives the open guide and returns the dialog result (the
    // guide is still the open one while the runner runs). resetStateForTesting() forgets the throttle.
    static void setClockForTesting(std::function<qint64()> clock);
    static void setRunnerForTesting(std::function<int(PermissionGuideDialog *)> runner);
    static void resetStateForTesting();
    // The guide currently open, if any.
    static PermissionGuideDialog *openGuide();

public slots:
    // Opens the system's settings pane of the type. Stays open.
    void openSystemSettings();
    // Probes again; accepts the dialog when granted, otherwise brings it back to the front.
    void recheckPermission();

protected:
    void changeEvent(QEvent *event) override;

private:
    void retranslateUi();
    static bool probe(Platform &platform, PermissionType type);
    static void bringToFront(Platform &platform, QWidget *window);

    Platform &m_platform;
    PermissionType m_type;
    QLabel *m_titleLabel = nullptr;
    QLabel *m_bodyLabel = nullptr;
    QPushButton *m_openButton = nullptr;
    QPushButton *m_recheckButton = nullptr;
    QPushButton *m_laterButton = nullptr;
};
