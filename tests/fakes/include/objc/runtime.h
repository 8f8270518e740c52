// A fake for the runtime of Objective-C, as C sees it.
#pragma once

using BOOL = bool;  // as on arm64
using Class = struct objc_class*;
using SEL = struct objc_selector*;

extern "C" {
Class objc_getClass(const char* name);
SEL sel_registerName(const char* name);
BOOL class_respondsToSelector(Class type, SEL selector);
}
