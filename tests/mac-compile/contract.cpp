// Takes the address of every function the portable code expects the compiled-in backend to define, so that
// linking this program fails for each one the Mac files leave out.
#include "ocr/IOcrProvider.h"
#include "platform/AutoStartManager.h"
#include "platform/CopyShortcut.h"
#include "platform/DockIcon.h"
#include "platform/IHotkeyBackend.h"
#include "platform/ISelectedTextProvider.h"
#include "platform/Permissions.h"
#include "platform/RoundedCornerHelper.h"

#include <cstdio>

namespace {

template<typename Function>
const void *address(Function *function)
{
    return reinterpret_cast<const void *>(function);
}

} // namespace

int main()
{
    const void *const contract[] = {
        address(&vontrelCreateHotkeyBackend),
        address(&vontrelCreateSelectedTextProvider),
        address(&vontrelSendNativeCopyKeystroke),
        address(&vontrelNativeHasAccessibilityPermission),
        address(&vontrelNativeHasScreenRecordingPermission),
        address(&vontrelNativeActivateApp),
        address(&vontrelNativeHasSystemSettingsPanes),
        address(&vontrelNativeSessionLimitation),
        address(&setDockIconVisible),
        address(&vontrelTrayRecoloursIcons),
        address(&RoundedCornerHelper::prepareWindow),
        address(&RoundedCornerHelper::applyRoundedCorners),
        address(&vontrelCreateAutoStartBackend),
        address(&vontrelCreateOcrProvider),
    };
    int defined = 0;
    for (const void *symbol : contract)
        defined += symbol != nullptr;
    std::printf("%d contract functions defined\n", defined);
    return 0;
}
