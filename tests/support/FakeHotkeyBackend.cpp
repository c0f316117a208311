#include "FakeHotkeyBackend.h"
