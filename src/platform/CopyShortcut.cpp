#include "platform/CopyShortcut.h"

#include "platform/Permissions.h"

namespace {

std::function<bool()> &testSender()
{
    static std::function<bool()> sender;
    return sender;
}

} // namespace

bool CopyShortcut::sendCopy()
{
    if (!Permissions::hasAccessibilityPermission())
        return false;
    if (testSender())
        return testSender()();
    return vontrelSendNativeCopyKeystroke();
}

void CopyShortcut::setSenderForTesting(std::function<bool()> sender)
{
    testSender() = std::move(sender);
}
