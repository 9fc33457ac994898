// Does nothing either, but has the libraries that the product has: what loading them costs.

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
