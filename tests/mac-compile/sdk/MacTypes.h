// Declaration-only stand-in for Apple's MacTypes.h: what the Mac sources use, as Apple's headers declare it.
#pragma once

#include <stdint.h>

typedef unsigned char Boolean;
typedef uint16_t UInt16;
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef SInt32 OSStatus;
typedef UInt32 FourCharCode;
typedef FourCharCode OSType;
typedef UInt32 OptionBits;
typedef unsigned long ItemCount;
typedef unsigned long ByteCount;
typedef UInt16 UniChar;

enum { noErr = 0 };
