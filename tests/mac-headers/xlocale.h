// Stand-in (see objc/NSObject.h): what libc++ takes from Darwin's C library when it sees
// __APPLE__, for the check of the C++ files' macOS branches on top of glibc. glibc declares
// the rest; its isdigit_l and isxdigit_l macros read a real locale, Darwin passes 0.
#pragma once
#include <ctype.h>
#include <locale.h>
#include <stdio.h>
#undef isdigit_l
#undef isxdigit_l
extern "C" {
int sscanf_l(const char* s, locale_t loc, const char* format, ...);
int snprintf_l(char* s, size_t n, locale_t loc, const char* format, ...);
int asprintf_l(char** ret, locale_t loc, const char* format, ...);
}
