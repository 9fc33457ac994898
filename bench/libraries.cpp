// Does nothing either, but has the product's libraries: the cost of loading them.

#include <windows.h>

#include <objbase.h>
#include <oleauto.h>

int wmain(int argumentCount, wchar_t** /*arguments*/) {
    if (argumentCount == 0) {  // never
        ::RegCloseKey(nullptr);
        ::CoUninitialize();
        ::SysFreeString(nullptr);
    }
    return 0;
}
