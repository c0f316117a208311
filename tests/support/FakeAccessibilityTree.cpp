#include "FakeAccessibilityTree.h"
