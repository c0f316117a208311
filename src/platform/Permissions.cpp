#include "platform/Permissions.h"

namespace {

struct TestProbes
{
    std::function<bool()> accessibility;
    std::function<bool()> screenRecording;
};

TestProbes &testProbes()
{
    static TestProbes probes;
    return probes;
}

} // namespace

bool Permissions::hasAccessibilityPermission()
{
    if (testProbes().accessibility)
        return testProbes().accessibility();
    return vontrelNativeHasAccessibilityPermission();
}

bool Permissions::hasScreenRecordingPermission()
{
    if (testProbes().screenRecording)
        return testProbes().screenRecording();
    return vontrelNativeHasScreenRecordingPermission();
}

void Permissions::activateApp()
{
    vontrelNativeActivateApp();
}

bool Permissions::hasSystemSettingsPanes()
{
    return vontrelNativeHasSystemSettingsPanes();
}

QString Permissions::sessionLimitation()
{
    return vontrelNativeSessionLimitation();
}

void Permissions::setProbesForTesting(std::function<bool()> accessibility,
                                      std::function<bool()> screenRecording)
{
    testProbes() = TestProbes{std::move(accessibility), std::move(screenRecording)};
}
