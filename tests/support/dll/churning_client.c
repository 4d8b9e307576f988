/* A client library whose calls hang while they keep taking the locks that the
   whole process needs: one allocates and frees in a loop (the heap locks), the
   other loads and frees a library in a loop (the loader lock). A thread that
   is ended in there must not leave one of those locks held. */
#include <windows.h>

#include <stdlib.h>

__declspec(dllexport) void churn_heap(void)
{
    const HANDLE heap = GetProcessHeap();
    SIZE_T size = 16;
    for (;;) {
        volatile char* block = (volatile char*)HeapAlloc(heap, 0, size);
        volatile char* own = (volatile char*)malloc(size);
        if (block != NULL) {
            block[0] = 1;
            HeapFree(heap, 0, (void*)block);
        }
        if (own != NULL) {
            own[0] = 1;
            free((void*)own);
        }
        /* From a few bytes to 64 KiB. */
        size = size * 7 % 65536 + 16;
    }
}

__declspec(dllexport) void churn_loader(void)
{
    for (;;) {
        const HMODULE module = LoadLibraryW(L"msimg32.dll");
        if (module != NULL)
            FreeLibrary(module);
    }
}
