// Stand-in (see objc/NSObject.h): the power-source description keys. Duskwell reads the
// descriptions by name in portable code, so nothing of this header is used directly.
#pragma once
