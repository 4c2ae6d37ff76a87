/* make check-wine: loads each module named on the command line as CPython
   3.8+ loads an extension module on Windows, and finds its init function.
   Loading runs the module's DLL start-up code (the C runtime's
   initialisation and the C++ static constructors); nothing of the module
   itself is called. */
#include <stdio.h>
#include <windows.h>

int wmain(int argc, wchar_t** argv) {
    for (int i = 1; i < argc; i++) {
        HMODULE module = LoadLibraryExW(argv[i], NULL,
                                        LOAD_LIBRARY_SEARCH_DEFAULT_DIRS | LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR);
        if (module == NULL) {
            printf("%ls: LoadLibraryExW failed, error %lu\n", argv[i], GetLastError());
            return 1;
        }
        FARPROC init = GetProcAddress(module, "PyInit_vxrcomn");
        printf("%ls: loaded, PyInit_vxrcomn %s\n", argv[i], init != NULL ? "found" : "missing");
        if (init == NULL || !FreeLibrary(module)) return 1;
    }
    return 0;
}
