// The platform contract on macOS: Platform::create() must make a complete MacPlatform. Linking this program
// fails for every function of the contract that the Mac files leave undefined.
#include "platform/Platform.h"

#include <cstdio>

int main()
{
    std::unique_ptr<Platform> (*create)() = &Platform::create;
    std::printf("Platform::create at %p\n", reinterpret_cast<void *>(create));
    return 0;
}
