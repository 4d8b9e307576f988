# Cross build for Windows x86-64 with MinGW-w64 (posix thread model).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(_orasnap_triplet x86_64-w64-mingw32)
set(CMAKE_C_COMPILER   ${_orasnap_triplet}-gcc-posix)
set(CMAKE_CXX_COMPILER ${_orasnap_triplet}-g++-posix)
set(CMAKE_RC_COMPILER  ${_orasnap_triplet}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${_orasnap_triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# libgcc, libstdc++ and winpthread go into every PE file, so that it imports only
# system DLLs. -static-libgcc -static-libstdc++ alone would leave libwinpthread-1.dll.
set(CMAKE_EXE_LINKER_FLAGS_INIT    "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")

# A cache entry: a plain set() here would silently override a -D on the command line.
set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/../tools/wine-run.sh" CACHE FILEPATH
    "Runs the cross-built executables")
