# This machine's processor with another libc, musl: shows that the server asks for no more than POSIX and threads. The
# C++ library's headers serve it too, since the server links nothing of that library.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_CXX_COMPILER g++)
set(CMAKE_CXX_COMPILER_WORKS TRUE)  # no program of the C++ library's can be made
set(musl /usr/lib/x86_64-linux-musl/musl-gcc.specs)
execute_process(COMMAND g++ -dumpversion OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND g++ -print-file-name=include OUTPUT_VARIABLE own OUTPUT_STRIP_TRAILING_WHITESPACE)
set(headers "-nostdinc")
foreach(directory IN ITEMS /usr/include/c++/${version} /usr/include/x86_64-linux-gnu/c++/${version} ${own}
                           /usr/include/x86_64-linux-musl)
  string(APPEND headers " -isystem ${directory}")
endforeach()
# What the C++ library's headers take for granted about glibc.
set(CMAKE_CXX_FLAGS_INIT "${headers} -include ${CMAKE_CURRENT_LIST_DIR}/musl_headers.h")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -specs=${musl}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
